// The log agent's lifecycle: adopt the process's agent, or bring one up from a
// task of our own once the board knows its address, and keep the master
// board's address current. Every wait happens in these tasks.
#include "diag/shared_word.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/posix.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr uint32_t kAgentValue64 = 1000;
constexpr unsigned kInitWaitSeconds = 2;
constexpr unsigned kSelfIpRetrySeconds = 5;
constexpr unsigned kMasterIpRetrySeconds = 2;

// The agent takes addresses with their bytes in the opposite order.
uint32_t reverseBytes(uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0x0000FF00u) | ((v << 8) & 0x00FF0000u) | (v << 24);
}

uint32_t createTask(const char *name, uint32_t *taskId, ORIN_TASK_ENTRY entry) {
  uint32_t args[4] = {0, 0, 0, 0};
  return ORIN_TaskCreate(name, taskId, entry, 1, 0, 0, args);
}

}  // namespace

extern "C" {

uint32_t g_clkSrvImAgentTaskId = 0;
uint32_t g_clkSrvImAgentUpdateMasterIpTaskId = 0;

uint32_t FWM_SRV_ORCH_CLK_ImAgentInit(void) {
  uint32_t handle = IM_Agent_GetHandle();
  if (handle != 0) {
    fwmclk::storeShared(g_clkSrvImAgentHandle, handle);
    return 0;
  }
  return createTask("ClkSrvIMAgent", &g_clkSrvImAgentTaskId, FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentInitTaskEntry));
}

uint32_t FWM_SRV_ORCH_CLK_ImAgentGetSelfBoardIp(void) {
  uint32_t address = 0;
  while (DEVM_GetSelfBoardIp(&address) != 0 || address == 0) {
    (void)sleep(kSelfIpRetrySeconds);
    address = 0;
  }
  return reverseBytes(address);
}

uint32_t FWM_SRV_ORCH_CLK_ImAgentSetMasterIp(void) {
  uint32_t address = 0;
  while (DEVM_GetMasterBoardIp(&address) != 0 || address == 0) {
    address = 0;
    (void)sleep(kMasterIpRetrySeconds);
  }
  return IM_Agent_SetMainBoardIP(fwmclk::loadShared(g_clkSrvImAgentHandle), reverseBytes(address));
}

void FWM_SRV_ORCH_CLK_ImAgentInitTaskEntry(void) {
  ClkImAgentInitPara para;
  (void)memset_s(&para, sizeof para, 0, sizeof para);
  (void)strcpy_s(para.name, sizeof para.name, "srv clk log");
  para.field36 = 0;
  para.memAlloc = FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentMemAlloc);
  para.memFree = FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentMemFree);
  para.logTrace = FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentLogTrace);
  para.getSysTime = FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentGetSysTime);
  para.value64 = kAgentValue64;

  (void)sleep(kInitWaitSeconds);
  para.selfIp = FWM_SRV_ORCH_CLK_ImAgentGetSelfBoardIp();
  for (;;) {
    // A failed attempt leaves the handle at 0, so logging stays off meanwhile.
    uint32_t handle = IM_Agent_Init(&para);
    fwmclk::storeShared(g_clkSrvImAgentHandle, handle);
    if (handle != 0) break;
    (void)sleep(kInitWaitSeconds);
    para.selfIp = FWM_SRV_ORCH_CLK_ImAgentGetSelfBoardIp();
  }
  (void)sleep(kInitWaitSeconds);
  (void)FWM_SRV_ORCH_CLK_ImAgentSetMasterIp();
}

uint32_t FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp(void) {
  return createTask("ClkSrvIMAgentUpdateMasterIp", &g_clkSrvImAgentUpdateMasterIpTaskId,
                    FWMCLK_EXPORTED(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIpTaskEntry));
}

void FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIpTaskEntry(void) { (void)FWM_SRV_ORCH_CLK_ImAgentSetMasterIp(); }

uint32_t FWM_SRV_ORCH_CLK_ImAgentUnInit(void) {
  uint32_t handle = fwmclk::loadShared(g_clkSrvImAgentHandle);
  if (handle == 0) return 0;
  uint32_t ret = IM_Agent_UnInit(handle);
  if (ret == 0) fwmclk::storeShared(g_clkSrvImAgentHandle, 0u);
  return ret;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_DIAG_AGENT)
