// The PTP port list: one node per (unit, port), newest first, configuration
// words overwritten on every save while the announce state survives.
#include <tuple>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PortList : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_DEBUG] = 1;
    FWM_SRV_CLK_InitLocal();
  }
  static ClkPtpPortNode *save(uint32_t unit, uint32_t port, uint32_t enable, uint32_t ifIndex = 0, uint32_t state = 0) {
    ClkPtpPortCfg cfg{};
    cfg.enable = enable;
    cfg.ifIndex = ifIndex;
    cfg.portState = state;
    return FWM_SRV_CLK_SavePtpPortCfg(unit, port, &cfg);
  }
  // (unit, port) of every node, walking from the head.
  static std::vector<std::pair<uint32_t, uint32_t>> walk() {
    std::vector<std::pair<uint32_t, uint32_t>> out;
    auto *head = reinterpret_cast<ClkPtpPortNode *>(&g_ClkLocalData);
    for (ClkPtpPortNode *n = g_ClkLocalData.next; n != head; n = n->next) out.emplace_back(n->unit, n->port);
    return out;
  }
};

TEST_F(PortList, NewestPortComesFirst) {
  save(0, 5, 1);
  save(1, 5, 1);
  save(0, 5, 0);
  EXPECT_THAT(walk(), ElementsAre(std::pair{1u, 5u}, std::pair{0u, 5u}));
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("MSG [FWM_SRV] PtpAddPort success unit=0 port=5.",
                                                 "MSG [FWM_SRV] PtpAddPort success unit=1 port=5."));
  // The back links lead the other way round.
  auto *head = reinterpret_cast<ClkPtpPortNode *>(&g_ClkLocalData);
  EXPECT_EQ(g_ClkLocalData.prev->unit, 0u);
  EXPECT_EQ(g_ClkLocalData.prev->next, head);
  EXPECT_EQ(g_ClkLocalData.next->prev, head);
}

TEST_F(PortList, SavingOrInitialisingAgainKeepsTheNodeAndItsAnnounceState) {
  ClkPtpPortNode *n = save(0, 5, 1, 77, 9);
  n->annState = CLK_ANN_STATE_PRESENT;
  EXPECT_EQ(save(0, 5, 0, 78, 0x80000003u), n);
  EXPECT_EQ(n->ifIndex, 78u);
  EXPECT_EQ(n->enable, 0u);
  EXPECT_EQ(n->portState, 0x80000003u);
  EXPECT_EQ(n->annState, CLK_ANN_STATE_PRESENT);
  EXPECT_EQ(walk().size(), 1u);
}

TEST_F(PortList, AddingAnExistingPortReturnsItSilently) {
  ClkPtpPortNode *n = FWM_SRV_CLK_PtpAddPort(2, 9);
  size_t lines = fwmtest::agentLines().size();
  uint64_t allocs = fwmsim::memory().allocations();
  EXPECT_EQ(FWM_SRV_CLK_PtpAddPort(2, 9), n);
  EXPECT_EQ(fwmtest::agentLines().size(), lines);
  EXPECT_EQ(fwmsim::memory().allocations(), allocs);
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(2, 8), nullptr);
}

TEST_F(PortList, OnlyEnableOneCountsAsEnabled) {
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 0u);
  save(0, 1, 2);
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 0u);
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("DEBUG [FWM_SRV] IsExistPtpPortEnable False.",
                                                 "MSG [FWM_SRV] PtpAddPort success unit=0 port=1.",
                                                 "DEBUG [FWM_SRV] IsExistPtpPortEnable False."));
  // Stopping the announce timer while none runs does nothing and answers 0.
  EXPECT_EQ(FWM_SRV_CLK_PtpAnnTimerDestroy(), 0u);
  save(0, 2, 1);
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 1u);
  EXPECT_EQ(FWM_SRV_CLK_PtpAnnTimerDestroy(), 1u);  // a port still wants it
  EXPECT_THAT(fwmsim::recorder().texts("orin"), ::testing::Not(::testing::Contains(::testing::HasSubstr("Stop"))));
}

TEST_F(PortList, InitialisingAgainKeepsTheNodes) {
  save(0, 1, 1);
  FWM_SRV_CLK_InitLocal();
  EXPECT_EQ(walk().size(), 1u);
  EXPECT_EQ(g_clkCreateListCnt, 1u);
}

TEST_F(PortList, ClearFreesEveryNodeAndTheListStartsAfresh) {
  EXPECT_EQ(FWM_SRV_CLK_ClearPortList(), 0);
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("MSG [FWM_SRV] ClearPortList End."));
  save(0, 1, 1)->annState = CLK_ANN_STATE_LOST;
  save(0, 2, 1);
  save(3, 4, 0);
  ASSERT_EQ(fwmsim::memory().outstanding(), 3u);
  EXPECT_EQ(FWM_SRV_CLK_ClearPortList(), 0);
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_EQ(fwmtest::agentLines().back(), "MSG [FWM_SRV] ClearPortList End.");
  EXPECT_EQ(save(0, 1, 1)->annState, CLK_ANN_STATE_NONE);
}

TEST_F(PortList, NodeComesFromTheChannelPartitionAndIsRetriedAfterAFailure) {
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(save(0, 1, 1), nullptr);
  EXPECT_EQ(fwmtest::agentLines().back(), "ERROR [FWM_SRV] PtpAddPort Malloc failed.");
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_NE(save(0, 1, 1), nullptr);
  EXPECT_EQ(fwmsim::memory().outstanding(FWM_SRV_BKF_GetMemHdl(), FWM_SRV_BKF_GetMemPtNo()), 1u);
}

}  // namespace
