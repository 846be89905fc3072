// Timestamp, delay and statistics queries, and the null requests of every slot.
#include "service_fixture.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Every slot that takes a record refuses a null one before any engine call.
struct NullCase {
  const char *line;
  uint32_t (*call)(const ClkSrvOrchIntf *);
};

const NullCase kNullCases[] = {
    {"ERROR [FWM_SRV] SetPtpGlbCfg, null pointer", [](const ClkSrvOrchIntf *o) { return o->setPtpGlbCfg(nullptr); }},
    {"ERROR [FWM_SRV] SetPtpPortCfg, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpPortCfg(0, 1, 0xFFFFFFFFu, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpPktEncap, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpPktEncap(0, 1, 2, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpRxCtl, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpRxCtl(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpTxCtl, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpTxCtl(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpRxSrcPortId, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpRxSrcPortId(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpTxSrcPortId, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpTxSrcPortId(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpPortAsym, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpPortAsym(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] SetPtpPortPkt, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->setPtpPortPkt(0, 1, nullptr); }},
    {"ERROR [FWM_SRV] GetPtpTimestamp, null pointer",
     [](const ClkSrvOrchIntf *o) { return o->getPtpTimestamp(0, 1, nullptr); }},
};

using NullRequest = fwmtest::ServiceTest;

TEST_F(NullRequest, EverySlotRefusesWithItsLineAndNoEngineCall) {
  for (const NullCase &c : kNullCases) {
    mark();
    EXPECT_EQ(c.call(orch), 1u) << c.line;
    EXPECT_THAT(engine(), IsEmpty()) << c.line;
    EXPECT_THAT(lines(), ElementsAre(c.line));
  }
}

}  // namespace
