// The list of PTP ports configured on a Mira-family board, walked by the
// announce tick on another thread without a lock. What keeps that sound: a
// node is complete before it is linked (release store of the head's `next`),
// only this thread writes the links and the configuration words, and only the
// tick writes annState.
#include "service/port_list.hpp"
#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/supervision.h"

namespace {

ClkPtpPortNode *head() { return fwmclk::listHead(); }

// The head is only ever reached through these two, never dereferenced as a node.
void setNext(ClkPtpPortNode *at, ClkPtpPortNode *value) {
  fwmclk::storeShared(at == head() ? g_ClkLocalData.next : at->next, value);
}
void setPrev(ClkPtpPortNode *at, ClkPtpPortNode *value) {
  if (at == head()) {
    g_ClkLocalData.prev = value;
  } else {
    at->prev = value;
  }
}

}  // namespace

extern "C" {

ClkPtpPortList g_ClkLocalData = {nullptr, nullptr};
uint32_t g_clkCreateListCnt = 0;

void FWM_SRV_CLK_InitLocal(void) {
  if (g_clkCreateListCnt != 0) return;
  g_clkCreateListCnt = 1;
  g_ClkLocalData.prev = head();
  fwmclk::storeShared(g_ClkLocalData.next, head());
}

ClkPtpPortNode *FWM_SRV_CLK_PtpFindPort(uint32_t unit, uint32_t port) {
  for (ClkPtpPortNode *n = fwmclk::firstPort(); !fwmclk::isListEnd(n); n = fwmclk::nextPort(n)) {
    if (n->unit == unit && n->port == port) return n;
  }
  return nullptr;
}

ClkPtpPortNode *FWM_SRV_CLK_PtpAddPort(uint32_t unit, uint32_t port) {
  ClkPtpPortNode *node = FWM_SRV_CLK_PtpFindPort(unit, port);
  if (node != nullptr) return node;
  node = static_cast<ClkPtpPortNode *>(
      ORIN_MemAlloc(FWM_SRV_BKF_GetMemHdl(), FWM_SRV_BKF_GetMemPtNo(), sizeof(ClkPtpPortNode)));
  if (node == nullptr) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV] PtpAddPort Malloc failed.");
    return nullptr;
  }
  (void)memset_s(node, sizeof *node, 0, sizeof *node);
  ClkPtpPortNode *first = fwmclk::firstPort();
  node->next = first;
  node->prev = head();
  node->port = port;
  node->unit = unit;
  setNext(head(), node);  // the publication: the node is complete from here on
  setPrev(first, node);
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV] PtpAddPort success unit=%u port=%u.", unit, port);
  return node;
}

ClkPtpPortNode *FWM_SRV_CLK_SavePtpPortCfg(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  ClkPtpPortNode *node = FWM_SRV_CLK_PtpFindPort(unit, port);
  if (node == nullptr) node = FWM_SRV_CLK_PtpAddPort(unit, port);
  if (node == nullptr) return nullptr;
  fwmclk::storeShared(node->ifIndex, cfg->ifIndex);
  fwmclk::storeShared(node->enable, cfg->enable);
  node->portState = cfg->portState;
  return node;
}

uint32_t FWM_SRV_CLK_IsExistPtpPortEnable(void) {
  for (ClkPtpPortNode *n = fwmclk::firstPort(); !fwmclk::isListEnd(n); n = fwmclk::nextPort(n)) {
    if (fwmclk::loadShared(n->enable) == 1) return 1;
  }
  FWMCLK_LOG(FWM_CLK_LOG_DEBUG, "[FWM_SRV] IsExistPtpPortEnable False.");
  return 0;
}

int32_t FWM_SRV_CLK_ClearPortList(void) {
  const uint8_t partition = FWM_SRV_BKF_GetMemPtNo();
  ClkPtpPortNode *n = fwmclk::firstPort();
  while (!fwmclk::isListEnd(n)) {
    ClkPtpPortNode *following = n->next;
    setNext(n->prev, n->next);
    setPrev(n->next, n->prev);
    (void)ORIN_MemFree(partition, n);
    n = following;
  }
  return FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "[FWM_SRV] ClearPortList End.");
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_PORT_LIST)
