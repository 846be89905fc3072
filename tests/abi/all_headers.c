/* Every public header, compiled as strict C11. */
#include "fwmclk/fwmclk.h"

int main(void) {
  ClkSrvOrchIntf table = {0};
  return table.setPtpGlbCfg == 0 ? 0 : 1;
}
