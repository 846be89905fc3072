// Start-up sequence, lifecycle events and the records handed to the host.
#include <cstring>
#include <functional>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class Startup : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    // An agent the process already has, so that every line of start-up is delivered.
    fwmsim::agent().existingHandle = 0x00A6E0F0u;
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  }
  // The calls start-up makes outside the log path, in order.
  static std::vector<std::string> startupCalls(size_t mark = 0) {
    std::vector<std::string> out;
    const auto events = fwmsim::recorder().events();
    for (size_t i = mark; i < events.size(); ++i)
      if (std::string f = events[i].facility;
          f == "orin" || f == "comp" || f == "orch" || f == "tarn" || f == "debug" || f == "devm")
        out.push_back(events[i].text);
    return out;
  }
};

const std::vector<std::string> kSuccessTail = {
    "INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...",
    "INFO clk FWM_SRV_CLK registered success", "INFO clk init finish.", "INFO pub clk init ok event success."};

TEST_F(Startup, RunsEveryStepInOrderAndHandsOverItsSlotsAndRule) {
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_THAT(startupCalls(),
              ElementsAre("ORIN_HandleInitialize(\"fwm.srv.clk\", &)", "COMP_GetVTable(1000, 1004, &)",
                          "GetMemPtNo(33000, \"fwm.orch.clk\")", "FWM_Srv_Get_FeNum()", "FWM_Srv_Get_ChipType()",
                          "FWM_Srv_Get_ChipType()", "FWM_ORCH_CLK_RegSrvIntf(&)", "Tarn_NpProcCtrlPacket(0, &)",
                          "COMP_GetVTable(1000, 1008, &)", "moduleReg(\"FWM_SRV_CLK\", &)"));
  EXPECT_EQ(fwmtest::agentLines(), kSuccessTail);
  EXPECT_EQ(g_fwmSrvClkHandle, fwmsim::handleNamed("fwm.srv.clk"));
  EXPECT_EQ(g_fwmClkMemPtNo, 7);
  EXPECT_EQ(g_fwmClkFeNum, 2);
  EXPECT_EQ(g_clkFwmSrvDbgId, 17u);

  ASSERT_EQ(fwmsim::orchestrator().registrations.size(), 1u);
  auto p = [](auto fn) { return reinterpret_cast<const void *>(fn); };
  const void *slots[FWM_CLK_ORCH_SLOT_NUM] = {
      p(FWM_SRV_CLK_SetPtpGlbCfg),      p(FWM_SRV_CLK_SetPtpPortCfg),   p(FWM_SRV_CLK_SetPtpPktEncap),
      p(FWM_SRV_CLK_SetPtpRxCtl),       p(FWM_SRV_CLK_SetPtpTxCtl),     p(FWM_SRV_CLK_SetPtpRxSrcPortId),
      p(FWM_SRV_CLK_SetPtpTxSrcPortId), p(FWM_SRV_CLK_SetPtpPortAsym),  p(FWM_SRV_CLK_SetPtpPortPkt),
      p(FWM_SRV_CLK_SetPtpAnnClr),      p(FWM_SRV_CLK_GetPtpTimestamp), p(FWM_SRV_CLK_GetPtpT2SubT1),
      p(FWM_SRV_CLK_GetPtpT4SubT3),     p(FWM_SRV_CLK_GetPtpPktStat),   p(FWM_SRV_CLK_SetSsmPortCfg)};
  EXPECT_THAT(fwmsim::orchestrator().registrations[0], ElementsAreArray(slots));

  // The control-packet rule, byte for byte.
  ASSERT_EQ(fwmsim::orchestrator().rules.size(), 1u);
  std::vector<uint8_t> rule(396, 0);
  std::fill(rule.begin() + 16, rule.begin() + 272, 0xFF);
  rule[276] = 0x04;
  rule[278] = 0x68;
  rule[279] = 0x01;
  EXPECT_EQ(fwmsim::orchestrator().rules[0], rule);

  // A second start-up does not register the module again; the security module
  // already holds the rule and answers 5: still a success.
  const size_t mark = fwmsim::recorder().mark();
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(fwmsim::orchestrator().rules.size(), 2u);
  EXPECT_THAT(fwmtest::callsSince(mark, "debug"), IsEmpty());
  EXPECT_THAT(fwmtest::agentLines(), Contains("INFO clk FWM_SRV_CLK has been registered, g_clkFwmSrvDbgId=17"));
}

