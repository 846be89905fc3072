/* The fifteen PTP service operations handed to the clock orchestrator, with
 * their request and reply records and the steps they are built from.
 *
 * All operations run on the orchestrator's calling thread; concurrent calls
 * are not serialised by the library. Every operation returns 0 on success, 1
 * for a null record or an invalid packet type, otherwise the NP layer's code
 * or the OR of several (callers test only for non-zero). Records are
 * little-endian and belong to the caller. */
#ifndef FWMCLK_SERVICE_OPS_H
#define FWMCLK_SERVICE_OPS_H

#include "base.h"
#include "np.h"

FWMCLK_EXTERN_C_BEGIN

/* Slot 0: the board's slave port. */
typedef struct ClkPtpGlbCfg {
  uint32_t slavePort; /* 0: port and value of PTP control type 8 on unit 0 */
} ClkPtpGlbCfg;

/* Bit 31 of ClkPtpPortCfg.portState: the state flag, cleared by the operation. */
#define FWM_CLK_PORT_STATE_FLAG 0x80000000u

/* Slot 1: one port's PTP configuration. */
typedef struct ClkPtpPortCfg {
  uint32_t enable;               /* 0: 1 = PTP on, 0 = off */
  uint32_t ctrlType0Value;       /* 4 */
  uint32_t portState;            /* 8: bits 0-30 the IEEE 1588 state, bit 31 the state flag */
  uint32_t ctrlType2Value;       /* 12 */
  uint32_t domainNumber;         /* 16 */
  uint32_t ctrlType1Value;       /* 20 */
  uint32_t annTimeoutMultiple;   /* 24 */
  uint32_t rxSrcPortIdentity[3]; /* 28: expected in received packets */
  uint32_t reserved40[2];        /* 40: not read */
  uint16_t ctrlType33Value;      /* 48 */
  uint16_t reserved50;           /* 50: not read */
  uint32_t ifIndex;              /* 52: kept in the port list (Mira family) */
} ClkPtpPortCfg;

/* Slot 2: encapsulation of the port's PTP packets. */
typedef struct ClkPtpPktEncap {
  uint32_t encapType;    /* 0: 0..4; 1 and 3 add an 802.1Q tag, 2 and 3 control type 26 */
  uint32_t reserved4;    /* 4: not read */
  uint32_t vlanPriority; /* 8: low 3 bits used */
  uint32_t vlanId;       /* 12: low 12 bits used */
  uint32_t dscp;         /* 16 */
  uint8_t destMac[6];    /* 20 */
  uint8_t reserved26[2]; /* 26: not read */
  uint8_t srcMac[6];     /* 28 */
  uint8_t reserved34[2]; /* 34: not read */
  uint32_t destIp;       /* 36 */
  uint32_t srcIp;        /* 40: also the value of control type 26 */
} ClkPtpPktEncap;

/* Tri-state words of ClkPtpRxCtl: 0 leaves the setting alone, 1 switches it
 * on, any other value switches it off. */
#define FWM_CLK_TRISTATE_LEAVE 0u
#define FWM_CLK_TRISTATE_ON 1u

/* Slot 3: receive enable and receive checks of one orchestrator packet type (1..8). */
typedef struct ClkPtpRxCtl {
  uint32_t pktType;        /* 0 */
  uint32_t rxEnable;       /* 4: tri-state */
  uint32_t reserved8[3];   /* 8: not read */
  uint32_t domainCheck;    /* 20: tri-state */
  uint32_t srcPortIdCheck; /* 24: tri-state */
} ClkPtpRxCtl;

/* Slot 4: transmit interval and enable of one orchestrator packet type (1..8). */
typedef struct ClkPtpTxCtl {
  uint32_t pktType;   /* 0 */
  uint32_t txEnable;  /* 4: passed unchanged */
  uint32_t reserved8; /* 8: not read */
  uint32_t interval;  /* 12: interval type 0..20 */
} ClkPtpTxCtl;

/* Slot 5: source port identity expected in received packets. */
typedef struct ClkPtpRxSrcPortId {
  uint32_t pktType;     /* 0: 4 selects identity type 0, anything else type 1 */
  uint32_t identity[3]; /* 4 */
} ClkPtpRxSrcPortId;

/* Slot 6: source port identity written into transmitted packets. */
typedef struct ClkPtpTxSrcPortId {
  uint32_t identity[3]; /* 0 */
} ClkPtpTxSrcPortId;

/* Slot 7: signed path asymmetry; the sign selects control type 4 or 5. */
typedef struct ClkPtpPortAsym {
  int32_t asymmetry; /* 0 */
} ClkPtpPortAsym;

