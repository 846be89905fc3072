#include "fwmtools/ack_json.hpp"

#include "fwmtools/ack_text.hpp"

namespace fwmtools {

nlohmann::json ackToJson(const Ack &ack) {
  const Announce &a = ack.announce;
  return {
      {"ifIndex", ack.ifIndex},
      {"pktLen", ack.pktLen},
      {"domainNumber", a.domainNumber},
      {"flagField", a.flagField},
      {"logMessageInterval", a.logMessageInterval},
      {"grandmasterIdentity", clockIdentityText(a.grandmasterIdentity)},
      {"grandmasterPriority1", a.grandmasterPriority1},
      {"grandmasterPriority2", a.grandmasterPriority2},
      {"clockClass", a.clockClass},
      {"clockAccuracy", a.clockAccuracy},
      {"offsetScaledLogVariance", a.offsetScaledLogVariance},
      {"stepsRemoved", a.stepsRemoved},
      {"timeSource", a.timeSource},
      {"currentUtcOffset", a.currentUtcOffset},
      {"sourcePortIdentity", portIdentityText(a.sourceClockIdentity, a.sourcePortNumber)},
  };
}

}  // namespace fwmtools
