// Acknowledgements end to end: records posted from the benchmark's thread,
// encoded and sent by the worker "CLK_FWM_BKF", received by the negotiation
// peer over the loopback interface. Reports messages per second and the
// channel allocations each post costs.
//
// Beside it, the same hand-off done bare: a second thread woken through an
// eventfd takes each record from a locked queue and sends the 100-byte
// message over UDP to the same kind of peer. report.sh divides the two rates
// of one run.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

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

ClkAnnInfo sampleInfo() {
  ClkAnnInfo info{};
  info.pktLen = 96;
  for (size_t i = 0; i < sizeof info.annPkt; ++i) info.annPkt[i] = static_cast<uint8_t>(i);
  return info;
}

// Posts `batch` records with `post`, then takes as many messages off `peer`.
template <class Post>
bool roundTrip(fwmsim::Peer &peer, uint32_t batch, ClkAnnInfo &info, Post post) {
  for (uint32_t i = 0; i < batch; ++i) {
    info.ifIndex = i;
    post(info);
  }
  for (uint32_t i = 0; i < batch; ++i) {
    auto got = peer.receive(2000);
    if (!got || got->size() != CLK_BKF_ACK_MSG_LEN) return false;
  }
  return true;
}

void BM_AckToPeer(benchmark::State &state) {
  Channel &ch = channel();
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  if (h.client == 0) {
    state.SkipWithError("channel not ready");
    return;
  }
  // Benchmarks measure without the call log.
  fwmsim::recorder().setEnabled(false);
  const auto batch = static_cast<uint32_t>(state.range(0));
  ClkAnnInfo info = sampleInfo();
  uint64_t messages = 0;
  uint64_t allocations = 0;
  for (auto _ : state) {
    const uint64_t before = fwmsim::memory().allocations();
    if (!roundTrip(ch.peer, batch, info, [](const ClkAnnInfo &i) { (void)FWM_SRV_BKF_SendAckMsg(&i); })) {
      state.SkipWithError("message lost or malformed");
      return;
    }
    allocations += fwmsim::memory().allocations() - before;
    messages += batch;
  }
  state.counters["msgs_per_s"] = benchmark::Counter(static_cast<double>(messages), benchmark::Counter::kIsRate);
  state.counters["allocs_per_msg"] =
      messages == 0 ? 0.0 : static_cast<double>(allocations) / static_cast<double>(messages);
}

// The bare hand-off: what any two threads pay to pass a record on and send it.
class BareSender {
 public:
  explicit BareSender(uint16_t peerPort) {
    to_.sin_family = AF_INET;
    to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to_.sin_port = htons(peerPort);
    std::thread([this] { run(); }).detach();
  }
  BareSender(const BareSender &) = delete;
  BareSender &operator=(const BareSender &) = delete;

  void post(const ClkAnnInfo &info) {
    {
      std::lock_guard lk(mu_);
      queue_.push_back(info);
    }
    const uint64_t one = 1;
    (void)::write(wake_, &one, sizeof one);
  }

 private:
  void run() {
    uint8_t msg[CLK_BKF_ACK_MSG_LEN] = {};
    for (;;) {
      uint64_t count = 0;
      if (::read(wake_, &count, sizeof count) != static_cast<ssize_t>(sizeof count)) continue;
      ClkAnnInfo info;
      {
        std::lock_guard lk(mu_);
        info = queue_.front();
        queue_.pop_front();
      }
      std::memcpy(msg + 4, &info, sizeof info);
      (void)::sendto(sock_, msg, sizeof msg, 0, reinterpret_cast<const sockaddr *>(&to_), sizeof to_);
    }
  }

  int wake_ = eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC);
  int sock_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in to_{};
  std::mutex mu_;
  std::deque<ClkAnnInfo> queue_;
};

void BM_BareHandOff(benchmark::State &state) {
  static auto *peer = new fwmsim::Peer;
  static auto *sender = new BareSender(peer->port());
  const auto batch = static_cast<uint32_t>(state.range(0));
  ClkAnnInfo info = sampleInfo();
  uint64_t messages = 0;
  for (auto _ : state) {
    if (!roundTrip(*peer, batch, info, [](const ClkAnnInfo &i) { sender->post(i); })) {
      state.SkipWithError("message lost");
      return;
    }
    messages += batch;
  }
  state.counters["msgs_per_s"] = benchmark::Counter(static_cast<double>(messages), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_AckToPeer)->Arg(1)->Arg(64)->UseRealTime();
BENCHMARK(BM_BareHandOff)->Arg(1)->Arg(64)->UseRealTime();

}  // namespace
