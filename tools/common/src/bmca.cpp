#include "fwmtools/bmca.hpp"

namespace fwmtools::bmca {

namespace {

// Every field of a data set is "lower is better".
template <class T>
std::optional<Order> lower(T a, T b) {
  if (a < b) return Order::ABetter;
  if (b < a) return Order::BBetter;
  return std::nullopt;
}

// The same grandmaster reached two ways: the shorter path wins, and a path
// that came back through the receiving clock loses outright.
Order byTopology(const Candidate &a, const Candidate &b) {
  if (a.stepsRemoved > b.stepsRemoved + 1) return Order::BBetter;
  if (a.stepsRemoved + 1 < b.stepsRemoved) return Order::ABetter;
  if (a.stepsRemoved > b.stepsRemoved) {
    if (a.receiver == a.sender) return Order::Same;
    return a.receiver < a.sender ? Order::BBetter : Order::BBetterByTopology;
  }
  if (a.stepsRemoved < b.stepsRemoved) {
    if (b.receiver == b.sender) return Order::Same;
    return b.receiver < b.sender ? Order::ABetter : Order::ABetterByTopology;
  }
  if (a.sender != b.sender) return a.sender < b.sender ? Order::ABetterByTopology : Order::BBetterByTopology;
  if (a.receiver.port != b.receiver.port)
    return a.receiver.port < b.receiver.port ? Order::ABetterByTopology : Order::BBetterByTopology;
  return Order::Same;
}

Order compareDefault(const Candidate &a, const Candidate &b) {
  if (a.grandmaster == b.grandmaster) return byTopology(a, b);
  for (auto o :
       {lower(a.priority1, b.priority1), lower(a.clockClass, b.clockClass), lower(a.clockAccuracy, b.clockAccuracy),
        lower(a.variance, b.variance), lower(a.priority2, b.priority2)})
    if (o) return *o;
  return *lower(a.grandmaster, b.grandmaster);
}

// No priority1; the receiving port's localPriority after priority2, so that
// one grandmaster heard on two ports is taken where the operator prefers. A
// grandmaster locked to a primary reference (class up to 127) is taken by its
// distance, not its identity: all of them are equally good.
Order compareTelecom(const Candidate &a, const Candidate &b) {
  for (auto o :
       {lower(a.clockClass, b.clockClass), lower(a.clockAccuracy, b.clockAccuracy), lower(a.variance, b.variance),
        lower(a.priority2, b.priority2), lower(a.localPriority, b.localPriority)})
    if (o) return *o;
  if (a.clockClass > 127)
    if (auto o = lower(a.grandmaster, b.grandmaster)) return *o;
  if (a.grandmaster == b.grandmaster) return byTopology(a, b);
  for (auto o :
       {lower(a.stepsRemoved, b.stepsRemoved), lower(a.sender, b.sender), lower(a.receiver.port, b.receiver.port)})
    if (o) return *o;
  return Order::Same;
}

}  // namespace

Candidate candidateOf(const fwmptp::Announce &a, PortIdentity receiver, uint8_t localPriority) {
  return {a.grandmasterPriority1,
          a.clockClass,
          a.clockAccuracy,
          a.offsetScaledLogVariance,
          a.grandmasterPriority2,
          localPriority,
          a.grandmasterIdentity,
          a.stepsRemoved,
          {a.sourceClockIdentity, a.sourcePortNumber},
          receiver};
}

Candidate candidateOf(const LocalClock &c) {
  const PortIdentity self{c.identity, 0};
  return {c.priority1, c.clockClass, c.clockAccuracy, c.variance, c.priority2, c.localPriority, c.identity, 0,
          self,        self};
}

Order compare(Profile profile, const Candidate &a, const Candidate &b) {
  return profile == Profile::Telecom ? compareTelecom(a, b) : compareDefault(a, b);
}

std::string_view stateName(State s) {
  switch (s) {
    case State::Master:
      return "MASTER";
    case State::Slave:
      return "SLAVE";
    case State::Passive:
      return "PASSIVE";
  }
  return "?";
}

std::string_view reasonName(Reason r) {
  static constexpr std::string_view kNames[] = {"M1", "M2", "M3", "S1", "P1", "P2"};
  return kNames[static_cast<size_t>(r)];
}

Decision decide(Profile profile, const LocalClock &self, std::span<const PortView> ports) {
  const Candidate d0 = candidateOf(self);
  std::vector<std::optional<Candidate>> erbest;
  std::optional<size_t> ebestAt;
  for (const auto &p : ports) {
    auto &e = erbest.emplace_back();
    if (!p.heard || p.masterOnly) continue;
    e = candidateOf(*p.heard, {self.identity, p.number}, p.localPriority);
    if (!ebestAt || aWins(compare(profile, *e, *erbest[*ebestAt]))) ebestAt = erbest.size() - 1;
  }
  const Candidate *ebest = ebestAt ? &*erbest[*ebestAt] : nullptr;
  const bool selfBest = ebest == nullptr || aWins(compare(profile, d0, *ebest));

  Decision d;
  for (size_t i = 0; i < ports.size(); ++i) {
    const auto &e = erbest[i];
    PortDecision pd{ports[i].number, State::Master, Reason::M2};
    if (d0.clockClass <= 127) {
      const bool wins = !e || aWins(compare(profile, d0, *e));
      pd.state = wins ? State::Master : State::Passive;
      pd.reason = wins ? Reason::M1 : Reason::P1;
    } else if (selfBest) {
      pd.reason = Reason::M2;
    } else if (ebestAt == i) {
      pd = {ports[i].number, State::Slave, Reason::S1};
    } else if (e && compare(profile, *ebest, *e) == Order::ABetterByTopology) {
      pd = {ports[i].number, State::Passive, Reason::P2};
    } else {
      pd.reason = Reason::M3;
    }
    d.ports.push_back(pd);
  }
  d.local = selfBest;
  d.parent = selfBest ? d0 : *ebest;
  if (!selfBest) {
    d.best = ports[*ebestAt].heard;
    d.announcedStepsRemoved = static_cast<uint16_t>(ebest->stepsRemoved + 1);
  }
  return d;
}

}  // namespace fwmtools::bmca
