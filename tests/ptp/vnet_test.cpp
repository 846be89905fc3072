// A slave engine port on a virtual link to the reference grandmaster: what it
// measures under each impairment, what the link loses, and the same run
// again from the same seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <regex>
#include <string>
#include <vector>

#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/engine/vnet.hpp"
#include "fwmsim/recorder.hpp"

namespace {

using fwmsim::Jitter;
using fwmsim::LinkDirection;

constexpr int64_t kStart = 1'800'000'000'000'000'000;  // a multiple of every stamp step
constexpr int64_t kMs = 1'000'000;

struct Outcome {
  std::vector<int64_t> t21, t43;
  fwmsim::LinkCounters down, up;  // grandmaster to slave, and back
  std::vector<std::string> trace;
};

// A slave at 16 Delay_Reqs/s on its own port, a grandmaster at 16 Syncs/s.
Outcome run(uint32_t port, const fwmsim::LinkSpec &shape, bool twoStep, int64_t forMs, uint64_t seed = 1) {
  fwmsim::engine().with(0, port, [](fwmsim::OdaPort &p) {
    p.portEnable = 1, p.state = 9, p.domainNumber = 24, p.identityTx = {0x001B19FF, 0xFE000003, 3};
    for (auto t : {fwmsim::kOdaPktSync, fwmsim::kOdaPktDelayResp, fwmsim::kOdaPktAnnounce}) p.rxEnable[t] = 1;
    p.txEnable[fwmsim::kOdaPktDelay] = 1;
    p.interval[fwmsim::kOdaPktDelay] = fwmsim::kOdaIntervalUnit - 4;
  });
  const size_t mark = fwmsim::recorder().mark();
  fwmsim::VirtualNet net(seed, kStart);
  fwmsim::GrandmasterSpec gm;
  gm.domain = 24;
  gm.twoStep = twoStep;
  const auto master = net.addGrandmaster(gm), slave = net.addEnginePort(0, port);
  EXPECT_TRUE(net.connect(master, slave, shape));
  EXPECT_FALSE(net.connect(slave, master, shape) || net.connect(slave, slave, shape) || net.connect(slave, 9, shape));
  net.runUntil(kStart + forMs * kMs - 1);
  EXPECT_EQ(net.now(), kStart + forMs * kMs - 1);
  Outcome r{{}, {}, net.counters(master), net.counters(slave), fwmsim::recorder().textsSince(mark)};
  for (const auto &t : r.trace) {
    long long ns = 0;
    char what[8] = {};
    if (std::sscanf(t.c_str(), "measure %*s vnet %5s %lld ns", what, &ns) == 2)
      (what[1] == '2' ? r.t21 : r.t43).push_back(ns);
  }
  return r;
}

LinkDirection fixed(int64_t delay, int64_t extra = 0) { return {delay, Jitter::None, 0, extra, 0, {}}; }

struct Want {
  size_t n;
  int64_t lo, hi;  // every value within
  double mean = 0, tolerance = -1;
  void check(const std::vector<int64_t> &v, const char *name, const char *what) const {
    ASSERT_EQ(v.size(), n) << name << " " << what;
    if (v.empty()) return;
    auto [lo_, hi_] = std::minmax_element(v.begin(), v.end());
    EXPECT_GE(*lo_, lo) << name << " " << what;
    EXPECT_LE(*hi_, hi) << name << " " << what;
    if (tolerance >= 0) {
      EXPECT_NEAR(std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size()), mean, tolerance) << name;
    }
  }
};

