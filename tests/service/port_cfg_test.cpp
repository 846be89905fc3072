// Global setting, port configuration, asymmetry and SSM: the engine calls each
// makes, in order, and the lines it logs.
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "service_fixture.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;
constexpr uint32_t kNoTarget = 0xFFFFFFFFu;

ClkPtpPortCfg portCfg(uint32_t enable, uint32_t stateWord, uint32_t ctrl1) {
  ClkPtpPortCfg cfg{};
  cfg.enable = enable;
  cfg.ctrlType0Value = 11;
  cfg.portState = stateWord;
  cfg.ctrlType2Value = 22;
  cfg.domainNumber = 24;
  cfg.ctrlType1Value = ctrl1;
  cfg.annTimeoutMultiple = 3;
  cfg.rxSrcPortIdentity[0] = 0x11;
  cfg.rxSrcPortIdentity[1] = 0x22;
  cfg.rxSrcPortIdentity[2] = 0x33;
  cfg.ctrlType33Value = 0x1234;
  cfg.ifIndex = 77;
  return cfg;
}

// One request's calls by enable, state word and control-1 value: a port is
// switched off first and on last, an enable of 2 neither; the state decides
// controls 18, 8 and 6 or 7. The rows give what differs, portCfgCalls the rest.
struct PortCfgCase {
  const char *name;
  uint32_t enable;
  uint32_t stateWord;  // as sent, flag included
  uint32_t ctrl1;
  const char *first, *state, *control1, *checks, *txEn, *control67, *last;
  std::string calls() const {
    return std::string(first) + "set_ptp_state(1, 5, " + state + "); set_ptp_control(1, 5, 0, 11, 0); " +
           "set_ptp_control(1, 5, 1, " + control1 + ", 0); " + checks +
           "set_encap_sport_identity_rx(1, 5, 1, [17, 34, 51]); set_pkt_tx_en(1, 5, 4, " + txEn +
           "); set_encap_domain_number(1, 5, 24); set_ptp_control(1, 5, 2, 22, 0); "
           "set_announce_timeout(1, 5, 3, 0); set_ptp_control(1, 5, " +
           control67 + ", 0); set_ptp_control(1, 5, 33, 4660, 0)" + last;
  }
};

constexpr char kOff[] = "set_port_en(1, 5, 0); ";
constexpr char kOn[] = "; set_port_en(1, 5, 1)";
constexpr uint32_t kFlag = FWM_CLK_PORT_STATE_FLAG;
// clang-format off
const PortCfgCase kPortCfgCases[] = {
    {"OnSlave", 1, 9, 1, "", "9", "1", "set_ptp_control(1, 5, 18, 1, 0); set_ptp_control(1, 5, 8, 5, 0); ", "1", "6, 1", kOn},
    {"OnSlaveFlagged", 1, 9 | kFlag, 0, "", "9", "0", "", "1", "7, 255", kOn},
    {"OnPassiveFlagged", 1, 7 | kFlag, 1, "", "7", "1", "set_ptp_control(1, 5, 18, 1, 0); ", "1", "6, 1", kOn},
    {"OnMaster", 1, 6, 2, "", "6", "2", "", "1", "7, 255", kOn},
    {"OffSlave", 0, 9, 1, kOff, "9", "1", "set_ptp_control(1, 5, 18, 0, 0); set_ptp_control(1, 5, 8, 5, 0); ", "0", "6, 1", ""},
    {"OffSlaveFlagged", 0, 9 | kFlag, 1, kOff, "9", "1", "set_ptp_control(1, 5, 18, 0, 0); ", "0", "6, 1", ""},
    {"OffListening", 0, 3, 1, kOff, "3", "1", "set_ptp_control(1, 5, 18, 0, 0); ", "0", "6, 1", ""},
    {"OtherEnable", 2, 9, 1, "", "9", "1", "set_ptp_control(1, 5, 18, 2, 0); set_ptp_control(1, 5, 8, 5, 0); ", "2", "6, 1", ""},
};
// clang-format on
const std::string kOnSlave = kPortCfgCases[0].calls();
const std::string kOffSlave = kPortCfgCases[4].calls();

using PortCfg = fwmtest::ServiceTest;

