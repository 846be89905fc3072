// The orchestrator's slots, one golden row per request: its result, the
// engine-driver calls in order and the lines logged. Then start-up: its
// sequence, the lifecycle events and the records handed to the host.
#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fwmclk/fwmclk.h"
#include "fwmsim/engine/engine.hpp"
#include "testkit.hpp"

// Records are built with designated initializers; the fields left out are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Faults for one row: `fn` fails `code` once, after `skip` good calls.
struct Fault {
  const char *fn;
  uint32_t code;
  int skip = 0;
};

// One call through the slots: what it answers, the engine-driver calls it
// makes ("; "-separated, without the "oda_1588_" prefix) and the lines it logs.
struct Step {
  const char *name;
  std::function<uint32_t(const ClkSrvOrchIntf *)> call;
  std::vector<Fault> faults;
  uint32_t ret;
  std::string calls;
  std::vector<std::string> lines;
};

class Service : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    fwmtest::BoardTest::SetUp();
    fwmtest::adoptAgent();
    ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
    ASSERT_FALSE(fwmsim::orchestrator().registrations.empty());
    orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
  }

  // Log lines since the mark, without the NP layer's parameter lines and
  // without the announce supervision's, which the Mira hook sets going on
  // other threads and which have tests of their own.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    auto all = fwmtest::agentLines();
    for (size_t i = lineMark_; i < all.size(); ++i) {
      const std::string &l = all[i];
      if (l.rfind("MSG 1588.(parameter in ", 0) == 0 || l.find("[FWM_SRV_BKF]") != std::string::npos ||
          l.find("[FWM_SRV] PtpAddPort") != std::string::npos)
        continue;
      out.push_back(l);
    }
    return out;
  }

  // The engine-driver calls since the mark as one line: one golden row per request.
  std::string calls() const {
    std::string out;
    for (std::string c : fwmtest::callsSince(callMark_, "oda")) {
      if (c.rfind("oda_1588_", 0) == 0) c.erase(0, 9);
      out += (out.empty() ? "" : "; ") + c;
    }
    return out;
  }

  // Runs one row from a fresh mark with its faults armed.
  void run(const Step &s) {
    fwmsim::faults().clear();
    for (const Fault &f : s.faults) fwmsim::faults().inject(f.fn, f.code, 1, f.skip);
    callMark_ = fwmsim::recorder().mark();
    lineMark_ = fwmtest::agentLines().size();
    EXPECT_EQ(s.call(orch), s.ret) << s.name;
    EXPECT_EQ(calls(), s.calls) << s.name;
    EXPECT_EQ(lines(), s.lines) << s.name;
  }

  void run(const char *name, std::function<uint32_t(const ClkSrvOrchIntf *)> call, std::vector<Fault> faults,
           uint32_t ret, std::string calls, std::vector<std::string> lines) {
    run(Step{name, std::move(call), std::move(faults), ret, std::move(calls), std::move(lines)});
  }

  const ClkSrvOrchIntf *orch = nullptr;

 private:
  size_t callMark_ = 0;
  size_t lineMark_ = 0;
};

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;
constexpr uint32_t kNoTarget = 0xFFFFFFFFu;
constexpr uint32_t kTarget = 0x12ABCDEFu;
constexpr uint32_t kFlag = FWM_CLK_PORT_STATE_FLAG;
const std::string kMira = "MSG [FWM_SRV] MIRASpecialProc unit=1 port=5";

