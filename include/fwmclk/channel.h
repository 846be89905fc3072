/* The negotiation-information channel: the worker task "CLK_FWM_BKF" with its
 * event queue "CLK_Q_BKF", the message-channel framework and notification
 * client it brings up, the framework's timers, and the announce
 * acknowledgement sent to the clock negotiation peer.
 *
 * Threads: the framework and the notification client are used only on the
 * worker. Other threads hand work to it with FWM_SRV_BKF_QueProcWrite (or
 * FWM_SRV_BKF_SendAckMsg) and read the handles with FWM_SRV_CLK_GetBkfHdl.
 */
#ifndef FWMCLK_CHANNEL_H
#define FWMCLK_CHANNEL_H

#include "base.h"

FWMCLK_EXTERN_C_BEGIN

/* ---- Announce information record --------------------------------------- */

#define CLK_ANN_PKT_LEN 88u

/* One port's received announce, as the announce supervision builds it. */
typedef struct {
  uint32_t ifIndex;                /* 0: the port's interface index */
  uint32_t pktLen;                 /* 4: 96, the size of the whole record */
  uint8_t annPkt[CLK_ANN_PKT_LEN]; /* 8: announce message image, host byte order */
} ClkAnnInfo;

FWMCLK_STATIC_ASSERT(sizeof(ClkAnnInfo) == 96, "ClkAnnInfo is 96 bytes");
FWMCLK_STATIC_ASSERT(offsetof(ClkAnnInfo, pktLen) == 4, "ClkAnnInfo.pktLen at 4");
FWMCLK_STATIC_ASSERT(offsetof(ClkAnnInfo, annPkt) == 8, "ClkAnnInfo.annPkt at 8");

/* ---- Channel handles and memory ----------------------------------------- */

/* The four handle words; the framework also receives the record's address,
 * so the order is fixed. Ready when `client` is non-zero. */
typedef struct {
  uintptr_t comm;    /* word 0: communication handle of the framework */
  uintptr_t builder; /* word 1: the ClkBkfSimpoBuilder block */
  uintptr_t channel; /* word 2: notification channel "fwm_clk_ntfy" */
  uintptr_t client;  /* word 3: notification client; published last */
} ClkBkfHandle;

FWMCLK_STATIC_ASSERT(sizeof(ClkBkfHandle) == 4 * sizeof(uintptr_t), "ClkBkfHandle is four words");
FWMCLK_ASSERT_32(sizeof(ClkBkfHandle) == 16, "ClkBkfHandle is 16 bytes");

FWMCLK_API extern ClkBkfHandle g_fwmClkBkfHandle;
/* Memory handle (0xFFFFFFFF at load) and partition (0xFF at load) of every
 * channel allocation and of the PTP port list; only the host writes them. */
FWMCLK_API extern uint32_t g_clkMemHandle;
FWMCLK_API extern uint8_t g_clkMemPtNo;
/* The worker's epoll descriptor; -1 while there is none. */
FWMCLK_API extern int32_t g_clkBkfEpollFd;

/* Built on the caller's stack for FWM_SRV_CLK_BkfInitComm. */
typedef struct {
  uintptr_t *handleSlot; /* receives the communication handle; must hold 0 */
  char name[16];         /* component name, "fwm_clk" */
  int32_t epollFd;       /* the worker's epoll descriptor */
} ClkBkfInitCommParam;

typedef void *(*ClkBkfMallocFn)(uint32_t unused, uint32_t size);
typedef void (*ClkBkfFreeFn)(uint32_t unused, void *block);
typedef void (*ClkBkfRecordLogFn)(uint32_t unused, const char *text);
typedef int32_t (*ClkBkfSysLogPrintfFn)(uint32_t level, const char *fmt, ...);
typedef void (*ClkBkfTimerCallback)(uintptr_t param);
typedef void *(*ClkBkfTimerStartFn)(uint32_t fw, ClkBkfTimerCallback cb, uint32_t length, uintptr_t param);
typedef void (*ClkBkfTimerStopFn)(uint32_t fw, void *timer);
typedef int32_t (*ClkBkfSliceKeyCmpFn)(const void *a, const void *b);
typedef char *(*ClkBkfSliceKeyGetStrFn)(const void *key, char *buf, uint32_t bufLen);
typedef int32_t (*ClkBkfSliceKeyCodecFn)(void *key, void *buf, uint32_t len, uint32_t direction);

/* The framework's initialisation record. The numeric fields are the
 * framework's own settings; their names say only where they sit. */
