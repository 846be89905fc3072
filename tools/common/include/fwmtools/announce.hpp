// The negotiation peer's view of an announce acknowledgement: the 100-byte
// message the clock service sends, the IEEE 1588 announce fields it carries,
// whose wire form is the IEEE 1588 codec's (fwmptp/announce.hpp).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "fwmptp/announce.hpp"

namespace fwmtools {

// Sizes of the acknowledgement and of what it carries.
inline constexpr size_t kAckSize = 100;      // root header + ClkAnnInfo
inline constexpr size_t kAnnInfoSize = 96;   // ifIndex, pktLen, announce image
inline constexpr size_t kAnnImageSize = 88;  // the announce as a host-order structure
inline constexpr size_t kPtpAnnounceSize = fwmptp::kAnnounceSize;

using fwmptp::Announce;
using fwmptp::clockAccuracyName;
using fwmptp::clockIdentityText;
using fwmptp::parseClockIdentity;
using fwmptp::timeSourceName;

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

}  // namespace fwmtools