ClkPtpPortCfg portCfg(uint32_t enable, uint32_t stateWord, uint32_t ctrl1) {
  // clang-format off
  return {.enable = enable, .ctrlType0Value = 11, .portState = stateWord, .ctrlType2Value = 22, .domainNumber = 24,
      .ctrlType1Value = ctrl1, .annTimeoutMultiple = 3, .rxSrcPortIdentity = {0x11, 0x22, 0x33},
      .ctrlType33Value = 0x1234, .ifIndex = 77};
  // clang-format on
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

TEST_F(Service, MakesTheGoldenCallsAndClearsTheStateFlag) {
  for (const PortCfgCase &c : kPortCfgCases) {
    ClkPtpPortCfg cfg = portCfg(c.enable, c.stateWord, c.ctrl1);
    run(c.name, [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, c.target, &cfg); }, {}, 0, c.calls(), {kMira});
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

// A port the hook cannot record is not supervised; the rest goes on.
TEST_F(Service, MiraHookGoesOnWithoutAPortNode) {
  fwmsim::memory().failAllocation(1);
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  run("NoNode", [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg); }, {}, 0, kOnSlave, {kMira});
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(kUnit, kPort), nullptr);
  EXPECT_NE(g_clkAnndetectTmr, 0u);
  EXPECT_NE(g_FwmSrvBkfThreadId, 0u);
}

// On other chips the hook stays silent and sets nothing going.
TEST_F(Service, NonMiraHookStaysSilent) {
  fwmsim::resetBoard();
  fwmsim::board().chipType = 31;
  fwmtest::adoptAgent();
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
  ClkPtpPortCfg cfg = portCfg(1, 9, 1);
  run("NonMira", [&](auto o) { return o->setPtpPortCfg(kUnit, kPort, kNoTarget, &cfg); }, {}, 0, kOnSlave, {});
  EXPECT_EQ(g_clkCreateListCnt, 0u);
  EXPECT_EQ(g_clkAnndetectTmr, 0u);
}

constexpr uint32_t kBoard = 2;

uint32_t setEncap(const ClkSrvOrchIntf *o, uint32_t type, uint32_t priority, uint32_t vlanId) {
  // Addresses 224.0.1.129 = 3758096769 and 10.0.0.1 = 167772161.
  // clang-format off
  ClkPtpPktEncap e{.encapType = type, .vlanPriority = priority, .vlanId = vlanId, .dscp = 46,
      .destMac = {0x01, 0x1B, 0x19, 0, 0, 0}, .srcMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55},
      .destIp = 0xE0000181u, .srcIp = 0x0A000001u};
  // clang-format on
  return o->setPtpPktEncap(kUnit, kPort, kBoard, &e);
}

// The encapsulation (which the adapter programs with the destination port
// and board), addresses for NP types 3, 0 and 1, DSCP; then by type the tag
// and the source-address control.
std::string encapCalls(uint32_t type, const std::string &tail) {
  return "set_encap_type(1, 5, " + std::to_string(type) +
         "); set_ptp_control(1, 5, 32, 5, 0); set_ptp_control(1, 5, 31, 2, 0); "
         "set_encap_da(1, 5, 3, 01:1B:19:00:00:00); set_encap_sa(1, 5, 3, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 3, 3758096769); set_encap_sip(1, 5, 3, 167772161); "
         "set_encap_da(1, 5, 0, 01:1B:19:00:00:00); set_encap_sa(1, 5, 0, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 0, 3758096769); set_encap_sip(1, 5, 0, 167772161); "
         "set_encap_da(1, 5, 1, 01:1B:19:00:00:00); set_encap_sa(1, 5, 1, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 1, 3758096769); set_encap_sip(1, 5, 1, 167772161); set_encap_dscp(1, 5, 46)" +
         tail;
}
const std::string kTag = "; set_encap_vlan(1, 5, 0x8100A064)";
const std::string kSrcIp = "; set_ptp_control(1, 5, 26, 167772161, 0)";
constexpr char kTx34[] = "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4); set_pkt_tx_en(1, 5, 3, 1)";
constexpr char kIds[] = "[16909060, 84281096, 151653132]";

