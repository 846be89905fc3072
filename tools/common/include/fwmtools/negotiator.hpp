// The deciding side of the negotiation peer: what each port of the card
// last heard, as the card's acknowledgements tell it, and the decision the
// data-set comparison makes from that. Both peers (clkpeer and clksim's
// built-in one) keep one and print its decisions the same way.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "fwmtools/announce.hpp"
#include "fwmtools/bmca.hpp"

namespace fwmtools {

// An acknowledgement without a grandmaster or without a sender is the card
// telling that the port's master went silent, not an announce.
bool isLoss(const Announce &a);

// A port of the card as the peer weighs it; numbered 1, 2, ... in the
// card's port identities.
struct PeerPort {
  uint16_t number = 0;
  uint8_t localPriority = 128;
  bool masterOnly = false;
};

class Negotiator {
 public:
  Negotiator(bmca::Profile profile, bmca::LocalClock self, std::vector<PeerPort> ports);

  // Acknowledgements for `ifIndex` are about port `number` from now on.
  void route(uint32_t ifIndex, uint16_t number);
  // Takes what an acknowledgement says about its port: the announce heard
  // there, or that it was lost. False when its ifIndex is no known port.
  bool hear(const Ack &ack);
  // The card's own data set may change (its identity becomes known, its
  // class follows its servo); the next decision uses it.
  void setSelf(const bmca::LocalClock &self) { self_ = self; }
  const bmca::LocalClock &self() const { return self_; }

  bmca::Decision decide() const;
  // Decides; the decision when it differs from the one returned last time
  // (the first is always new), otherwise nothing.
  std::optional<bmca::Decision> changed();

 private:
  bmca::Profile profile_;
  bmca::LocalClock self_;
  std::vector<bmca::PortView> views_;
  std::map<uint32_t, uint16_t> routes_;
  std::optional<bmca::Decision> last_;
};

bool sameDecision(const bmca::Decision &a, const bmca::Decision &b);

// "1 SLAVE (S1), 2 MASTER (M3); parent 001b19.fffe.000001-1 on port 1,
// grandmaster 001b19.fffe.000001 class 6 priority1 128, stepsRemoved 0
// (announced 1)", without a "decision: " in front.
std::string decisionText(const bmca::Decision &d);
// The same as one object: ports [{port, state, reason}], local, parent,
// parentPort, grandmaster, clockClass, priority1, priority2, stepsRemoved,
// announcedStepsRemoved.
nlohmann::json decisionJson(const bmca::Decision &d);

}  // namespace fwmtools
