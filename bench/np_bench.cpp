// Cost of the NP frame and the driver adapter over a direct engine-driver
// call, with the simulated platform's call recording off.
#include <benchmark/benchmark.h>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/oda.h"
#include "fwmsim/board.hpp"
#include "fwmsim/recorder.hpp"

namespace {

// An adapter unit 0 with a ready log agent and a registered debug print.
void prepareBoard(uint32_t msgSwitch) {
  fwmsim::resetBoard();
  fwmsim::recorder().setEnabled(false);
  fwmsim::agent().existingHandle = 0x00A6E0F0u;
  (void)FWM_SRV_ORCH_CLK_ImAgentInit();
  (void)FWM_SRV_CLK_InitDbg();
  clk_1588_driver_init(&g_fnNpClkDriver[0]);
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_MSG] = msgSwitch;
}

// The simulated agent keeps every line it is sent; keep that bounded.
void dropDeliveries() {
  std::lock_guard lk(fwmsim::agent().mu);
  fwmsim::agent().deliveries.clear();
}

void BM_DirectEngineCall(benchmark::State &state) {
  prepareBoard(0);
  for (auto _ : state) benchmark::DoNotOptimize(oda_1588_set_ptp_control(0, 3, 7, 1, 0));
}
BENCHMARK(BM_DirectEngineCall);

void BM_AdapterSetPtpControl(benchmark::State &state) {
  prepareBoard(0);
  for (auto _ : state) benchmark::DoNotOptimize(clk_1588_set_ptp_control(0, 3, 7, 1));
}
BENCHMARK(BM_AdapterSetPtpControl);

void BM_NpSetPtpCtrlMsgOff(benchmark::State &state) {
  prepareBoard(0);
  for (auto _ : state) benchmark::DoNotOptimize(CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1));
}
BENCHMARK(BM_NpSetPtpCtrlMsgOff);

void BM_NpSetPtpCtrlMsgOn(benchmark::State &state) {
  prepareBoard(1);
  int64_t n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1));
    if (++n % 4096 == 0) dropDeliveries();
  }
  dropDeliveries();
}
BENCHMARK(BM_NpSetPtpCtrlMsgOn);

}  // namespace
