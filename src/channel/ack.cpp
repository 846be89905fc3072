// The announce acknowledgement: a ClkAnnInfo is queued to the worker, which
// encodes it behind a 4-byte root header with the builder of word 1 and sends
// the 100 bytes through the notification client. Encoding happens on the
// worker alone, one message at a time, in an area on its stack.
#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/diag.h"
#include "fwmclk/platform/negoinfo.h"
#include "fwmclk/platform/securec.h"

namespace {

constexpr int32_t kErrStepOrder = -6;
constexpr uint32_t kFieldIfIndex = 0;
constexpr uint32_t kFieldPktLen = 1;
constexpr uint32_t kFieldAnnPkt = 2;
constexpr uint32_t kRootSize = sizeof(ClkAnnInfo);
constexpr size_t kBufferSize = 124;

// Root header, then the buffer the root's fields go into.
struct EncodeArea {
  uint32_t header;
  uint8_t buffer[kBufferSize];
};
static_assert(sizeof(EncodeArea) == 4 + kBufferSize);
static_assert(offsetof(EncodeArea, buffer) == 4, "the root follows its header directly");
static_assert(4 + kRootSize == CLK_BKF_ACK_MSG_LEN);

void putU32(uint8_t *at, uint32_t v) { (void)memcpy_s(at, sizeof v, &v, sizeof v); }

// A step refuses to run once the builder holds an error; the step names are
// also the words of their failure lines.
bool refused(const ClkBkfSimpoBuilder *b, const char *step) {
  if (b->error == 0) return false;
  FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] %s fail, ret=%u.", step, static_cast<uint32_t>(b->error));
  return true;
}

bool AckMsg_start_as_root(ClkBkfSimpoBuilder *b, EncodeArea *area) {
  b->error = 0;
  b->cursor = area->buffer;
  b->msgStart = reinterpret_cast<uint8_t *>(&area->header);
  putU32(b->msgStart, b->header);
  return !refused(b, "AckMsg_start_as_root");
}

void AckMsg_ifIndex_add(ClkBkfSimpoBuilder *b, uint32_t ifIndex) {
  putU32(b->cursor + offsetof(ClkAnnInfo, ifIndex), ifIndex);
  b->fieldIndex = kFieldIfIndex;
}

bool AckMsg_pktLen_add(ClkBkfSimpoBuilder *b, uint32_t pktLen) {
  if (refused(b, "AckMsg_pktLen_add")) return false;
  putU32(b->cursor + offsetof(ClkAnnInfo, pktLen), pktLen);
  b->fieldIndex = kFieldPktLen;
  return true;
}

bool AckMsg_annPkt_add(ClkBkfSimpoBuilder *b, const uint8_t *pkt) {
  if (refused(b, "AckMsg_annPkt_add")) return false;
  b->fieldIndex = kFieldAnnPkt;
  (void)memcpy_s(b->cursor + offsetof(ClkAnnInfo, annPkt), CLK_ANN_PKT_LEN, pkt, CLK_ANN_PKT_LEN);
  return true;
}

// The message length, or the error (negative) when a field is missing.
int32_t CLOCK_NEGOINFOI_Msg_end_as_root(ClkBkfSimpoBuilder *b) {
  if (b->error != 0) return b->error;
  if (b->fieldIndex != kFieldAnnPkt) {
    b->error = kErrStepOrder;
    b->failedStep = "CLOCK_NEGOINFOI_Msg_end_as_root";
    return kErrStepOrder;
  }
  b->cursor += kRootSize;
  return static_cast<int32_t>(b->cursor - b->msgStart);
}

}  // namespace

extern "C" {

uint32_t FWM_SRV_BKF_SendAckMsg(const ClkAnnInfo *info) {
  uint32_t ret = FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_SEND_ACK, info, sizeof(ClkAnnInfo));
  if (ret != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] QueProcWrite failed, ret=%u.", ret);
  return 0;
}

uint32_t FWM_SRV_BKF_ProcQueSendAckMsg(void *data, uint32_t) {
  ClkAnnInfo info;
  (void)memcpy_s(&info, sizeof info, data, sizeof info);
  uint32_t ret = FWM_SRV_BKF_SendAckMsgProc(info);
  if (ret != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] SendAckMsgProc fail, ret=%u.", ret);
    return 1;
  }
  return 0;
}

uint32_t FWM_SRV_BKF_SendAckMsgProc(ClkAnnInfo info) {
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  auto *b = reinterpret_cast<ClkBkfSimpoBuilder *>(h.builder);
  // After a teardown the builder is gone while the client word stays set, so
  // records still queued are dropped here rather than encoded into nothing.
  if (b == nullptr) return 1;
  EncodeArea area;
  area.header = 0;
  (void)memset_s(area.buffer, sizeof area.buffer, 0, sizeof area.buffer);

  if (!AckMsg_start_as_root(b, &area)) return 1;
  AckMsg_ifIndex_add(b, info.ifIndex);
  if (!AckMsg_pktLen_add(b, info.pktLen)) return 1;
  if (!AckMsg_annPkt_add(b, info.annPkt)) return 1;
  int32_t len = CLOCK_NEGOINFOI_Msg_end_as_root(b);
  if (len <= 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_BKF] AckMsg_end_as_root fail, ret=%u.", static_cast<uint32_t>(len));
    return 1;
  }

  const auto msgLen = static_cast<uint32_t>(len);
  uint32_t ret = CLOCK_NegoinfoiNtfyCliMsgSend(h.client, b->msgStart, msgLen);
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV_BKF] CliMsgSend ifIndex=%u msgLen=%u ret=%u.", info.ifIndex, msgLen, ret);
  return ret;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_CHANNEL_ACK)
