/* Every public header, compiled as strict C11: the library's own and the
 * platform's, which every host implements. */
#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/bkf.h"
#include "fwmclk/platform/comp.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/platform/fwm_que.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmclk/platform/mesh.h"
#include "fwmclk/platform/negoinfo.h"
#include "fwmclk/platform/oda.h"
#include "fwmclk/platform/orch.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/quay.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/platform/tarn.h"

int main(void) {
  ClkSrvOrchIntf table = {0};
  return table.setPtpGlbCfg == 0 ? 0 : 1;
}
