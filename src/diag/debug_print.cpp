// Registration with the host's debug framework and the time-stamped debug
// print through which the NP layer reports driver failures.
#include <cstdarg>

#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/platform/comp.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr uint32_t kComponent = 1000;
constexpr uint32_t kDebugIface = 1008;
constexpr size_t kModuleRegIndex = 1;
constexpr size_t kPrintIndex = 5;
constexpr uint32_t kNotRegistered = 0xFFFFFFFFu;
constexpr uint32_t kMaxDebugLevel = 4;
constexpr size_t kMessageSize = 256;
constexpr size_t kTimeSize = 32;

COMP_PRINT_FN printEntry() {
  void **table = fwmclk::loadShared(g_clkFwmSrvDbgFunVtbl);
  if (table == nullptr) return nullptr;
  return reinterpret_cast<COMP_PRINT_FN>(table[kPrintIndex]);
}

}  // namespace

extern "C" {

uint32_t g_clkFwmSrvDbgId = kNotRegistered;
void **g_clkFwmSrvDbgFunVtbl = nullptr;

int32_t FWM_SRV_CLK_InitDbg(void) {
  FWMCLK_LOG(FWM_CLK_LOG_INFO, "Start register CLK FWM_SRV_CLK...");
  uint32_t id = fwmclk::loadShared(g_clkFwmSrvDbgId);
  if (id != kNotRegistered) {
    return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_INFO, "clk FWM_SRV_CLK has been registered, g_clkFwmSrvDbgId=%u",
                                           id);
  }
  // Registration runs on the host's thread during start-up, before any thread
  // that prints exists, so the framework may write both globals directly.
  uint32_t ret = COMP_GetVTable(kComponent, kDebugIface, reinterpret_cast<void **>(&g_clkFwmSrvDbgFunVtbl));
  if (ret != 0) return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "get frm debug funvtabl failed, ret=%u", ret);
  void **table = g_clkFwmSrvDbgFunVtbl;
  if (table == nullptr) return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "null pointer g_clkFwmSrvDbgFunVtbl");

  auto moduleReg = reinterpret_cast<COMP_MODULEREG_FN>(table[kModuleRegIndex]);
  if (moduleReg == nullptr || moduleReg("FWM_SRV_CLK", &g_clkFwmSrvDbgId) != 0) {
    return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "null pointer g_clkFwmSrvDbgFunVtbl->moduleReg");
  }
  return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_INFO, "clk FWM_SRV_CLK registered success");
}

int32_t FWM_SRV_CLK_PrintDbg(uint32_t level, const char *format, ...) {
  if (level > kMaxDebugLevel) {
    return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "Debugging level greater than %u", kMaxDebugLevel);
  }
  COMP_PRINT_FN print = printEntry();
  uint32_t id = fwmclk::loadShared(g_clkFwmSrvDbgId);
  if (print == nullptr || id == kNotRegistered) return 0;

  time_t now = time(nullptr);
  struct tm local;
  if (localtime_r(&now, &local) == nullptr) return 0;
  char timeText[kTimeSize];
  // A failed conversion leaves the buffer's contents undefined: print no time rather than read them.
  if (strftime(timeText, sizeof timeText, "%Y-%m-%d %H:%M:%S", &local) == 0) timeText[0] = '\0';

  char message[kMessageSize];
  (void)memset_s(message, sizeof message, 0, sizeof message);
  va_list ap;
  va_start(ap, format);
  int n = vsnprintf_s(message, sizeof message, kMessageSize - 1, format, ap);
  va_end(ap);
  // A message that does not fit is dropped whole rather than cut.
  if (n == -1) return 0;

  print(id, level, "%s %s\r\n", timeText, message);
  return 0;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_DIAG_DEBUG_PRINT)
