// Makes a fixed number of SetPtpCtrl calls on an adapter unit, by one of
// three paths, for callgrind.sh to count: "direct" (the engine-driver
// function), "adapter" (the adapter's slot operation) and "np" (the NP entry).
// The third argument sets the MSG log switch (0 or 1).
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/oda.h"
#include "fwmsim/board.hpp"
#include "fwmsim/recorder.hpp"

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s direct|adapter|np <calls> <msg 0|1>\n", argv[0]);
    return 2;
  }
  const long calls = std::strtol(argv[2], nullptr, 10);
  fwmsim::resetBoard();
  fwmsim::recorder().setEnabled(false);
  fwmsim::agent().existingHandle = 0x00A6E0F0u;
  (void)FWM_SRV_ORCH_CLK_ImAgentInit();
  (void)FWM_SRV_CLK_InitDbg();
  clk_1588_driver_init(&g_fnNpClkDriver[0]);
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_MSG] = std::strcmp(argv[3], "1") == 0 ? 1u : 0u;

  // One warm-up call by each path, so that the engine model has its port and
  // control entry and every PLT slot is bound; then nothing counted so far
  // stays counted (the direct path's figure used to include this call).
  (void)oda_1588_set_ptp_control(0, 3, 7, 1, 0);
  (void)CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1);
  CALLGRIND_ZERO_STATS;
  int64_t sum = 0;
  for (long i = 0; i < calls; ++i) {
    if (std::strcmp(argv[1], "direct") == 0) {
      sum += oda_1588_set_ptp_control(0, 3, 7, 1, 0);
    } else if (std::strcmp(argv[1], "adapter") == 0) {
      sum += clk_1588_set_ptp_control(0, 3, 7, 1);
    } else {
      sum += CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1);
    }
  }
  std::printf("%s calls=%ld sum=%lld\n", argv[1], calls, static_cast<long long>(sum));
  return 0;
}
