// Global setting, port configuration, asymmetry and SSM: the engine calls each
// makes, in order, and the lines it logs.
#include <climits>
#include <string>
#include <vector>

#include "service_fixture.hpp"

namespace {

using fwmtest::Step;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;
constexpr uint32_t kNoTarget = 0xFFFFFFFFu;
constexpr uint32_t kTarget = 0x12ABCDEFu;
constexpr uint32_t kFlag = FWM_CLK_PORT_STATE_FLAG;
const std::string kMira = "MSG [FWM_SRV] MIRASpecialProc unit=1 port=5";

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
// controls 18, 8 and 6 or 7. With a forwarding target the adapter programs the
// port control before each enable. The rows give what differs, calls() the rest.
struct PortCfgCase {
  const char *name;
  uint32_t enable;
  uint32_t stateWord;  // as sent, flag included
  uint32_t ctrl1;
  const char *first, *state, *control1, *checks, *txEn, *control67, *last;
  uint32_t target = kNoTarget;
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
#define CTL(...) "oda_port_set_control(1, 0x4000005, {" #__VA_ARGS__ ", 0x3CABCDEF}); "
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
    {"OffListeningForwarded", 0, 3, 1, CTL(130, 0, 0, 0, 0) CTL(254, 0, 0, 0, 0) "set_port_en(1, 5, 0); ", "3", "1", "set_ptp_control(1, 5, 18, 0, 0); ", "0", "6, 1", "", kTarget},
    {"OnListeningForwarded", 1, 3, 1, "", "3", "1", "", "1", "6, 1", "; " CTL(130, 1, 0, 0, 0) CTL(254, 1, 0, 0, 0) "set_port_en(1, 5, 1)", kTarget},
};
// clang-format on
#undef CTL
const std::string kOnSlave = kPortCfgCases[0].calls();
const std::string kOffSlave = kPortCfgCases[4].calls();

using PortCfg = fwmtest::ServiceTest;

TEST_F(PortCfg, MakesTheGoldenCallsAndClearsTheStateFlag) {
  for (const PortCfgCase &c : kPortCfgCases) {
    ClkPtpPortCfg cfg = portCfg(c.enable, c.stateWord, c.ctrl1);
    run({c.name, [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, c.target, &cfg); }, {}, 0, c.calls(), {kMira}});
    EXPECT_EQ(cfg.portState, c.stateWord & ~kFlag) << c.name;
    // The Mira hook saw the word as it arrived, state flag and all.
    ASSERT_NE(FWM_SRV_CLK_PtpFindPort(kUnit, kPort), nullptr);
    EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(kUnit, kPort)->portState, c.stateWord) << c.name;
  }
  // The enable record carries the port's own unit and port.
  EXPECT_THAT(
      fwmtest::agentLines(),
      ::testing::Contains("MSG 1588.(parameter in SetPortEn: unit=1, port=5, fwdunit=1, fwdport=5, enable=1)."));
}

