// Start-up sequence, lifecycle events and the records handed to the host.
#include <cstring>
#include <functional>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

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
  static std::vector<std::string> startupCalls() {
    std::vector<std::string> out;
    for (const auto &e : fwmsim::recorder().events())
      if (e.facility == "orin" || e.facility == "comp" || e.facility == "orch" || e.facility == "tarn" ||
          e.facility == "debug")
        out.push_back(e.text);
    return out;
  }
};

TEST_F(Startup, RunsEveryStepInOrderAndRegisters) {
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_THAT(startupCalls(), ElementsAre("ORIN_HandleInitialize(\"fwm.srv.clk\", &)", "COMP_GetVTable(1000, 1004, &)",
                                          "GetMemPtNo(33000, \"fwm.orch.clk\")", "FWM_ORCH_CLK_RegSrvIntf(&)",
                                          "Tarn_NpProcCtrlPacket(0, &)", "COMP_GetVTable(1000, 1008, &)",
                                          "moduleReg(\"FWM_SRV_CLK\", &)"));
  EXPECT_THAT(fwmtest::agentLines(),
              ElementsAre("INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...",
                          "INFO clk FWM_SRV_CLK registered success", "INFO clk init finish.",
                          "INFO pub clk init ok event success."));
  EXPECT_EQ(g_fwmSrvClkHandle, fwmsim::handleNamed("fwm.srv.clk"));
  EXPECT_EQ(g_fwmClkMemPtNo, 7);
  EXPECT_EQ(g_fwmClkFeNum, 2);
  EXPECT_EQ(g_clkFwmSrvDbgId, 17u);
}

TEST_F(Startup, HandsTheOrchestratorItsSlotsInOrder) {
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  ASSERT_EQ(fwmsim::orchestrator().registrations.size(), 1u);
  const void *expected[FWM_CLK_ORCH_SLOT_NUM] = {
      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpGlbCfg),      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpPortCfg),
      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpPktEncap),    reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpRxCtl),
      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpTxCtl),       reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpRxSrcPortId),
      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpTxSrcPortId), reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpPortAsym),
      reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpPortPkt),     reinterpret_cast<void *>(FWM_SRV_CLK_SetPtpAnnClr),
      reinterpret_cast<void *>(FWM_SRV_CLK_GetPtpTimestamp),   reinterpret_cast<void *>(FWM_SRV_CLK_GetPtpT2SubT1),
      reinterpret_cast<void *>(FWM_SRV_CLK_GetPtpT4SubT3),     reinterpret_cast<void *>(FWM_SRV_CLK_GetPtpPktStat),
      reinterpret_cast<void *>(FWM_SRV_CLK_SetSsmPortCfg)};
  EXPECT_THAT(fwmsim::orchestrator().registrations[0], ElementsAreArray(expected));
}

TEST_F(Startup, InstallsTheControlPacketRuleByteForByte) {
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  ASSERT_EQ(fwmsim::orchestrator().rules.size(), 1u);
  std::vector<uint8_t> expected(396, 0);
  std::fill(expected.begin() + 16, expected.begin() + 272, 0xFF);
  expected[276] = 0x04;
  expected[277] = 0x00;
  expected[278] = 0x68;
  expected[279] = 0x01;
  EXPECT_EQ(fwmsim::orchestrator().rules[0], expected);
}

// Start-up outcomes: what the board does wrong, what start-up answers and says.
struct Outcome {
  friend void PrintTo(const Outcome &o, std::ostream *os) { *os << o.name; }
  const char *name;
  std::function<void()> arrange;
  int32_t notifyResult;
  std::vector<std::string> lines;  // the lines up to and including the last start-up line
  bool registered;                 // the debug framework registration ran
};

class StartupOutcome : public Startup, public ::testing::WithParamInterface<Outcome> {};

TEST_P(StartupOutcome, StopsOrGoesOnAsTheStepDecides) {
  const Outcome &o = GetParam();
  o.arrange();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), o.notifyResult);
  EXPECT_EQ(fwmtest::agentLines(), o.lines);
  bool regCalled = false;
  for (const auto &t : fwmsim::recorder().texts("debug")) regCalled |= t.rfind("moduleReg", 0) == 0;
  EXPECT_EQ(regCalled, o.registered);
}

const std::vector<std::string> kSuccessTail = {
    "INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...",
    "INFO clk FWM_SRV_CLK registered success", "INFO clk init finish.", "INFO pub clk init ok event success."};