/* Slot 8: the announce message the engine transmits for the port. */
typedef struct ClkPtpAnnPkt {
  uint16_t flagField;               /* 0: PTP header flag field */
  uint16_t reserved2;               /* 2: not read */
  uint32_t reserved4[3];            /* 4: not read */
  uint32_t currentUtcOffset;        /* 16 */
  uint32_t grandmasterPriority1;    /* 20 */
  uint32_t grandmasterPriority2;    /* 24 */
  uint8_t clockClass;               /* 28 */
  uint8_t clockAccuracy;            /* 29 */
  uint16_t offsetScaledLogVariance; /* 30 */
  uint32_t grandmasterIdentityHigh; /* 32 */
  uint32_t grandmasterIdentityLow;  /* 36 */
  uint32_t stepsRemoved;            /* 40 */
  uint32_t timeSource;              /* 44 */
} ClkPtpAnnPkt;

/* Slot 10 reply: word 0 is left as the caller set it; words 1..16 are the
 * engine's sixteen timestamp words, engine words 6 and 7 moved to 13 and 14. */
typedef struct ClkPtpTimestamp {
  uint32_t words[17];
} ClkPtpTimestamp;

/* Slots 11 and 12 reply: the engine's six delay words. */
typedef struct ClkPtpDfxDelay {
  uint32_t words[6];
} ClkPtpDfxDelay;

/* Slot 13 reply: engine statistics words 5..28. */
typedef struct ClkPtpPktStat {
  uint32_t words[24];
} ClkPtpPktStat;

/* Slot 14: SSM receive switch. */
typedef struct ClkSsmPortCfg {
  uint32_t reserved0[2]; /* 0: not read */
  uint32_t ssmRxEn;      /* 8: passed unchanged */
} ClkSsmPortCfg;

FWMCLK_STATIC_ASSERT(sizeof(ClkPtpGlbCfg) == 4, "ClkPtpGlbCfg is 4 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpPortCfg) == 56, "ClkPtpPortCfg is 56 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, portState) == 8, "ClkPtpPortCfg.portState at 8");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, ctrlType1Value) == 20, "ClkPtpPortCfg.ctrlType1Value at 20");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, annTimeoutMultiple) == 24, "ClkPtpPortCfg.annTimeoutMultiple at 24");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, rxSrcPortIdentity) == 28, "ClkPtpPortCfg.rxSrcPortIdentity at 28");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, ctrlType33Value) == 48, "ClkPtpPortCfg.ctrlType33Value at 48");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortCfg, ifIndex) == 52, "ClkPtpPortCfg.ifIndex at 52");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpPktEncap) == 44, "ClkPtpPktEncap is 44 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, vlanPriority) == 8, "ClkPtpPktEncap.vlanPriority at 8");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, dscp) == 16, "ClkPtpPktEncap.dscp at 16");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, destMac) == 20, "ClkPtpPktEncap.destMac at 20");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, srcMac) == 28, "ClkPtpPktEncap.srcMac at 28");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, destIp) == 36, "ClkPtpPktEncap.destIp at 36");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPktEncap, srcIp) == 40, "ClkPtpPktEncap.srcIp at 40");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpRxCtl) == 28, "ClkPtpRxCtl is 28 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpRxCtl, rxEnable) == 4, "ClkPtpRxCtl.rxEnable at 4");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpRxCtl, domainCheck) == 20, "ClkPtpRxCtl.domainCheck at 20");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpRxCtl, srcPortIdCheck) == 24, "ClkPtpRxCtl.srcPortIdCheck at 24");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpTxCtl) == 16, "ClkPtpTxCtl is 16 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpTxCtl, txEnable) == 4, "ClkPtpTxCtl.txEnable at 4");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpTxCtl, interval) == 12, "ClkPtpTxCtl.interval at 12");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpRxSrcPortId) == 16, "ClkPtpRxSrcPortId is 16 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpRxSrcPortId, identity) == 4, "ClkPtpRxSrcPortId.identity at 4");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpTxSrcPortId) == 12, "ClkPtpTxSrcPortId is 12 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpPortAsym) == 4, "ClkPtpPortAsym is 4 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpAnnPkt) == 48, "ClkPtpAnnPkt is 48 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, currentUtcOffset) == 16, "ClkPtpAnnPkt.currentUtcOffset at 16");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, grandmasterPriority2) == 24, "ClkPtpAnnPkt.grandmasterPriority2 at 24");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, clockClass) == 28, "ClkPtpAnnPkt.clockClass at 28");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, clockAccuracy) == 29, "ClkPtpAnnPkt.clockAccuracy at 29");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, offsetScaledLogVariance) == 30,
                     "ClkPtpAnnPkt.offsetScaledLogVariance at 30");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, grandmasterIdentityHigh) == 32,
                     "ClkPtpAnnPkt.grandmasterIdentityHigh at 32");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, stepsRemoved) == 40, "ClkPtpAnnPkt.stepsRemoved at 40");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpAnnPkt, timeSource) == 44, "ClkPtpAnnPkt.timeSource at 44");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpTimestamp) == 68, "ClkPtpTimestamp is 68 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpDfxDelay) == 24, "ClkPtpDfxDelay is 24 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkPtpPktStat) == 96, "ClkPtpPktStat is 96 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkSsmPortCfg) == 12, "ClkSsmPortCfg is 12 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkSsmPortCfg, ssmRxEn) == 8, "ClkSsmPortCfg.ssmRxEn at 8");