// Start-up outcomes: what the board does wrong, what start-up answers and says.
struct Outcome {
  friend void PrintTo(const Outcome &o, std::ostream *os) { *os << o.name; }
  const char *name;
  std::function<void()> arrange;
  int32_t notifyResult;
  std::vector<std::string> lines;  // the lines up to and including the last start-up line
  bool registered;                 // the debug framework registration ran
  uint8_t partition = 7;
};

std::vector<std::string> with(std::vector<std::string> head, const std::vector<std::string> &tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// clang-format off
const Outcome kOutcomes[] = {
    {"HandleFails", [] { fwmsim::faults().inject("ORIN_HandleInitialize", 51); }, 1, {"ERROR [FWM_SRV] InitCLKMemHandle failed, Ret=51", "ERROR [FWM_SRV_CLK_Init] InitCLKMemHandle failed, Ret=51", "ERROR pub clk init ok event fail. ret = 51"}, false, 0xFF},
    {"LookupFails", [] { fwmsim::faults().inject("COMP_GetVTable", 7); }, 1, {"ERROR [InitCLKMemPdtNo] GetVTable failed, Ret=7", "ERROR pub clk init ok event fail. ret = 7"}, false, 0xFF},
    {"NoTable", [] { fwmsim::registry().memTable = false; }, 1, {"ERROR COMP Get error, ret has null pointer. ret = 0", "ERROR pub clk init ok event fail. ret = 1"}, false, 0xFF},
    {"NoPartition", [] { fwmsim::registry().memPtNo = 0; }, 1, {"INFO GetMemPtNo failed", "ERROR pub clk init ok event fail. ret = 1"}, false, 0},
    {"NoPartitionEntry", [] { fwmsim::registry().memPtNoEntry = false; }, 0, with({"INFO GetMemPtNo is null"}, kSuccessTail), true, 1},
    {"RuleRefused", [] { fwmsim::faults().inject("Tarn_NpProcCtrlPacket", 9); }, 1, {"INFO [FWM_Srv_Clk] begin acl init.", "ERROR [FWM_Srv_Clk] ACLInit failed, Ret=9", "ERROR [FWM_SRV_CLK_Init] ACLInit failed, Ret=9", "ERROR pub clk init ok event fail. ret = 9"}, false},
    {"RuleAlreadyPresent", [] { fwmsim::faults().inject("Tarn_NpProcCtrlPacket", 5); }, 0, kSuccessTail, true},
    {"NoEngines", [] { fwmsim::board().feNum = 0; }, 0, kSuccessTail, true},
    {"OrchestratorRefuses", [] { fwmsim::orchestrator().regResult = 3; }, 0, kSuccessTail, true},
    {"DebugRegistrationRefused", [] { fwmsim::registry().moduleRegResult = 2; }, 0, {"INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...", "ERROR null pointer g_clkFwmSrvDbgFunVtbl->moduleReg", "INFO clk init finish.", "INFO pub clk init ok event success."}, true},
};
// clang-format on

class StartupOutcome : public Startup, public ::testing::WithParamInterface<Outcome> {};

TEST_P(StartupOutcome, StopsOrGoesOnAsTheStepDecides) {
  const Outcome &o = GetParam();
  o.arrange();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), o.notifyResult);
  EXPECT_EQ(fwmtest::agentLines(), o.lines);
  EXPECT_EQ(g_fwmClkMemPtNo, o.partition);
  bool regCalled = false;
  for (const auto &t : fwmsim::recorder().texts("debug")) regCalled |= t.rfind("moduleReg", 0) == 0;
  EXPECT_EQ(regCalled, o.registered);
  // A failed start-up leaves nothing in the way of the next one.
  if (o.notifyResult == 0) return;
  const size_t registrations = fwmsim::orchestrator().registrations.size();
  fwmsim::faults().clear();
  fwmsim::registry().memTable = true;
  fwmsim::registry().memPtNo = 7;
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(fwmtest::agentLines().back(), "INFO pub clk init ok event success.");
  EXPECT_EQ(g_clkFwmSrvDbgId, 17u);
  EXPECT_EQ(fwmsim::orchestrator().registrations.size(), registrations + 1);
}

INSTANTIATE_TEST_SUITE_P(Steps, StartupOutcome, ::testing::ValuesIn(kOutcomes),
                         [](const auto &tp) { return std::string(tp.param.name); });

