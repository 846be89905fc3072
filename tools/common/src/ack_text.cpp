#include "fwmtools/ack_text.hpp"

#include <fmt/format.h>

namespace fwmtools {

std::string portIdentityText(uint64_t clockIdentity, uint16_t portNumber) {
  return fmt::format("{}-{}", clockIdentityText(clockIdentity), portNumber);
}

std::vector<std::string> describeAck(const Ack &ack) {
  const Announce &a = ack.announce;
  std::vector<std::string> lines;
  lines.push_back(fmt::format("ifIndex {}  pktLen {}  announce v{} len {} domain {} flags 0x{:04x} interval {}",
                              ack.ifIndex, ack.pktLen, a.versionPtp, a.messageLength, a.domainNumber, a.flagField,
                              a.logMessageInterval));
  lines.push_back(fmt::format("grandmaster {}  priority1 {}  priority2 {}", clockIdentityText(a.grandmasterIdentity),
                              a.grandmasterPriority1, a.grandmasterPriority2));
  lines.push_back(fmt::format("clockClass {}  clockAccuracy 0x{:02x} ({})  offsetScaledLogVariance 0x{:04x}",
                              a.clockClass, a.clockAccuracy, clockAccuracyName(a.clockAccuracy),
                              a.offsetScaledLogVariance));
  lines.push_back(fmt::format("stepsRemoved {}  timeSource 0x{:02x} ({})  currentUtcOffset {}", a.stepsRemoved,
                              a.timeSource, timeSourceName(a.timeSource), a.currentUtcOffset));
  lines.push_back(fmt::format("sourcePortIdentity {}", portIdentityText(a.sourceClockIdentity, a.sourcePortNumber)));
  return lines;
}

std::string summarizeAck(const Ack &ack) {
  const Announce &a = ack.announce;
  if (a.grandmasterIdentity == 0 && a.sourceClockIdentity == 0)
    return fmt::format("ifIndex {}: announce lost (no grandmaster)", ack.ifIndex);
  return fmt::format("ifIndex {}: GM {} class {} priority1 {} steps {} from {}", ack.ifIndex,
                     clockIdentityText(a.grandmasterIdentity), a.clockClass, a.grandmasterPriority1, a.stepsRemoved,
                     portIdentityText(a.sourceClockIdentity, a.sourcePortNumber));
}

}  // namespace fwmtools