typedef struct {
  const char *name;                      /* 0x00: component name */
  uint32_t opt04;                        /* 0x04: 1 */
  uint32_t opt08;                        /* 0x08: 0 */
  ClkBkfHandle *handles;                 /* 0x0C: g_fwmClkBkfHandle */
  ClkBkfMallocFn memAlloc;               /* 0x10 */
  ClkBkfFreeFn memFree;                  /* 0x14 */
  uint32_t opt18;                        /* 0x18: 2048 */
  uint32_t opt1C;                        /* 0x1C: 1 */
  ClkBkfRecordLogFn recordLog;           /* 0x20 */
  uint32_t opt24;                        /* 0x24: 4 */
  int32_t epollFd;                       /* 0x28 */
  uint32_t opt2C;                        /* 0x2C: 0 */
  ClkBkfTimerStartFn timerStartOnce;     /* 0x30 */
  ClkBkfTimerStartFn timerStartLoop;     /* 0x34 */
  ClkBkfTimerStopFn timerStop;           /* 0x38 */
  uint32_t opt3C;                        /* 0x3C: 1 */
  uint32_t opt40[3];                     /* 0x40: 0 */
  uint32_t opt4C;                        /* 0x4C: 64 */
  ClkBkfSysLogPrintfFn sysLogPrintf;     /* 0x50 */
  uint32_t opt54[4];                     /* 0x54: 0 */
  uint16_t opt64;                        /* 0x64: 4 */
  uint16_t opt66;                        /* 0x66: 0 */
  ClkBkfSliceKeyCmpFn sliceKeyCmp;       /* 0x68 */
  ClkBkfSliceKeyGetStrFn sliceKeyGetStr; /* 0x6C */
  ClkBkfSliceKeyCodecFn sliceKeyCodec;   /* 0x70 */
  uint32_t opt74[2];                     /* 0x74: 0 */
} ClkBkfCommInitRec;

FWMCLK_ASSERT_32(sizeof(ClkBkfCommInitRec) == 124, "ClkBkfCommInitRec is 124 bytes");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, handles) == 0x0C, "handles at 0x0C");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, memAlloc) == 0x10, "memAlloc at 0x10");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, memFree) == 0x14, "memFree at 0x14");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt18) == 0x18, "opt18 at 0x18");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, recordLog) == 0x20, "recordLog at 0x20");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, epollFd) == 0x28, "epollFd at 0x28");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, timerStartOnce) == 0x30, "timerStartOnce at 0x30");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, timerStartLoop) == 0x34, "timerStartLoop at 0x34");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, timerStop) == 0x38, "timerStop at 0x38");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt3C) == 0x3C, "opt3C at 0x3C");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt4C) == 0x4C, "opt4C at 0x4C");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, sysLogPrintf) == 0x50, "sysLogPrintf at 0x50");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt64) == 0x64, "opt64 at 0x64");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt66) == 0x66, "opt66 at 0x66");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, sliceKeyCmp) == 0x68, "sliceKeyCmp at 0x68");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, sliceKeyGetStr) == 0x6C, "sliceKeyGetStr at 0x6C");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, sliceKeyCodec) == 0x70, "sliceKeyCodec at 0x70");
FWMCLK_ASSERT_32(offsetof(ClkBkfCommInitRec, opt74) == 0x74, "opt74 at 0x74");

/* The record of BKF_MeshCliChInit. */
typedef struct {
  const char *name; /* 0x00: channel name */
  uint32_t opt04;   /* 0x04: 1 */
  uint32_t option1; /* 0x08 */
  uint32_t option2; /* 0x0C */
} ClkBkfChInitRec;

FWMCLK_ASSERT_32(sizeof(ClkBkfChInitRec) == 16, "ClkBkfChInitRec is 16 bytes");
FWMCLK_ASSERT_32(offsetof(ClkBkfChInitRec, option1) == 0x08, "option1 at 0x08");
FWMCLK_ASSERT_32(offsetof(ClkBkfChInitRec, option2) == 0x0C, "option2 at 0x0C");

#define CLK_BKF_URL_LEN 28u

/* The record of CLOCK_NegoinfoiNtfyCliInit. */
typedef struct {
  const char *name;             /* 0x00: client name "fwm_ntfy" */
  uint32_t opt04;               /* 0x04: 0 */
  uint32_t opt08;               /* 0x08: 1 */
  uintptr_t channel;            /* 0x0C: word 2 */
  uintptr_t comm;               /* 0x10: word 0 */
  uint32_t opt14[3];            /* 0x14: 0 */
  uint8_t url[CLK_BKF_URL_LEN]; /* 0x20: peer address, filled by BKF_UrlMeshSet */
} ClkNtfyCliInitRec;

FWMCLK_ASSERT_32(sizeof(ClkNtfyCliInitRec) == 60, "ClkNtfyCliInitRec is 60 bytes");
FWMCLK_ASSERT_32(offsetof(ClkNtfyCliInitRec, channel) == 0x0C, "channel at 0x0C");
FWMCLK_ASSERT_32(offsetof(ClkNtfyCliInitRec, comm) == 0x10, "comm at 0x10");
FWMCLK_ASSERT_32(offsetof(ClkNtfyCliInitRec, url) == 0x20, "url at 0x20");