std::vector<std::string> with(std::vector<std::string> head, const std::vector<std::string> &tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

INSTANTIATE_TEST_SUITE_P(
    Steps, StartupOutcome,
    ::testing::Values(
        Outcome{
            "HandleFails",
            [] { fwmsim::faults().inject("ORIN_HandleInitialize", 51); },
            1,
            {"ERROR [FWM_SRV] InitCLKMemHandle failed, Ret=51",
             "ERROR [FWM_SRV_CLK_Init] InitCLKMemHandle failed, Ret=51", "ERROR pub clk init ok event fail. ret = 51"},
            false},
        Outcome{"LookupFails",
                [] { fwmsim::faults().inject("COMP_GetVTable", 7); },
                1,
                {"ERROR [InitCLKMemPdtNo] GetVTable failed, Ret=7", "ERROR pub clk init ok event fail. ret = 7"},
                false},
        Outcome{"NoTable",
                [] { fwmsim::registry().memTable = false; },
                1,
                {"ERROR COMP Get error, ret has null pointer. ret = 0", "ERROR pub clk init ok event fail. ret = 1"},
                false},
        Outcome{"NoPartition",
                [] { fwmsim::registry().memPtNo = 0; },
                1,
                {"INFO GetMemPtNo failed", "ERROR pub clk init ok event fail. ret = 1"},
                false},
        Outcome{"NoPartitionEntry", [] { fwmsim::registry().memPtNoEntry = false; }, 0,
                with({"INFO GetMemPtNo is null"}, kSuccessTail), true},
        Outcome{"RuleRefused",
                [] { fwmsim::faults().inject("Tarn_NpProcCtrlPacket", 9); },
                1,
                {"INFO [FWM_Srv_Clk] begin acl init.", "ERROR [FWM_Srv_Clk] ACLInit failed, Ret=9",
                 "ERROR [FWM_SRV_CLK_Init] ACLInit failed, Ret=9", "ERROR pub clk init ok event fail. ret = 9"},
                false},
        Outcome{"RuleAlreadyPresent", [] { fwmsim::faults().inject("Tarn_NpProcCtrlPacket", 5); }, 0, kSuccessTail,
                true},
        Outcome{"NoEngines", [] { fwmsim::board().feNum = 0; }, 0, kSuccessTail, true},
        Outcome{"OrchestratorRefuses", [] { fwmsim::orchestrator().regResult = 3; }, 0, kSuccessTail, true},
        Outcome{"DebugRegistrationRefused",
                [] { fwmsim::registry().moduleRegResult = 2; },
                0,
                {"INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...",
                 "ERROR null pointer g_clkFwmSrvDbgFunVtbl->moduleReg", "INFO clk init finish.",
                 "INFO pub clk init ok event success."},
                true}),
    [](const auto &tp) { return std::string(tp.param.name); });

TEST_F(Startup, FallbackPartitionIsOne) {
  fwmsim::registry().memPtNoEntry = false;
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(g_fwmClkMemPtNo, 1);
}

TEST_F(Startup, PartitionKeepsOnlyTheLowByteButJudgesTheWholeAnswer) {
  fwmsim::registry().memPtNo = 0x300;
  EXPECT_EQ(FWM_SRV_InitCLKMemPdtNo(), 0u);
  EXPECT_EQ(g_fwmClkMemPtNo, 0);
}

TEST_F(Startup, EngineCountKeepsTheLowByteAndReturnsAll) {
  fwmsim::board().feNum = 0x102;
  EXPECT_EQ(FWM_SRV_Init_ClkFeNum(), 0x102u);
  EXPECT_EQ(g_fwmClkFeNum, 2);
}

TEST_F(Startup, SecondStartupDoesNotRegisterTheModuleAgain) {
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  size_t mark = fwmsim::recorder().mark();
  // The security module already holds the rule and answers 5: still a success.
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  EXPECT_EQ(fwmsim::orchestrator().rules.size(), 2u);
  EXPECT_THAT(fwmtest::callsSince(mark, "debug"), IsEmpty());
  auto lines = fwmtest::agentLines();
  EXPECT_NE(std::find(lines.begin(), lines.end(), "INFO clk FWM_SRV_CLK has been registered, g_clkFwmSrvDbgId=17"),
            lines.end());
}

TEST_F(Startup, WithoutEnginesEveryUnitAnswersNoFunction) {
  fwmsim::board().feNum = 0;
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
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

// Events other than start-up never fail.
class OtherEvent : public Startup, public ::testing::WithParamInterface<int32_t> {};

TEST_P(OtherEvent, OnlySaysSuccess) {
  fwmtest::adoptAgent();
  EXPECT_EQ(FWM_Srv_Clk_Notify(GetParam()), 0);
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("INFO pub clk init ok event success."));
  EXPECT_THAT(fwmtest::callsSince(0, "orin"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Ignored, OtherEvent, ::testing::Values(0, 2, 4, -1));

TEST_F(Startup, MasterAddressEventStartsTheUpdateTask) {
  fwmtest::adoptAgent();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  fwmsim::clock().settle();
  EXPECT_THAT(fwmtest::callsSince(0, "orin"),
              ElementsAre("ORIN_TaskCreate(\"ClkSrvIMAgentUpdateMasterIp\", &, &, 1, 0, 0, 0, 0, 0, 0)"));
  EXPECT_EQ(fwmsim::agent().mainBoardIp(), 0xFE00000Au);
}

TEST_F(Startup, MasterAddressEventSucceedsEvenWithoutATask) {
  fwmsim::faults().inject("ORIN_TaskCreate", 4);
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  EXPECT_EQ(g_clkSrvImAgentUpdateMasterIpTaskId, 0u);
}

}  // namespace
