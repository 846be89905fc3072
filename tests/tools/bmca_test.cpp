// The negotiation peer's decision: the data-set comparison of both profiles
// field by field, then the state of every port of a card for the networks a
// boundary clock meets (a better master, one master on two ports, its own
// announce echoed back, masterOnly ports, a card that is itself a primary).
#include <gtest/gtest.h>

#include "fwmtools/bmca.hpp"

namespace {

using namespace fwmtools::bmca;
constexpr uint64_t kSelf = 0x001b19fffe000001, kGm = 0x001b19fffe00a001, kGm2 = 0x001b19fffe00a002;

// A candidate heard on port `rx` of the card from `sender` port 1.
Candidate heard(uint64_t gm, uint8_t cls, uint16_t steps, uint64_t sender, uint16_t rx) {
  return {128, cls, 0x21, 0x4e5d, 128, 128, gm, steps, {sender, 1}, {kSelf, rx}};
}
template <class F>
Candidate with(Candidate c, F f) {
  f(c);
  return c;
}

TEST(Bmca, ComparisonTakesEachFieldInItsOrder) {
  const auto base = heard(kGm, 6, 1, kGm, 1);
  const auto other = heard(kGm2, 6, 1, kGm2, 2);
  struct Row {
    const char *what;
    Profile profile;
    Candidate a, b;
    Order want;
  } rows[] = {
      {"priority1 first", Profile::Default,
       with(other,
            [](auto &c) {
              c.priority1 = 100;
              c.clockClass = 7;
            }),
       base, Order::ABetter},
      {"class", Profile::Default, with(base, [](auto &c) { c.clockClass = 7; }), other, Order::BBetter},
      {"accuracy", Profile::Default, with(other, [](auto &c) { c.clockAccuracy = 0x20; }), base, Order::ABetter},
      {"variance", Profile::Default, with(base, [](auto &c) { c.variance = 0x4e5e; }), other, Order::BBetter},
      {"priority2", Profile::Default, with(other, [](auto &c) { c.priority2 = 127; }), base, Order::ABetter},
      {"identity last", Profile::Default, base, other, Order::ABetter},
      {"local priority is not a field", Profile::Default, with(other, [](auto &c) { c.localPriority = 1; }), base,
       Order::BBetter},
      {"two steps shorter", Profile::Default, base, heard(kGm, 6, 3, kGm2, 2), Order::ABetter},
      {"one step longer, sender above", Profile::Default, heard(kGm, 6, 2, kSelf + 1, 1), base, Order::BBetter},
      {"one step longer, sender below", Profile::Default, heard(kGm, 6, 2, 0x001b19fffe000000, 1), base,
       Order::BBetterByTopology},
      {"one step shorter", Profile::Default, base, heard(kGm, 6, 2, 0x001b19fffe000000, 2), Order::ABetterByTopology},
      {"lower sender", Profile::Default, heard(kGm, 6, 1, kGm2, 1), heard(kGm, 6, 1, kGm, 2), Order::BBetterByTopology},
      {"lower receiving port", Profile::Default, heard(kGm, 6, 1, kGm, 2), heard(kGm, 6, 1, kGm, 1),
       Order::BBetterByTopology},
      {"itself", Profile::Default, base, base, Order::Same},
      {"no priority1", Profile::Telecom,
       with(other,
            [](auto &c) {
              c.priority1 = 0;
              c.clockClass = 7;
            }),
       base, Order::BBetter},
      {"local priority over distance", Profile::Telecom,
       with(heard(kGm, 6, 4, kGm2, 2), [](auto &c) { c.localPriority = 10; }), base, Order::ABetter},
      {"primaries by distance", Profile::Telecom, heard(kGm2, 6, 1, kGm2, 1), heard(kGm, 6, 2, kGm, 2), Order::ABetter},
      {"127 still by distance", Profile::Telecom, heard(kGm2, 127, 1, kGm2, 1), heard(kGm, 127, 2, kGm, 2),
       Order::ABetter},
      {"others by identity", Profile::Telecom, heard(kGm2, 128, 1, kGm2, 1), heard(kGm, 128, 2, kGm, 2),
       Order::BBetter},
      {"same primary, by topology", Profile::Telecom, heard(kGm, 6, 1, kGm2, 1), heard(kGm, 6, 1, kGm, 2),
       Order::BBetterByTopology},
      {"primaries, then senders", Profile::Telecom, heard(kGm, 6, 1, kGm2, 1), heard(kGm2, 6, 1, kGm, 2),
       Order::BBetter},
  };
  for (const auto &r : rows) EXPECT_EQ(compare(r.profile, r.a, r.b), r.want) << r.what;
}

fwmptp::Announce announce(uint64_t gm, uint8_t cls, uint16_t steps, uint64_t sender) {
  fwmptp::Announce a;
  a.grandmasterIdentity = gm;
  a.clockClass = cls;
  a.grandmasterPriority1 = a.grandmasterPriority2 = 128;
  a.clockAccuracy = 0x21;
  a.offsetScaledLogVariance = 0x4e5d;
  a.stepsRemoved = steps;
  a.sourceClockIdentity = sender;
  a.sourcePortNumber = 1;
  return a;
}

TEST(Bmca, EveryPortGetsItsStateAndMastersAnnounceTheParent) {
  const LocalClock card{kSelf, 128, 128};  // the first class that is not a primary's
  const LocalClock primary{kSelf, 128, 127};
  const auto gm = announce(kGm, 6, 0, kGm), far = announce(kGm, 6, 2, kGm2), echo = announce(kSelf, 248, 1, kSelf);
  auto port = [](uint16_t n, std::optional<fwmptp::Announce> a = {}, uint8_t local = 128, bool masterOnly = false) {
    return PortView{n, a, local, masterOnly};
  };
  struct Row {
    const char *what;
    Profile profile;
    LocalClock self;
    std::vector<PortView> ports;
    std::string states;  // "port:state/reason" each
    uint64_t parent;
    uint16_t steps;
  } rows[] = {
      {"nobody heard", Profile::Default, card, {port(1), port(2)}, "1:MASTER/M2 2:MASTER/M2", kSelf, 0},
      {"a better master", Profile::Default, card, {port(1, gm), port(2)}, "1:SLAVE/S1 2:MASTER/M3", kGm, 1},
      {"one master on two ports",
       Profile::Default,
       card,
       {port(1, far), port(2, gm), port(3)},
       "1:MASTER/M3 2:SLAVE/S1 3:MASTER/M3",
       kGm,
       1},
      {"the same path twice", Profile::Default, card, {port(1, gm), port(2, gm)}, "1:SLAVE/S1 2:PASSIVE/P2", kGm, 1},
      {"its own announce back", Profile::Default, card, {port(1), port(2, echo)}, "1:MASTER/M2 2:MASTER/M2", kSelf, 0},
      {"local priority picks the port",
       Profile::Telecom,
       card,
       {port(1, gm), port(2, far, 5)},
       "1:MASTER/M3 2:SLAVE/S1",
       kGm,
       3},
      {"masterOnly never follows",
       Profile::Telecom,
       card,
       {port(1, gm, 128, true), port(2)},
       "1:MASTER/M2 2:MASTER/M2",
       kSelf,
       0},
      {"a primary card",
       Profile::Default,
       primary,
       {port(1, gm), port(2, announce(kGm2, 200, 0, kGm2))},
       "1:PASSIVE/P1 2:MASTER/M1",
       kGm,
       1},
  };
  for (const auto &r : rows) {
    const auto d = decide(r.profile, r.self, r.ports);
    std::string states;
    for (const auto &p : d.ports)
      states += (states.empty() ? "" : " ") + std::to_string(p.number) + ":" + std::string(stateName(p.state)) + "/" +
                std::string(reasonName(p.reason));
    EXPECT_EQ(states, r.states) << r.what;
    EXPECT_EQ(d.parent.grandmaster, r.parent) << r.what;
    EXPECT_EQ(d.local, r.parent == kSelf) << r.what;
    EXPECT_EQ(d.announcedStepsRemoved, r.steps) << r.what;
    EXPECT_EQ(d.best.has_value(), !d.local) << r.what;
  }
}

}  // namespace