/* Message builder state (word 1); touched only on the worker. */
typedef struct {
  int32_t error;          /* 0 until a step fails; -6: step out of order */
  uint8_t *cursor;        /* where the root's fields go */
  uint32_t fieldIndex;    /* last root field added: 0 ifIndex, 1 pktLen, 2 annPkt */
  const char *failedStep; /* name of the step that recorded the error */
  uint8_t *msgStart;      /* first byte of the message (the root header) */
  uint32_t header;        /* root header of every message; stays 0 */
} ClkBkfSimpoBuilder;

/* Brings up builder, framework, notification channel and client, logging the
 * first failure. Worker, once, before its event loop. */
FWMCLK_API void FWM_SRV_CLK_BkfInit(void);
/* Allocates the zero-filled builder block into word 1. 0/1. */
FWMCLK_API uint32_t FWM_SRV_CLK_BkfSimpoInit(ClkBkfHandle *handle);
/* Initialises the framework; 1 when word 0 is still 0 afterwards. */
FWMCLK_API uint32_t FWM_SRV_CLK_BkfCommonInit(void);
/* Calls BKF_CommInit and stores its result in the handle slot; the result is
 * the framework's, callers judge success by the slot. */
FWMCLK_API int32_t FWM_SRV_CLK_BkfInitComm(ClkBkfInitCommParam *param);
/* Opens the notification channel and creates and connects the client. 0/1. */
FWMCLK_API uint32_t FWM_SRV_CLK_BkfNftyInit(void);
/* Opens a channel of the framework; 0 on failure. */
FWMCLK_API uintptr_t FWM_SRV_CLK_BkfChannelInit(uintptr_t comm, const char *name, uint32_t option1, uint32_t option2);
/* Creates the notification client into word 3 (published last). */
FWMCLK_API uintptr_t FWM_SRV_CLK_BkfNtfyCliInit(void);

/* Copies the four words; a reader that sees word 3 set sees the others set. Any thread. */
FWMCLK_API void FWM_SRV_CLK_GetBkfHdl(ClkBkfHandle *out);
FWMCLK_API uint32_t FWM_SRV_BKF_GetMemHdl(void);
FWMCLK_API uint8_t FWM_SRV_BKF_GetMemPtNo(void);

/* Hooks handed to the framework; any thread. The first argument is unused. */
FWMCLK_API void *FWM_SRV_BkfMalloc(uint32_t unused, uint32_t size);
FWMCLK_API void FWM_SRV_BkfFree(uint32_t unused, void *block);
FWMCLK_API void FWM_SRV_BkfRecordLog(uint32_t unused, const char *text);
FWMCLK_API int32_t FWM_SRV_BkfSysLogPrintf(uint32_t level, const char *fmt, ...);

/* Teardown: client, framework, builder. Clears words 0 and 1; words 2 and 3
 * keep their values, so the host calls it only once nothing posts
 * acknowledgements any more and none is queued. Not called by the library. */
FWMCLK_API void FWM_SRV_CLK_BkfUnInit(void);
FWMCLK_API uint32_t FWM_SRV_CLK_BkfNtfyCliUninit(void);
FWMCLK_API uint32_t FWM_SRV_CLK_BkfUninitComm(uintptr_t *slot);
FWMCLK_API void FWM_SRV_CLK_BkfSimpoUninit(ClkBkfHandle *handle);

/* ---- Worker task, event queue and dispatch ------------------------------ */

enum { CLK_BKF_QUE_MSG_NEGOI_TIMER = 0, CLK_BKF_QUE_MSG_SEND_ACK = 1, CLK_BKF_QUE_MSG_END = 2 };

/* One message on the event queue; message and data are channel blocks that
 * the worker releases after dispatch. */
typedef struct {
  uint32_t type;
  uint32_t length;
  void *data;
} ClkBkfQueMsg;

FWMCLK_ASSERT_32(sizeof(ClkBkfQueMsg) == 12, "ClkBkfQueMsg is 12 bytes");

/* A handler works on the message's copy and must neither keep nor free it. */
typedef uint32_t (*ClkBkfQueMsgProc)(void *data, uint32_t length);

typedef struct {
  uint32_t type;
  ClkBkfQueMsgProc proc;
} ClkBkfQueMsgDispatch;

typedef uint32_t (*ClkBkfEpollHandler)(uintptr_t context, uint32_t events, uint32_t data);

/* One record of the event layer, in the platform's layout. */
typedef struct {
  uint32_t events;            /* 0x00: handler's 2nd argument */
  ClkBkfEpollHandler handler; /* 0x04: null = skip */
  uint32_t data;              /* 0x08: handler's 3rd argument */
  uintptr_t context;          /* 0x0C: handler's 1st argument */
} ClkBkfEpollEvent;

