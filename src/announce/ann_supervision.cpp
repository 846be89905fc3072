// Announce supervision for the Mira family: a 500 ms tick polls every enabled
// port's announce alarms and forwards the received announce, as an image of
// the IEEE 1588 announce message, to the negotiation peer.
#include <atomic>

#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/diag.h"
#include "fwmclk/platform/orin.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/supervision.h"
#include "service/port_list.hpp"

namespace {

constexpr uint32_t kTickMs = 500;
constexpr uint32_t kPeriodic = 1;
constexpr uint32_t kReadyTicksBeforePolling = 4;
constexpr uint32_t kAlarmChange = 0;
constexpr uint32_t kAlarmTimeout = 1;
constexpr uint32_t kAlarmReadFlag = 1;
constexpr uint32_t kStateChange = 1u << 0;
constexpr uint32_t kStateTimeoutOnly = 1u << 1;

// The announce message image carried in ClkAnnInfo.annPkt: IEEE 1588v2 common
// header and announce body with natural alignment, multi-byte fields in host
// byte order (the peer decodes it as such, not as the packed wire form).
struct AnnImage {
  uint8_t reserved0;
  uint8_t messageType;
  uint8_t reserved2;
  uint8_t versionPtp;
  uint16_t messageLength;
  uint8_t domainNumber;
  uint8_t reserved7;
  uint8_t flagField[2];
  uint8_t reserved10[6];
  uint64_t correctionField;
  uint8_t reserved24[8];
  uint64_t sourceClockIdentity;
  uint16_t sourcePortNumber;
  uint16_t sequenceId;
  uint8_t controlField;
  uint8_t logMessageInterval;
  uint8_t reserved46[12];
  uint16_t currentUtcOffset;
  uint8_t reserved60;
  uint8_t grandmasterPriority1;
  uint8_t clockClass;
  uint8_t clockAccuracy;
  uint16_t offsetScaledLogVariance;
  uint8_t grandmasterPriority2;
  uint8_t reserved67[5];
  uint64_t grandmasterIdentity;
  uint16_t stepsRemoved;
  uint8_t timeSource;
  uint8_t reserved83[5];
};

static_assert(sizeof(AnnImage) == sizeof(ClkAnnInfo::annPkt), "the image fills annPkt");
static_assert(offsetof(AnnImage, messageLength) == 4 && offsetof(AnnImage, domainNumber) == 6);
static_assert(offsetof(AnnImage, flagField) == 8 && offsetof(AnnImage, correctionField) == 16);
static_assert(offsetof(AnnImage, sourceClockIdentity) == 32 && offsetof(AnnImage, sourcePortNumber) == 40);
static_assert(offsetof(AnnImage, controlField) == 44 && offsetof(AnnImage, logMessageInterval) == 45);
static_assert(offsetof(AnnImage, currentUtcOffset) == 58 && offsetof(AnnImage, grandmasterPriority1) == 61);
static_assert(offsetof(AnnImage, offsetScaledLogVariance) == 64 && offsetof(AnnImage, grandmasterPriority2) == 66);
static_assert(offsetof(AnnImage, grandmasterIdentity) == 72 && offsetof(AnnImage, stepsRemoved) == 80);
static_assert(offsetof(AnnImage, timeSource) == 82);

constexpr uint8_t kMessageTypeAnnounce = 11;
constexpr uint8_t kVersionPtp = 2;
constexpr uint16_t kAnnounceLength = 64;
constexpr uint8_t kControlOther = 5;

AnnImage readImage(const ClkAnnInfo *info) {
  AnnImage img;
  (void)memcpy_s(&img, sizeof img, info->annPkt, sizeof img);
  return img;
}

void writeImage(ClkAnnInfo *info, const AnnImage &img) {
  (void)memcpy_s(info->annPkt, sizeof info->annPkt, &img, sizeof img);
}

uint64_t identity(uint32_t high, uint32_t low) { return (uint64_t{high} << 32) | low; }

// The reporter prints nothing for 0, and 0 is what the tick's steps return
// almost always, so the tick calls it only for a failure.
void reportFailure(int32_t code, uint32_t unit, uint32_t port, const char *reason) {
  if (code != CLK_NP_OK) (void)CLK_NP_RetProcess(code, unit, port, reason);
}

// Where the poll reads from: a port given by value, or a node of the list.
struct PortArgs {
  uint32_t unitNo;
  uint32_t portNo;
  uint32_t unit() const { return unitNo; }
  uint32_t port() const { return portNo; }
};
// A node's unit and port are read afresh for each engine call rather than
// kept across it, which leaves the tick fewer registers to save.
struct PortNode {
  ClkPtpPortNode *node;
  uint32_t unit() const { return std::atomic_ref<uint32_t>(node->unit).load(std::memory_order_relaxed); }
  uint32_t port() const { return std::atomic_ref<uint32_t>(node->port).load(std::memory_order_relaxed); }
};

// A failed alarm read's report, out of line: the good path then has nothing
// to prepare for it.
template <class At>
[[gnu::cold, gnu::noinline]] void reportAlarmFailure(int32_t code, At at, const char *reason) {
  (void)CLK_NP_RetProcess(code, at.unit(), at.port(), reason);
}

// The poll of one port, shared by the tick and the exported steps; written
// inline so that a tick costs the two alarm reads and little else per port.
template <class At>
[[gnu::always_inline]] inline uint32_t readAnnounceState(At at, uint32_t *state) {
  uint32_t change = 0;
  int32_t ret = CLK_NP_1588_GetAnnounceAlarm(at.unit(), at.port(), kAlarmChange, kAlarmReadFlag, &change);
  if (ret != CLK_NP_OK) reportAlarmFailure(ret, at, "NP_1588_GetAnnounceAlarm ANNOUNCE_CHANGE");
  uint32_t timeout = 0;
  ret = CLK_NP_1588_GetAnnounceAlarm(at.unit(), at.port(), kAlarmTimeout, kAlarmReadFlag, &timeout);
  if (ret != CLK_NP_OK) reportAlarmFailure(ret, at, "NP_1588_GetAnnounceAlarm ANNOUNCE_TIMEOUT");
  *state = change | (timeout << 1);
  return 0;
}

[[gnu::always_inline]] inline uint32_t detectPortAnnChange(ClkPtpPortNode *node) {
  uint32_t state = 0;
  const uint32_t ret = readAnnounceState(PortNode{node}, &state);
  reportFailure(static_cast<int32_t>(ret), node->unit, node->port, "Mira_GetAnnounceState");
  if (state == 0) return 0;
  // A timeout alone is first only noted; it is sent if it is still alone next time.
  if (state == kStateTimeoutOnly && fwmclk::loadShared(node->annState) != CLK_ANN_STATE_LOST) {
    fwmclk::storeShared(node->annState, static_cast<uint8_t>(CLK_ANN_STATE_LOST));
    FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] Mira_GetAnnounceState Timeout.");
    return 0;
  }
  (void)FWM_SRV_Mira_PtpAnnAlmProc(state, node);
  return 0;
}

