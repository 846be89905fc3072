// One virtual hour of a slave engine port on a virtual link to the reference
// grandmaster, 16 Syncs (two-step) and 16 Delay_Reqs a second, outputs off,
// driven a board millisecond at a time. Reported as a multiple of real time.
#include <benchmark/benchmark.h>

#include <chrono>

#include "fwmsim/engine/engine.hpp"
#include "fwmsim/engine/vnet.hpp"
#include "fwmsim/recorder.hpp"

namespace {

constexpr int64_t kStart = 1'800'000'000'000'000'000, kMs = 1'000'000, kHourMs = 3'600'000;

void VirtualHour(benchmark::State &state) {
  fwmsim::recorder().setEnabled(false);
  fwmsim::engine().with(0, 1, [](fwmsim::OdaPort &p) {
    p.portEnable = 1;
    p.state = 9;
    p.identityTx = {0x001B19FF, 0xFE000003, 3};
    for (auto t : {fwmsim::kOdaPktSync, fwmsim::kOdaPktDelayResp, fwmsim::kOdaPktAnnounce}) p.rxEnable[t] = 1;
    p.txEnable[fwmsim::kOdaPktDelay] = 1;
    p.interval[fwmsim::kOdaPktDelay] = fwmsim::kOdaIntervalUnit - 4;
  });
  for (auto _ : state) {
    const auto began = std::chrono::steady_clock::now();
    fwmsim::VirtualNet net(1, kStart);
    const fwmsim::LinkDirection way{20'000, fwmsim::Jitter::Exponential, 200, 0, 0, {}};
    net.connect(net.addGrandmaster({}), net.addEnginePort(0, 1), {way, way, 8});
    for (int64_t ms = 1; ms <= kHourMs; ++ms) net.runUntil(kStart + ms * kMs);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    state.counters["x_real_time"] = static_cast<double>(kHourMs) / 1000.0 / seconds;
    state.counters["syncs"] = static_cast<double>(fwmsim::engine().port(0, 1).t2SubT1.word[0]);
  }
}
BENCHMARK(VirtualHour)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
