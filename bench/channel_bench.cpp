// Acknowledgements end to end: records posted from the benchmark's thread,
// encoded and sent by the worker "CLK_FWM_BKF", received by the negotiation
// peer over the loopback interface. Reports messages per second and the
// channel allocations each post costs.
#include <benchmark/benchmark.h>

#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/channel.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/recorder.hpp"

namespace {

// One worker per process, brought up on first use.
struct Channel {
  Channel() {
    fwmsim::resetBoard();
    fwmsim::setPeerPort(peer.port());
    FWM_SRV_CLK_CreateBkfTask();
    fwmsim::clock().settle();
  }
  fwmsim::Peer peer;
};

Channel &channel() {
  static auto *c = new Channel;
  return *c;
}

void BM_AckToPeer(benchmark::State &state) {
  Channel &ch = channel();
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  if (h.client == 0) {
    state.SkipWithError("channel not ready");
    return;
  }
  const auto batch = static_cast<uint32_t>(state.range(0));
  ClkAnnInfo info{};
  info.pktLen = 96;
  for (size_t i = 0; i < sizeof info.annPkt; ++i) info.annPkt[i] = static_cast<uint8_t>(i);

  uint64_t messages = 0;
  uint64_t allocations = 0;
  for (auto _ : state) {
    const uint64_t before = fwmsim::memory().allocations();
    for (uint32_t i = 0; i < batch; ++i) {
      info.ifIndex = i;
      (void)FWM_SRV_BKF_SendAckMsg(&info);
    }
    allocations += fwmsim::memory().allocations() - before;
    for (uint32_t i = 0; i < batch; ++i) {
      auto got = ch.peer.receive(2000);
      if (!got || got->size() != CLK_BKF_ACK_MSG_LEN) {
        state.SkipWithError("message lost or malformed");
        return;
      }
    }
    messages += batch;
    state.PauseTiming();
    fwmsim::recorder().clear();  // keeps the call log from growing without bound
    state.ResumeTiming();
  }
  state.counters["msgs_per_s"] = benchmark::Counter(static_cast<double>(messages), benchmark::Counter::kIsRate);
  state.counters["allocs_per_msg"] =
      messages == 0 ? 0.0 : static_cast<double>(allocations) / static_cast<double>(messages);
}

BENCHMARK(BM_AckToPeer)->Arg(1)->Arg(64)->UseRealTime();

}  // namespace