// The platform hands its timer callbacks a parameter and the timer's name; the tick needs neither.
void onAnnounceTimer(uintptr_t /*param*/, uint32_t /*timerName*/) { FWM_SRV_AnnTimerOutProc(); }

}  // namespace

extern "C" {

uint32_t g_clkAnndetectTmr = 0;
uint32_t g_ptpWaitBkfHelloMsgCnt = 0;

void FWM_SRV_CLK_PtpAnnTimerEntry(void) {
  if (g_clkAnndetectTmr != 0) return;
  uint32_t ret =
      ORIN_ReltmrCbkStart(&g_clkAnndetectTmr, FWM_SRV_BKF_GetMemHdl(), kTickMs, 0, 0, kPeriodic, onAnnounceTimer);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] ORIN_ReltmrCbkStart failed, Ret=%u", ret);
    return;
  }
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] PtpAnnTimerEntry End.");
}

uint32_t FWM_SRV_CLK_PtpAnnTimerDestroy(void) {
  uint32_t enabled = FWM_SRV_CLK_IsExistPtpPortEnable();
  if (enabled != 0) return enabled;
  if (g_clkAnndetectTmr == 0) return 0;
  (void)ORIN_ReltmrStop(&g_clkAnndetectTmr);
  g_clkAnndetectTmr = 0;
  return static_cast<uint32_t>(
      FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] PtpAnnTimerDestroy End."));
}

void FWM_SRV_AnnTimerOutProc(void) {
  // Of the channel's handles only the ready word matters here.
  if (fwmclk::loadShared(g_fwmClkBkfHandle.client) == 0) {
    fwmclk::storeShared(g_ptpWaitBkfHelloMsgCnt, 0u);
    FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] Bkf is not ready!");
    return;
  }
  // Give the peer a few ticks to settle on the freshly ready channel.
  const uint32_t readyTicks = fwmclk::loadShared(g_ptpWaitBkfHelloMsgCnt);
  if (readyTicks < kReadyTicksBeforePolling) {
    fwmclk::storeShared(g_ptpWaitBkfHelloMsgCnt, readyTicks + 1);
    return;
  }
  // Before its first use the list has no links at all; once it has, every
  // node's link is set before the node is published, so only the head ends it.
  ClkPtpPortNode *node = fwmclk::firstPort();
  ClkPtpPortNode *const head = fwmclk::listHead();
  if (node == nullptr || node == head) return;
  do {
    ClkPtpPortNode *const following = fwmclk::nextPort(node);
    if (fwmclk::loadShared(node->enable) == 1) {
      const uint32_t ret = detectPortAnnChange(node);
      reportFailure(static_cast<int32_t>(ret), node->unit, node->port, "Mira_PtpSendAnnChangeState");
    }
    node = following;
  } while (node != head);
}

