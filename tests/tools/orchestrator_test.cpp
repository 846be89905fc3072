// The orchestrator's ordered calls (port states, every announce field, class 248 -> 6 -> 135 -> 165 -> 6, which the
// card's own candidate carries but while locked), nothing unchanged programmed again, a failed call made again.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "orchestrator.hpp"

namespace {

using namespace fwmtools::bmca;
using fwmtools::timing::ServoState;
std::vector<std::string> calls;
std::optional<std::pair<uint32_t, uint32_t>> failCfg;  // the port whose next configuration fails

uint32_t portCfg(uint32_t unit, uint32_t port, uint32_t fwd, ClkPtpPortCfg *c) {
  calls.push_back(fmt::format("cfg {}:{} {:x} en{} s{} d{} t{} i{} rx {:08x}{:08x}-{}", unit, port, fwd, c->enable,
                              c->portState, c->domainNumber, c->annTimeoutMultiple, c->ifIndex, c->rxSrcPortIdentity[0],
                              c->rxSrcPortIdentity[1], c->rxSrcPortIdentity[2]));
  if (failCfg != std::pair(unit, port)) return 0;
  failCfg.reset();
  return 0xFFFFFFFD;
}
uint32_t portPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *a) {
  calls.push_back(fmt::format("pkt {}:{} {:08x}{:08x} p{}/{} c{} a{:x} v{:x} s{} u{} f{:x} t{:x}", unit, port,
                              a->grandmasterIdentityHigh, a->grandmasterIdentityLow, a->grandmasterPriority1,
                              a->grandmasterPriority2, a->clockClass, a->clockAccuracy, a->offsetScaledLogVariance,
                              a->stepsRemoved, a->currentUtcOffset, a->flagField, a->timeSource));
  return 0;
}

const ClkSrvOrchIntf kTable{nullptr, portCfg, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            portPkt, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};  // slots 1 and 8

TEST(Orchestrator, ProgramsWhatEachDecisionAndServoStateChanges) {
  const clksim::BoundarySetup setup{true, Profile::Telecom, {0, 255}, {{0, 3}, {0, 4}, {1, 2}}, {}, {}};
  std::vector<std::string> notes;
  bool haveTable = false;
  clksim::OwnClock card(setup);
  card.identify(0x001b19fffe000009), card.identify(1);  // no identity in the scenario: the first one told
  clksim::Orchestrator orch(
      setup, card, [&] { return haveTable ? std::optional(kTable) : std::nullopt; },
      [&](std::string n) { notes.push_back(std::move(n)); });
  // Domain 24, flags 0x0630, UTC offset 37, priority1 128, class 6, accuracy 0x21, variance 0x4e5d, priority2 128.
  const fwmptp::Announce gm{0, 0,   0, 24, 0x0630, 0, 0, 0, 0, 0, 0, 37, 128, 6, 0x21, 0x4e5d, 128, 0x001b19fffe00a001,
                            0, 0x20};
  Decision follow, lead;
  follow.ports = {{1, State::Slave, Reason::S1}, {2, State::Master, Reason::M3}, {3, State::Passive, Reason::P2}};
  follow.parent.sender = {0x001b19fffe00a001, 7}, follow.local = false, follow.best = gm;
  follow.announcedStepsRemoved = 1;
  lead.ports = {{1, State::Master, Reason::M2}, {2, State::Master, Reason::M2}, {3, State::Master, Reason::M2}, {4}};
  auto ann = [](int c) { return fmt::format("pkt 0:4 001b19fffe00a001 p128/128 c{} a21 v4e5d s1 u37 f30 t20", c); };
  auto own = [](const char *p) {
    return fmt::format("pkt {} 001b19fffe000009 p255/128 c135 afe vffff s0 u37 f8 ta0", p);
  };
  auto cfg = [](const char *p, int state, const char *rx = "0000000000000000-0") {
    return fmt::format("cfg {} ffffffff en1 s{} d24 t3 i{} rx {}", p, state, p[2], rx);
  };
  struct Row {
    char event;  // F, L: decisions; K, H: unit 0 locked, in holdover; k: unit 1 locked; T: a tick; S: a step, F
    double atS;
    std::vector<std::string> want;
    int own = 0;            // the class the card's own candidate carries then (0: not looked at)
    const char *note = "";  // one of the row's notes
  } rows[] = {
      {'F', 0, {}, 0, "orchestrator: no operation table registered yet, 1:2 (port 3) PASSIVE (P2) not programmed"},
      {'F', 1, {cfg("0:3", 9, "001b19fffe00a001-7"), ann(248), cfg("0:4", 6), cfg("1:2", 7)}},
      {'F', 2, {}},
      {'S',
       4,
       {cfg("0:3", 9, "001b19fffe00a001-7")},  // the same decision takes the port back
       0,
       "orchestrator: the step at line 9 (set_ptp_port_cfg) set 0:3 (port 1) MASTER (6) over the orchestrator's "
       "SLAVE (9): its next decision programs the port again"},
      {'k', 5, {}},
      {'K', 10, {ann(6)}, 248},  // locked: its configured class
      {'H', 20, {ann(135)}, 135, "orchestrator: clock class 6 -> 135: 0.0 s in holdover, within its budget of 300 s"},
      {'T', 320, {}},  // the budget's last instant
      {'T',
       320.1,
       {ann(165)},
       165,
       "orchestrator: 0:4 (port 2) announce GM 001b19.fffe.00a001 class 165 steps 1: set_ptp_port_pkt = 0"},
      {'K', 400, {ann(6)}},
      {'L',
       500,
       {own("0:3"), cfg("0:3", 6), own("0:4"), own("1:2"), cfg("1:2", 6)},
       0,
       "orchestrator: 1:2 (port 3) MASTER (M2): set_ptp_port_cfg = 4294967293 (0xfffffffd)"},
      {'L', 501, {cfg("1:2", 6)}},  // the failed one again
      {'L', 502, {}, 0, "orchestrator: the decision names port 4, the card has ports 1 to 3"},
  };
  const ClkPtpPortCfg byHand{1, 0, 6, 0, 0, 0, 0, {}, {}, 0, 0, 0};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.atS);
    calls.clear(), notes.clear();
    const auto ns = static_cast<int64_t>(r.atS * 1e9);
    haveTable = r.atS > 0;
    if (r.atS == 500) failCfg = std::pair(1u, 2u);
    if (r.event == 'F' || r.event == 'L')
      EXPECT_EQ(orch.act(r.event == 'F' ? follow : lead, ns).value_or(std::pair(9u, 9u)),
                r.event == 'F' ? std::pair(0u, 3u) : std::pair(9u, 9u));
    else if (r.event == 'T')
      orch.tick(ns);
    else if (r.event == 'S')
      orch.stepConfigured(0, 3, byHand, "the step at line 9 (set_ptp_port_cfg)"), orch.act(follow, ns);
    else
      orch.servoState(r.event == 'k', r.event == 'H' ? ServoState::Holdover : ServoState::Locked, ns);
    EXPECT_EQ(calls, r.want);
    EXPECT_EQ(r.own ? card.dataSet().clockClass : 0, r.own);
    EXPECT_TRUE(!*r.note || std::find(notes.begin(), notes.end(), r.note) != notes.end())
        << fmt::format("{}", fmt::join(notes, "\n"));
  }
}

}  // namespace
