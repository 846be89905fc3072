// The negotiation peer's view of an announce acknowledgement: the 100-byte
// message the clock service sends, the IEEE 1588 announce fields it carries,
// and the 64-byte announce message those fields make on the wire.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace fwmtools {

// Sizes of the acknowledgement and of what it carries.
inline constexpr size_t kAckSize = 100;         // root header + ClkAnnInfo
inline constexpr size_t kAnnInfoSize = 96;      // ifIndex, pktLen, announce image
inline constexpr size_t kAnnImageSize = 88;     // the announce as a host-order structure
inline constexpr size_t kPtpAnnounceSize = 64;  // the announce message on the wire

// Announce fields as IEEE 1588 names them.
struct Announce {
  uint8_t messageType = 0;
  uint8_t versionPtp = 0;
  uint16_t messageLength = 0;
  uint8_t domainNumber = 0;
  uint16_t flagField = 0;
  int64_t correctionField = 0;
  uint64_t sourceClockIdentity = 0;
  uint16_t sourcePortNumber = 0;
  uint16_t sequenceId = 0;
  uint8_t controlField = 0;
  int8_t logMessageInterval = 0;
  int16_t currentUtcOffset = 0;
  uint8_t grandmasterPriority1 = 0;
  uint8_t clockClass = 0;
  uint8_t clockAccuracy = 0;
  uint16_t offsetScaledLogVariance = 0;
  uint8_t grandmasterPriority2 = 0;
  uint64_t grandmasterIdentity = 0;
  uint16_t stepsRemoved = 0;
  uint8_t timeSource = 0;
};

// One decoded acknowledgement message.
struct Ack {
  uint32_t rootHeader = 0;
  uint32_t ifIndex = 0;
  uint32_t pktLen = 0;
  Announce announce;
};

// Why a datagram is not an acknowledgement.
struct DecodeError {
  std::string reason;
};

// Decodes a received acknowledgement (little-endian, as the line card sends it).
// Anything other than exactly 100 bytes, or an image that is not an announce,
// is refused with a reason; nothing is read outside `bytes`.
std::optional<Ack> decodeAck(std::span<const uint8_t> bytes, DecodeError *why = nullptr);

// Decodes the 88-byte host-order announce image.
Announce decodeAnnounceImage(std::span<const uint8_t, kAnnImageSize> image);

// Encodes the 88-byte host-order image (the inverse of decodeAnnounceImage);
// used to build acknowledgements for tests and examples.
std::array<uint8_t, kAnnImageSize> encodeAnnounceImage(const Announce &a);
std::array<uint8_t, kAckSize> encodeAck(const Ack &ack);

// The announce as a 64-byte IEEE 1588v2 message in network byte order.
std::array<uint8_t, kPtpAnnounceSize> ptpAnnounceWire(const Announce &a);

// "001b19.fffe.000001": a clock identity as its eight octets in network order.
std::string clockIdentityText(uint64_t identity);
// Parses that form (or 16 hex digits); nullopt when malformed.
std::optional<uint64_t> parseClockIdentity(std::string_view text);

// Names of the enumerations, for people ("GPS", "within 100 ns", "SLAVE").
std::string timeSourceName(uint8_t v);
std::string clockAccuracyName(uint8_t v);

}  // namespace fwmtools