/* The fifteen slots of ClkSrvOrchIntf, in slot order. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpGlbCfg(ClkPtpGlbCfg *cfg);
/* Switching off disables the port first; switching on enables it last.
 * Clears bit 31 of cfg->portState in the caller's record. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortCfg(uint32_t unit, uint32_t port, uint32_t fwdTarget, ClkPtpPortCfg *cfg);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPktEncap(uint32_t unit, uint32_t port, uint32_t targetBoard,
                                               ClkPtpPktEncap *encap);
/* Stops at the first failing step. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpRxCtl(uint32_t unit, uint32_t port, ClkPtpRxCtl *rx);
/* A failed interval leaves the transmit enable alone. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpTxCtl(uint32_t unit, uint32_t port, ClkPtpTxCtl *tx);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpRxSrcPortId(uint32_t unit, uint32_t port, ClkPtpRxSrcPortId *id);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpTxSrcPortId(uint32_t unit, uint32_t port, ClkPtpTxSrcPortId *id);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortAsym(uint32_t unit, uint32_t port, ClkPtpPortAsym *asym);
/* While announces are transmitted, writes only a changed body, pausing the stream around the write. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpAnnClr(uint32_t unit, uint32_t port);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpTimestamp(uint32_t unit, uint32_t port, ClkPtpTimestamp *out);
/* Read-clear 1 reads the engine and returns 0 without touching out (which may be NULL). */
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpT2SubT1(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpT4SubT3(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out);
FWMCLK_API uint32_t FWM_SRV_CLK_GetPtpPktStat(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpPktStat *out);
/* No null check: the record must always be present. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetSsmPortCfg(uint32_t unit, uint32_t port, ClkSsmPortCfg *ssm);

/* Steps of the port configuration (orchestrator thread). The first half
 * expects bit 31 of cfg->portState already cleared; stateFlag is that bit. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortCfg1(uint32_t unit, uint32_t port, uint32_t stateFlag, ClkPtpPortCfg *cfg);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortCfg2(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg);
/* Mira-family (chip type 40) bookkeeping of a configured port; nothing on other chips. */
FWMCLK_API uint32_t FWM_SRV_CLK_MIRASpecialProc(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg);

/* The two halves of the encapsulation. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPktEncapData(uint32_t unit, uint32_t port, uint32_t targetBoard,
                                                   ClkPtpPktEncap *encap);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpEncapVlan(uint32_t unit, uint32_t port, ClkPtpPktEncap *encap);

/* Per orchestrator packet type (1..8): 1 for an invalid type, 0 for a type
 * that has no such setting, else the NP result. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPktRxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API uint32_t FWM_SRV_CLK_SetSrcPortIdCheck(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API uint32_t FWM_SRV_CLK_SetDomainCheck(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPktInterval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval);
FWMCLK_API uint32_t FWM_SRV_CLK_SetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);

/* Announce programming: the unconditional write of body and flag field, and
 * the compare-and-write used while announces are transmitted. */
FWMCLK_API uint32_t FWM_SRV_CLK_SetPtpPortPktProc(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann);
FWMCLK_API uint32_t CLK_NP_1588_SetAnnPortPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann);
/* Sets all eleven flags and copies the request's body into the engine record. */
FWMCLK_API void CLK_NP_1588_FormatAnnPkt(ClkPtpAnnPkt *ann, ClkNpAnnFlags *flags, ClkNpAnnFields *fields);
/* Sets *changed to 1 when the body differs from the record; leaves it alone otherwise. */
FWMCLK_API void CLK_NP_1588_CompAnnPayload(ClkPtpAnnPkt *ann, ClkNpAnnFields *fields, uint32_t *changed);

FWMCLK_EXTERN_C_END

#endif
