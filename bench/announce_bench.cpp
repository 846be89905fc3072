// One announce tick over 1, 64 and 384 enabled ports: with no alarm pending
// (two alarm reads per port, expected linear) and with every port raising a
// change alarm (a field read and a queue post per port on top).
#include <benchmark/benchmark.h>

#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/recorder.hpp"

namespace {

constexpr uint32_t kUnits = 8;

// Brings the board up once per process: a started service, the channel's
// worker ready, and the readiness wait already over.
void bringUp() {
  static bool up = false;
  if (up) return;
  up = true;
  fwmsim::resetBoard();
  fwmsim::board().feNum = kUnits;
  (void)FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP);
  FWM_SRV_CLK_CreateBkfTask();
  fwmsim::clock().settle();
  g_ptpWaitBkfHelloMsgCnt = 4;
  fwmsim::recorder().setEnabled(false);
}

void configurePorts(uint32_t count, bool alarms) {
  (void)FWM_SRV_CLK_ClearPortList();
  FWM_SRV_CLK_InitLocal();
  ClkNpAnnFields fields{};
  fields.grandmasterIdentityHigh = 0x001B19FFu;
  fields.grandmasterIdentityLow = 0xFE000001u;
  fields.sourceClockIdentityHigh = 1;
  for (uint32_t i = 0; i < count; ++i) {
    ClkPtpPortCfg cfg{};
    cfg.enable = 1;
    cfg.ifIndex = i;
    const uint32_t unit = i % kUnits, port = i / kUnits;
    (void)FWM_SRV_CLK_SavePtpPortCfg(unit, port, &cfg);
    fwmsim::engine().setRxAnnounce(unit, port, fields);
    fwmsim::engine().setAnnounceAlarm(unit, port, 0, alarms);
    fwmsim::engine().setAnnounceAlarm(unit, port, 1, false);
  }
}

void tick(benchmark::State &state, bool alarms) {
  bringUp();
  const auto ports = static_cast<uint32_t>(state.range(0));
  configurePorts(ports, alarms);
  for (auto _ : state) {
    FWM_SRV_AnnTimerOutProc();
    if (alarms) {
      state.PauseTiming();
      fwmsim::clock().settle();  // the worker sends what the tick posted
      state.ResumeTiming();
    }
  }
  state.counters["ports"] = ports;
  // Seconds per port per tick: ports handled per second, inverted.
  state.counters["s_per_port"] = benchmark::Counter(
      static_cast<double>(ports), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_TickNoAlarm(benchmark::State &state) { tick(state, false); }
void BM_TickEveryPortChanged(benchmark::State &state) { tick(state, true); }

BENCHMARK(BM_TickNoAlarm)->Arg(1)->Arg(64)->Arg(384);
BENCHMARK(BM_TickEveryPortChanged)->Arg(1)->Arg(64);

}  // namespace
