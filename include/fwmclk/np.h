/* The NP clock abstraction: per-unit driver tables and the exported entries.
 *
 * Every entry checks the unit (0..7), checks its required pointers, logs its
 * parameters, calls the unit's driver slot and reports a failure through
 * CLK_NP_RetProcess. The entries take no lock: the tables are written only at
 * start-up and read-only afterwards, so any thread that runs service code
 * (the orchestrator's, the announce timer's) may call them. */
#ifndef FWMCLK_NP_H
#define FWMCLK_NP_H

#include "base.h"

FWMCLK_EXTERN_C_BEGIN

/* Result codes of the NP layer; the adapter's error map adds -1, -2, -5..-9, -14, -30. */
enum {
  CLK_NP_OK = 0,
  CLK_NP_ERR_FAIL = 1,
  CLK_NP_ERR_UNIT = -3,
  CLK_NP_ERR_PARAM = -4,
  CLK_NP_ERR_NO_FUNC = -16,
  CLK_NP_ERR_NULL_PTR = -99
};

#define CLK_NP_UNIT_NUM 8u
#define CLK_NP_SLOT_NUM 65u

/* Generic PTP control read: word 0 goes to the driver, both words come back. */
typedef struct {
  uint32_t word[2];
} ClkNpPtpCtrlRec;

/* PTP source port identity, copied word by word and never interpreted. */
typedef struct {
  uint32_t word[3];
} ClkNpPortIdentity;

/* Port enable record; the caller zeroes it first. */
typedef struct {
  uint8_t reserved[10]; /* 0: not read by the NP layer or the adapter */
  uint8_t fwdUnit;      /* 10 */
  uint8_t fwdPort;      /* 11 */
  uint32_t fwdTarget;   /* 12: forwarding target, 0xFFFFFFFF = none */
} ClkNpPortEnInfo;

#define CLK_NP_FWD_TARGET_NONE 0xFFFFFFFFu

/* Packet statistics as the engine fills them (37 words). */
typedef struct {
  uint32_t word[37];
} ClkNpPktStat;

/* The eleven flag words that accompany every ClkNpAnnFields. */
typedef struct {
  uint32_t flag[11];
} ClkNpAnnFlags;

/* Timestamps as the engine fills them (16 words). */
typedef struct {
  uint32_t word[16];
} ClkNpTimestamps;

/* Path-delay diagnostic t2-t1 or t4-t3 (6 words). */
typedef struct {
  uint32_t word[6];
} ClkNpDfxDelay;

/* Announce fields. Bytes 0..35 are the announce body (transmit and read back);
 * bytes 40..59 are header values of a received announce. */
typedef struct {
  uint32_t currentUtcOffset;        /* 0 */
  uint32_t grandmasterIdentityHigh; /* 4 */
  uint32_t grandmasterIdentityLow;  /* 8 */
  uint16_t clockClass;              /* 12 */
  uint16_t clockAccuracy;           /* 14 */
  uint32_t offsetScaledLogVariance; /* 16 */
  uint32_t grandmasterPriority1;    /* 20 */
  uint32_t grandmasterPriority2;    /* 24 */
  uint32_t stepsRemoved;            /* 28 */
  uint32_t timeSource;              /* 32 */
  uint8_t reserved36[4];            /* 36 */
  uint8_t domainNumber;             /* 40: receive */
  uint8_t reserved41;               /* 41 */
  uint16_t flagField;               /* 42: receive */
  uint8_t logMessageInterval;       /* 44: receive */
  uint8_t reserved45[3];            /* 45 */
  uint32_t sourceClockIdentityHigh; /* 48: receive */
  uint32_t sourceClockIdentityLow;  /* 52: receive */
  uint32_t sourcePortNumber;        /* 56: receive, low 16 bits meaningful */
  uint8_t reserved60[28];           /* 60: the engine's */
} ClkNpAnnFields;

