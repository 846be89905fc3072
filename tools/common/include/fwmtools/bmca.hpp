// The negotiation peer's decision: which port of the card follows which
// master, by the data-set comparison and state decision of IEEE 1588-2019
// (the default best master clock algorithm) or of the telecom profile for
// phase (ITU-T G.8275.1: no priority1, a localPriority per port, masterOnly
// ports). The card's own default data set is always a candidate.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "fwmptp/announce.hpp"

namespace fwmtools::bmca {

enum class Profile : uint8_t { Default, Telecom };

struct PortIdentity {
  uint64_t clock = 0;
  uint16_t port = 0;
  auto operator<=>(const PortIdentity &) const = default;
};

// One side of a comparison: a foreign master as heard on a port (its
// announce, the port that heard it), or the card itself with stepsRemoved 0
// and itself as sender and receiver.
struct Candidate {
  uint8_t priority1 = 128;
  uint8_t clockClass = 248;
  uint8_t clockAccuracy = 0xFE;
  uint16_t variance = 0xFFFF;
  uint8_t priority2 = 128;
  uint8_t localPriority = 128;  // the receiving port's (the card's own for itself)
  uint64_t grandmaster = 0;
  uint16_t stepsRemoved = 0;
  PortIdentity sender;
  PortIdentity receiver;
};

// A heard announce as a candidate of the port `receiver` with that port's local priority.
Candidate candidateOf(const fwmptp::Announce &a, PortIdentity receiver, uint8_t localPriority);

// The comparison's verdict: which is better, and whether only by topology
// (the same grandmaster, a shorter path). `Same` is the standard's error
// case: a candidate compared with itself or its own echo.
enum class Order : uint8_t { ABetter, ABetterByTopology, BBetter, BBetterByTopology, Same };
Order compare(Profile profile, const Candidate &a, const Candidate &b);
inline bool aWins(Order o) { return o == Order::ABetter || o == Order::ABetterByTopology; }

// The card's default data set.
struct LocalClock {
  uint64_t identity = 0;
  uint8_t priority1 = 128;
  uint8_t clockClass = 248;
  uint8_t clockAccuracy = 0xFE;
  uint16_t variance = 0xFFFF;
  uint8_t priority2 = 128;
  uint8_t localPriority = 128;
};
Candidate candidateOf(const LocalClock &c);

// What one port of the card hears: the best qualified announce on it (none
// when it hears nobody or its master timed out).
struct PortView {
  uint16_t number = 0;
  std::optional<fwmptp::Announce> heard;
  uint8_t localPriority = 128;
  bool masterOnly = false;  // telecom profile: never SLAVE, its announces are not candidates
};

enum class State : uint8_t { Master, Slave, Passive };
// Why, as the standard's state decision names its branches (M1 M2 M3 S1 P1 P2).
enum class Reason : uint8_t { M1, M2, M3, S1, P1, P2 };
std::string_view stateName(State s);
std::string_view reasonName(Reason r);

struct PortDecision {
  uint16_t number = 0;
  State state = State::Master;
  Reason reason = Reason::M2;
};

// The decision for the whole card. `parent` is the best candidate (the card
// itself when `local`); `best` the announce it came from, whose grandmaster,
// quality and time properties the master ports announce with stepsRemoved + 1.
struct Decision {
  std::vector<PortDecision> ports;
  Candidate parent;
  bool local = true;
  std::optional<fwmptp::Announce> best;
  uint16_t announcedStepsRemoved = 0;
};
Decision decide(Profile profile, const LocalClock &self, std::span<const PortView> ports);

}  // namespace fwmtools::bmca
