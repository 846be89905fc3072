#include "fwmtools/ack_json.hpp"

#include "fwmtools/ack_text.hpp"

namespace fwmtools {

nlohmann::json ackToJson(const Ack &ack) {
  nlohmann::json j = announceToJson(ack.announce);
  j["ifIndex"] = ack.ifIndex;
  j["pktLen"] = ack.pktLen;
  return j;
}

nlohmann::json announceToJson(const Announce &a) {
  return {
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
      {"sequenceId", a.sequenceId},
  };
}

}  // namespace fwmtools