TEST_F(PortCfg, MakesTheGoldenCallsAndClearsTheStateFlag) {
  for (const PortCfgCase &c : kPortCfgCases) {
    mark();
    ClkPtpPortCfg cfg = portCfg(c.enable, c.stateWord, c.ctrl1);
    EXPECT_EQ(orch->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg), 0u) << c.name;
    EXPECT_EQ(calls(), c.calls()) << c.name;
    EXPECT_EQ(cfg.portState, c.stateWord & ~FWM_CLK_PORT_STATE_FLAG) << c.name;
    // The Mira hook saw the word as it arrived, state flag and all.
    ASSERT_NE(FWM_SRV_CLK_PtpFindPort(kUnit, kPort), nullptr);
    EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(kUnit, kPort)->portState, c.stateWord) << c.name;
    EXPECT_THAT(lines(), ElementsAre("MSG [FWM_SRV] MIRASpecialProc unit=1 port=5")) << c.name;
  }
}

using PortCfgFailure = fwmtest::ServiceTest;

// Nothing stops at a failure: a failing state write in the first half, failures
// in several steps (each reports its own, the whole the OR) and a failed enable
// made last, which is reported alone and rolls nothing back.
struct PortCfgFailureCase {
  std::vector<std::pair<const char *, uint32_t>> faults;
  uint32_t enable;
  uint32_t ret;
  std::vector<std::string> errors;
};

const PortCfgFailureCase kPortCfgFailures[] = {
    {{{"oda_1588_set_ptp_state", 3}},  // -4
     1,
     0xFFFFFFFCu,
     {"ERROR [FWM_SRV_CLK] SetPtpPortCfg1 failed, Ret=4294967292",
      "ERROR [FWM_SRV_CLK] SetPtpPortCfg failed, Ret=4294967292"}},
    {{{"oda_1588_set_encap_sport_identity_rx", 1}, {"oda_1588_set_announce_timeout", 2}, {"oda_1588_set_port_en", 5}},
     0,
     0xFFFFFFFFu,
     {"ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 1",
      "ERROR [FWM_SRV_CLK] SetPtpPortCfg2 failed, Ret=4294967294",
      "ERROR [FWM_SRV_CLK] SetPtpPortCfg failed, Ret=4294967295"}},
    {{{"oda_1588_set_port_en", 1}}, 1, 1u, {"ERROR [FWM_SRV_CLK] SetPtpPortCfg failed, Ret=1"}},
};

TEST_F(PortCfgFailure, EveryStepRunsAndTheResultIsTheOrOfEveryFailure) {
  for (const PortCfgFailureCase &c : kPortCfgFailures) {
    mark();
    fwmsim::faults().clear();
    for (const auto &[fn, code] : c.faults) fwmsim::faults().inject(fn, code);
    ClkPtpPortCfg cfg = portCfg(c.enable, 9, 1);
    EXPECT_EQ(orch->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg), c.ret);
    EXPECT_EQ(calls(), c.enable == 1 ? kOnSlave : kOffSlave);
    auto expected = c.errors;
    expected.insert(expected.begin(), "MSG [FWM_SRV] MIRASpecialProc unit=1 port=5");
    EXPECT_EQ(lines(), expected);
  }
}

// A port the hook cannot record is not supervised; the rest goes on.
TEST_F(PortCfgFailure, MiraHookGoesOnWithoutAPortNode) {
  fwmsim::memory().failAllocation(1);
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  EXPECT_EQ(orch->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg), 0u);
  EXPECT_EQ(calls(), kOnSlave);
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(kUnit, kPort), nullptr);
  EXPECT_NE(g_clkAnndetectTmr, 0u);
  EXPECT_NE(g_FwmSrvBkfThreadId, 0u);
  EXPECT_THAT(fwmtest::agentLines(), ::testing::Contains("ERROR [FWM_SRV] PtpAddPort Malloc failed."));
  EXPECT_THAT(lines(), ElementsAre("MSG [FWM_SRV] MIRASpecialProc unit=1 port=5"));
}

TEST_F(PortCfgFailure, UnitBeyondTheTableFailsEveryStepWithoutEngineCalls) {
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  EXPECT_EQ(orch->setPtpPortCfg(8, kPort, kNoTarget, &cfg), 0xFFFFFFFDu);
  EXPECT_THAT(engine(), IsEmpty());
}

