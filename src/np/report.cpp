// The one line operators see for every driver failure.
#include "fwmclk/diag.h"
#include "fwmclk/np.h"
#include "fwmclk/platform/devm.h"

namespace {

constexpr uint32_t kDbgLevel = 2;

// Success, and the three codes -8 to -6, which are passed up without a line.
constexpr bool quiet(int32_t code) { return code == CLK_NP_OK || static_cast<uint32_t>(code) + 8u <= 2u; }

}  // namespace

extern "C" int32_t CLK_NP_RetProcess(int32_t code, uint32_t unit, uint32_t port, const char *reason) {
  if (quiet(code)) return CLK_NP_OK;
  const uint32_t chassis = FWM_Srv_Get_ChassisId();
  const uint32_t slot = FWM_Srv_Get_Slotid(chassis);
  return FWM_SRV_CLK_PrintDbg(kDbgLevel,
                              "Fe module error. (ErrCode=0x%X, Slot=%d/%d, Unit=%d, Port=%u, Reason=Failed to %s.)",
                              static_cast<uint32_t>(code), static_cast<int32_t>(chassis), static_cast<int32_t>(slot),
                              static_cast<int32_t>(unit), port, reason);
}

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_NP_REPORT)
