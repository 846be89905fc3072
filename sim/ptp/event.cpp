#include "fwmptp/event.hpp"

#include "bytes.hpp"

namespace fwmptp {

using detail::getBe;
using detail::putBe;

namespace {

constexpr size_t kBodyAt = kHeaderSize;
constexpr size_t kRequestingAt = kHeaderSize + 10;

bool answers(uint8_t type) { return type == kMsgDelayResp || type == kMsgPdelayResp || type == kMsgPdelayRespFollowUp; }

uint8_t controlOf(uint8_t type) {
  switch (type) {
    case kMsgSync:
      return 0;
    case kMsgDelayReq:
      return 1;
    case kMsgFollowUp:
      return 2;
    case kMsgDelayResp:
      return 3;
    default:
      return 5;
  }
}

}  // namespace

size_t eventSize(uint8_t type) {
  switch (type) {
    case kMsgSync:
    case kMsgDelayReq:
    case kMsgFollowUp:
      return 44;
    case kMsgPdelayReq:
    case kMsgPdelayResp:
    case kMsgDelayResp:
    case kMsgPdelayRespFollowUp:
      return 54;
    default:
      return 0;
  }
}

const char *messageTypeName(uint8_t type) {
  static constexpr const char *kNames[16] = {
      "Sync",    "Delay_Req", "Pdelay_Req", "Pdelay_Resp",           "type 4",   "type 5",    "type 6",
      "type 7",  "Follow_Up", "Delay_Resp", "Pdelay_Resp_Follow_Up", "Announce", "Signaling", "Management",
      "type 14", "type 15"};
  return kNames[type & 0x0F];
}

EncodedEvent encodeEvent(const EventMessage &m) {
  EncodedEvent out;
  out.size = eventSize(m.messageType);
  if (out.size == 0) return out;
  std::span<uint8_t> b(out.bytes);
  b[0] = m.messageType & 0x0F;
  b[1] = kVersion;
  putBe(b, 2, 2, out.size);
  b[4] = m.domainNumber;
  putBe(b, 6, 2, m.flagField);
  putBe(b, 8, 8, static_cast<uint64_t>(m.correctionField));
  putBe(b, 20, 8, m.source.clockIdentity);
  putBe(b, 28, 2, m.source.portNumber);
  putBe(b, 30, 2, m.sequenceId);
  b[32] = controlOf(m.messageType);
  b[33] = static_cast<uint8_t>(m.logMessageInterval);
  putBe(b, kBodyAt, 6, m.timestamp.seconds);
  putBe(b, kBodyAt + 6, 4, m.timestamp.nanoseconds);
  if (answers(m.messageType)) {
    putBe(b, kRequestingAt, 8, m.requesting.clockIdentity);
    putBe(b, kRequestingAt + 8, 2, m.requesting.portNumber);
  }
  return out;
}

std::optional<uint8_t> peekMessageType(std::span<const uint8_t> b) {
  if (b.size() < kHeaderSize) return std::nullopt;
  return static_cast<uint8_t>(b[0] & 0x0F);
}

std::optional<EventMessage> decodeHeader(std::span<const uint8_t> b, Reject *why) {
  Reject header{};
  const uint16_t length = detail::checkHeader(b, header);
  if (why) *why = header;
  if (header != Reject::None) return std::nullopt;
  EventMessage m;
  m.messageType = b[0] & 0x0F;
  m.messageLength = length;
  m.domainNumber = b[4];
  m.flagField = static_cast<uint16_t>(getBe(b, 6, 2));
  m.correctionField = static_cast<int64_t>(getBe(b, 8, 8));
  m.source = {getBe(b, 20, 8), static_cast<uint16_t>(getBe(b, 28, 2))};
  m.sequenceId = static_cast<uint16_t>(getBe(b, 30, 2));
  m.logMessageInterval = static_cast<int8_t>(b[33]);
  return m;
}

std::optional<EventMessage> decodeEvent(std::span<const uint8_t> b, std::optional<uint8_t> domain, Reject *why) {
  auto refuse = [&](Reject r) -> std::optional<EventMessage> {
    if (why) *why = r;
    return std::nullopt;
  };
  Reject header{};
  auto m = decodeHeader(b, &header);
  if (!m) return refuse(header);
  const size_t need = eventSize(m->messageType);
  if (need == 0) return refuse(Reject::MessageType);
  if (m->messageLength < need) return refuse(Reject::Length);
  if (domain && m->domainNumber != *domain) return refuse(Reject::Domain);
  m->timestamp = {getBe(b, kBodyAt, 6), static_cast<uint32_t>(getBe(b, kBodyAt + 6, 4))};
  if (answers(m->messageType))
    m->requesting = {getBe(b, kRequestingAt, 8), static_cast<uint16_t>(getBe(b, kRequestingAt + 8, 2))};
  if (why) *why = Reject::None;
  return m;
}

int64_t nanosBetween(const Timestamp &a, const Timestamp &b) {
  return (static_cast<int64_t>(a.seconds) - static_cast<int64_t>(b.seconds)) * 1000000000 +
         (static_cast<int64_t>(a.nanoseconds) - static_cast<int64_t>(b.nanoseconds));
}

}  // namespace fwmptp
