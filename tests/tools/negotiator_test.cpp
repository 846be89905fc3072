// The deciding peer over a run of acknowledgements: what each port last
// heard (a loss clears it, an unknown ifIndex is not weighed), only changed
// decisions told, and the line both peers print (clkpeer's test pins the object).
#include <gtest/gtest.h>

#include "fwmtools/negotiator.hpp"

namespace {

using namespace fwmtools;
constexpr uint64_t kSelf = 0x001b19fffe000001, kGmA = 0x001b19fffe00a001, kGmB = 0x001b19fffe00b001;

Ack ackOf(uint32_t ifIndex, uint64_t gm, uint8_t priority1, uint64_t source, int16_t utcOffset = 37) {
  Announce a;
  a.grandmasterIdentity = gm, a.sourceClockIdentity = source, a.sourcePortNumber = 1;
  a.grandmasterPriority1 = priority1, a.clockClass = 6, a.currentUtcOffset = utcOffset;
  return {0, ifIndex, 96, a};
}

TEST(Negotiator, WeighsWhatEachPortLastHeardAndTellsOnlyChanges) {
  const std::string alone = "1 MASTER (M2), 2 MASTER (M2)", onA = "1 SLAVE (S1), 2 MASTER (M3)";
  const struct Row {
    Ack ack;
    bool weighed;
    std::string told;  // the ports' states; empty: no change
  } rows[] = {
      {ackOf(3, kGmA, 128, kGmA), true, onA},
      {ackOf(3, kGmA, 128, kGmA), true, ""},
      {ackOf(9, kGmB, 1, kGmB), false, ""},
      {ackOf(4, kGmB, 64, kGmB), true, "1 MASTER (M3), 2 SLAVE (S1)"},
      {ackOf(4, 0, 0, 0), true, onA},
      {ackOf(3, kGmA, 128, kGmA, 38), true, onA},  // what the masters announce changed
      {ackOf(3, kGmA, 128, 0), true, alone},       // no sender: lost as well
  };
  Negotiator n(bmca::Profile::Default, {kSelf, 128, 248}, {{1, 128, false}, {2, 128, false}});
  n.route(3, 1), n.route(4, 2);
  ASSERT_TRUE(n.changed());
  for (const auto &r : rows) {
    SCOPED_TRACE(r.told);
    EXPECT_EQ(n.hear(r.ack), r.weighed);
    auto d = n.changed();
    EXPECT_EQ(d ? decisionText(*d).substr(0, decisionText(*d).find(';')) : "", r.told);
  }
}

}  // namespace