FWMCLK_STATIC_ASSERT(sizeof(ClkNpPtpCtrlRec) == 8, "ClkNpPtpCtrlRec is 8 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpPortIdentity) == 12, "ClkNpPortIdentity is 12 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpPortEnInfo) == 16, "ClkNpPortEnInfo is 16 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpPortEnInfo, fwdUnit) == 10, "ClkNpPortEnInfo.fwdUnit at 10");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpPortEnInfo, fwdPort) == 11, "ClkNpPortEnInfo.fwdPort at 11");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpPortEnInfo, fwdTarget) == 12, "ClkNpPortEnInfo.fwdTarget at 12");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpPktStat) == 148, "ClkNpPktStat is 148 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpAnnFlags) == 44, "ClkNpAnnFlags is 44 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpTimestamps) == 64, "ClkNpTimestamps is 64 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpDfxDelay) == 24, "ClkNpDfxDelay is 24 bytes");
FWMCLK_STATIC_ASSERT(sizeof(ClkNpAnnFields) == 88, "ClkNpAnnFields is 88 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, clockClass) == 12, "ClkNpAnnFields.clockClass at 12");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, clockAccuracy) == 14, "ClkNpAnnFields.clockAccuracy at 14");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, offsetScaledLogVariance) == 16, "offsetScaledLogVariance at 16");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, timeSource) == 32, "ClkNpAnnFields.timeSource at 32");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, domainNumber) == 40, "ClkNpAnnFields.domainNumber at 40");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, flagField) == 42, "ClkNpAnnFields.flagField at 42");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, logMessageInterval) == 44, "logMessageInterval at 44");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, sourceClockIdentityHigh) == 48, "sourceClockIdentityHigh at 48");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, sourcePortNumber) == 56, "sourcePortNumber at 56");
FWMCLK_STATIC_ASSERT(offsetof(ClkNpAnnFields, reserved60) == 60, "ClkNpAnnFields tail at 60");

/* Slot type of the numbers that carry no operation (45, 46, 47, 61). */
typedef int32_t (*NpClkReservedFn)(uint32_t unit);

/* One unit's driver: 65 slots, numbered by position; null = not provided.
 * Every operation takes the unit first. */
typedef struct {
  int32_t (*init)(void);                                                                                        /* 0 */
  int32_t (*setSsmRxEnable)(uint32_t unit, uint32_t port, uint32_t enable);                                     /* 1 */
  int32_t (*setPtpCtrl)(uint32_t unit, uint32_t port, uint32_t type, uint32_t value);                           /* 2 */
  int32_t (*getPtpCtrl)(uint32_t unit, uint32_t type, ClkNpPtpCtrlRec *rec);                                    /* 3 */
  int32_t (*setPtpState)(uint32_t unit, uint32_t port, uint32_t state);                                         /* 4 */
  int32_t (*getPtpState)(uint32_t unit, uint32_t port, uint32_t *state);                                        /* 5 */
  int32_t (*setEncapType)(uint32_t unit, uint32_t port, uint32_t board, uint32_t encap);                        /* 6 */
  int32_t (*getEncapType)(uint32_t unit, uint32_t port, uint32_t *encap);                                       /* 7 */
  int32_t (*setEncapDaSel)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);                       /* 8 */
  int32_t (*setEncapDipSel)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);                      /* 9 */
  int32_t (*setEncapFlagFieldSel)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);                /* 10 */
  int32_t (*setEncapFlagField)(uint32_t unit, uint32_t port, uint32_t flagField);                               /* 11 */
  int32_t (*getEncapFlagField)(uint32_t unit, uint32_t port, uint32_t *flagField);                              /* 12 */
  int32_t (*setEncapDomainNumber)(uint32_t unit, uint32_t port, uint32_t domain);                               /* 13 */
  int32_t (*getEncapDomainNumber)(uint32_t unit, uint32_t port, uint32_t *domain);                              /* 14 */
  int32_t (*setEncapSportIdentityTx)(uint32_t unit, uint32_t port, const ClkNpPortIdentity *id);                /* 15 */
  int32_t (*getEncapSportIdentityTx)(uint32_t unit, uint32_t port, ClkNpPortIdentity *id);                      /* 16 */
  int32_t (*setEncapSportIdentityRx)(uint32_t unit, uint32_t port, uint32_t type, const ClkNpPortIdentity *id); /* 17 */
  int32_t (*getEncapSportIdentityRx)(uint32_t unit, uint32_t port, uint32_t type, ClkNpPortIdentity *id);       /* 18 */
  int32_t (*setEncapDa)(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);                    /* 19 */
  int32_t (*setEncapSa)(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);                    /* 20 */
  int32_t (*setEncapDip)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);                        /* 21 */
  int32_t (*setEncapSip)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);                        /* 22 */
  int32_t (*setEncapDscp)(uint32_t unit, uint32_t port, uint32_t dscp);                                         /* 23 */
  int32_t (*setEncapVlan)(uint32_t unit, uint32_t port, uint32_t tag);                                          /* 24 */
  int32_t (*setEncapUdpSport)(uint32_t unit, uint32_t port, uint32_t udpSport);                                 /* 25 */
  int32_t (*setEncapIpHeader)(uint32_t unit, uint32_t port, const void *header);                                /* 26 */
  int32_t (*setPktTxEn)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);                       /* 27 */
  int32_t (*getPktTxEn)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable);                      /* 28 */
  int32_t (*setPktRxEn)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);                       /* 29 */
  int32_t (*setPktInterval)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval);                 /* 30 */
  int32_t (*getPktstatAlarm)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag, uint32_t *alarm);   /* 31 */
  int32_t (*getPktstat)(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpPktStat *stat);                  /* 32 */
  int32_t (*setAnnounceTimeout)(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval);            /* 33 */
  int32_t (*getAnnounceAlarm)(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag, uint32_t *alarm);     /* 34 */
  int32_t (*setAnnounceAlarm)(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist);                     /* 35 */
  int32_t (*setAnnounceFieldTx)(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields);    /* 36 */
  int32_t (*getAnnounceFieldTx)(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields);    /* 37 */
  int32_t (*getAnnounceFieldRx)(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpAnnFlags *flags,
                                ClkNpAnnFields *fields);                                            /* 38 */
  int32_t (*setPortEn)(uint32_t unit, uint32_t port, uint32_t enable, ClkNpPortEnInfo *info);       /* 39 */
  int32_t (*getPortEn)(uint32_t unit, uint32_t port, uint32_t *enable);                             /* 40 */
  int32_t (*getTimestamp)(uint32_t unit, uint32_t port, ClkNpTimestamps *ts);                       /* 41 */
  int32_t (*getSsmStat)(uint32_t unit, uint32_t port, uint32_t selector, void *stat);               /* 42 */
  int32_t (*getDfxT2SubT1)(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay); /* 43 */
  int32_t (*getDfxT4SubT3)(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay); /* 44 */
  NpClkReservedFn reserved45;                                                                       /* 45 */
  NpClkReservedFn reserved46;                                                                       /* 46 */
  NpClkReservedFn reserved47;                                                                       /* 47 */
  int32_t (*setPortTsReportEnable)(uint32_t unit, uint32_t port, uint32_t enable);                  /* 48 */
  int32_t (*ptpSetMac47bitModeEn)(uint32_t unit, uint32_t value, uint32_t enable);                  /* 49 */
  int32_t (*ptpSetMacRxPortDelay)(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2);  /* 50 */
  int32_t (*ptpSetMacTxPortDelay)(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2);  /* 51 */
  int32_t (*ptpSetTspDelay)(uint32_t unit, uint32_t value, uint32_t delay);                         /* 52 */
  int32_t (*ptpGetTspHeaderCnt)(uint32_t unit, uint32_t value, uint32_t *count);                    /* 53 */
  int32_t (*ptpGetTsReportPort)(uint32_t unit, uint32_t value, uint32_t *reportPort);               /* 54 */
  int32_t (*ptpSetI2cSlaveAddr)(uint32_t unit, uint32_t value, uint32_t addr);                      /* 55 */
  int32_t (*ptpSetRtcTime)(uint32_t unit, uint32_t value1, uint32_t value2, uint32_t value3);       /* 56 */
  int32_t (*ptpSetRtcNsAdjust)(uint32_t unit, uint32_t value, void *adjust);                        /* 57 */
  int32_t (*ptpSetTspRefreshEn)(uint32_t unit, uint32_t value, uint32_t enable);                    /* 58 */
  int32_t (*ptpClearTsCnt)(uint32_t unit, uint32_t value);                                          /* 59 */
  int32_t (*ptpSetPortEnable)(uint32_t unit, uint32_t port, uint32_t enable);                       /* 60 */
  NpClkReservedFn reserved61;                                                                       /* 61 */
  int32_t (*ptpGetPortTsReportEnable)(uint32_t unit, uint32_t port, uint32_t *enable);              /* 62 */
  int32_t (*ptpGetReportTs)(uint32_t unit, void *report);                                           /* 63 */
  int32_t (*ptpGetChannelTs)(uint32_t unit, uint32_t channel, void *ts);                            /* 64 */
} NpClkDriverFuncs;