uint32_t FWM_SRV_Mira_GetAnnounceState(uint32_t unit, uint32_t port, uint32_t *state) {
  return readAnnounceState(PortArgs{unit, port}, state);
}

uint32_t FWM_SRV_Mira_PtpDetectPortAnnChng(ClkPtpPortNode *node) { return detectPortAnnChange(node); }

uint32_t FWM_SRV_Mira_PtpAnnAlmProc(uint32_t state, ClkPtpPortNode *node) {
  ClkNpAnnFlags flags;
  ClkNpAnnFields fields;
  (void)memset_s(&flags, sizeof flags, 0, sizeof flags);
  (void)memset_s(&fields, sizeof fields, 0, sizeof fields);
  if ((state & kStateChange) != 0) {
    int32_t ret = CLK_NP_1588_GetAnnounceFieldRx(node->unit, node->port, 0, &flags, &fields);
    reportFailure(ret, node->unit, node->port, "NP_1588_GetAnnounceFieldRx");
  }
  uint32_t ret = FWM_SRV_Mira_PtpSendAnnInfo(&fields, node);
  reportFailure(static_cast<int32_t>(ret), node->unit, node->port, "Mira_PtpSendAnnInfo");
  return static_cast<uint32_t>(
      FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] Mira_PtpAnnAlmProc annState=%u.", state));
}

uint32_t FWM_SRV_Mira_PtpSendAnnInfo(ClkNpAnnFields *fields, ClkPtpPortNode *node) {
  ClkAnnInfo info;
  (void)memset_s(&info, sizeof info, 0, sizeof info);
  FWM_SRV_Mira_GetAnnSendData(fwmclk::loadShared(node->ifIndex), fields, &info);
  fwmclk::storeShared(node->annState, FWM_SRV_Mira_SaveAnnState(&info));
  return FWM_SRV_Mira_SendAnnPktToCsp(&info);
}

void FWM_SRV_Mira_GetAnnSendData(uint32_t ifIndex, ClkNpAnnFields *fields, ClkAnnInfo *info) {
  FWM_SRV_Mira_PtpSetCommHeader(fields, info);
  FWM_SRV_Mira_PtpSetAnnPayload(fields, info);
  info->ifIndex = ifIndex;
  info->pktLen = sizeof(ClkAnnInfo);
}

void FWM_SRV_Mira_PtpSetCommHeader(ClkNpAnnFields *fields, ClkAnnInfo *info) {
  AnnImage img = readImage(info);
  img.messageType = kMessageTypeAnnounce;
  img.versionPtp = kVersionPtp;
  img.messageLength = kAnnounceLength;
  img.domainNumber = fields->domainNumber;
  img.flagField[0] = static_cast<uint8_t>(fields->flagField >> 8);
  img.flagField[1] = static_cast<uint8_t>(fields->flagField);
  img.correctionField = 0;
  img.sourceClockIdentity = identity(fields->sourceClockIdentityHigh, fields->sourceClockIdentityLow);
  img.sourcePortNumber = static_cast<uint16_t>(fields->sourcePortNumber);
  img.sequenceId = 0;
  img.controlField = kControlOther;
  img.logMessageInterval = fields->logMessageInterval;
  writeImage(info, img);
}

void FWM_SRV_Mira_PtpSetAnnPayload(ClkNpAnnFields *fields, ClkAnnInfo *info) {
  AnnImage img = readImage(info);
  img.currentUtcOffset = static_cast<uint16_t>(fields->currentUtcOffset);
  img.grandmasterPriority1 = static_cast<uint8_t>(fields->grandmasterPriority1);
  img.clockClass = static_cast<uint8_t>(fields->clockClass);
  img.clockAccuracy = static_cast<uint8_t>(fields->clockAccuracy);
  img.offsetScaledLogVariance = static_cast<uint16_t>(fields->offsetScaledLogVariance);
  img.grandmasterPriority2 = static_cast<uint8_t>(fields->grandmasterPriority2);
  img.grandmasterIdentity = identity(fields->grandmasterIdentityHigh, fields->grandmasterIdentityLow);
  img.stepsRemoved = static_cast<uint16_t>(fields->stepsRemoved);
  img.timeSource = static_cast<uint8_t>(fields->timeSource);
  writeImage(info, img);
}

uint8_t FWM_SRV_Mira_SaveAnnState(ClkAnnInfo *info) {
  const AnnImage img = readImage(info);
  if (img.grandmasterIdentity == 0 || img.sourceClockIdentity == 0) return CLK_ANN_STATE_LOST;
  return CLK_ANN_STATE_PRESENT;
}

uint32_t FWM_SRV_Mira_SendAnnPktToCsp(ClkAnnInfo *info) { return FWM_SRV_BKF_SendAckMsg(info); }

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_ANNOUNCE_ANN_SUPERVISION)