TEST(VirtualNet, ASlaveMeasuresTheLinkItIsOn) {
  struct Case {
    const char *name;
    fwmsim::LinkSpec shape;
    bool twoStep;
    Want t21, t43;
    uint64_t downLost, downOutage;
    uint32_t encap = 0;  // 2: the slave sends over UDP/IPv4
  } cases[] = {
      {"exact, two-step", {fixed(1000), fixed(1000), 0}, true, {16, 1000, 1000}, {16, 1000, 1000}, 0, 0},
      {"exact, one-step", {fixed(700), fixed(900), 0}, false, {16, 700, 700}, {16, 900, 900}, 0, 0},
      {"over IPv4", {fixed(700), fixed(900), 0}, false, {16, 700, 700}, {16, 900, 900}, 0, 0, 2},
      {"extra delay there", {fixed(1000, 500), fixed(1000), 0}, true, {16, 1500, 1500}, {16, 1000, 1000}, 0, 0},
      {"extra delay back", {fixed(1000), fixed(1000, 250), 0}, true, {16, 1000, 1000}, {16, 1250, 1250}, 0, 0},
      {"8 ns stamps", {fixed(1003), fixed(1017), 8}, true, {16, 1000, 1000}, {16, 1016, 1016}, 0, 0},
      {"all lost there", {{1000, Jitter::None, 0, 0, 1.0, {}}, fixed(1000), 0}, true, {0, 0, 0}, {0, 0, 0}, 49, 0},
      {"outage there",
       {{1000, Jitter::None, 0, 0, 0, {{kStart + 250 * kMs, kStart + 500 * kMs}}}, fixed(1000), 0},
       true,
       {12, 1000, 1000},
       {12, 1000, 1000},
       0,
       12},
  };
  uint32_t port = 0;
  for (const auto &c : cases) {
    fwmsim::engine().with(0, ++port, [&](fwmsim::OdaPort &p) { p.encap = c.encap, p.annTimeoutMultiple = 2; });
    const Outcome r = run(port, c.shape, c.twoStep, 1000);
    const auto events = fwmsim::recorder().events();  // the first Delay_Req, in the frame the port programs
    const auto sent = *std::find_if(events.begin(), events.end(),
                                    [&](auto &e) { return e.text.starts_with("tx 0/" + std::to_string(port) + " "); });
    EXPECT_EQ(sent.bytes.at(12) << 8 | sent.bytes.at(13), c.encap ? 0x0800 : 0x88F7) << c.name << " " << sent.text;
    EXPECT_EQ(std::count_if(r.trace.begin(), r.trace.end(), [](auto &t) { return t.starts_with("timeout"); }), 0);
    c.t21.check(r.t21, c.name, "t2-t1");
    c.t43.check(r.t43, c.name, "t4-t3");
    EXPECT_EQ(r.down.lost, c.downLost) << c.name;
    EXPECT_EQ(r.down.outage, c.downOutage) << c.name;
    EXPECT_EQ(r.down.sent, 1 + 16 * (2 + c.twoStep)) << c.name;  // announce, Syncs (Follow_Ups), Delay_Resps
    EXPECT_EQ(r.down.delivered, r.down.sent - c.downLost - c.downOutage) << c.name;
    EXPECT_EQ(r.up.sent, 16u) << c.name;
    EXPECT_EQ(r.up.delivered, 16u) << c.name;
  }
  // The first exchange on the exact link, and the grandmaster's address from its identity.
  const auto events = fwmsim::recorder().events();
  auto first = std::find_if(events.begin(), events.end(), [](auto &e) { return e.text.starts_with("tx 0/1 "); });
  ASSERT_GE(events.end() - first, 7);
  std::vector<std::string> exchange;
  for (auto e = first; e != first + 7; ++e) exchange.push_back(e->text);
  EXPECT_EQ(exchange,
            (std::vector<std::string>{
                "tx 0/1 vnet Delay_Req seq 0 domain 24 from 001b19.fffe.000003-3, sent at 1800000000.000000000",
                "rx 0/1 vnet announce seq 0 domain 24 from 001b19.fffe.000001-1: GM 001b19.fffe.000001 "
                "priority1 128 class 6 priority2 128 steps 0 (changed: ANNOUNCE_CHANGE raised)",
                "rx 0/1 vnet Sync seq 0 domain 24 from 001b19.fffe.000001-1, received at 1800000000.000001000",
                "rx 0/1 vnet Follow_Up seq 0 domain 24 from 001b19.fffe.000001-1 time 1800000000.000000000",
                "measure 0/1 vnet t2-t1 1000 ns seq 0",
                "rx 0/1 vnet Delay_Resp seq 0 domain 24 from 001b19.fffe.000001-1 time 1800000000.000001000 "
                "for 001b19.fffe.000003-3",
                "measure 0/1 vnet t4-t3 1000 ns seq 0"}));
  EXPECT_EQ(std::vector<uint8_t>(first[1].bytes.begin() + 6, first[1].bytes.begin() + 12),
            (std::vector<uint8_t>{0x00, 0x1B, 0x19, 0x00, 0x00, 0x01}));
  EXPECT_EQ(fwmsim::recorder().texts("vnet").back(),
            "gm 001b19.fffe.000001-1 lost a frame sent at 1800000000.437501000, in an outage");
  // Announces cut off after the first: a timeout at the very instant each 2 s window ends.
  fwmsim::engine().with(0, ++port, [](fwmsim::OdaPort &p) { p.annTimeoutMultiple = 2; });
  const Outcome cut =
      run(port, {{1000, Jitter::None, 0, 0, 0, {{kStart + kMs, kStart + 9000 * kMs}}}, fixed(1000), 0}, true, 5000);
  EXPECT_EQ(std::count(cut.trace.begin(), cut.trace.end(), "timeout 0/9 vnet: no announce for 2.000 s"), 2);
  fwmsim::clock().advance(1500);  // the board's true time: its wall clock at virtual 0, and the time since
  EXPECT_EQ(fwmsim::boardTrueNanos(), 1'795'334'401'500'000'000);
}

TEST(VirtualNet, DelayVariationFollowsItsDistribution) {
  auto varied = [](Jitter j, int64_t w) { return LinkDirection{10000, j, w, 0, 0, {}}; };
  struct Case {
    const char *name;
    LinkDirection there;
    Want t21;
  } cases[] = {
      {"uniform", varied(Jitter::Uniform, 1000), {160, 10000, 10999, 10500, 60}},
      {"normal", varied(Jitter::Normal, 200), {160, 9000, 11000, 10000, 40}},
      {"exponential", varied(Jitter::Exponential, 500), {160, 10000, 20000, 10500, 110}},
  };
  uint32_t port = 10;
  for (const auto &c : cases) {
    const Outcome r = run(++port, {c.there, fixed(1000), 0}, true, 10000);
    c.t21.check(r.t21, c.name, "t2-t1");
  }
}

TEST(VirtualNet, TheSameSeedGivesTheSameRun) {
  const fwmsim::LinkSpec shape{
      {3000, Jitter::Exponential, 800, 0, 0.2, {}}, {3000, Jitter::Normal, 300, 0, 0.1, {}}, 8};
  const Outcome a = run(20, shape, true, 3000, 7), b = run(21, shape, true, 3000, 7), c = run(22, shape, true, 3000, 8);
  auto portless = [](std::vector<std::string> t) {
    for (auto &s : t) s = std::regex_replace(s, std::regex("\\b0/2[0-9]\\b"), "0/P");
    return t;
  };
  EXPECT_GT(a.down.lost, 0u);
  EXPECT_EQ(std::pair(a.t21.at(0), a.t43.at(0)), (std::pair<int64_t, int64_t>(3864, 3048)));  // each way's first draws
  EXPECT_EQ(portless(a.trace), portless(b.trace));
  EXPECT_NE(portless(a.trace), portless(c.trace));
}

}  // namespace