// The type decides tag and source-address control; the tag word keeps only the
// low 3 bits of the priority and the low 12 of the id; a rejected encapsulation
// fails one call, the other thirteen and the tag still run. Receive control
// runs per orchestrator type with receive enable on and both checks off (2 and
// 7 both mean off): it refuses an invalid type at the first setting asked for
// (nothing asked, nothing checked: even an invalid type passes) and stops at
// the first failure. Transmit control makes both interval calls and then leaves
// the enable alone; an interval the adapter does not know is refused before
// the engine. Each per-type step names itself when it refuses a type. The
// receive identity's type is 0 only for packet type 4.
// clang-format off
#define ENC(t, p, v) [](auto o) { return setEncap(o, t, p, v); }
#define RX(...) [](auto o) { ClkPtpRxCtl c{__VA_ARGS__}; return o->setPtpRxCtl(kUnit, kPort, &c); }
#define TX(...) [](auto o) { ClkPtpTxCtl c{__VA_ARGS__}; return o->setPtpTxCtl(kUnit, kPort, &c); }
#define RXID(t) [](auto o) { ClkPtpRxSrcPortId id{t, {0x01020304u, 0x05060708u, 0x090A0B0Cu}}; return o->setPtpRxSrcPortId(kUnit, kPort, &id); }
#define TXID [](auto o) { ClkPtpTxSrcPortId id{{0x01020304u, 0x05060708u, 0x090A0B0Cu}}; return o->setPtpTxSrcPortId(kUnit, kPort, &id); }
const Step kEncapCtlSteps[] = {
    {"Encap0", ENC(0, 5, 100), {}, 0, encapCalls(0, ""), {}},
    {"Encap1", ENC(1, 5, 100), {}, 0, encapCalls(1, kTag), {}},
    {"Encap2", ENC(2, 5, 100), {}, 0, encapCalls(2, kSrcIp), {}},
    {"Encap3", ENC(3, 5, 100), {}, 0, encapCalls(3, kTag + kSrcIp), {}},
    {"Encap4", ENC(4, 5, 100), {}, 0, encapCalls(4, ""), {}},
    {"TagPriority9", ENC(1, 9, 0x1064), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x81002064)"), {}},
    {"TagPriority7", ENC(1, 7, 4095), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x8100EFFF)"), {}},
    {"TagPriority8", ENC(1, 8, 0), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x81000000)"), {}},
    {"EncapFails", ENC(1, 5, 100), {{"oda_1588_set_encap_dip", 1, 1}, {"oda_1588_set_encap_vlan", 2}}, 0xFFFFFFFFu, encapCalls(1, kTag),
     {"ERROR [FWM_SRV_CLK] SetPtpPktEncapData failed, Ret=1", "ERROR [FWM_SRV_CLK] SetPtpEncapVlan failed, Ret=4294967294", "ERROR [FWM_SRV_CLK] SetPtpPktEncap failed, Ret=4294967295"}},
    {"Rx1", RX(1, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 0, 0); set_ptp_control(1, 5, 16, 0, 0)", {}},
    {"Rx2", RX(2, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 1, 1); set_ptp_control(1, 5, 9, 0, 0); set_ptp_control(1, 5, 14, 0, 0)", {}},
    {"Rx3", RX(3, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 3, 1); set_ptp_control(1, 5, 15, 0, 0)", {}},
    {"Rx4", RX(4, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 5, 1)", {}},
    {"Rx5", RX(5, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 4, 1); set_ptp_control(1, 5, 14, 0, 0)", {}},
    {"Rx6", RX(6, 1, {}, 7, 2), {}, 0, "", {}},
    {"Rx7", RX(7, 1, {}, 7, 2), {}, 0, "", {}},
    {"Rx8", RX(8, 1, {}, 7, 2), {}, 0, "", {}},
    {"Tx1", TX(1, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_interval(1, 5, 0, 4); set_pkt_tx_en(1, 5, 0, 1)", {}},
    {"Tx2", TX(2, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_interval(1, 5, 1, 4); set_pkt_tx_en(1, 5, 1, 1)", {}},
    {"Tx3", TX(3, 1, 0xFFFFFFFFu, 4), {}, 0, kTx34, {}},
    {"Tx4", TX(4, 1, 0xFFFFFFFFu, 4), {}, 0, kTx34, {}},
    {"Tx5", TX(5, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 4, 1)", {}},
    {"Tx6", TX(6, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 4, 1)", {}},
    {"Tx7", TX(7, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 7, 1)", {}},
    {"Tx8", TX(8, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 2, 1)", {}},
    {"Rx0Enable", RX(0, 1, {}, 1, 1), {}, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {"Rx9Enable", RX(9, 1, {}, 1, 1), {}, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {"Rx0Identity", RX(0, 0, {}, 0, 1), {}, 1, "", {"ERROR SetSrcPortIdCheck, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {"Rx9Domain", RX(9, 0, {}, 2, 0), {}, 1, "", {"ERROR SetDomainCheck, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetDomainCheck failed, Ret=1"}},
    {"Rx9Nothing", RX(9, 0, {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu}, 0, 0), {}, 0, "", {}},
    {"RxFails", RX(1, 1, {}, 1, 1), {{"oda_1588_set_ptp_control", 1}}, 1, "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 1, 0)", {"ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {"Tx0", TX(0, 1, 0, 4), {}, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 0", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"Tx9", TX(9, 1, 0, 4), {}, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 9", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"TxIntervalFails", TX(3, 1, 0, 4), {{"oda_1588_set_pkt_interval", 1}}, 1, "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4)", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"TxEnableFails", TX(3, 1, 0, 4), {{"oda_1588_set_pkt_tx_en", 1}}, 1, kTx34, {"ERROR [SetPtpTxCtl] SetPktTxEn failed, ret = 1"}},
    {"TxInterval21", TX(1, 1, 0, 21), {}, 0xFFFFFFFCu, "", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 4294967292"}},
    {"TxEn12", [](auto) { return FWM_SRV_CLK_SetPktTxEn(kUnit, kPort, 12, 1); }, {}, 1, "", {"ERROR [SetPktTxEn] Invaild pkt type: 12"}},
    {"RxId4", RXID(4), {}, 0, "set_encap_sport_identity_rx(1, 5, 0, " + std::string(kIds) + ")", {}},
    {"RxId1", RXID(1), {}, 0, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {}},
    {"RxIdFails", RXID(1), {{"oda_1588_set_encap_sport_identity_rx", 1}}, 1, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {"ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 1"}},
    {"TxId", TXID, {}, 0, "set_encap_sport_identity_tx(1, 5, " + std::string(kIds) + ")", {}},
    {"TxIdFails", TXID, {{"oda_1588_set_encap_sport_identity_tx", 1}}, 1, "set_encap_sport_identity_tx(1, 5, " + std::string(kIds) + ")", {"ERROR [SetPtpTxSrcPortId] SetEncapSportIdentityTx failed, ret = 1"}},
};
#undef ENC
#undef RX
#undef TX
#undef RXID
#undef TXID
// clang-format on

ClkPtpAnnPkt annRequest() {
  // clang-format off
  return {.flagField = 0x0208, .currentUtcOffset = 37, .grandmasterPriority1 = 128, .grandmasterPriority2 = 129,
      .clockClass = 248, .clockAccuracy = 0xFE, .offsetScaledLogVariance = 0xFFFF,
      .grandmasterIdentityHigh = 0x00112233u, .grandmasterIdentityLow = 0x44556677u, .stepsRemoved = 2,
      .timeSource = 0xA0};
  // clang-format on
}

// The engine record of annRequest(): UTC offset, identity high and low, class
// and accuracy (16 bits each), variance, priorities 1 and 2, steps removed,
// time source (32 bits each); the rest of the record zero.
const std::string kAnnFieldsBody = "250000003322110077665544f800fe00ffff0000800000008100000002000000a0000000";

// Every byte of the body takes part in the comparison; the flag field does not.
TEST(AnnCompare, EveryBodyByteCountsAndNothingElse) {
  ClkPtpAnnPkt ann = annRequest();
  ClkNpAnnFields engine{};
  ClkNpAnnFlags flags{};
  CLK_NP_1588_FormatAnnPkt(&ann, &flags, &engine);
  for (size_t i = 0; i < kAnnFieldsBody.size() / 2; ++i) {
    ClkNpAnnFields changed = engine;
    reinterpret_cast<uint8_t *>(&changed)[i] ^= 0x10;
    uint32_t word = 0;
    CLK_NP_1588_CompAnnPayload(&ann, &changed, &word);
    EXPECT_EQ(word, 1u) << i;
  }
  // Equal bodies leave the caller's word as it was, whatever the flag field
  // or the receive-side bytes say.
  ClkPtpAnnPkt same = annRequest();
  same.flagField = 0;
  engine.domainNumber = 44;
  engine.sourcePortNumber = 7;
  uint32_t word = 5;
  CLK_NP_1588_CompAnnPayload(&same, &engine, &word);
  EXPECT_EQ(word, 5u);
}

// Announce transmission of the port, as the orchestrator switches it: NP packet type 1.
void setAnnounceTx(const ClkSrvOrchIntf *orch, uint32_t enable) {
  ClkPtpTxCtl tx{2, enable, 0, 0};
  ASSERT_EQ(orch->setPtpTxCtl(kUnit, kPort, &tx), 0u);
}

constexpr char kWriteWhileOff[] =
    "get_pkt_tx_en(1, 5, 1, &); set_announce_field_tx(1, 5, &, &); set_encap_flagfield(1, 5, 520)";
constexpr char kUnchangedWhileOn[] = "get_pkt_tx_en(1, 5, 1, &); get_announce_field_tx(1, 5, &, &)";
// A changed body while transmitting: pause, write body and flag field, resume.
constexpr char kChangedWhileOn[] =
    "get_pkt_tx_en(1, 5, 1, &); get_announce_field_tx(1, 5, &, &); set_pkt_tx_en(1, 5, 1, 0); "
    "set_announce_field_tx(1, 5, &, &); set_encap_flagfield(1, 5, 520); set_pkt_tx_en(1, 5, 1, 1)";
constexpr char kSetFailed[] = "ERROR [FWM_SRV_CLK] SetAnnPortPkt failed, ";
constexpr char kReadFailed[] = "ERROR [FWM_SRV_CLK] GetAnnounceFieldTx failed, Ret=1";

// The request, changed by `edit`, sent through the announce slot.
template <class F>
auto send(F edit) {
  return [edit](const ClkSrvOrchIntf *o) {
    ClkPtpAnnPkt a = annRequest();
    edit(a);
    return o->setPtpPortPkt(kUnit, kPort, &a);
  };
}
const auto kSame = [](ClkPtpAnnPkt &) {};

TEST_F(Service, TransmissionOffWritesAtOnceOnWritesOnlyAChangedBody) {
  run("Off", send(kSame), {}, 0, kWriteWhileOff, {});
  const ClkNpAnnFields f = fwmsim::engine().port(kUnit, kPort).txFields;
  EXPECT_EQ(fwmtest::hex({reinterpret_cast<const uint8_t *>(&f), sizeof f}),
            kAnnFieldsBody + std::string(2 * sizeof f - kAnnFieldsBody.size(), '0'));
  EXPECT_THAT(fwmsim::engine().port(kUnit, kPort).txFlags.flag, Each(1u));
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).flagField, 0x0208u);

  // Same body, new flag field: nothing written, the stream is not paused.
  setAnnounceTx(orch, 1);
  run("OnSame", send([](ClkPtpAnnPkt &a) { a.flagField = 0x0008; }), {}, 0, kUnchangedWhileOn, {});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).flagField, 0x0208u);
  run("OnChanged", send([](ClkPtpAnnPkt &a) { a.stepsRemoved = 3; }), {}, 0, kChangedWhileOn, {});
  fwmsim::OdaPort port = fwmsim::engine().port(kUnit, kPort);
  // The read-back hands the engine flag words 0..9 set and word 10 clear.
  EXPECT_THAT(port.txReadFlags.flag, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0));
  EXPECT_EQ(port.txFields.stepsRemoved, 3u);
  EXPECT_EQ(port.txEnable[1], 1u);

  // A failed read-back compares the request with a zero record: any non-zero
  // body is written and the request fails, a zero body is equal.
  const Fault readFails{"oda_1588_get_announce_field_tx", 1};
  run("ReadFails", send(kSame), {readFails}, 1, kChangedWhileOn,
      {kReadFailed, kSetFailed + std::string("unit=1 port=5 ret=1"), kSetFailed + std::string("Ret=1")});
  run("ReadFailsZero", send([](ClkPtpAnnPkt &a) {
        a = ClkPtpAnnPkt{};
        a.flagField = 8;
      }),
      {readFails}, 0, kUnchangedWhileOn, {kReadFailed});
}

// Transmission is resumed even when the pause and the write failed; a failed
// enable read takes the unconditional path.
TEST_F(Service, ResumeFollowsAFailedPauseAndWriteAndAFailedEnableReadWritesAtOnce) {
  setAnnounceTx(orch, 1);
  run("PauseFails", send(kSame), {{"oda_1588_set_pkt_tx_en", 1}, {"oda_1588_set_encap_flagfield", 2}}, 0xFFFFFFFFu,
      kChangedWhileOn,
      {"ERROR [FWM_SRV_CLK] SetPtpPortPkt failed, Ret=4294967294",
       kSetFailed + std::string("unit=1 port=5 ret=4294967295"), kSetFailed + std::string("Ret=4294967295")});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).txEnable[1], 1u);
  run("EnableReadFails", send(kSame), {{"oda_1588_get_pkt_tx_en", 1}}, 1, kWriteWhileOff,
      {"ERROR [FWM_SRV_CLK] SetPtpPortPktProc failed, Ret=1"});
}

TEST_F(Service, ClearWritesTheChangeAlarmAndReadClearsTheReceivedFields) {
  ClkNpAnnFields rx{.stepsRemoved = 4};
  fwmsim::engine().setRxAnnounce(kUnit, kPort, rx);
  const auto clear = [](const ClkSrvOrchIntf *o) { return o->setPtpAnnClr(kUnit, kPort); };
  const char *calls = "set_announce_alarm(1, 5, 0, 1); get_announce_field_rx(1, 5, 1, &, &)";
  run("Clear", clear, {}, 0, calls, {});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).rxFields.stepsRemoved, 0u);
  run("ClearFails", clear, {{"oda_1588_set_announce_alarm", 1}}, 1, calls,
      {"ERROR [FWM_SRV_CLK] SetPtpAnnClr failed, ret = 1"});
}

// Every slot that takes a record refuses a null one before any engine call.
// clang-format off
#define N(slot, ...) {#slot, [](auto o) { return o->__VA_ARGS__; }, {}, 1, "", {"ERROR [FWM_SRV] " #slot ", null pointer"}}
const Step kNullCases[] = {
    N(SetPtpGlbCfg, setPtpGlbCfg(nullptr)), N(SetPtpPortCfg, setPtpPortCfg(0, 1, 0xFFFFFFFFu, nullptr)),
    N(SetPtpPktEncap, setPtpPktEncap(0, 1, 2, nullptr)), N(SetPtpRxCtl, setPtpRxCtl(0, 1, nullptr)),
    N(SetPtpTxCtl, setPtpTxCtl(0, 1, nullptr)), N(SetPtpRxSrcPortId, setPtpRxSrcPortId(0, 1, nullptr)),
    N(SetPtpTxSrcPortId, setPtpTxSrcPortId(0, 1, nullptr)), N(SetPtpPortAsym, setPtpPortAsym(0, 1, nullptr)),
    N(SetPtpPortPkt, setPtpPortPkt(0, 1, nullptr)), N(GetPtpTimestamp, getPtpTimestamp(0, 1, nullptr)),
};
// clang-format on
#undef N

TEST_F(Service, TimestampWordsAreReorderedBehindTheCallersWord) {
  ClkNpTimestamps ts{};
  for (uint32_t i = 0; i < 16; ++i) ts.word[i] = 100 + i;
  fwmsim::engine().setTimestamps(kUnit, kPort, ts);
  ClkPtpTimestamp out{.words = {0xDEADBEEFu}};
  const auto read = [&out](const ClkSrvOrchIntf *o) { return o->getPtpTimestamp(kUnit, kPort, &out); };
  run("Timestamp", read, {}, 0, "get_timestamp(1, 5, &)", {});
  EXPECT_THAT(out.words,
              ElementsAre(0xDEADBEEFu, 100, 101, 102, 103, 104, 105, 108, 109, 110, 111, 112, 113, 106, 107, 114, 115));
  fwmsim::engine().setScribbleOnFault(true);
  const ClkPtpTimestamp untouched = out;
  run("TimestampFails", read, {{"oda_1588_get_timestamp", 1}}, 1, "get_timestamp(1, 5, &)",
      {"ERROR [FWM_SRV_CLK] GetPtpTimestamp failed, Ret=1"});
  EXPECT_EQ(std::memcmp(&out, &untouched, sizeof out), 0);
}

// The three queries with a read-clear flag, each through its own record types:
// which engine read, how many words the engine holds and which the reply gets.
struct ReadClearCase {
  const char *name, *oda;
  size_t engineWords, replyWords, firstWord;
  void (*seed)(const uint32_t *words);
  uint32_t (*call)(const ClkSrvOrchIntf *o, uint32_t readClear, uint32_t *reply);
};

// clang-format off
#define Q(Slot, Rec, Reply, oda, setter, engineWords, replyWords, first)                                                \
  {"Get" #Slot, oda, engineWords, replyWords, first,                                                                    \
   [](const uint32_t *w) { Rec r{}; std::memcpy(&r, w, sizeof r); fwmsim::engine().setter(kUnit, kPort, r); },         \
   [](const ClkSrvOrchIntf *o, uint32_t rc, uint32_t *reply) {                                                          \
     static_assert(sizeof(Reply) == (replyWords) * 4);                                                                  \
     return o->get##Slot(kUnit, kPort, rc, reinterpret_cast<Reply *>(reply)); }}
const ReadClearCase kReadClearCases[] = {
    Q(PtpT2SubT1, ClkNpDfxDelay, ClkPtpDfxDelay, "get_dfx_t2_sub_t1", setDfxT2SubT1, 6, 6, 0),
    Q(PtpT4SubT3, ClkNpDfxDelay, ClkPtpDfxDelay, "get_dfx_t4_sub_t3", setDfxT4SubT3, 6, 6, 0),
    Q(PtpPktStat, ClkNpPktStat, ClkPtpPktStat, "get_pkt_stat", setPktStat, 37, 24, 5),
};
// clang-format on
#undef Q

// A plain read copies the wanted words (only 1 is read-clear); read-clear reads
// the engine, which clears, and needs no reply; a null reply is refused only
// after the read; an engine failure leaves the reply untouched.
TEST_F(Service, ReadClearQueriesReadClearRefuseAndFail) {
  fwmsim::engine().setScribbleOnFault(true);
  for (const ReadClearCase &c : kReadClearCases) {
    std::vector<uint32_t> words(c.engineWords), reply;
    for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<uint32_t>(1000 + i);
    const std::vector<uint32_t> wanted(&words[c.firstWord], &words[c.firstWord] + c.replyWords);
    const std::string name(c.name);
    const auto read = [&](uint32_t rc) { return c.oda + ("(1, 5, " + std::to_string(rc) + ", &)"); };
    const auto into = [&](uint32_t rc, bool null) {
      return [&c, &reply, rc, null](const ClkSrvOrchIntf *o) { return c.call(o, rc, null ? nullptr : reply.data()); };
    };
    for (uint32_t readClear : {0u, 2u}) {
      c.seed(words.data());
      reply.assign(c.replyWords, 0x5A5A5A5Au);
      run(c.name, into(readClear, false), {}, 0, read(readClear), {});
      EXPECT_EQ(reply, wanted) << c.name;
    }
    run(c.name, into(1, true), {}, 0, read(1), {});
    reply.assign(c.replyWords, 0x5A5A5A5Au);
    run(c.name, into(0, false), {}, 0, read(0), {});
    EXPECT_THAT(reply, Each(0u)) << c.name;
    run(c.name, into(0, true), {}, 1, read(0), {"ERROR [FWM_SRV] " + name + ", null pointer"});
    reply.assign(c.replyWords, 0x5A5A5A5Au);
    run(c.name, into(0, false), {{("oda_1588_" + std::string(c.oda)).c_str(), 5}}, 0xFFFFFFFBu, read(0),
        {"ERROR [FWM_SRV_CLK] " + name + " failed, Ret=4294967291"});
    EXPECT_THAT(reply, Each(0x5A5A5A5Au)) << c.name;
  }
}

// The rows above, each from a fresh mark on the same board.
TEST_F(Service, EveryRowAnswersWithItsGoldenCallsAndLines) {
  for (const Step &s : kSteps) run(s);
  for (const Step &s : kEncapCtlSteps) run(s);
  for (const Step &s : kNullCases) run(s);
}

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

  // The slots themselves: tests/host, as hosts built with and without PIE see them.
  EXPECT_EQ(fwmsim::orchestrator().registrations.size(), 1u);

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

// clang-format off
const Outcome kOutcomes[] = {
    {"HandleFails", [] { fwmsim::faults().inject("ORIN_HandleInitialize", 51); }, 1, {"ERROR [FWM_SRV] InitCLKMemHandle failed, Ret=51", "ERROR [FWM_SRV_CLK_Init] InitCLKMemHandle failed, Ret=51", "ERROR pub clk init ok event fail. ret = 51"}, false, 0xFF},
    {"LookupFails", [] { fwmsim::faults().inject("COMP_GetVTable", 7); }, 1, {"ERROR [InitCLKMemPdtNo] GetVTable failed, Ret=7", "ERROR pub clk init ok event fail. ret = 7"}, false, 0xFF},
    {"NoTable", [] { fwmsim::registry().memTable = false; }, 1, {"ERROR COMP Get error, ret has null pointer. ret = 0", "ERROR pub clk init ok event fail. ret = 1"}, false, 0xFF},
    {"NoPartition", [] { fwmsim::registry().memPtNo = 0; }, 1, {"INFO GetMemPtNo failed", "ERROR pub clk init ok event fail. ret = 1"}, false, 0},
    {"NoPartitionEntry", [] { fwmsim::registry().memPtNoEntry = false; }, 0, {"INFO GetMemPtNo is null", "INFO [FWM_Srv_Clk] begin acl init.", "INFO Start register CLK FWM_SRV_CLK...", "INFO clk FWM_SRV_CLK registered success", "INFO clk init finish.", "INFO pub clk init ok event success."}, true, 1},
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
  const auto debug = fwmsim::recorder().texts("debug");
  EXPECT_EQ(std::ranges::any_of(debug, [](const std::string &t) { return t.starts_with("moduleReg"); }), o.registered);
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

// The event starts the update task, which runs before any agent exists,
// against handle 0 and logging nothing; without a task the event still succeeds.
TEST(MasterAddressEvent, StartsTheUpdateTaskWhichNeedsNoAgent) {
  fwmsim::resetBoard();
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  fwmsim::clock().settle();
  EXPECT_THAT(fwmsim::recorder().texts("orin"),
              ElementsAre("ORIN_TaskCreate(\"ClkSrvIMAgentUpdateMasterIp\", &, &, 1, 0, 0, 0, 0, 0, 0)"));
  EXPECT_THAT(fwmsim::recorder().texts("agent"), ElementsAre("IM_Agent_SetMainBoardIP(0x0, 0xFE00000A)"));
  EXPECT_THAT(fwmsim::agent().delivered(), IsEmpty());
  fwmsim::faults().inject("ORIN_TaskCreate", 4);
  g_clkSrvImAgentUpdateMasterIpTaskId = 0;
  EXPECT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  EXPECT_EQ(g_clkSrvImAgentUpdateMasterIpTaskId, 0u);
}

}  // namespace