/* The table is addressed by slot number like an array of 65 pointers. */
FWMCLK_STATIC_ASSERT(sizeof(NpClkDriverFuncs) == CLK_NP_SLOT_NUM * sizeof(NpClkReservedFn),
                     "NpClkDriverFuncs holds exactly 65 slots");
FWMCLK_STATIC_ASSERT(offsetof(NpClkDriverFuncs, getDfxT4SubT3) == 44 * sizeof(NpClkReservedFn), "slot 44");
FWMCLK_STATIC_ASSERT(offsetof(NpClkDriverFuncs, setPortTsReportEnable) == 48 * sizeof(NpClkReservedFn), "slot 48");
FWMCLK_STATIC_ASSERT(offsetof(NpClkDriverFuncs, ptpGetPortTsReportEnable) == 62 * sizeof(NpClkReservedFn), "slot 62");
FWMCLK_ASSERT_32(sizeof(NpClkDriverFuncs) == 260, "NpClkDriverFuncs is 260 bytes");

/* Driver tables of units 0..7: zero from load, filled at start-up, read-only afterwards. */
FWMCLK_API extern NpClkDriverFuncs g_fnNpClkDriver[CLK_NP_UNIT_NUM];

/* Fills each unit's driver table according to the board's chip type. Host thread, start-up. */
FWMCLK_API void FWM_SRV_1588_DriverInit(void);

