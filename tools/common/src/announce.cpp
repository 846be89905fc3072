#include "fwmtools/announce.hpp"

namespace fwmtools {

namespace {

// Byte positions inside the 88-byte host-order image. The image is a C
// structure with natural alignment, so the positions are not those of the
// packed wire form.
namespace img {
constexpr size_t kMessageType = 1, kVersion = 3, kMessageLength = 4, kDomain = 6, kFlag0 = 8, kFlag1 = 9,
                 kCorrection = 16, kSourceClock = 32, kSourcePort = 40, kSequenceId = 42, kControl = 44,
                 kLogInterval = 45, kUtcOffset = 58, kPriority1 = 61, kClockClass = 62, kAccuracy = 63, kVariance = 64,
                 kPriority2 = 66, kGrandmaster = 72, kStepsRemoved = 80, kTimeSource = 82;
}  // namespace img

uint64_t getLe(std::span<const uint8_t> b, size_t at, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v |= static_cast<uint64_t>(b[at + i]) << (8 * i);
  return v;
}

void putLe(std::span<uint8_t> b, size_t at, size_t width, uint64_t v) {
  for (size_t i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

Announce decodeAnnounceImage(std::span<const uint8_t, kAnnImageSize> image) {
  std::span<const uint8_t> b(image);
  Announce a;
  a.messageType = b[img::kMessageType];
  a.versionPtp = b[img::kVersion];
  a.messageLength = static_cast<uint16_t>(getLe(b, img::kMessageLength, 2));
  a.domainNumber = b[img::kDomain];
  a.flagField = static_cast<uint16_t>(b[img::kFlag0] << 8 | b[img::kFlag1]);
  a.correctionField = static_cast<int64_t>(getLe(b, img::kCorrection, 8));
  a.sourceClockIdentity = getLe(b, img::kSourceClock, 8);
  a.sourcePortNumber = static_cast<uint16_t>(getLe(b, img::kSourcePort, 2));
  a.sequenceId = static_cast<uint16_t>(getLe(b, img::kSequenceId, 2));
  a.controlField = b[img::kControl];
  a.logMessageInterval = static_cast<int8_t>(b[img::kLogInterval]);
  a.currentUtcOffset = static_cast<int16_t>(getLe(b, img::kUtcOffset, 2));
  a.grandmasterPriority1 = b[img::kPriority1];
  a.clockClass = b[img::kClockClass];
  a.clockAccuracy = b[img::kAccuracy];
  a.offsetScaledLogVariance = static_cast<uint16_t>(getLe(b, img::kVariance, 2));
  a.grandmasterPriority2 = b[img::kPriority2];
  a.grandmasterIdentity = getLe(b, img::kGrandmaster, 8);
  a.stepsRemoved = static_cast<uint16_t>(getLe(b, img::kStepsRemoved, 2));
  a.timeSource = b[img::kTimeSource];
  return a;
}

std::array<uint8_t, kAnnImageSize> encodeAnnounceImage(const Announce &a) {
  std::array<uint8_t, kAnnImageSize> out{};
  std::span<uint8_t> b(out);
  b[img::kMessageType] = a.messageType;
  b[img::kVersion] = a.versionPtp;
  putLe(b, img::kMessageLength, 2, a.messageLength);
  b[img::kDomain] = a.domainNumber;
  b[img::kFlag0] = static_cast<uint8_t>(a.flagField >> 8);
  b[img::kFlag1] = static_cast<uint8_t>(a.flagField);
  putLe(b, img::kCorrection, 8, static_cast<uint64_t>(a.correctionField));
  putLe(b, img::kSourceClock, 8, a.sourceClockIdentity);
  putLe(b, img::kSourcePort, 2, a.sourcePortNumber);
  putLe(b, img::kSequenceId, 2, a.sequenceId);
  b[img::kControl] = a.controlField;
  b[img::kLogInterval] = static_cast<uint8_t>(a.logMessageInterval);
  putLe(b, img::kUtcOffset, 2, static_cast<uint16_t>(a.currentUtcOffset));
  b[img::kPriority1] = a.grandmasterPriority1;
  b[img::kClockClass] = a.clockClass;
  b[img::kAccuracy] = a.clockAccuracy;
  putLe(b, img::kVariance, 2, a.offsetScaledLogVariance);
  b[img::kPriority2] = a.grandmasterPriority2;
  putLe(b, img::kGrandmaster, 8, a.grandmasterIdentity);
  putLe(b, img::kStepsRemoved, 2, a.stepsRemoved);
  b[img::kTimeSource] = a.timeSource;
  return out;
}

std::optional<Ack> decodeAck(std::span<const uint8_t> bytes, DecodeError *why) {
  auto refuse = [&](std::string reason) -> std::optional<Ack> {
    if (why) why->reason = std::move(reason);
    return std::nullopt;
  };
  if (bytes.size() != kAckSize)
    return refuse("length " + std::to_string(bytes.size()) + ", an acknowledgement is " + std::to_string(kAckSize) +
                  " bytes");
  Ack ack;
  ack.rootHeader = static_cast<uint32_t>(getLe(bytes, 0, 4));
  ack.ifIndex = static_cast<uint32_t>(getLe(bytes, 4, 4));
  ack.pktLen = static_cast<uint32_t>(getLe(bytes, 8, 4));
  ack.announce = decodeAnnounceImage(bytes.subspan<12, kAnnImageSize>());
  if (ack.announce.messageType != 11)
    return refuse("message type " + std::to_string(ack.announce.messageType) + ", not an announce (11)");
  if (ack.announce.versionPtp != 2) return refuse("PTP version " + std::to_string(ack.announce.versionPtp) + ", not 2");
  return ack;
}

std::array<uint8_t, kAckSize> encodeAck(const Ack &ack) {
  std::array<uint8_t, kAckSize> out{};
  std::span<uint8_t> b(out);
  putLe(b, 0, 4, ack.rootHeader);
  putLe(b, 4, 4, ack.ifIndex);
  putLe(b, 8, 4, ack.pktLen);
  auto image = encodeAnnounceImage(ack.announce);
  std::copy(image.begin(), image.end(), out.begin() + 12);
  return out;
}

}  // namespace fwmtools
