// A slave port's receive path: each bad event message is counted under its
// reason, recorded with why, and changes no measurement; good ones measure
// exactly.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "fwmsim/engine.hpp"
#include "fwmsim/recorder.hpp"
#include "fwmsim/wire.hpp"

namespace {

namespace stat = fwmsim::stat;
using Bytes = std::vector<uint8_t>;
constexpr fwmptp::PortIdentity kMaster{0x7C2E0DFFFE000100, 1}, kSelf{0x001B19FFFE000003, 3};

struct In {
  uint8_t type;
  uint16_t seq;
  fwmptp::Timestamp time{};  // in the message
  timespec stamp{};          // when it arrived
  size_t keep = 0;           // bytes kept of the message; 0: all
  int64_t correction = 0;
  uint8_t domain = 24;
  fwmptp::PortIdentity requesting = kSelf;
};

Bytes frameOf(const In &in) {
  fwmptp::EventMessage m{in.type, 0, in.domain, 0, in.correction, kMaster, in.seq, 0, in.time, in.requesting};
  if (in.type == fwmptp::kMsgSync && in.time == fwmptp::Timestamp{}) m.flagField = fwmptp::kFlagTwoStep;
  auto e = fwmptp::encodeEvent(m);
  auto payload = e.view().first(in.keep ? in.keep : e.size);
  return fwmptp::buildFrame(payload, fwmptp::FrameLayout{});
}

TEST(WirePort, BadEventMessagesAreCountedAndIgnoredGoodOnesMeasure) {
  struct Case {
    const char *name;
    std::vector<In> in;
    std::vector<std::pair<size_t, uint32_t>> counted;
    const char *last;                   // the last record: why it was dropped, or what it measured
    std::array<uint32_t, 6> t2SubT1{};  // and the t4 - t3 record stays zero
  } cases[] = {
      {"truncated", {{0, 1, {}, {5, 0}, 43}}, {{stat::kMalformed, 1}}, "Sync wrong length"},
      {"other domain", {{0, 1, {}, {5, 0}, 0, 0, 25}}, {{stat::kForeign, 1}}, "Sync other domain"},
      {"no stamp", {{0, 1}}, {{stat::kNoTimestamp, 1}}, "Sync without a time stamp"},
      {"no Sync", {{8, 7, {100, 0}}}, {{stat::kFollowUpNoSync, 1}}, "Follow_Up seq 7 without a Sync"},
      {"other Sync",
       {{0, 5, {}, {100, 2000}}, {8, 6, {100, 500}}},
       {{stat::kSyncRx, 1}, {stat::kBadSequence, 1}},
       "Follow_Up seq 6, Sync seq 5 awaited it"},
      {"other port",
       {{9, 3, {100, 0}, {}, 0, 0, 24, kMaster}},
       {{stat::kOtherRequester, 1}},
       "Delay_Resp for 7c2e0d.fffe.000100-1"},
      {"not awaited", {{9, 3, {100, 0}}}, {{stat::kBadSequence, 1}}, "Delay_Resp seq 3, no Delay_Req awaited"},
      {"not asked", {{3, 3, {}, {100, 0}}}, {{stat::kForeign, 1}}, "Pdelay_Resp not awaited"},
      {"two-step",
       {{0, 5, {}, {100, 2000}, 0, 0x10000}, {8, 5, {100, 500}, {}, 0, 0x20000}},
       {{stat::kSyncRx, 1}, {stat::kFollowUpRx, 1}},
       "t2-t1 1497 ns seq 5",
       {1, 0, 1497, 1497, 1497, 5}},
      {"one-step",
       {{0, 8, {99, 999999000}, {100, 1000}}, {0, 9, {100, 0}, {100, 5000}}},
       {{stat::kSyncRx, 2}},
       "t2-t1 5000 ns seq 9",
       {2, 0, 5000, 2000, 5000, 9}},
  };
  uint32_t port = 0;
  for (const auto &c : cases) {
    fwmsim::engine().with(0, ++port, [](fwmsim::OdaPort &p) {
      p.portEnable = 1;
      p.state = 9;
      p.domainNumber = 24;
      p.identityTx = {0x001B19FF, 0xFE000003, 3};
      p.rxEnable[fwmsim::kOdaPktSync] = p.rxEnable[fwmsim::kOdaPktDelayResp] = 1;
    });
    for (const auto &in : c.in)
      fwmsim::wire().deliver(0, port, frameOf(in), in.stamp.tv_sec ? std::optional(in.stamp) : std::nullopt);
    const auto p = fwmsim::engine().port(0, port);
    std::array<uint32_t, stat::kWords> want{};
    for (auto [word, n] : c.counted) want[word] = n;
    EXPECT_EQ(std::to_array(p.pktStat.word), want) << c.name;
    EXPECT_EQ(fwmsim::recorder().texts("wire").back(), (c.t2SubT1[0] ? "measure 0/" : "rx 0/") + std::to_string(port) +
                                                           (c.t2SubT1[0] ? " injected " : " injected dropped: ") +
                                                           c.last)
        << c.name;
    EXPECT_EQ(std::to_array(p.t2SubT1.word), c.t2SubT1) << c.name;
    EXPECT_EQ(std::to_array(p.t4SubT3.word), (std::array<uint32_t, 6>{})) << c.name;
    EXPECT_EQ(p.timestamps.word[fwmsim::ts::kSyncFlags], c.t2SubT1[0] ? 1u + 2 * (c.in[1].type == 8) : 0u) << c.name;
  }
  // The last Sync's pair: t1 from the message, t2 when it arrived.
  const auto w = std::to_array(fwmsim::engine().port(0, port).timestamps.word);
  EXPECT_EQ((std::array{w[0], w[1], w[2], w[3], w[4], w[5], w[6]}),
            (std::array<uint32_t, 7>{0, 100, 0, 0, 100, 5000, 9}));
}

}  // namespace