// A partition and an engine count are kept by their low byte only, the
// partition judged by the whole answer: 0x100 engines are none.
TEST_F(Startup, PartitionAndEngineCountKeepTheLowByte) {
  fwmsim::registry().memPtNo = 0x300;
  EXPECT_EQ(FWM_SRV_InitCLKMemPdtNo(), 0u);
  EXPECT_EQ(g_fwmClkMemPtNo, 0);
  fwmsim::board().feNum = 0x102;
  EXPECT_EQ(FWM_SRV_Init_ClkFeNum(), 0x102u);
  EXPECT_EQ(g_fwmClkFeNum, 2);
  fwmsim::board().feNum = 0x100;
  const size_t mark = fwmsim::recorder().mark();
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(g_fwmClkFeNum, 0);
  EXPECT_THAT(fwmtest::callsSince(mark, "devm"), ElementsAre("FWM_Srv_Get_FeNum()"));
  for (uint32_t unit = 0; unit < 8; ++unit) EXPECT_EQ(CLK_NP_1588_SetPtpCtrl(unit, 1, 2, 3), CLK_NP_ERR_NO_FUNC);
  EXPECT_THAT(fwmtest::callsSince(0, "oda"), IsEmpty());
}

TEST(ColdStartup, SucceedsSilentlyWhileItsOwnAgentComesUp) {
  fwmsim::resetBoard();
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  auto orin = fwmsim::recorder().texts("orin");
  ASSERT_FALSE(orin.empty());
  EXPECT_EQ(orin.front(), "ORIN_TaskCreate(\"ClkSrvIMAgent\", &, &, 1, 0, 0, 0, 0, 0, 0)");
  EXPECT_THAT(fwmsim::agent().delivered(), IsEmpty());  // nothing is ready to carry the lines
  fwmsim::clock().advance(6000);
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentIsInitOk(), 1u);
  // A repeated start-up attaches to the agent the process now has.
  size_t mark = fwmsim::recorder().mark();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(fwmtest::callsSince(mark, "orin").front(), "ORIN_HandleInitialize(\"fwm.srv.clk\", &)");
  EXPECT_EQ(fwmtest::agentLines().back(), "INFO pub clk init ok event success.");
}

TEST(ColdStartup, SucceedsWithoutAnAgentTask) {
  fwmsim::resetBoard();
  fwmsim::faults().inject("ORIN_TaskCreate", 4);
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(g_clkSrvImAgentTaskId, 0u);
  EXPECT_EQ(g_clkFwmSrvDbgId, 17u);
  EXPECT_EQ(fwmsim::orchestrator().registrations.size(), 1u);
}

// Events other than start-up never fail and only say success.
TEST_F(Startup, OtherEventsOnlySaySuccess) {
  fwmtest::adoptAgent();
  for (int32_t event : {0, 2, 4, -1}) EXPECT_EQ(FWM_Srv_Clk_Notify(event), 0) << event;
  EXPECT_EQ(fwmtest::agentLines(), std::vector<std::string>(4, "INFO pub clk init ok event success."));
  EXPECT_THAT(fwmtest::callsSince(0, "orin"), IsEmpty());
}

TEST_F(Startup, MasterAddressEventStartsTheUpdateTask) {
  fwmtest::adoptAgent();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  fwmsim::clock().settle();
  EXPECT_THAT(fwmtest::callsSince(0, "orin"),
              ElementsAre("ORIN_TaskCreate(\"ClkSrvIMAgentUpdateMasterIp\", &, &, 1, 0, 0, 0, 0, 0, 0)"));
  EXPECT_EQ(fwmsim::agent().mainBoardIp(), 0xFE00000Au);
}

// Before any agent exists the update still runs, against handle 0, and
// nothing is logged; without a task the event still succeeds.
TEST(MasterAddressEvent, NeedsNoAgentNorATask) {
  fwmsim::resetBoard();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  fwmsim::clock().settle();
  EXPECT_THAT(fwmsim::recorder().texts("agent"), ElementsAre("IM_Agent_SetMainBoardIP(0x0, 0xFE00000A)"));
  EXPECT_THAT(fwmsim::agent().delivered(), IsEmpty());
  fwmsim::faults().inject("ORIN_TaskCreate", 4);
  g_clkSrvImAgentUpdateMasterIpTaskId = 0;
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  EXPECT_EQ(g_clkSrvImAgentUpdateMasterIpTaskId, 0u);
}

}  // namespace
