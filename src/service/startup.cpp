// The library's front door: lifecycle events and the start-up sequence.
#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/np.h"
#include "fwmclk/platform/comp.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/platform/orch.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/platform/tarn.h"
#include "fwmclk/service.h"

namespace {

constexpr uint32_t kComponent = 1000;
constexpr uint32_t kMemIface = 1004;
constexpr size_t kGetMemPtNoIndex = 4;
constexpr uint32_t kMemModule = 33000;
constexpr uint8_t kFallbackPartition = 1;
constexpr uint32_t kTarnAlreadyPresent = 5;

}  // namespace

extern "C" {

uint32_t g_fwmSrvClkHandle = 0xFFFFFFFFu;
uint8_t g_fwmClkMemPtNo = 0xFF;
uint8_t g_fwmClkFeNum = 0;

uint32_t FWM_SRV_InitCLKMemHandle(void) {
  uint32_t ret = ORIN_HandleInitialize("fwm.srv.clk", &g_fwmSrvClkHandle);
  if (ret != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV] InitCLKMemHandle failed, Ret=%u", ret);
  return ret;
}

uint32_t FWM_SRV_InitCLKMemPdtNo(void) {
  void *table = nullptr;
  uint32_t ret = COMP_GetVTable(kComponent, kMemIface, &table);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[InitCLKMemPdtNo] GetVTable failed, Ret=%u", ret);
    return ret;
  }
  if (table == nullptr) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "COMP Get error, ret has null pointer. ret = %u", 0u);
    return 1;
  }
  auto getMemPtNo = reinterpret_cast<COMP_GETMEMPTNO_FN>(static_cast<void **>(table)[kGetMemPtNoIndex]);
  if (getMemPtNo == nullptr) {
    fwmclk::storeShared(g_fwmClkMemPtNo, kFallbackPartition);
    FWMCLK_LOG(FWM_CLK_LOG_INFO, "GetMemPtNo is null");
    return 0;
  }
  uint32_t partition = getMemPtNo(kMemModule, "fwm.orch.clk");
  fwmclk::storeShared(g_fwmClkMemPtNo, static_cast<uint8_t>(partition));
  if (partition == 0) {
    FWMCLK_LOG(FWM_CLK_LOG_INFO, "GetMemPtNo failed");
    return 1;
  }
  return 0;
}

uint32_t FWM_SRV_Init_ClkFeNum(void) {
  uint32_t feNum = FWM_Srv_Get_FeNum();
  g_fwmClkFeNum = static_cast<uint8_t>(feNum);
  return feNum;
}

void FWM_SRV_CLK_RegOrchFunc(ClkSrvOrchIntf *table) {
  table->setPtpGlbCfg = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpGlbCfg);
  table->setPtpPortCfg = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpPortCfg);
  table->setPtpPktEncap = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpPktEncap);
  table->setPtpRxCtl = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpRxCtl);
  table->setPtpTxCtl = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpTxCtl);
  table->setPtpRxSrcPortId = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpRxSrcPortId);
  table->setPtpTxSrcPortId = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpTxSrcPortId);
  table->setPtpPortAsym = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpPortAsym);
  table->setPtpPortPkt = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpPortPkt);
  table->setPtpAnnClr = FWMCLK_EXPORTED(FWM_SRV_CLK_SetPtpAnnClr);
  table->getPtpTimestamp = FWMCLK_EXPORTED(FWM_SRV_CLK_GetPtpTimestamp);
  table->getPtpT2SubT1 = FWMCLK_EXPORTED(FWM_SRV_CLK_GetPtpT2SubT1);
  table->getPtpT4SubT3 = FWMCLK_EXPORTED(FWM_SRV_CLK_GetPtpT4SubT3);
  table->getPtpPktStat = FWMCLK_EXPORTED(FWM_SRV_CLK_GetPtpPktStat);
  table->setSsmPortCfg = FWMCLK_EXPORTED(FWM_SRV_CLK_SetSsmPortCfg);
}

uint32_t FWM_SRV_CLK_TARN_NpProcCtrlPacket(uint32_t operation, void *rule) {
  return Tarn_NpProcCtrlPacket(operation, rule);
}

uint32_t FWM_SRV_CLK_ACLInit(void) {
  ClkAclRule rule;
  (void)memset_s(&rule, sizeof rule, 0, sizeof rule);
  FWMCLK_LOG(FWM_CLK_LOG_INFO, "[FWM_Srv_Clk] begin acl init.");
  (void)memset_s(rule.mask, sizeof rule.mask, 0xFF, sizeof rule.mask);
  rule.word276 = FWM_CLK_ACL_RULE_WORD;
  uint32_t ret = FWM_SRV_CLK_TARN_NpProcCtrlPacket(0, &rule);
  // A rule that is already installed is as good as a new one.
  if (ret == 0 || ret == kTarnAlreadyPresent) return 0;
  FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_Srv_Clk] ACLInit failed, Ret=%u", ret);
  return ret;
}

uint32_t FWM_SRV_CLK_Init(void) {
  ClkSrvOrchIntf table;
  (void)memset_s(&table, sizeof table, 0, sizeof table);
  (void)FWM_SRV_ORCH_CLK_ImAgentInit();

  uint32_t ret = FWM_SRV_InitCLKMemHandle();
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK_Init] InitCLKMemHandle failed, Ret=%u", ret);
    return ret;
  }
  ret = FWM_SRV_InitCLKMemPdtNo();
  if (ret != 0) return ret;

  (void)FWM_SRV_Init_ClkFeNum();
  FWM_SRV_1588_DriverInit();

  (void)memset_s(&table, sizeof table, 0, sizeof table);
  FWM_SRV_CLK_RegOrchFunc(&table);
  (void)FWM_ORCH_CLK_RegSrvIntf(&table);

  ret = FWM_SRV_CLK_ACLInit();
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK_Init] ACLInit failed, Ret=%u", ret);
    return ret;
  }
  (void)FWM_SRV_CLK_InitDbg();
  FWMCLK_LOG(FWM_CLK_LOG_INFO, "clk init finish.");
  return 0;
}

int32_t FWM_Srv_Clk_Notify(int32_t event) {
  if (event == FWM_CLK_EVENT_STARTUP) {
    uint32_t ret = FWM_SRV_CLK_Init();
    if (ret != 0) {
      FWMCLK_LOG(FWM_CLK_LOG_ERROR, "pub clk init ok event fail. ret = %d", static_cast<int32_t>(ret));
      return 1;
    }
  } else if (event == FWM_CLK_EVENT_MASTER_IP) {
    (void)FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp();
  }
  FWMCLK_LOG(FWM_CLK_LOG_INFO, "pub clk init ok event success.");
  return 0;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_STARTUP)
