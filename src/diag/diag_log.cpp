// The diagnostic log: every layer's lines go to the host's log agent as a
// "CLK_FWM" log object; failures of that path go to the agent's debug print.
#include <cstdarg>

#include "diag/shared_word.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/service.h"

namespace {

constexpr uint32_t kObjKind = 9;
constexpr uint32_t kObjId = 0x09AF107Fu;
constexpr uint32_t kParaType = 25;
constexpr uint32_t kDebugId = 0x9AFBC001u;
constexpr size_t kTextSize = 512;
constexpr char kModuleTag[] = "CLK_FWM";

bool levelValid(uint32_t level) { return level < FWM_CLK_LOG_LEVEL_NUM; }

}  // namespace

extern "C" {

const char *const g_clkSrvImAgentLogLvlStr[FWM_CLK_LOG_LEVEL_NUM] = {"DEBUG", "INFO",    "MSG",
                                                                     "ERROR", "SYSBOOT", "PROCINIT"};
uint32_t g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_LEVEL_NUM] = {0, 0, 1, 1, 1, 1};
uint32_t g_clkSrvImAgentDebugSwitch[FWM_CLK_LOG_LEVEL_NUM] = {0, 0, 0, 0, 0, 0};
uint32_t g_clkSrvImAgentHandle = 0;

uint32_t FWM_SRV_ORCH_CLK_ImAgentIsInitOk(void) { return fwmclk::loadShared(g_clkSrvImAgentHandle) != 0 ? 1 : 0; }

uint32_t FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(uint32_t level, uint32_t value) {
  if (!levelValid(level) || value > 1) return 1;
  fwmclk::storeShared(g_clkSrvImAgentDebugSwitch[level], value);
  return 0;
}

int32_t FWM_SRV_ORCH_CLK_ImAgentDebugLog(uint32_t level, const char *format, ...) {
  if (FWM_SRV_ORCH_CLK_ImAgentIsInitOk() == 0 || !levelValid(level)) return 1;
  if (fwmclk::loadShared(g_clkSrvImAgentDebugSwitch[level]) == 0 || format == nullptr) return 0;
  char text[kTextSize];
  (void)memset_s(text, sizeof text, 0, sizeof text);
  va_list ap;
  va_start(ap, format);
  int n = vsprintf_s(text, sizeof text, format, ap);
  va_end(ap);
  if (n < 0) return n;
  text[kTextSize - 1] = '\0';
  const uint32_t rec[2] = {0, kDebugId};
  return IM_Agent_Debug(rec, "NULL", kDebugId, "%s", text);
}

int32_t FWM_SRV_ORCH_CLK_ImAgentDiagLog(uint32_t level, const char *format, ...) {
  if (FWM_SRV_ORCH_CLK_ImAgentIsInitOk() == 0) return 0;
  if (!levelValid(level) || fwmclk::loadShared(g_clkSrvImAgentDiagSwitch[level]) == 0) return 1;

  char text[kTextSize];
  (void)memset_s(text, sizeof text, 0, sizeof text);
  va_list ap;
  va_start(ap, format);
  // A formatting failure still sends whatever the formatter left in the buffer.
  (void)vsprintf_s(text, sizeof text, format, ap);
  va_end(ap);

  void *obj = nullptr;
  uint32_t ret = IM_Agent_ObjCreate(kObjKind, kObjId, &obj, fwmclk::loadShared(g_clkSrvImAgentHandle));
  if (ret != 0) return FWM_SRV_ORCH_CLK_ImAgentDebugLog(FWM_CLK_LOG_ERROR, "Create object failed, return 0x%x.", ret);

  const char *levelName = g_clkSrvImAgentLogLvlStr[level];
  struct Para {
    uint16_t len;
    const void *data;
  };
  const Para paras[] = {
      {static_cast<uint16_t>(sizeof kModuleTag - 1), kModuleTag},
      {static_cast<uint16_t>(strlen(levelName)), levelName},
      {static_cast<uint16_t>(kTextSize), text},
  };
  for (const Para &p : paras) {
    ret = IM_Agent_AddPara(obj, kParaType, p.len, p.data, fwmclk::loadShared(g_clkSrvImAgentHandle));
    if (ret != 0) {
      (void)FWM_SRV_ORCH_CLK_ImAgentDebugLog(FWM_CLK_LOG_ERROR, "Add Para info failed, return 0x%x.", ret);
      return static_cast<int32_t>(IM_Agent_ObjFree(obj, fwmclk::loadShared(g_clkSrvImAgentHandle)));
    }
  }

  // The agent owns the object once it has been handed to send, failed or not.
  ret = IM_Agent_Send(obj, fwmclk::loadShared(g_clkSrvImAgentHandle));
  if (ret == 0) return 0;
  return FWM_SRV_ORCH_CLK_ImAgentDebugLog(FWM_CLK_LOG_ERROR, "Send msg failed, return 0x%x.", ret);
}

void *FWM_SRV_ORCH_CLK_ImAgentMemAlloc(uint32_t size) {
  // The agent calls this from its own threads while start-up may still be writing.
  const uint32_t handle = fwmclk::loadShared(g_fwmSrvClkHandle);
  if (handle == 0xFFFFFFFFu || handle == 0xFFu) return nullptr;
  return ORIN_MemAlloc(handle, fwmclk::loadShared(g_fwmClkMemPtNo), size);
}

uint32_t FWM_SRV_ORCH_CLK_ImAgentMemFree(void *ptr) {
  if (ptr == nullptr) return 0;
  return ORIN_MemFree(fwmclk::loadShared(g_fwmSrvClkHandle), ptr);
}

uint32_t FWM_SRV_ORCH_CLK_ImAgentLogTrace(const char * /*format*/, ...) { return 0; }

uint32_t FWM_SRV_ORCH_CLK_ImAgentGetSysTime(ClkImAgentSysTime *out) {
  if (out == nullptr) return 1;
  ORIN_SYSTIME now;
  (void)memset_s(&now, sizeof now, 0, sizeof now);
  (void)ORIN_SystimeGet(&now);
  out->year = now.year;
  out->month = now.month;
  out->day = now.day;
  out->hour = now.hour;
  out->minute = now.minute;
  out->second = now.second;
  out->week = now.week;
  out->millisecond = now.millisecond;
  return 0;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_DIAG_DIAG_LOG)