/* Prints the "Fe module error" line for a failed result (0, -6, -7, -8 print nothing). */
FWMCLK_API int32_t CLK_NP_RetProcess(int32_t code, uint32_t unit, uint32_t port, const char *reason);

/* Slots 1..26: control, state and encapsulation. */
FWMCLK_API int32_t CLK_NP_1588_SetSsmRxEnable(uint32_t unit, uint32_t port, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_SetPtpCtrl(uint32_t unit, uint32_t port, uint32_t type, uint32_t value);
FWMCLK_API int32_t CLK_NP_1588_GetPtpCtrl(uint32_t unit, uint32_t type, ClkNpPtpCtrlRec *rec);
FWMCLK_API int32_t CLK_NP_1588_SetPtpState(uint32_t unit, uint32_t port, uint32_t state);
FWMCLK_API int32_t CLK_NP_1588_GetPtpState(uint32_t unit, uint32_t port, uint32_t *state);
FWMCLK_API int32_t CLK_NP_1588_SetEncapType(uint32_t unit, uint32_t port, uint32_t board, uint32_t encap);
FWMCLK_API int32_t CLK_NP_1588_GetEncapType(uint32_t unit, uint32_t port, uint32_t *encap);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDaSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDipSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t CLK_NP_1588_SetEncapFlagFieldSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel);
FWMCLK_API int32_t CLK_NP_1588_SetEncapFlagField(uint32_t unit, uint32_t port, uint32_t flagField);
FWMCLK_API int32_t CLK_NP_1588_GetEncapFlagField(uint32_t unit, uint32_t port, uint32_t *flagField);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDomainNumber(uint32_t unit, uint32_t port, uint32_t domain);
FWMCLK_API int32_t CLK_NP_1588_GetEncapDomainNumber(uint32_t unit, uint32_t port, uint32_t *domain);
FWMCLK_API int32_t CLK_NP_1588_SetEncapSportIdentityTx(uint32_t unit, uint32_t port, const ClkNpPortIdentity *id);
FWMCLK_API int32_t CLK_NP_1588_GetEncapSportIdentityTx(uint32_t unit, uint32_t port, ClkNpPortIdentity *id);
FWMCLK_API int32_t CLK_NP_1588_SetEncapSportIdentityRx(uint32_t unit, uint32_t port, uint32_t type,
                                                       const ClkNpPortIdentity *id);
FWMCLK_API int32_t CLK_NP_1588_GetEncapSportIdentityRx(uint32_t unit, uint32_t port, uint32_t type,
                                                       ClkNpPortIdentity *id);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);
FWMCLK_API int32_t CLK_NP_1588_SetEncapSa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
FWMCLK_API int32_t CLK_NP_1588_SetEncapSip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4);
FWMCLK_API int32_t CLK_NP_1588_SetEncapDscp(uint32_t unit, uint32_t port, uint32_t dscp);
FWMCLK_API int32_t CLK_NP_1588_SetEncapVlan(uint32_t unit, uint32_t port, uint32_t tag);
FWMCLK_API int32_t CLK_NP_1588_SetEncapUdpSport(uint32_t unit, uint32_t port, uint32_t udpSport);
FWMCLK_API int32_t CLK_NP_1588_SetEncapIpHeader(uint32_t unit, uint32_t port, const void *header);

/* Slots 27..44: packets, announce, timestamps and statistics. */
FWMCLK_API int32_t CLK_NP_1588_SetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
/* Logs after the call, with the value found in *enable; the pointer must be valid. */
FWMCLK_API int32_t CLK_NP_1588_GetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable);
FWMCLK_API int32_t CLK_NP_1588_SetPktRxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_SetPktInterval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval);
FWMCLK_API int32_t CLK_NP_1588_GetPktstatAlarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag,
                                               uint32_t *alarm);
