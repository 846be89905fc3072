#include "fwmptp/announce.hpp"

#include <cctype>
#include <cstdio>

#include "bytes.hpp"

namespace fwmptp {

using detail::getBe;
using detail::putBe;

std::array<uint8_t, kAnnounceSize> encodeAnnounce(const Announce &a) {
  std::array<uint8_t, kAnnounceSize> out{};
  std::span<uint8_t> b(out);
  b[0] = a.messageType & 0x0F;  // transportSpecific 0
  b[1] = a.versionPtp & 0x0F;
  putBe(b, 2, 2, kAnnounceSize);
  b[4] = a.domainNumber;
  putBe(b, 6, 2, a.flagField);
  putBe(b, 8, 8, static_cast<uint64_t>(a.correctionField));
  putBe(b, 20, 8, a.sourceClockIdentity);
  putBe(b, 28, 2, a.sourcePortNumber);
  putBe(b, 30, 2, a.sequenceId);
  b[32] = a.controlField;
  b[33] = static_cast<uint8_t>(a.logMessageInterval);
  // 34..43: originTimestamp, zero: the engine does not stamp announces.
  putBe(b, 44, 2, static_cast<uint16_t>(a.currentUtcOffset));
  b[47] = a.grandmasterPriority1;
  b[48] = a.clockClass;
  b[49] = a.clockAccuracy;
  putBe(b, 50, 2, a.offsetScaledLogVariance);
  b[52] = a.grandmasterPriority2;
  putBe(b, 53, 8, a.grandmasterIdentity);
  putBe(b, 61, 2, a.stepsRemoved);
  b[63] = a.timeSource;
  return out;
}

const char *rejectName(Reject r) {
  switch (r) {
    case Reject::None:
      return "accepted";
    case Reject::Short:
      return "short";
    case Reject::Version:
      return "wrong version";
    case Reject::Length:
      return "wrong length";
    case Reject::MessageType:
      return "other message type";
    case Reject::Domain:
      return "other domain";
  }
  return "?";
}

std::optional<Announce> decodeAnnounce(std::span<const uint8_t> b, std::optional<uint8_t> domain, Reject *why) {
  auto refuse = [&](Reject r) -> std::optional<Announce> {
    if (why) *why = r;
    return std::nullopt;
  };
  Reject header{};
  const uint16_t length = detail::checkHeader(b, header);
  if (header != Reject::None) return refuse(header);
  if ((b[0] & 0x0F) != kMsgAnnounce) return refuse(Reject::MessageType);
  if (length < kAnnounceSize) return refuse(Reject::Length);
  if (domain && b[4] != *domain) return refuse(Reject::Domain);
  Announce a;
  a.messageType = b[0] & 0x0F;
  a.versionPtp = b[1] & 0x0F;
  a.messageLength = length;
  a.domainNumber = b[4];
  a.flagField = static_cast<uint16_t>(getBe(b, 6, 2));
  a.correctionField = static_cast<int64_t>(getBe(b, 8, 8));
  a.sourceClockIdentity = getBe(b, 20, 8);
  a.sourcePortNumber = static_cast<uint16_t>(getBe(b, 28, 2));
  a.sequenceId = static_cast<uint16_t>(getBe(b, 30, 2));
  a.controlField = b[32];
  a.logMessageInterval = static_cast<int8_t>(b[33]);
  a.currentUtcOffset = static_cast<int16_t>(getBe(b, 44, 2));
  a.grandmasterPriority1 = b[47];
  a.clockClass = b[48];
  a.clockAccuracy = b[49];
  a.offsetScaledLogVariance = static_cast<uint16_t>(getBe(b, 50, 2));
  a.grandmasterPriority2 = b[52];
  a.grandmasterIdentity = getBe(b, 53, 8);
  a.stepsRemoved = static_cast<uint16_t>(getBe(b, 61, 2));
  a.timeSource = b[63];
  if (why) *why = Reject::None;
  return a;
}

std::string clockIdentityText(uint64_t id) {
  uint8_t o[8];
  for (int i = 0; i < 8; ++i) o[i] = static_cast<uint8_t>(id >> (8 * (7 - i)));
  char buf[24];
  std::snprintf(buf, sizeof buf, "%02x%02x%02x.%02x%02x.%02x%02x%02x", o[0], o[1], o[2], o[3], o[4], o[5], o[6], o[7]);
  return buf;
}

std::optional<uint64_t> parseClockIdentity(std::string_view text) {
  uint64_t v = 0;
  int digits = 0;
  for (char c : text) {
    if (c == '.' || c == ':' || c == '-') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
    int d = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                                                        : (std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
    v = v << 4 | static_cast<uint64_t>(d);
    ++digits;
  }
  if (digits != 16) return std::nullopt;
  return v;
}

std::string timeSourceName(uint8_t v) {
  switch (v) {
    case 0x10:
      return "ATOMIC_CLOCK";
    case 0x20:
      return "GPS";
    case 0x30:
      return "TERRESTRIAL_RADIO";
    case 0x40:
      return "PTP";
    case 0x50:
      return "NTP";
    case 0x60:
      return "HAND_SET";
    case 0x90:
      return "OTHER";
    case 0xA0:
      return "INTERNAL_OSCILLATOR";
    default:
      return "reserved";
  }
}

std::string clockAccuracyName(uint8_t v) {
  static constexpr const char *kNames[] = {"25 ns", "100 ns", "250 ns", "1 us", "2.5 us", "10 us",
                                           "25 us", "100 us", "250 us", "1 ms", "2.5 ms", "10 ms",
                                           "25 ms", "100 ms", "250 ms", "1 s",  "10 s"};
  if (v >= 0x20 && v <= 0x30) return std::string("within ") + kNames[v - 0x20];
  if (v == 0x31) return "more than 10 s";
  if (v == 0xFE) return "unknown";
  return "reserved";
}

}  // namespace fwmptp
