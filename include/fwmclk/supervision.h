/* Mira-family announce supervision: the PTP port list and the 500 ms timer
 * that polls each enabled port's announce alarms and forwards what it sees to
 * the negotiation peer.
 *
 * The list and the timer handle are written on the orchestrator's thread; the
 * tick runs on the platform's timer thread and writes only each node's
 * annState and its own counter. */
#ifndef FWMCLK_SUPERVISION_H
#define FWMCLK_SUPERVISION_H

#include "base.h"
#include "channel.h"
#include "np.h"
#include "service_ops.h"

FWMCLK_EXTERN_C_BEGIN

enum { CLK_ANN_STATE_NONE = 0, CLK_ANN_STATE_PRESENT = 1, CLK_ANN_STATE_LOST = 2 };

/* One configured PTP port. */
typedef struct ClkPtpPortNode {
  struct ClkPtpPortNode *next; /* next node, or the head */
  struct ClkPtpPortNode *prev; /* previous node, or the head */
  uint32_t port;
  uint32_t unit;
  uint32_t ifIndex;   /* request byte 52 */
  uint32_t enable;    /* request word 0; supervised only when exactly 1 */
  uint32_t portState; /* request word 2 as received */
  uint8_t annState;   /* CLK_ANN_STATE_*; written only by the announce tick */
} ClkPtpPortNode;

/* The list head: `next` is the newest node, `prev` the oldest. An empty,
 * initialised list points at itself. */
typedef struct {
  ClkPtpPortNode *next;
  ClkPtpPortNode *prev;
} ClkPtpPortList;

FWMCLK_ASSERT_32(sizeof(ClkPtpPortNode) == 32, "ClkPtpPortNode is 32 bytes");
FWMCLK_ASSERT_32(offsetof(ClkPtpPortNode, port) == 8, "ClkPtpPortNode.port at 8");
FWMCLK_ASSERT_32(offsetof(ClkPtpPortNode, ifIndex) == 16, "ClkPtpPortNode.ifIndex at 16");
FWMCLK_ASSERT_32(offsetof(ClkPtpPortNode, portState) == 24, "ClkPtpPortNode.portState at 24");
FWMCLK_ASSERT_32(offsetof(ClkPtpPortNode, annState) == 28, "ClkPtpPortNode.annState at 28");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortNode, next) == offsetof(ClkPtpPortList, next), "head and node share links");
FWMCLK_STATIC_ASSERT(offsetof(ClkPtpPortNode, prev) == offsetof(ClkPtpPortList, prev), "head and node share links");

FWMCLK_API extern ClkPtpPortList g_ClkLocalData;
FWMCLK_API extern uint32_t g_clkCreateListCnt;
/* Announce timer handle (0 = not running); orchestrator thread only. */
FWMCLK_API extern uint32_t g_clkAnndetectTmr;
/* Consecutive ticks that found the channel ready. */
FWMCLK_API extern uint32_t g_ptpWaitBkfHelloMsgCnt;

/* Port list; orchestrator thread. */
FWMCLK_API void FWM_SRV_CLK_InitLocal(void);
FWMCLK_API ClkPtpPortNode *FWM_SRV_CLK_PtpFindPort(uint32_t unit, uint32_t port);
FWMCLK_API ClkPtpPortNode *FWM_SRV_CLK_PtpAddPort(uint32_t unit, uint32_t port);
FWMCLK_API ClkPtpPortNode *FWM_SRV_CLK_SavePtpPortCfg(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg);
FWMCLK_API uint32_t FWM_SRV_CLK_IsExistPtpPortEnable(void);
/* Frees every node; for the host, only while the announce timer is stopped. */
FWMCLK_API int32_t FWM_SRV_CLK_ClearPortList(void);

/* Announce timer start and stop; orchestrator thread. */
FWMCLK_API void FWM_SRV_CLK_PtpAnnTimerEntry(void);
FWMCLK_API uint32_t FWM_SRV_CLK_PtpAnnTimerDestroy(void);

/* The tick and its steps; platform timer thread. */
FWMCLK_API void FWM_SRV_AnnTimerOutProc(void);
FWMCLK_API uint32_t FWM_SRV_Mira_PtpDetectPortAnnChng(ClkPtpPortNode *node);
FWMCLK_API uint32_t FWM_SRV_Mira_GetAnnounceState(uint32_t unit, uint32_t port, uint32_t *state);
FWMCLK_API uint32_t FWM_SRV_Mira_PtpAnnAlmProc(uint32_t state, ClkPtpPortNode *node);
FWMCLK_API uint32_t FWM_SRV_Mira_PtpSendAnnInfo(ClkNpAnnFields *fields, ClkPtpPortNode *node);
FWMCLK_API void FWM_SRV_Mira_GetAnnSendData(uint32_t ifIndex, ClkNpAnnFields *fields, ClkAnnInfo *info);
FWMCLK_API void FWM_SRV_Mira_PtpSetCommHeader(ClkNpAnnFields *fields, ClkAnnInfo *info);
FWMCLK_API void FWM_SRV_Mira_PtpSetAnnPayload(ClkNpAnnFields *fields, ClkAnnInfo *info);
FWMCLK_API uint8_t FWM_SRV_Mira_SaveAnnState(ClkAnnInfo *info);
FWMCLK_API uint32_t FWM_SRV_Mira_SendAnnPktToCsp(ClkAnnInfo *info);

FWMCLK_EXTERN_C_END

#endif
