/* Diagnostic log, log-agent lifecycle and the debug framework print.
 *
 * Every log entry point may be called from any thread that runs service code
 * (the host's threads, the channel worker, timer callbacks); none takes a lock.
 */
#ifndef FWMCLK_DIAG_H
#define FWMCLK_DIAG_H

#include "base.h"

FWMCLK_EXTERN_C_BEGIN

/* Diagnostic log levels; the names are what the agent receives. */
enum {
  FWM_CLK_LOG_DEBUG = 0,
  FWM_CLK_LOG_INFO = 1,
  FWM_CLK_LOG_MSG = 2,
  FWM_CLK_LOG_ERROR = 3,
  FWM_CLK_LOG_SYSBOOT = 4,
  FWM_CLK_LOG_PROCINIT = 5,
  FWM_CLK_LOG_LEVEL_NUM = 6
};

/* System time handed to the agent: same bytes as the platform's record. */
typedef struct {
  uint16_t year;        /* 0 */
  uint8_t month;        /* 2 */
  uint8_t day;          /* 3 */
  uint8_t hour;         /* 4 */
  uint8_t minute;       /* 5 */
  uint8_t second;       /* 6 */
  uint8_t week;         /* 7 */
  uint32_t millisecond; /* 8 */
} ClkImAgentSysTime;

FWMCLK_STATIC_ASSERT(sizeof(ClkImAgentSysTime) == 12, "ClkImAgentSysTime is 12 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkImAgentSysTime, month) == 2, "ClkImAgentSysTime.month at 2");
FWMCLK_STATIC_ASSERT(offsetof(ClkImAgentSysTime, week) == 7, "ClkImAgentSysTime.week at 7");
FWMCLK_STATIC_ASSERT(offsetof(ClkImAgentSysTime, millisecond) == 8, "ClkImAgentSysTime.millisecond at 8");

typedef void *(*ClkImAgentMemAllocFn)(uint32_t size);
typedef uint32_t (*ClkImAgentMemFreeFn)(void *ptr);
typedef uint32_t (*ClkImAgentLogTraceFn)(const char *format, ...);
typedef uint32_t (*ClkImAgentGetSysTimeFn)(ClkImAgentSysTime *out);

/* Parameter record of IM_Agent_Init (72 bytes on the 32-bit target). */
typedef struct {
  char name[32];                     /* 0: "srv clk log" */
  uint32_t reserved0;                /* 32 */
  uint16_t field36;                  /* 36: set to 0 explicitly */
  uint16_t reserved1;                /* 38 */
  ClkImAgentMemAllocFn memAlloc;     /* 40 */
  ClkImAgentMemFreeFn memFree;       /* 44 */
  ClkImAgentLogTraceFn logTrace;     /* 48 */
  ClkImAgentGetSysTimeFn getSysTime; /* 52 */
  uint32_t reserved2[2];             /* 56 */
  uint32_t value64;                  /* 64: 1000 */
  uint32_t selfIp;                   /* 68: own address, bytes reversed */
} ClkImAgentInitPara;

FWMCLK_ASSERT_32(sizeof(ClkImAgentInitPara) == 72, "ClkImAgentInitPara is 72 bytes");
FWMCLK_ASSERT_32(offsetof(ClkImAgentInitPara, memAlloc) == 40, "memAlloc at 40");
FWMCLK_ASSERT_32(offsetof(ClkImAgentInitPara, getSysTime) == 52, "getSysTime at 52");
FWMCLK_ASSERT_32(offsetof(ClkImAgentInitPara, value64) == 64, "value64 at 64");
FWMCLK_ASSERT_32(offsetof(ClkImAgentInitPara, selfIp) == 68, "selfIp at 68");
FWMCLK_STATIC_ASSERT(offsetof(ClkImAgentInitPara, field36) == 36, "field36 at 36");

/* Level names and switches; the host may write the diagnostic switches. */
FWMCLK_API extern const char *const g_clkSrvImAgentLogLvlStr[FWM_CLK_LOG_LEVEL_NUM];
FWMCLK_API extern uint32_t g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_LEVEL_NUM];
FWMCLK_API extern uint32_t g_clkSrvImAgentDebugSwitch[FWM_CLK_LOG_LEVEL_NUM];
/* Agent handle; 0 = not ready, every log line is dropped. */
FWMCLK_API extern uint32_t g_clkSrvImAgentHandle;
FWMCLK_API extern uint32_t g_clkSrvImAgentTaskId;
FWMCLK_API extern uint32_t g_clkSrvImAgentUpdateMasterIpTaskId;
/* Debug framework registration: module id (0xFFFFFFFF = not registered) and table. */
FWMCLK_API extern uint32_t g_clkFwmSrvDbgId;
FWMCLK_API extern void **g_clkFwmSrvDbgFunVtbl;

/* Formats a line and hands it to the agent as a "CLK_FWM" log object.
 * Any thread. Returns 0 when sent or when the agent is not ready, 1 when the
 * level is above 5 or switched off, else the agent failure's outcome. */
FWMCLK_API int32_t FWM_SRV_ORCH_CLK_ImAgentDiagLog(uint32_t level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
/* Reports a failure of the log path itself through the agent's debug print. */
FWMCLK_API int32_t FWM_SRV_ORCH_CLK_ImAgentDebugLog(uint32_t level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
/* 1 when the agent handle is set. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentIsInitOk(void);
/* Sets the debug switch of a level (0..5) to 0 or 1; 1 = refused. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(uint32_t level, uint32_t value);

/* Callbacks handed to the agent at its creation; they run on the agent's threads. */
FWMCLK_API void *FWM_SRV_ORCH_CLK_ImAgentMemAlloc(uint32_t size);
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentMemFree(void *ptr);
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentLogTrace(const char *format, ...);
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentGetSysTime(ClkImAgentSysTime *out);

/* Adopts the process's agent (0) or starts the task "ClkSrvIMAgent". Host thread. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentInit(void);
/* Body of "ClkSrvIMAgent": waits for the own address, creates the agent, sets the master address. */
FWMCLK_API void FWM_SRV_ORCH_CLK_ImAgentInitTaskEntry(void);
/* Own board address with its bytes reversed; blocks until it is known. Task threads only. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentGetSelfBoardIp(void);
/* Waits for the master address and hands it to the agent. Task threads only. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentSetMasterIp(void);
/* Starts the task "ClkSrvIMAgentUpdateMasterIp"; returns the creation result at once. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp(void);
FWMCLK_API void FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIpTaskEntry(void);
/* Releases the agent; for the host. */
FWMCLK_API uint32_t FWM_SRV_ORCH_CLK_ImAgentUnInit(void);

/* Registers the module "FWM_SRV_CLK" with the debug framework. Host thread, start-up. */
FWMCLK_API int32_t FWM_SRV_CLK_InitDbg(void);
/* Time-stamped line to the debug framework (levels 0..4). Any thread. */
FWMCLK_API int32_t FWM_SRV_CLK_PrintDbg(uint32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

FWMCLK_EXTERN_C_END

#endif
