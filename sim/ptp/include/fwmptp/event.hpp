// The IEEE 1588 messages that carry time (Sync, Delay_Req, Pdelay_Req,
// Pdelay_Resp, Follow_Up, Delay_Resp, Pdelay_Resp_Follow_Up) in the same
// codec as the announce: one header layout, network byte order, the same
// reasons for refusing what arrives.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fwmptp/announce.hpp"

namespace fwmptp {

inline constexpr uint8_t kMsgSync = 0, kMsgDelayReq = 1, kMsgPdelayReq = 2, kMsgPdelayResp = 3, kMsgFollowUp = 8,
                         kMsgDelayResp = 9, kMsgPdelayRespFollowUp = 10;
inline constexpr uint16_t kFlagTwoStep = 0x0200;  // flagField: a Follow_Up carries the precise time
inline constexpr size_t kEventSizeMax = 54;

// A timestamp as the wire carries it: 48-bit seconds, then nanoseconds.
struct Timestamp {
  uint64_t seconds = 0;
  uint32_t nanoseconds = 0;
  bool operator==(const Timestamp &) const = default;
};

struct PortIdentity {
  uint64_t clockIdentity = 0;
  uint16_t portNumber = 0;
  bool operator==(const PortIdentity &) const = default;
};

// One of the seven messages. `timestamp` is the body's timestamp whatever
// the type calls it (origin, precise origin, receive, request receipt,
// response origin); `requesting` is the requesting port identity of the
// three answers (Delay_Resp, Pdelay_Resp, Pdelay_Resp_Follow_Up) and zero
// in the others.
struct EventMessage {
  uint8_t messageType = 0;
  uint16_t messageLength = 0;  // decoded only; the encoder writes the type's size
  uint8_t domainNumber = 0;
  uint16_t flagField = 0;
  int64_t correctionField = 0;  // nanoseconds * 2^16
  PortIdentity source;
  uint16_t sequenceId = 0;
  int8_t logMessageInterval = 0;
  Timestamp timestamp;
  PortIdentity requesting;
  bool operator==(const EventMessage &) const = default;
};

// 44 for Sync, Delay_Req and Follow_Up, 54 for the other four, 0 for any
// other type.
size_t eventSize(uint8_t messageType);
// "Sync", "Delay_Resp", ...; "Announce", "Signaling", "Management" too, and
// "type N" for the reserved values.
const char *messageTypeName(uint8_t messageType);

// Version 2, transportSpecific 0, the controlField the type calls for,
// reserved bytes zero. Only the first eventSize(messageType) bytes are
// meaningful; a type without a size gives an all-zero result.
struct EncodedEvent {
  std::array<uint8_t, kEventSizeMax> bytes{};
  size_t size = 0;
  std::span<const uint8_t> view() const { return {bytes.data(), size}; }
};
EncodedEvent encodeEvent(const EventMessage &m);

// The message type of a PTP message, or nothing when fewer than a header's
// bytes arrived.
std::optional<uint8_t> peekMessageType(std::span<const uint8_t> bytes);

// Decodes one of the seven; refuses as decodeAnnounce does, with Length for
// a message shorter than its type's size and MessageType for announces,
// signaling, management and reserved types.
std::optional<EventMessage> decodeEvent(std::span<const uint8_t> bytes, std::optional<uint8_t> domain = std::nullopt,
                                        Reject *why = nullptr);

// The header alone, of any message type (Announce, Signaling and Management
// too), refused only for what every message must pass: `timestamp` and
// `requesting` stay zero.
std::optional<EventMessage> decodeHeader(std::span<const uint8_t> bytes, Reject *why = nullptr);

// Signed nanoseconds between two timestamps (a - b).
int64_t nanosBetween(const Timestamp &a, const Timestamp &b);

}  // namespace fwmptp