// With a forwarding target the adapter programs the port control before each
// enable; the enable record carries the port's own unit and port.
TEST_F(PortCfgFailure, ForwardingTargetReachesThePortControlOnBothEnables) {
  // clang-format off
  const PortCfgCase off{"OffListening", 0, 3, 1,
      "oda_port_set_control(1, 0x4000005, {130, 0, 0, 0, 0, 0x3CABCDEF}); "
      "oda_port_set_control(1, 0x4000005, {254, 0, 0, 0, 0, 0x3CABCDEF}); set_port_en(1, 5, 0); ",
      "3", "1", "set_ptp_control(1, 5, 18, 0, 0); ", "0", "6, 1", ""};
  const PortCfgCase on{"OnListening", 1, 3, 1, "", "3", "1", "", "1", "6, 1",
      "; oda_port_set_control(1, 0x4000005, {130, 1, 0, 0, 0, 0x3CABCDEF}); "
      "oda_port_set_control(1, 0x4000005, {254, 1, 0, 0, 0, 0x3CABCDEF}); set_port_en(1, 5, 1)"};
  // clang-format on
  for (const PortCfgCase &c : {off, on}) {
    mark();
    ClkPtpPortCfg cfg = portCfg(c.enable, c.stateWord, c.ctrl1);
    EXPECT_EQ(orch->setPtpPortCfg(kUnit, kPort, 0x12ABCDEFu, &cfg), 0u);
    EXPECT_EQ(calls(), c.calls()) << c.name;
  }
  EXPECT_THAT(
      fwmtest::agentLines(),
      ::testing::Contains("MSG 1588.(parameter in SetPortEn: unit=1, port=5, fwdunit=1, fwdport=5, enable=1)."));
}

class NonMiraBoard : public fwmtest::ServiceTest {
 protected:
  void SetUp() override {
    fwmsim::resetBoard();
    fwmsim::board().chipType = 31;
    fwmtest::adoptAgent();
    ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
    orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
    mark();
  }
};

TEST_F(NonMiraBoard, HookStaysSilent) {
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  EXPECT_EQ(orch->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg), 0u);
  EXPECT_EQ(calls(), kOnSlave);
  EXPECT_THAT(lines(), IsEmpty());
}

using GlobalAndPort = fwmtest::ServiceTest;

TEST_F(GlobalAndPort, GlobalSettingUsesUnitZeroAndTheSlavePortTwice) {
  ClkPtpGlbCfg glb{3};
  EXPECT_EQ(orch->setPtpGlbCfg(&glb), 0u);
  EXPECT_THAT(engine(), ElementsAre("oda_1588_set_ptp_control(0, 3, 8, 3, 0)"));

  mark();
  fwmsim::faults().inject("oda_1588_set_ptp_control", 1);
  EXPECT_EQ(orch->setPtpGlbCfg(&glb), 1u);
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] SetPtpGlbCfg failed, Ret=1"));
}

struct AsymCase {
  int32_t asymmetry;
  std::string_view call;
};

constexpr AsymCase kAsymCases[] = {
    {-100, "oda_1588_set_ptp_control(1, 5, 5, 100, 0)"},
    {0, "oda_1588_set_ptp_control(1, 5, 4, 0, 0)"},
    {250, "oda_1588_set_ptp_control(1, 5, 4, 250, 0)"},
    {INT32_MIN, "oda_1588_set_ptp_control(1, 5, 5, 2147483648, 0)"},
};

TEST_F(GlobalAndPort, AsymmetrySignSelectsTheControlType) {
  for (const AsymCase &c : kAsymCases) {
    mark();
    ClkPtpPortAsym asym{c.asymmetry};
    EXPECT_EQ(orch->setPtpPortAsym(kUnit, kPort, &asym), 0u) << c.asymmetry;
    EXPECT_THAT(engine(), ElementsAre(std::string(c.call))) << c.asymmetry;
  }
  mark();
  fwmsim::faults().inject("oda_1588_set_ptp_control", 10);  // -9
  ClkPtpPortAsym asym{-1};
  EXPECT_EQ(orch->setPtpPortAsym(kUnit, kPort, &asym), 0xFFFFFFF7u);
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] SetPtpPortAsym failed, Ret=4294967287"));
}

TEST_F(GlobalAndPort, SsmReceiveSwitchIsPassedUnchanged) {
  ClkSsmPortCfg ssm{{0xAAAAAAAAu, 0xBBBBBBBBu}, 3};
  EXPECT_EQ(orch->setSsmPortCfg(kUnit, kPort, &ssm), 0u);
  EXPECT_THAT(engine(), ElementsAre("oda_1588_set_ssm_rx_en(1, 5, 3)"));
  EXPECT_THAT(lines(), IsEmpty());  // the progress line is INFO, below the delivered levels

  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  mark();
  EXPECT_EQ(orch->setSsmPortCfg(kUnit, kPort, &ssm), 0u);
  EXPECT_THAT(lines(), ElementsAre("INFO [FWM_SRV_CLK] SetSsmPortCfg, unit=1, port=5, ssmRxEn=3"));
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 0;

  mark();
  fwmsim::faults().inject("oda_1588_set_ssm_rx_en", 1);
  EXPECT_EQ(orch->setSsmPortCfg(kUnit, kPort, &ssm), 1u);
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] SetSsmPortCfg failed, ret=1"));
}

}  // namespace
