/* The fifteen PTP service operations handed to the clock orchestrator, with
 * their request and reply records.
 *
 * All operations run on the orchestrator's calling thread; concurrent calls
 * are not serialised by the library. */
#ifndef FWMCLK_SERVICE_OPS_H
#define FWMCLK_SERVICE_OPS_H

#include "base.h"

FWMCLK_EXTERN_C_BEGIN

typedef struct ClkPtpGlbCfg ClkPtpGlbCfg;
typedef struct ClkPtpPortCfg ClkPtpPortCfg;
typedef struct ClkPtpPktEncap ClkPtpPktEncap;
typedef struct ClkPtpRxCtl ClkPtpRxCtl;
typedef struct ClkPtpTxCtl ClkPtpTxCtl;
typedef struct ClkPtpRxSrcPortId ClkPtpRxSrcPortId;
typedef struct ClkPtpTxSrcPortId ClkPtpTxSrcPortId;
typedef struct ClkPtpPortAsym ClkPtpPortAsym;
typedef struct ClkPtpAnnPkt ClkPtpAnnPkt;
typedef struct ClkPtpTimestamp ClkPtpTimestamp;
typedef struct ClkPtpDfxDelay ClkPtpDfxDelay;
typedef struct ClkPtpPktStat ClkPtpPktStat;
typedef struct ClkSsmPortCfg ClkSsmPortCfg;

FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpGlbCfg(ClkPtpGlbCfg *cfg);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortCfg(uint32_t unit, uint32_t port, uint32_t fwdTarget, ClkPtpPortCfg *cfg);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPktEncap(uint32_t unit, uint32_t port, uint32_t targetBoard,
                                               ClkPtpPktEncap *encap);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpRxCtl(uint32_t unit, uint32_t port, ClkPtpRxCtl *rx);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpTxCtl(uint32_t unit, uint32_t port, ClkPtpTxCtl *tx);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpRxSrcPortId(uint32_t unit, uint32_t port, ClkPtpRxSrcPortId *id);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpTxSrcPortId(uint32_t unit, uint32_t port, ClkPtpTxSrcPortId *id);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortAsym(uint32_t unit, uint32_t port, ClkPtpPortAsym *asym);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpAnnClr(uint32_t unit, uint32_t port);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpTimestamp(uint32_t unit, uint32_t port, ClkPtpTimestamp *out);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpT2SubT1(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpT4SubT3(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpPktStat(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpPktStat *out);
FWMCLK_API uint32_t FWM_SRV_CLK_SetSsmPortCfg(uint32_t unit, uint32_t port, ClkSsmPortCfg *ssm);

FWMCLK_EXTERN_C_END

#endif
