/* Service entry, start-up sequence and the orchestrator's operation table. */
#ifndef FWMCLK_SERVICE_H
#define FWMCLK_SERVICE_H

#include "base.h"
#include "service_ops.h"

FWMCLK_EXTERN_C_BEGIN

/* Lifecycle events of FWM_Srv_Clk_Notify. */
enum { FWM_CLK_EVENT_STARTUP = 1, FWM_CLK_EVENT_MASTER_IP = 3 };

/* The operations handed to the orchestrator; a slot is known by its position. */
typedef struct {
  uint32_t (*setPtpGlbCfg)(ClkPtpGlbCfg *cfg);                                                           /* 0 */
  uint32_t (*setPtpPortCfg)(uint32_t unit, uint32_t port, uint32_t fwdTarget, ClkPtpPortCfg *cfg);       /* 1 */
  uint32_t (*setPtpPktEncap)(uint32_t unit, uint32_t port, uint32_t targetBoard, ClkPtpPktEncap *encap); /* 2 */
  uint32_t (*setPtpRxCtl)(uint32_t unit, uint32_t port, ClkPtpRxCtl *rx);                                /* 3 */
  uint32_t (*setPtpTxCtl)(uint32_t unit, uint32_t port, ClkPtpTxCtl *tx);                                /* 4 */
  uint32_t (*setPtpRxSrcPortId)(uint32_t unit, uint32_t port, ClkPtpRxSrcPortId *id);                    /* 5 */
  uint32_t (*setPtpTxSrcPortId)(uint32_t unit, uint32_t port, ClkPtpTxSrcPortId *id);                    /* 6 */
  uint32_t (*setPtpPortAsym)(uint32_t unit, uint32_t port, ClkPtpPortAsym *asym);                        /* 7 */
  uint32_t (*setPtpPortPkt)(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann);                            /* 8 */
  uint32_t (*setPtpAnnClr)(uint32_t unit, uint32_t port);                                                /* 9 */
  uint32_t (*getPtpTimestamp)(uint32_t unit, uint32_t port, ClkPtpTimestamp *out);                       /* 10 */
  uint32_t (*getPtpT2SubT1)(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);      /* 11 */
  uint32_t (*getPtpT4SubT3)(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);      /* 12 */
  uint32_t (*getPtpPktStat)(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpPktStat *out);       /* 13 */
  uint32_t (*setSsmPortCfg)(uint32_t unit, uint32_t port, ClkSsmPortCfg *ssm);                           /* 14 */
} ClkSrvOrchIntf;

#define FWM_CLK_ORCH_SLOT_NUM 15
FWMCLK_STATIC_ASSERT(sizeof(ClkSrvOrchIntf) == FWM_CLK_ORCH_SLOT_NUM * sizeof(void (*)(void)),
                     "ClkSrvOrchIntf holds exactly fifteen pointers");
FWMCLK_ASSERT_32(sizeof(ClkSrvOrchIntf) == 60, "ClkSrvOrchIntf is 60 bytes");
FWMCLK_ASSERT_32(offsetof(ClkSrvOrchIntf, setPtpPortAsym) == 28, "asymmetry is slot 7");
FWMCLK_ASSERT_32(offsetof(ClkSrvOrchIntf, setSsmPortCfg) == 56, "SSM is slot 14");

/* Control-packet rule record of the security module (396 bytes, little-endian). */
typedef struct {
  uint8_t head[16];  /* 0: zero */
  uint8_t mask[256]; /* 16: every byte 0xFF */
  uint32_t word272;  /* 272: zero */
  uint32_t word276;  /* 276: 0x01680004 */
  uint8_t tail[116]; /* 280: zero */
} ClkAclRule;

#define FWM_CLK_ACL_RULE_WORD 0x01680004u
FWMCLK_STATIC_ASSERT(sizeof(ClkAclRule) == 396, "ClkAclRule is 396 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkAclRule, mask) == 16, "ClkAclRule.mask at 16");
FWMCLK_STATIC_ASSERT(offsetof(ClkAclRule, word276) == 276, "ClkAclRule word at 276");
FWMCLK_STATIC_ASSERT(offsetof(ClkAclRule, tail) == 280, "ClkAclRule.tail at 280");

/* Service handle (0xFFFFFFFF = none), its partition (0xFF = none) and engine count. */
FWMCLK_API extern uint32_t g_fwmSrvClkHandle;
FWMCLK_API extern uint8_t g_fwmClkMemPtNo;
FWMCLK_API extern uint8_t g_fwmClkFeNum;

/* Lifecycle entry: 1 = start-up, 3 = re-read the master address, others ignored.
 * Host thread; returns 1 when start-up failed, else 0. */
FWMCLK_API int32_t FWM_Srv_Clk_Notify(int32_t event);

/* The start-up sequence and its steps; host thread. */
FWMCLK_API uint32_t FWM_SRV_CLK_Init(void);
FWMCLK_API uint32_t FWM_SRV_InitCLKMemHandle(void);
FWMCLK_API uint32_t FWM_SRV_InitCLKMemPdtNo(void);
FWMCLK_API uint32_t FWM_SRV_Init_ClkFeNum(void);
/* Fills all fifteen slots; the pointer is not checked. */
FWMCLK_API void FWM_SRV_CLK_RegOrchFunc(ClkSrvOrchIntf *table);
FWMCLK_API uint32_t FWM_SRV_CLK_ACLInit(void);
/* Forwards to the control-packet security module unchanged. */
FWMCLK_API uint32_t FWM_SRV_CLK_TARN_NpProcCtrlPacket(uint32_t operation, void *rule);

FWMCLK_EXTERN_C_END

#endif