FWMCLK_ASSERT_32(sizeof(ClkBkfEpollEvent) == 16, "ClkBkfEpollEvent is 16 bytes");
FWMCLK_ASSERT_32(offsetof(ClkBkfEpollEvent, handler) == 0x04, "handler at 0x04");
FWMCLK_ASSERT_32(offsetof(ClkBkfEpollEvent, data) == 0x08, "data at 0x08");
FWMCLK_ASSERT_32(offsetof(ClkBkfEpollEvent, context) == 0x0C, "context at 0x0C");

#define CLK_BKF_EPOLL_EVENT_NUM 32

/* Task id (0 = not created), queue id (0 = none) and the handler per type. */
FWMCLK_API extern uint32_t g_FwmSrvBkfThreadId;
FWMCLK_API extern uint32_t g_ClkBkfQueueProcID;
FWMCLK_API extern ClkBkfQueMsgDispatch g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_END + 1];

/* Starts the worker "CLK_FWM_BKF" unless it was created already. Caller's thread. */
FWMCLK_API void FWM_SRV_CLK_CreateBkfTask(void);
/* The worker's entry: epoll instance, queue, channel, then the event loop.
 * Returns only when start-up fails: 1, or the queue's error. */
FWMCLK_API uint32_t FWM_SRV_CLK_BkfProcThread(void);
/* The worker's endless event loop. */
FWMCLK_API void FWM_SRV_CLK_BkfTaskMain(void) __attribute__((noreturn));
/* Creates "CLK_Q_BKF" and registers it on the epoll instance. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_CreateEpollQue(int32_t epollFd);
/* The queue's event handler: reads, dispatches and releases one message. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_QueueDataProc(uintptr_t queue, uint32_t events, uint32_t data);
/* Calls the handler of row `type`; 1 for an unknown type or a missing handler. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_QueMsgDispatch(uint32_t type, void *data, uint32_t length);
/* Posts a copy of the payload to the worker: 0 posted, 1 not. Any thread. */
FWMCLK_API uint32_t FWM_SRV_BKF_QueProcWrite(uint32_t type, const void *data, uint32_t length);

/* ---- Framework timers -------------------------------------------------- */

/* One framework timer; its address is the framework's timer handle. */
typedef struct ClkBkfTimer {
  ClkBkfTimerCallback callback;
  uintptr_t param;
  uint32_t periodic;        /* always 0: only one-shot timers exist */
  uint32_t stopRequested;   /* set by the stop hook; read on the worker */
  uint32_t platformTimer;   /* the relative timer's handle */
  struct ClkBkfTimer *next; /* live timers, so stale handles are recognised */
} ClkBkfTimer;

/* Payload of a timer expiry message. */
typedef struct {
  uint32_t free; /* 1: release the timer once processed */
  ClkBkfTimer *timer;
} ClkBkfTimerQueMsg;

FWMCLK_ASSERT_32(sizeof(ClkBkfTimerQueMsg) == 8, "ClkBkfTimerQueMsg is 8 bytes");

/* Framework hooks, called on the worker. */
FWMCLK_API void *FWM_SRV_BKF_TimerStartOnce(uint32_t fw, ClkBkfTimerCallback cb, uint32_t length, uintptr_t param);
FWMCLK_API void *FWM_SRV_BKF_TimerStartLoop(uint32_t fw, ClkBkfTimerCallback cb, uint32_t length, uintptr_t param);
FWMCLK_API void FWM_SRV_BKF_TimerStop(uint32_t fw, void *timer);
/* Expiry of the relative timer: posts it to the worker. Platform timer context. */
FWMCLK_API void FWM_SRV_BKF_TimerOutProc(uintptr_t timer, uint32_t timerName);
/* Runs the callback of an expired timer (unless stopped) and releases it. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_ProcQueNegoiTimer(void *data, uint32_t length);

/* ---- Announce acknowledgement ------------------------------------------ */

/* Length of an acknowledgement message: root header and the ClkAnnInfo. */
#define CLK_BKF_ACK_MSG_LEN 100u

/* Queues a copy of the record for the worker; always 0. Any thread. */
FWMCLK_API uint32_t FWM_SRV_BKF_SendAckMsg(const ClkAnnInfo *info);
/* Dispatch row 1: encodes and sends the queued record. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_ProcQueSendAckMsg(void *data, uint32_t length);
/* Encodes the 100-byte message and sends it; the send's result, or 1. Worker. */
FWMCLK_API uint32_t FWM_SRV_BKF_SendAckMsgProc(ClkAnnInfo info);

FWMCLK_EXTERN_C_END

#endif
