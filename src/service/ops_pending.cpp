// The orchestrator's operations until the service layer lands: each refuses.
#include "fwmclk/service_ops.h"

extern "C" {
uint32_t FWM_SRV_CLK_SetPtpGlbCfg(ClkPtpGlbCfg *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpPortCfg(uint32_t, uint32_t, uint32_t, ClkPtpPortCfg *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpPktEncap(uint32_t, uint32_t, uint32_t, ClkPtpPktEncap *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpRxCtl(uint32_t, uint32_t, ClkPtpRxCtl *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpTxCtl(uint32_t, uint32_t, ClkPtpTxCtl *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpRxSrcPortId(uint32_t, uint32_t, ClkPtpRxSrcPortId *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpTxSrcPortId(uint32_t, uint32_t, ClkPtpTxSrcPortId *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpPortAsym(uint32_t, uint32_t, ClkPtpPortAsym *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpPortPkt(uint32_t, uint32_t, ClkPtpAnnPkt *) { return 1; }
uint32_t FWM_SRV_CLK_SetPtpAnnClr(uint32_t, uint32_t) { return 1; }
uint32_t FWM_SRV_CLK_GetPtpTimestamp(uint32_t, uint32_t, ClkPtpTimestamp *) { return 1; }
uint32_t FWM_SRV_CLK_GetPtpT2SubT1(uint32_t, uint32_t, uint32_t, ClkPtpDfxDelay *) { return 1; }
uint32_t FWM_SRV_CLK_GetPtpT4SubT3(uint32_t, uint32_t, uint32_t, ClkPtpDfxDelay *) { return 1; }
uint32_t FWM_SRV_CLK_GetPtpPktStat(uint32_t, uint32_t, uint32_t, ClkPtpPktStat *) { return 1; }
uint32_t FWM_SRV_CLK_SetSsmPortCfg(uint32_t, uint32_t, ClkSsmPortCfg *) { return 1; }
}