FWMCLK_API int32_t CLK_NP_1588_GetPktstat(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpPktStat *stat);
FWMCLK_API int32_t CLK_NP_1588_SetAnnounceTimeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval);
FWMCLK_API int32_t CLK_NP_1588_GetAnnounceAlarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag,
                                                uint32_t *alarm);
FWMCLK_API int32_t CLK_NP_1588_SetAnnounceAlarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist);
FWMCLK_API int32_t CLK_NP_1588_SetAnnounceFieldTx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags,
                                                  ClkNpAnnFields *fields);
FWMCLK_API int32_t CLK_NP_1588_GetAnnounceFieldTx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags,
                                                  ClkNpAnnFields *fields);
FWMCLK_API int32_t CLK_NP_1588_GetAnnounceFieldRx(uint32_t unit, uint32_t port, uint32_t readClear,
                                                  ClkNpAnnFlags *flags, ClkNpAnnFields *fields);
FWMCLK_API int32_t CLK_NP_1588_SetPortEn(uint32_t unit, uint32_t port, uint32_t enable, ClkNpPortEnInfo *info);
FWMCLK_API int32_t CLK_NP_1588_GetPortEn(uint32_t unit, uint32_t port, uint32_t *enable);
FWMCLK_API int32_t CLK_NP_1588_GetTimestamp(uint32_t unit, uint32_t port, ClkNpTimestamps *ts);
FWMCLK_API int32_t CLK_NP_1588_GetSsmStat(uint32_t unit, uint32_t port, uint32_t selector, void *stat);
FWMCLK_API int32_t CLK_NP_1588_GetDfxT2SubT1(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay);
FWMCLK_API int32_t CLK_NP_1588_GetDfxT4SubT3(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay);

/* Slots 48..64: timestamp-unit extensions; no driver of this library fills them. */
FWMCLK_API int32_t CLK_NP_1588_SetPortTsReportEnable(uint32_t unit, uint32_t port, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_PtpSetMac47bitModeEn(uint32_t unit, uint32_t value, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_PtpSetMacRxPortDelay(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2);
FWMCLK_API int32_t CLK_NP_1588_PtpSetMacTxPortDelay(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2);
FWMCLK_API int32_t CLK_NP_1588_PtpSetTspDelay(uint32_t unit, uint32_t value, uint32_t delay);
FWMCLK_API int32_t CLK_NP_1588_PtpGetTspHeaderCnt(uint32_t unit, uint32_t value, uint32_t *count);
FWMCLK_API int32_t CLK_NP_1588_PtpGetTsReportPort(uint32_t unit, uint32_t value, uint32_t *reportPort);
FWMCLK_API int32_t CLK_NP_1588_PtpSetI2cSlaveAddr(uint32_t unit, uint32_t value, uint32_t addr);
FWMCLK_API int32_t CLK_NP_1588_PtpSetRtcTime(uint32_t unit, uint32_t value1, uint32_t value2, uint32_t value3);
FWMCLK_API int32_t CLK_NP_1588_PtpSetRtcNsAdjust(uint32_t unit, uint32_t value, void *adjust);
FWMCLK_API int32_t CLK_NP_1588_PtpSetTspRefreshEn(uint32_t unit, uint32_t value, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_PtpClearTsCnt(uint32_t unit, uint32_t value);
FWMCLK_API int32_t CLK_NP_1588_PtpSetPortEnable(uint32_t unit, uint32_t port, uint32_t enable);
FWMCLK_API int32_t CLK_NP_1588_PtpGetPortTsReportEnable(uint32_t unit, uint32_t port, uint32_t *enable);
/* Reports a failure with port 0: it has no port argument. */
FWMCLK_API int32_t CLK_NP_1588_PtpGetReportTs(uint32_t unit, void *report);
FWMCLK_API int32_t CLK_NP_1588_PtpGetChannelTs(uint32_t unit, uint32_t channel, void *ts);

/* Placeholders kept for other modules: return 0 whatever they are given. */
FWMCLK_API int32_t CLK_NP_1588_SetSynceConfig(uint32_t unit, ...);
FWMCLK_API int32_t CLK_NP_1588_GetPtpRtcTs(uint32_t unit, ...);
FWMCLK_API int32_t CLK_NP_1588_SetMacAsymDelay(uint32_t unit, ...);

FWMCLK_EXTERN_C_END

#endif
