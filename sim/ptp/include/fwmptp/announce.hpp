// The project's one IEEE 1588 (version 2) message codec: the announce message
// as it travels on the wire, in network byte order, and the clock identity's
// text form. The simulated engine's wire ports, the pcap writer and the tools
// all encode and decode through here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace fwmptp {

inline constexpr size_t kHeaderSize = 34;
inline constexpr size_t kAnnounceSize = 64;  // header + announce body
inline constexpr uint8_t kMsgAnnounce = 11;
inline constexpr uint8_t kControlAnnounce = 5;
inline constexpr uint8_t kVersion = 2;
inline constexpr uint16_t kEventPort = 319;
inline constexpr uint16_t kGeneralPort = 320;
inline constexpr uint32_t kPrimaryGroup = 0xE0000181u;  // 224.0.1.129
inline constexpr uint16_t kEthertype = 0x88F7;
inline constexpr std::array<uint8_t, 6> kPrimaryMac{0x01, 0x1B, 0x19, 0x00, 0x00, 0x00};

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
  bool operator==(const Announce &) const = default;
};

// The 64-byte message. The length field always says 64; the message type
// and version are taken from the fields (low nibbles), the origin timestamp
// is zero.
std::array<uint8_t, kAnnounceSize> encodeAnnounce(const Announce &a);

// Why a received message is refused, checked in this order.
enum class Reject : uint8_t {
  None,
  Short,        // fewer bytes than a header
  Version,      // versionPTP (low nibble) is not 2
  Length,       // messageLength below 64 or beyond the bytes received
  MessageType,  // a valid message, but not of the type(s) wanted
  Domain,       // an announce of another domain
};
const char *rejectName(Reject r);

// Decodes an announce; trailing bytes beyond messageLength (and TLVs after
// the body) are ignored. With `domain` given, announces of other domains are
// refused. Nothing outside `bytes` is read.
std::optional<Announce> decodeAnnounce(std::span<const uint8_t> bytes, std::optional<uint8_t> domain = std::nullopt,
                                       Reject *why = nullptr);

// "001b19.fffe.000001": a clock identity as its eight octets in network order.
std::string clockIdentityText(uint64_t identity);
// Parses that form (or 16 hex digits, separators '.', ':' and '-' allowed).
std::optional<uint64_t> parseClockIdentity(std::string_view text);

// Names of the enumerations, for people ("GPS", "within 100 ns").
std::string timeSourceName(uint8_t v);
std::string clockAccuracyName(uint8_t v);

}  // namespace fwmptp