// Nothing stops at a failure: a failing state write in the first half, failures
// in several steps (each reports its own, the whole the OR) and a failed enable
// made last, which is reported alone and rolls nothing back. Then the global
// setting (unit 0, the slave port twice), the asymmetry whose sign selects the
// control, and the SSM receive switch passed unchanged.
// clang-format off
#define CFG(en) [](auto o) { ClkPtpPortCfg c = portCfg(en, 9, 1); return o->setPtpPortCfg(kUnit, kPort, kNoTarget, &c); }
#define ASYM(v) [](auto o) { ClkPtpPortAsym a{v}; return o->setPtpPortAsym(kUnit, kPort, &a); }
#define SSM [](auto o) { ClkSsmPortCfg s{{0xAAAAAAAAu, 0xBBBBBBBBu}, 3}; return o->setSsmPortCfg(kUnit, kPort, &s); }
constexpr char kPortCfgFailed[] = "ERROR [FWM_SRV_CLK] SetPtpPortCfg failed, Ret=";
const Step kSteps[] = {
    {"StateFails", CFG(1), {{"oda_1588_set_ptp_state", 3}}, 0xFFFFFFFCu, kOnSlave, {kMira, "ERROR [FWM_SRV_CLK] SetPtpPortCfg1 failed, Ret=4294967292", kPortCfgFailed + std::string("4294967292")}},
    {"ThreeFail", CFG(0), {{"oda_1588_set_encap_sport_identity_rx", 1}, {"oda_1588_set_announce_timeout", 2}, {"oda_1588_set_port_en", 5}}, 0xFFFFFFFFu, kOffSlave,
     {kMira, "ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 1", "ERROR [FWM_SRV_CLK] SetPtpPortCfg2 failed, Ret=4294967294", kPortCfgFailed + std::string("4294967295")}},
    {"EnableFails", CFG(1), {{"oda_1588_set_port_en", 1}}, 1, kOnSlave, {kMira, kPortCfgFailed + std::string("1")}},
    {"UnitBeyondTheTable", [](auto o) { ClkPtpPortCfg c = portCfg(1, 9, 1); return o->setPtpPortCfg(8, kPort, kNoTarget, &c); }, {}, 0xFFFFFFFDu, "",
     {"MSG [FWM_SRV] MIRASpecialProc unit=8 port=5", "ERROR [FWM_SRV_CLK] SetPtpPortCfg1 failed, Ret=4294967293", "ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 4294967293",
      "ERROR [FWM_SRV_CLK] SetPtpPortCfg2 failed, Ret=4294967293", kPortCfgFailed + std::string("4294967293")}},
    {"Global", [](auto o) { ClkPtpGlbCfg g{3}; return o->setPtpGlbCfg(&g); }, {}, 0, "set_ptp_control(0, 3, 8, 3, 0)", {}},
    {"GlobalFails", [](auto o) { ClkPtpGlbCfg g{3}; return o->setPtpGlbCfg(&g); }, {{"oda_1588_set_ptp_control", 1}}, 1, "set_ptp_control(0, 3, 8, 3, 0)", {"ERROR [FWM_SRV_CLK] SetPtpGlbCfg failed, Ret=1"}},
    {"AsymNegative", ASYM(-100), {}, 0, "set_ptp_control(1, 5, 5, 100, 0)", {}},
    {"AsymZero", ASYM(0), {}, 0, "set_ptp_control(1, 5, 4, 0, 0)", {}},
    {"AsymPositive", ASYM(250), {}, 0, "set_ptp_control(1, 5, 4, 250, 0)", {}},
    {"AsymMin", ASYM(INT32_MIN), {}, 0, "set_ptp_control(1, 5, 5, 2147483648, 0)", {}},
    {"AsymFails", ASYM(-1), {{"oda_1588_set_ptp_control", 10}}, 0xFFFFFFF7u, "set_ptp_control(1, 5, 5, 1, 0)", {"ERROR [FWM_SRV_CLK] SetPtpPortAsym failed, Ret=4294967287"}},
    {"Ssm", SSM, {}, 0, "set_ssm_rx_en(1, 5, 3)", {}},  // the progress line is INFO, below the delivered levels
    {"SsmFails", SSM, {{"oda_1588_set_ssm_rx_en", 1}}, 1, "set_ssm_rx_en(1, 5, 3)", {"ERROR [FWM_SRV_CLK] SetSsmPortCfg failed, ret=1"}},
    {"SsmInfo", [](auto o) { g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1; ClkSsmPortCfg s{{1, 2}, 3}; return o->setSsmPortCfg(kUnit, kPort, &s); }, {}, 0, "set_ssm_rx_en(1, 5, 3)", {"INFO [FWM_SRV_CLK] SetSsmPortCfg, unit=1, port=5, ssmRxEn=3"}},
};
// clang-format on
#undef CFG
#undef ASYM
#undef SSM

TEST_F(PortCfg, FailuresAreOredAndTheSmallerSettings) {
  for (const Step &s : kSteps) run(s);
}

// A port the hook cannot record is not supervised; the rest goes on.
TEST_F(PortCfg, MiraHookGoesOnWithoutAPortNode) {
  fwmsim::memory().failAllocation(1);
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  run("NoNode", [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg); }, {}, 0, kOnSlave, {kMira});
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(kUnit, kPort), nullptr);
  EXPECT_NE(g_clkAnndetectTmr, 0u);
  EXPECT_NE(g_FwmSrvBkfThreadId, 0u);
  EXPECT_THAT(fwmtest::agentLines(), ::testing::Contains("ERROR [FWM_SRV] PtpAddPort Malloc failed."));
}

class NonMiraBoard : public fwmtest::ServiceTest {
 protected:
  void SetUp() override {
    fwmsim::resetBoard();
    fwmsim::board().chipType = 31;
    fwmtest::adoptAgent();
    ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
    orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
  }
};

TEST_F(NonMiraBoard, HookStaysSilent) {
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  run("NonMira", [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg); }, {}, 0, kOnSlave, {});
}

}  // namespace
