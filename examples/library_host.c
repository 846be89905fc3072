/* The smallest host: it calls the library's own API and nothing else, and
 * leaves every platform function to whatever provides them; linked with the
 * simulated board, which it never calls itself. It also checks that what the
 * library installed is the function this host knows, whether it was built as
 * a position-independent executable or not. Exits non-zero on a mismatch. */
#include <stdio.h>

#include "fwmclk/fwmclk.h"

static int check(int ok, const char *what) {
  if (!ok) fprintf(stderr, "library_host: FAILED: %s\n", what);
  return ok ? 0 : 1;
}

int main(void) {
  int failures = check(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP) == 0, "start-up succeeds");
  ClkPtpGlbCfg glb = {3};
  failures += check(FWM_SRV_CLK_SetPtpGlbCfg(&glb) == 0, "global setting succeeds");
  failures += check(CLK_NP_1588_SetPtpCtrl(9, 3, 8, 3) == CLK_NP_ERR_UNIT, "unit 9 is refused");
  failures += check(g_fnNpClkDriver[0].setPtpCtrl == clk_1588_set_ptp_control,
                    "unit 0 holds the adapter's set_ptp_control as this host knows it");
  if (failures != 0) return 1;
  printf("library_host: the library's own API behaved\n");
  return 0;
}
