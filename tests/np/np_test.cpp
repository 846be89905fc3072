// Every NP entry against the common frame (unit check, required pointers,
// parameter line, dispatch, report) and the entries that leave it; installation
// of the driver tables; the driver adapter's own checks and multi-call slots.
#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <regex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fwmclk/diag.h"
#include "fwmclk/driver.h"
#include "fwmclk/np.h"
#include "fwmclk/service.h"
#include "fwmsim/engine/engine.hpp"
#include "np/slots.hpp"
#include "testkit.hpp"

namespace {

using fwmclk::np::kSlotCount;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What the NP layer and the adapter did, in order, as one list: engine-driver
// calls as recorded, debug-print lines as "DBG <message>" (time stamp and line
// end checked and removed) and delivered log lines as "LOG <LEVEL> <text>".
struct Timeline {
  size_t mark = fwmsim::recorder().mark(), delivered = fwmsim::agent().delivered().size();

  std::vector<std::string> lines() const {
    const auto deliveries = fwmsim::agent().delivered();
    size_t next = delivered;
    std::vector<std::string> out;
    const auto events = fwmsim::recorder().events();
    for (size_t i = mark; i < events.size(); ++i) {
      const auto &e = events[i];
      if (e.facility == "oda") {
        out.push_back(e.text);
      } else if (e.facility == "debug" && e.text.rfind("print(", 0) == 0) {
        out.push_back("DBG " + message(e.text));
      } else if (e.facility == "agent" && e.text.rfind("IM_Agent_Send(", 0) == 0 && next < deliveries.size()) {
        out.push_back("LOG " + deliveries[next].level + " " + deliveries[next].text);
        ++next;
      }
    }
    return out;
  }

  // "print(id, level, fmt) 2026-11-22 08:00:00 <message>\r\n" -> "<message>": every
  // line of the NP layer goes to the registered module at debug level 2.
  static std::string message(const std::string &text) {
    static const std::regex line("print\\(17, 2, [\\s\\S]*\\) 2026-11-22 08:00:00 (.*)\r\n");
    std::smatch m;
    EXPECT_TRUE(std::regex_match(text, m, line)) << text;
    return m.size() == 2 ? m[1].str() : text;
  }
};

// Two caller buffers; the fake driver names them b0 and b1.
alignas(8) uint8_t gBuf[2][256];

// Every entry in one process: the rows share the board, each call its own timeline.
// The sample records; reads on the adapter overwrite them.
void seedBuffers() {
  std::memset(gBuf, 0, sizeof gBuf);
  auto *info = reinterpret_cast<ClkNpPortEnInfo *>(gBuf[0]);
  info->fwdUnit = 5;
  info->fwdPort = 6;
  gBuf[0][0] = 11;  // identity word 0 / MAC byte 0
  gBuf[0][4] = 12;  // identity word 1 / MAC byte 4
}

// A board whose log agent and debug framework deliver, with empty driver tables
// and the sample records in the caller buffers.
class NpBoard : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    fwmtest::BoardTest::SetUp();
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    fwmtest::adoptAgent();
    (void)FWM_SRV_CLK_InitDbg();
    seedBuffers();
  }
};

// The report line for a code, unit, port and reason on the default board (chassis 1, slot 3).
std::string report(const char *hex, uint32_t unit, uint32_t port, const std::string &reason) {
  return "DBG Fe module error. (ErrCode=0x" + std::string(hex) + ", Slot=1/3, Unit=" + std::to_string(unit) +
         ", Port=" + std::to_string(port) + ", Reason=Failed to " + reason + ".)";
}

template <class T>
T *buf(int nullWhich, int index) {
  return nullWhich == index ? nullptr : reinterpret_cast<T *>(gBuf[index]);
}

// The driver seen by an entry: every slot records its arguments and answers gFakeCode.
std::vector<std::string> gFakeCalls;
int32_t gFakeCode = 0;

std::string show(uint32_t v) { return std::to_string(v); }
std::string show(const void *p) { return p == nullptr ? "NULL" : p == gBuf[0] ? "b0" : p == gBuf[1] ? "b1" : "?"; }

template <size_t Slot, class... A>
int32_t fake(uint32_t unit, A... args) {
  std::string s = "slot" + std::to_string(Slot) + "(" + std::to_string(unit);
  ((s += ", " + show(args)), ...);
  gFakeCalls.push_back(s + ")");
  return gFakeCode;
}

template <size_t Slot, class... A>
void installFake(NpClkDriverFuncs &t, int32_t (*)(uint32_t, A...)) {
  t.*fwmclk::np::kMemberOf<Slot> = &fake<Slot, A...>;
}

template <size_t... S>
void installFakes(NpClkDriverFuncs &t, std::index_sequence<S...>) {
  (installFake<S + 1>(t, t.*fwmclk::np::kMemberOf<S + 1>), ...);
}

void installFakeDriver(uint32_t unit) {
  installFakes(g_fnNpClkDriver[unit], std::make_index_sequence<fwmclk::np::kSlotCount - 1>{});
}

// One entry: how to call it with sample arguments (second argument 3, then
// 4, 5, ...; pointers b0, b1, one of them null on request) and what it shows.
struct Row {
  const char *name;
  size_t slot;
  std::function<int32_t(uint32_t unit, int nullWhich)> call;
  int pointers;                  // required pointers (null-checked)
  const char *args;              // what the slot receives after the unit
  const char *nullLine;          // nullptr: no null check
  const char *param;             // MSG line for unit 2; nullptr: none
  uint32_t port = 3;             // port in the report
  const char *oda = nullptr;     // on the adapter: its engine-driver call
  const char *reason = nullptr;  // and its reason for that call's failure
};

#define E(fn) [](uint32_t u, [[maybe_unused]] int n) { return CLK_NP_1588_##fn; }
#define P(T, i) buf<T>(n, i)

// clang-format off
const Row kRows[] = {
    {"SetSsmRxEnable", 1, E(SetSsmRxEnable(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetSsmRxEnable: Unit=[2], Port=[3], Enable=[4]).", 3, "oda_1588_set_ssm_rx_en(2, 3, 4)", "[1588]set ssm rx enable"},
    {"SetPtpCtrl", 2, E(SetPtpCtrl(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetPtpCtrl: Unit=[2], Port=[3], Type=[4], Value=[5]).", 3, "oda_1588_set_ptp_control(2, 3, 4, 5, 0)", "[1588]set ptp control"},
    {"GetPtpCtrl", 3, E(GetPtpCtrl(u, 3, P(ClkNpPtpCtrlRec, 0))), 1, "3, b0", "[CLK_NP] GetPtpCtrl, null pointer", "1588.(parameter in GetPtpCtrl: Unit=[2], Type=[3]).", 3, "oda_1588_get_ptp_control(2, 3, &)", "[1588]get ptp control"},
    {"SetPtpState", 4, E(SetPtpState(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetPtpState: Unit=[2], Port=[3], State=[4]).", 3, "oda_1588_set_ptp_state(2, 3, 4)", "[1588]set ptp state"},
    {"GetPtpState", 5, E(GetPtpState(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] GetPtpState, null pointer", nullptr, 3, "oda_1588_get_ptp_state(2, 3, &)", "[1588]get ptp state"},
    {"SetEncapType", 6, E(SetEncapType(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetEncapType: Unit=[2], Port=[3], Tb=[4], Encap=[5])."},
    {"GetEncapType", 7, E(GetEncapType(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] GetEncapType, null pointer", nullptr, 3, "oda_1588_get_encap_type(2, 3, &)", "[1588]get encap type"},
    {"SetEncapDaSel", 8, E(SetEncapDaSel(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, nullptr, 3, "oda_1588_set_encap_da_sel(2, 3, 4, 5)", "[1588]set encap da sel"},
    {"SetEncapDipSel", 9, E(SetEncapDipSel(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, nullptr, 3, "oda_1588_set_encap_dip_sel(2, 3, 4, 5)", "[1588]set encap dip sel"},
    {"SetEncapFlagFieldSel", 10, E(SetEncapFlagFieldSel(u, 3, 4, 0)), 0, "3, 4, 0", nullptr, nullptr, 3, "oda_1588_set_encap_flagfield_sel(2, 3, 4, 0)", "[1588]set encap flagfield sel"},
    {"SetEncapFlagField", 11, E(SetEncapFlagField(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetEncapFlagField: Unit=[2], Port=[3], FlagField=[4]).", 3, "oda_1588_set_encap_flagfield(2, 3, 4)", "[1588]set encap flag"},
    {"GetEncapFlagField", 12, E(GetEncapFlagField(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] GetEncapFlagField, null pointer", nullptr, 3, "oda_1588_get_encap_flagfield(2, 3, &)", "[1588]get encap flag"},
    {"SetEncapDomainNumber", 13, E(SetEncapDomainNumber(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetEncapDomainNumber: Unit=[2], Port=[3], DomainNum=[4]).", 3, "oda_1588_set_encap_domain_number(2, 3, 4)", "[1588]set encap domain number"},
    {"GetEncapDomainNumber", 14, E(GetEncapDomainNumber(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] GetEncapDomainNumber, null pointer", nullptr, 3, "oda_1588_get_encap_domain_number(2, 3, &)", "[1588]get encap domain number"},
    {"SetEncapSportIdentityTx", 15, E(SetEncapSportIdentityTx(u, 3, P(ClkNpPortIdentity, 0))), 1, "3, b0", "[CLK_NP] SetEncapSportIdentityTx, null pointer", "1588.(parameter in SetEncapSportIdentityTx: Unit=[2], Port=[3]).", 3, "oda_1588_set_encap_sport_identity_tx(2, 3, [11, 12, 100990976])", "[1588]set encap sport identity tx"},
    {"GetEncapSportIdentityTx", 16, E(GetEncapSportIdentityTx(u, 3, P(ClkNpPortIdentity, 0))), 1, "3, b0", "[CLK_NP] GetEncapSportIdentityTx, null pointer", nullptr, 3, "oda_1588_get_encap_sport_identity_tx(2, 3, &)", "[1588]get encap sport identity tx"},
    {"SetEncapSportIdentityRx", 17, E(SetEncapSportIdentityRx(u, 3, 1, P(ClkNpPortIdentity, 0))), 1, "3, 1, b0", "[CLK_NP] SetEncapSportIdentityRx, null pointer", "1588.(parameter in SetEncapSportIdentityRx: Unit=[2], Port=[3], Type=[1]).", 3, "oda_1588_set_encap_sport_identity_rx(2, 3, 1, [11, 12, 100990976])", "[1588]set encap sport identity rx"},
    {"GetEncapSportIdentityRx", 18, E(GetEncapSportIdentityRx(u, 3, 1, P(ClkNpPortIdentity, 0))), 1, "3, 1, b0", "[CLK_NP] GetEncapSportIdentityRx, null pointer", nullptr, 3, "oda_1588_get_encap_sport_identity_rx(2, 3, 1, &)", "[1588]get encap sport identity rx"},
    {"SetEncapDa", 19, E(SetEncapDa(u, 3, 4, P(uint8_t, 0))), 0, "3, 4, b0", nullptr, "1588.(parameter in SetEncapDa: Unit=[2], Port=[3],PktType=[4]).", 3, "oda_1588_set_encap_da(2, 3, 4, 0B:00:00:00:0C:00)", "[1588]set encap da"},
    {"SetEncapSa", 20, E(SetEncapSa(u, 3, 4, P(uint8_t, 0))), 0, "3, 4, b0", nullptr, "1588.(parameter in SetEncapSa: Unit=[2], Port=[3], PktType=[4]).", 3, "oda_1588_set_encap_sa(2, 3, 4, 0B:00:00:00:0C:00)", "[1588]set encap sa"},
    {"SetEncapDip", 21, E(SetEncapDip(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetEncapDip: Unit=[2], Port=[3], PktType=[4], Dip=[5]).", 3, "oda_1588_set_encap_dip(2, 3, 4, 5)", "[1588]set encap dip"},
    {"SetEncapSip", 22, E(SetEncapSip(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetEncapSip: Unit=[2], Port=[3], PktType=[4], Sip=[5]).", 3, "oda_1588_set_encap_sip(2, 3, 4, 5)", "[1588]set encap sip"},
    {"SetEncapDscp", 23, E(SetEncapDscp(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetEncapDscp: Unit=[2], Port=[3], Dscp=[4]).", 3, "oda_1588_set_encap_dscp(2, 3, 4)", "[1588]set encap dscp"},
    {"SetEncapVlan", 24, E(SetEncapVlan(u, 3, 4)), 0, "3, 4", nullptr, "1588.(parameter in SetEncapVlan: Unit=[2], Port=[3], Vlan=[4]).", 3, "oda_1588_set_encap_vlan(2, 3, 0x4)", "[1588]set encap vlan"},
    {"SetEncapUdpSport", 25, E(SetEncapUdpSport(u, 3, 4)), 0, "3, 4", nullptr, nullptr, 3, "oda_1588_set_encap_udp_sport(2, 3, 4)", "[1588]set encap udp sport"},
    {"SetEncapIpHeader", 26, E(SetEncapIpHeader(u, 3, P(void, 0))), 1, "3, b0", "[CLK_NP] SetEncapIpHeader, null pointer", nullptr, 3, "oda_1588_set_encap_ipheader(2, 3, &)", "[1588]set encap ip header"},
    {"SetPktTxEn", 27, E(SetPktTxEn(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetPktTxEn: Unit=[2], Port=[3], PktType=[4], Enable=[5]).", 3, "oda_1588_set_pkt_tx_en(2, 3, 4, 5)", "[1588]set pkt tx enable"},
    {"SetPktRxEn", 29, E(SetPktRxEn(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetPktRxEn: Unit=[2], Port=[3], PktType=[4], Enable=[5]).", 3, "oda_1588_set_pkt_rx_en(2, 3, 4, 5)", "[1588]set pkt rx enable"},
    {"SetPktInterval", 30, E(SetPktInterval(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetPktInterval: Unit=[2], Port=[3], PktType=[4], Interval=[5]).", 3, "oda_1588_set_pkt_interval(2, 3, 4, 5)", "[1588]set pkt interval"},
    {"GetPktstatAlarm", 31, E(GetPktstatAlarm(u, 3, 4, 5, P(uint32_t, 0))), 1, "3, 4, 5, b0", "[CLK_NP] GetPktstatAlarm, null pointer", nullptr, 3, "oda_1588_get_pkt_stat_alarm(2, 3, 4, 5, &)", "[1588]get pkt stat alarm"},
    {"GetPktstat", 32, E(GetPktstat(u, 3, 4, P(ClkNpPktStat, 0))), 1, "3, 4, b0", "[CLK_NP] GetPktstat, null pointer", "1588.(parameter in GetPktstat: Unit=[2], Port=[3], ReadClear=[4]).", 3, "oda_1588_get_pkt_stat(2, 3, 4, &)", "[1588]get pkt stat"},
    {"SetAnnounceTimeout", 33, E(SetAnnounceTimeout(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, "1588.(parameter in SetAnnounceTimeout: Unit=[2], Port=[3], Multiple=[4], Interval=[5]).", 3, "oda_1588_set_announce_timeout(2, 3, 4, 5)", "[1588]set announce timeout"},
    {"GetAnnounceAlarm", 34, E(GetAnnounceAlarm(u, 3, 1, 5, P(uint32_t, 0))), 1, "3, 1, 5, b0", "[CLK_NP] GetAnnounceAlarm, null pointer", nullptr, 3, "oda_1588_get_announce_alarm(2, 3, 1, 5, &)", "[1588]get announce alarm"},
    {"SetAnnounceAlarm", 35, E(SetAnnounceAlarm(u, 3, 1, 5)), 0, "3, 1, 5", nullptr, "1588.(parameter in SetAnnounceAlarm: Unit=[2], Port=[3], Type=[1], Exist=[5]).", 3, "oda_1588_set_announce_alarm(2, 3, 1, 5)", "[1588]set announce alarm"},
    {"SetAnnounceFieldTx", 36, E(SetAnnounceFieldTx(u, 3, P(ClkNpAnnFlags, 0), P(ClkNpAnnFields, 1))), 2, "3, b0, b1", "[CLK_NP] SetAnnounceFieldTx, null pointer", "1588.(parameter in SetAnnounceFieldTx: Unit=[2], Port=[3]).", 3, "oda_1588_set_announce_field_tx(2, 3, &, &)", "[1588]set announce field tx"},
    {"GetAnnounceFieldTx", 37, E(GetAnnounceFieldTx(u, 3, P(ClkNpAnnFlags, 0), P(ClkNpAnnFields, 1))), 2, "3, b0, b1", "[CLK_NP] GetAnnounceFieldTx, null pointer", nullptr, 3, "oda_1588_get_announce_field_tx(2, 3, &, &)", "[1588]get announce field tx"},
    {"GetAnnounceFieldRx", 38, E(GetAnnounceFieldRx(u, 3, 4, P(ClkNpAnnFlags, 0), P(ClkNpAnnFields, 1))), 2, "3, 4, b0, b1", "[CLK_NP] GetAnnounceFieldRx, null pointer", "1588.(parameter in GetAnnounceFieldRx: Unit=[2], Port=[3], ReadClear=[4]).", 3, "oda_1588_get_announce_field_rx(2, 3, 4, &, &)", "[1588]get announce field rx"},
    {"SetPortEn", 39, E(SetPortEn(u, 3, 4, P(ClkNpPortEnInfo, 0))), 1, "3, 4, b0", "[CLK_NP] SetPortEn, null pointer", "1588.(parameter in SetPortEn: unit=2, port=3, fwdunit=5, fwdport=6, enable=4)."},
    {"GetPortEn", 40, E(GetPortEn(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] GetPortEn, null pointer", nullptr, 3, "oda_1588_get_port_en(2, 3, &)", "[1588]get port enable"},
    {"GetTimestamp", 41, E(GetTimestamp(u, 3, P(ClkNpTimestamps, 0))), 1, "3, b0", "[CLK_NP] GetTimestamp, null pointer", "1588.(parameter in GetTimestamp: Unit=[2], Port=[3]).", 3, "oda_1588_get_timestamp(2, 3, &)", "[1588]get time stamp"},
    {"GetSsmStat", 42, E(GetSsmStat(u, 3, 4, P(void, 0))), 1, "3, 4, b0", "[CLK_NP] GetSsmStat, null pointer", nullptr, 3, "oda_1588_get_ssm_stat(2, 3, 4, &)", "[1588]get ssm stat"},
    {"GetDfxT2SubT1", 43, E(GetDfxT2SubT1(u, 3, 4, P(ClkNpDfxDelay, 0))), 1, "3, 4, b0", "[CLK_NP] GetDfxT2SubT1, null pointer", "1588.(parameter in GetDfxT2SubT1: Unit=[2], Port=[3], ReadClear=[4]).", 3, "oda_1588_get_dfx_t2_sub_t1(2, 3, 4, &)", "[1588]get dfx time of t2 sub t1"},
    {"GetDfxT4SubT3", 44, E(GetDfxT4SubT3(u, 3, 4, P(ClkNpDfxDelay, 0))), 1, "3, 4, b0", "[CLK_NP] GetDfxT4SubT3, null pointer", "1588.(parameter in GetDfxT4SubT3: Unit=[2], Port=[3], ReadClear=[4]).", 3, "oda_1588_get_dfx_t4_sub_t3(2, 3, 4, &)", "[1588]get dfx time of t4 sub t3"},
    {"SetPortTsReportEnable", 48, E(SetPortTsReportEnable(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpSetMac47bitModeEn", 49, E(PtpSetMac47bitModeEn(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpSetMacRxPortDelay", 50, E(PtpSetMacRxPortDelay(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, nullptr},
    {"PtpSetMacTxPortDelay", 51, E(PtpSetMacTxPortDelay(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, nullptr},
    {"PtpSetTspDelay", 52, E(PtpSetTspDelay(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpGetTspHeaderCnt", 53, E(PtpGetTspHeaderCnt(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] PtpGetTspHeaderCnt, null pointer", nullptr},
    {"PtpGetTsReportPort", 54, E(PtpGetTsReportPort(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] PtpGetTsReportPort, null pointer", nullptr},
    {"PtpSetI2cSlaveAddr", 55, E(PtpSetI2cSlaveAddr(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpSetRtcTime", 56, E(PtpSetRtcTime(u, 3, 4, 5)), 0, "3, 4, 5", nullptr, nullptr},
    {"PtpSetRtcNsAdjust", 57, E(PtpSetRtcNsAdjust(u, 3, P(void, 0))), 1, "3, b0", "[CLK_NP] PtpSetRtcNsAdjust, null pointer", nullptr},
    {"PtpSetTspRefreshEn", 58, E(PtpSetTspRefreshEn(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpClearTsCnt", 59, E(PtpClearTsCnt(u, 3)), 0, "3", nullptr, nullptr},
    {"PtpSetPortEnable", 60, E(PtpSetPortEnable(u, 3, 4)), 0, "3, 4", nullptr, nullptr},
    {"PtpGetPortTsReportEnable", 62, E(PtpGetPortTsReportEnable(u, 3, P(uint32_t, 0))), 1, "3, b0", "[CLK_NP] PtpGetPortTsReportEnable, null pointer", nullptr},
    {"PtpGetReportTs", 63, E(PtpGetReportTs(u, P(void, 0))), 1, "b0", "[CLK_NP] PtpGetReportTs, null pointer", nullptr, 0},
    {"PtpGetChannelTs", 64, E(PtpGetChannelTs(u, 3, P(void, 0))), 1, "3, b0", "[CLK_NP] PtpGetChannelTs, null pointer", nullptr},
};
// clang-format on

#undef E
#undef P

std::string reasonOf(const Row &r) { return std::string("NP_1588_") + r.name; }

std::vector<std::string> paramLines(const Row &r) {
  return r.param == nullptr ? std::vector<std::string>{} : std::vector{"LOG MSG " + std::string(r.param)};
}

using Entries = NpBoard;

// Units above seven are refused silently, before a null pointer's line, which
// comes before anything else.
TEST_F(Entries, RejectUnitsAboveSevenSilentlyThenNullPointersWithTheirLine) {
  installFakeDriver(0);
  installFakeDriver(2);
  for (const Row &r : kRows) {
    for (int nullWhich = -1; nullWhich < r.pointers; ++nullWhich) {
      for (uint32_t unit : {8u, 9u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        Timeline t;
        EXPECT_EQ(r.call(unit, nullWhich), CLK_NP_ERR_UNIT) << r.name << " " << unit;
        EXPECT_THAT(t.lines(), ::testing::IsEmpty()) << r.name << " " << unit;
      }
      if (nullWhich < 0) continue;
      Timeline t;
      EXPECT_EQ(r.call(2, nullWhich), CLK_NP_ERR_NULL_PTR) << r.name;
      EXPECT_THAT(t.lines(), ::testing::ElementsAre(std::string("DBG ") + r.nullLine)) << r.name << nullWhich;
    }
  }
  EXPECT_THAT(gFakeCalls, ::testing::IsEmpty());
}

// An empty slot is reported as FFFFFFF0 with the entry's reason. Arguments
// pass unchanged to a filled slot and its result comes back, reported unless
// it is 0 or -6 to -8.
TEST_F(Entries, EmptySlotThenArgumentsUnchangedAndDriverCodesReportedExceptMinusSixToMinusEight) {
  for (const Row &r : kRows) {
    Timeline t;
    EXPECT_EQ(r.call(2, -1), CLK_NP_ERR_NO_FUNC) << r.name;
    auto expected = paramLines(r);
    expected.push_back(report("FFFFFFF0", 2, r.port, reasonOf(r)));
    EXPECT_EQ(t.lines(), expected) << r.name;
  }
  installFakeDriver(2);
  const std::pair<int32_t, const char *> codes[] = {{0, nullptr},     {1, "1"},          {-9, "FFFFFFF7"},
                                                    {-5, "FFFFFFFB"}, {-99, "FFFFFF9D"}, {INT32_MIN, "80000000"},
                                                    {-6, nullptr},    {-7, nullptr},     {-8, nullptr}};
  for (const Row &r : kRows)
    for (const auto &[code, hex] : codes) {
      gFakeCode = code;
      gFakeCalls.clear();
      Timeline t;
      EXPECT_EQ(r.call(2, -1), code) << r.name;
      EXPECT_THAT(gFakeCalls, ::testing::ElementsAre("slot" + std::to_string(r.slot) + "(2, " + r.args + ")"));
      auto expected = paramLines(r);
      if (hex != nullptr) expected.push_back(report(hex, 2, r.port, reasonOf(r)));
      EXPECT_EQ(t.lines(), expected) << r.name << " " << code;
    }
  // With the parameter lines switched off nothing at all is shown.
  gFakeCode = 0;
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_MSG] = 0;
  for (const Row &r : kRows) {
    Timeline t;
    EXPECT_EQ(r.call(2, -1), 0) << r.name;
    EXPECT_THAT(t.lines(), ::testing::IsEmpty()) << r.name;
  }
}

// On the adapter each slot makes its one engine-driver call; a failing call is
// reported by the adapter, then by the entry, except codes 4, 6 and 7 (-6 to -8).
TEST_F(Entries, OnTheAdapterEachSlotCallsTheEngineOnceAndBothReportItsFailure) {
  clk_1588_driver_init(&g_fnNpClkDriver[2]);
  struct Code {
    uint32_t oda;
    int32_t mapped;
    const char *hex;  // nullptr: not reported
  };
  const Code codes[] = {{0, 0, nullptr},       {5, -5, "FFFFFFFB"}, {1, 1, "1"},
                        {16, -16, "FFFFFFF0"}, {3, -4, "FFFFFFFC"}, {300, 1, "1"},
                        {4, -6, nullptr},      {6, -8, nullptr},    {7, -7, nullptr}};
  for (const Row &r : kRows) {
    if (r.oda == nullptr) continue;
    for (const Code &c : codes) {
      seedBuffers();
      if (c.oda != 0) fwmsim::faults().inject(std::string(r.oda, std::strchr(r.oda, '(')), c.oda);
      Timeline t;
      EXPECT_EQ(r.call(2, -1), c.mapped) << r.name << " " << c.oda;
      auto expected = paramLines(r);
      expected.push_back(r.oda);
      if (c.hex != nullptr) {
        expected.push_back(report(c.hex, 2, r.port, r.reason));
        expected.push_back(report(c.hex, 2, r.port, reasonOf(r)));
      }
      EXPECT_EQ(t.lines(), expected) << r.name << " " << c.oda;
    }
  }
}

// The entries that leave the frame.
class NpExceptions : public NpBoard {};

TEST_F(NpExceptions, GetPktTxEnLogsAfterTheCallWithTheWordItFinds) {
  uint32_t enable = 7;
  Timeline empty;
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(2, 3, 1, &enable), CLK_NP_ERR_NO_FUNC);
  EXPECT_THAT(empty.lines(),
              ElementsAre(report("FFFFFFF0", 2, 3, "NP_1588_GetPktTxEn"),
                          "LOG MSG 1588.(parameter in GetPktTxEn: Unit=[2], Port=[3], PktType=[1], Enable=[7])."));

  clk_1588_driver_init(&g_fnNpClkDriver[2]);
  ASSERT_EQ(CLK_NP_1588_SetPktTxEn(2, 3, 1, 1), 0);
  enable = 0;
  Timeline read;
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(2, 3, 1, &enable), 0);
  EXPECT_EQ(enable, 1u);
  EXPECT_THAT(read.lines(),
              ElementsAre("oda_1588_get_pkt_tx_en(2, 3, 1, &)",
                          "LOG MSG 1588.(parameter in GetPktTxEn: Unit=[2], Port=[3], PktType=[1], Enable=[1])."));
  fwmsim::faults().inject("oda_1588_get_pkt_tx_en", 1);
  Timeline failed;
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(2, 3, 1, &enable), 1);
  EXPECT_EQ(failed.lines()[1], report("1", 2, 3, "[1588]get pkt tx enable"));
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(8, 3, 1, &enable), CLK_NP_ERR_UNIT);
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(7, 3, 1, &enable), CLK_NP_ERR_NO_FUNC);  // the last unit is served
}

TEST_F(NpExceptions, SetPortEnLogsInSignedDecimal) {
  ClkNpPortEnInfo info{.reserved = {}, .fwdUnit = 255, .fwdPort = 1, .fwdTarget = CLK_NP_FWD_TARGET_NONE};
  EXPECT_EQ(CLK_NP_1588_SetPortEn(7, 1, 1, &info), CLK_NP_ERR_NO_FUNC);  // the last unit is served
  Timeline t;
  EXPECT_EQ(CLK_NP_1588_SetPortEn(0, 4294967295u, 4294967294u, &info), CLK_NP_ERR_NO_FUNC);
  EXPECT_THAT(t.lines(),
              ::testing::ElementsAre(
                  "LOG MSG 1588.(parameter in SetPortEn: unit=0, port=-1, fwdunit=255, fwdport=1, enable=-2).",
                  "DBG Fe module error. (ErrCode=0xFFFFFFF0, Slot=1/3, Unit=0, Port=4294967295, Reason=Failed to "
                  "NP_1588_SetPortEn.)"));
}

TEST_F(NpExceptions, PlaceholdersAnswerZeroForAnyUnitAndDoNothing) {
  installFakeDriver(0);
  gFakeCalls.clear();
  Timeline t;
  for (uint32_t unit : {0u, 7u, 8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(CLK_NP_1588_SetSynceConfig(unit, 1u, nullptr), 0);
    EXPECT_EQ(CLK_NP_1588_GetPtpRtcTs(unit), 0);
    EXPECT_EQ(CLK_NP_1588_SetMacAsymDelay(unit, 1u, 2u, 3u), 0);
  }
  EXPECT_THAT(t.lines(), ::testing::IsEmpty());
  EXPECT_THAT(gFakeCalls, ::testing::IsEmpty());
}

// The report line itself (every entry row pins the common codes): silent for
// success and -6 to -8, which ask nothing of the board either.
TEST_F(NpExceptions, RetProcessPrintsCodeInCapitalHexWithChassisAndSlot) {
  fwmsim::board().chassisId = 2;
  fwmsim::board().slotId = 14;
  const size_t mark = fwmsim::recorder().mark();
  Timeline t;
  for (int32_t code : {0, -6, -7, -8}) CLK_NP_RetProcess(code, 1, 2, "x");
  EXPECT_THAT(fwmtest::callsSince(mark, "devm"), IsEmpty());
  for (int32_t code : {-1, 0x7FFFFFFF, 0xAB}) CLK_NP_RetProcess(code, 5, 4000000000u, "do it");
  const std::string line = ", Slot=2/14, Unit=5, Port=4000000000, Reason=Failed to do it.)";
  EXPECT_THAT(t.lines(), ElementsAre("DBG Fe module error. (ErrCode=0xFFFFFFFF" + line,
                                     "DBG Fe module error. (ErrCode=0x7FFFFFFF" + line,
                                     "DBG Fe module error. (ErrCode=0xAB" + line));
  std::vector<std::string> devm;
  for (int i = 0; i < 3; ++i) devm.insert(devm.end(), {"FWM_Srv_Get_ChassisId()", "FWM_Srv_Get_Slotid(2)"});
  EXPECT_EQ(fwmtest::callsSince(mark, "devm"), devm);
}

// Slot k of a table as an untyped pointer, for comparisons.
const void *slotOf(const NpClkDriverFuncs &t, size_t k) {
  const void *p = nullptr;
  std::memcpy(&p, reinterpret_cast<const char *>(&t) + k * sizeof p, sizeof p);
  return p;
}

size_t filledSlots(const NpClkDriverFuncs &t) {
  size_t n = 0;
  for (size_t k = 0; k < kSlotCount; ++k) n += slotOf(t, k) != nullptr ? 1u : 0u;
  return n;
}

using Install = fwmtest::BoardTest;

TEST_F(Install, AdapterOnlyForChipTypes31_33_40_42AndNeverBeyondUnitSeven) {
  FWM_SRV_1588_DriverInit();  // before start-up no engine is known: nothing is asked
  EXPECT_THAT(fwmtest::callsSince(0, "devm"), IsEmpty());
  const std::pair<uint32_t, bool> cases[] = {{30, false}, {31, true},  {32, false}, {33, true},         {34, false},
                                             {35, false}, {38, false}, {39, false}, {40, true},         {41, false},
                                             {42, true},  {43, false}, {0, false},  {0xFFFFFFFF, false}};
  g_fwmClkFeNum = 3;
  for (const auto &[chipType, adapter] : cases) {
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    fwmsim::board().chipType = chipType;
    const size_t mark = fwmsim::recorder().mark();
    FWM_SRV_1588_DriverInit();
    EXPECT_EQ(fwmtest::callsSince(mark, "devm"), std::vector<std::string>(3, "FWM_Srv_Get_ChipType()"));
    for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit)
      EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), adapter && unit < 3 ? 45u : 0u) << chipType << " " << unit;
  }
  EXPECT_THAT(fwmtest::callsSince(0, "oda"), IsEmpty());
  fwmsim::board().chipType = 31;  // never beyond unit seven
  for (uint32_t feNum : {8u, 9u, 200u, 255u}) {
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    g_fwmClkFeNum = static_cast<uint8_t>(feNum);
    FWM_SRV_1588_DriverInit();
    for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit) EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), 45u);
  }
}

// Slots beyond 44 keep what they held (markers in 45 and 64).
TEST(AdapterTable, FillsSlotsZeroToFortyFourAndLeavesTheRest) {
  NpClkDriverFuncs t;
  std::memset(&t, 0, sizeof t);
  t.reserved45 = +[](uint32_t) { return 45; };
  t.ptpGetChannelTs = +[](uint32_t, uint32_t, void *) { return 64; };
  clk_1588_driver_init(&t);
  EXPECT_EQ(slotOf(t, 0), reinterpret_cast<const void *>(&clk_1588_init));
  for (size_t k = 1; k < kSlotCount; ++k)
    EXPECT_EQ(slotOf(t, k) != nullptr, k < fwmclk::np::kAdapterSlots || k == 45 || k == 64) << "slot " << k;
  EXPECT_EQ(t.reserved45(0), 45);
  EXPECT_EQ(clk_1588_init(), 0);
}

class Adapter : public NpBoard {};

TEST(ErrorMap, MapsEngineCodesAsTabled) {
  const int32_t expected[17] = {0, 1, -2, -4, -6, -5, -8, -7, -99, -30, -9, -14, -1, -14, 1, 1, -16};
  for (uint32_t code = 0; code < 17; ++code)
    EXPECT_EQ(clk_1588_get_error_code_from_oda_error_code(code), expected[code]) << code;
  for (uint32_t code : {17u, 255u, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(clk_1588_get_error_code_from_oda_error_code(code), 1) << code;
}

// Packet types 0..8 and intervals 0..20 pass unchanged; others are refused
// with -4 and the out-of-range marker (13 to the engine, 9 back), a refused
// interval leaving its output alone.
TEST(Conversions, PacketTypesBothWaysAndIntervals) {
  auto check = [](uint32_t v) {
    uint32_t toOda = 99, toFe = 99, interval = 77;
    const bool type = v <= 8, known = v <= 20;
    EXPECT_EQ(clk_1588_pkt_type_fe_to_oda(&toOda, v), type ? 0 : -4) << v;
    EXPECT_EQ(clk_1588_pkt_type_oda_to_fe(v, &toFe), type ? 0 : -4) << v;
    EXPECT_EQ(clk_1588_interval_type_fe_to_oda(&interval, v), known ? 0 : -4) << v;
    EXPECT_EQ(toOda, type ? v : 13u) << v;
    EXPECT_EQ(toFe, type ? v : 9u) << v;
    EXPECT_EQ(interval, known ? v : 77u) << v;
  };
  for (uint32_t v = 0; v <= 21; ++v) check(v);
  for (uint32_t v : {255u, 0x80000000u, 0xFFFFFFFFu}) check(v);
}

// Each slot's engine-driver call and failure reports are checked through the
// NP entries above; here the adapter's own checks and multi-call slots.
// Values the adapter refuses before the engine is called.
struct Refusal {
  const char *name;
  std::function<int32_t()> call;
  const char *reason;  // nullptr: refused silently
};

// clang-format off
const Refusal kRefusals[] = {
    {"state10", [] { return clk_1588_set_ptp_state(1, 3, 10); }, nullptr},
    {"encap5", [] { return clk_1588_set_encap_type(1, 3, 9, 5); }, nullptr},
    {"setIdentityRxType2", [] { return clk_1588_set_encap_sport_identity_rx(1, 3, 2, buf<ClkNpPortIdentity>(-1, 1)); }, nullptr},
    {"getIdentityRxType2", [] { return clk_1588_get_encap_sport_identity_rx(1, 3, 2, buf<ClkNpPortIdentity>(-1, 0)); }, nullptr},
    {"flagFieldSel3", [] { return clk_1588_set_encap_flagfield_sel(1, 3, 1, 3); }, nullptr},
    {"getAlarmType2", [] { return clk_1588_get_announce_alarm(1, 3, 2, 1, buf<uint32_t>(-1, 0)); }, nullptr},
    {"setAlarmType2", [] { return clk_1588_set_announce_alarm(1, 3, 2, 1); }, nullptr},
    {"daSelPkt9", [] { return clk_1588_set_encap_da_sel(1, 3, 9, 0); }, "[1588]set encap da sel, invalid pkt type"},
    {"dipSelPkt9", [] { return clk_1588_set_encap_dip_sel(1, 3, 9, 0); }, "[1588]set encap dip sel, invalid pkt type"},
    {"flagFieldSelPkt9", [] { return clk_1588_set_encap_flagfield_sel(1, 3, 9, 3); }, "[1588]set encap flagfield sel, invalid pkt type"},
    {"daPkt9", [] { return clk_1588_set_encap_da(1, 3, 9, buf<uint8_t>(-1, 1)); }, "[1588]set encap da, invaild pkt type"},
    {"saPkt9", [] { return clk_1588_set_encap_sa(1, 3, 9, buf<uint8_t>(-1, 1)); }, "[1588]set encap sa, invaild pkt type"},
    {"dipPkt9", [] { return clk_1588_set_encap_dip(1, 3, 9, 1); }, "[1588]set encap dip, invaild pkt type"},
    {"sipPkt9", [] { return clk_1588_set_encap_sip(1, 3, 0xFFFFFFFF, 1); }, "[1588]set encap sip, invaild pkt type"},
    {"txEnPkt9", [] { return clk_1588_set_pkt_tx_en(1, 3, 9, 1); }, "[1588]set pkt tx enable, invaild pkt type"},
    {"getTxEnPkt9", [] { return clk_1588_get_pkt_tx_en(1, 3, 9, buf<uint32_t>(-1, 0)); }, "[1588]get pkt tx enable"},
    {"rxEnPkt9", [] { return clk_1588_set_pkt_rx_en(1, 3, 9, 1); }, "[1588]set pkt rx enable, invaild pkt type"},
    {"statAlarmPkt9", [] { return clk_1588_get_pkt_stat_alarm(1, 3, 9, 1, buf<uint32_t>(-1, 0)); }, "[1588]get pkt stat alarm"},
    {"interval21", [] { return clk_1588_set_pkt_interval(1, 3, 9, 21); }, "[1588]get oda interval"},
    {"intervalPkt9", [] { return clk_1588_set_pkt_interval(1, 3, 9, 20); }, "[1588]get oda pkt type"},
    {"timeoutInterval21", [] { return clk_1588_set_announce_timeout(1, 3, 3, 21); }, "[1588]set announce timeout"},
};
// clang-format on

TEST_F(Adapter, RefusesWithMinusFourAndNoEngineCall) {
  for (const Refusal &r : kRefusals) {
    Timeline t;
    EXPECT_EQ(r.call(), CLK_NP_ERR_PARAM) << r.name;
    const auto line =
        r.reason == nullptr ? std::vector<std::string>{} : std::vector{report("FFFFFFFC", 1, 3, r.reason)};
    EXPECT_EQ(t.lines(), line) << r.name;
  }
}

// Slot 6: encapsulation, then destination port and board (the calls are in the
// service's encapsulation rows); the first failure stops.
TEST_F(Adapter, EncapTypeStopsAtTheFirstFailure) {
  const std::tuple<int, const char *, size_t, const char *> steps[] = {
      {0, "oda_1588_set_encap_type", 1, "[1588]set encap type"},
      {0, "oda_1588_set_ptp_control", 2, "[1588]set dest port"},
      {1, "oda_1588_set_ptp_control", 3, "[1588]set dest board"}};
  for (const auto &[skip, fn, calls, reason] : steps) {
    fwmsim::faults().clear();
    fwmsim::faults().inject(fn, 2, 1, skip);
    const size_t mark = fwmsim::recorder().mark();
    Timeline t;
    EXPECT_EQ(clk_1588_set_encap_type(1, 3, 0x55, 0), -2);
    EXPECT_EQ(fwmtest::callsSince(mark, "oda").size(), calls) << reason;
    EXPECT_EQ(t.lines().back(), report("FFFFFFFE", 1, 3, reason));
  }
}

// Slot 39: the port control precedes the enable; its outcome is not the enable's.
TEST_F(Adapter, PortEnableProgramsPortControlTwiceFirst) {
  ClkNpPortEnInfo info{.reserved = {}, .fwdUnit = 0, .fwdPort = 0, .fwdTarget = 0xAB123456u};
  fwmsim::faults().inject("oda_port_set_control", 9, fwmsim::Faults::kAlways);
  Timeline t;
  EXPECT_EQ(clk_1588_set_port_en(1, 2049, 1, &info), 0);
  EXPECT_THAT(t.lines(), ElementsAre("oda_port_set_control(1, 0x4000001, {130, 1, 0, 0, 0, 0x3C123456})",
                                     "oda_port_set_control(1, 0x4000001, {254, 1, 0, 0, 0, 0x3C123456})",
                                     "oda_1588_set_port_en(1, 2049, 1)"));
  fwmsim::faults().clear();
  fwmsim::faults().inject("oda_1588_set_port_en", 10);
  Timeline failed;
  EXPECT_EQ(clk_1588_set_port_en(1, 6, 0, &info), -9);
  EXPECT_THAT(failed.lines(),
              ElementsAre("oda_port_set_control(1, 0x4000006, {130, 0, 0, 0, 0, 0x3C123456})",
                          "oda_port_set_control(1, 0x4000006, {254, 0, 0, 0, 0, 0x3C123456})",
                          "oda_1588_set_port_en(1, 6, 0)", report("FFFFFFF7", 1, 6, "[1588]set port enable")));
}

// Reads through a local buffer copy the caller's part back on success and
// leave the record alone on failure, whatever the engine wrote into the buffer.
struct ReadBack {
  const char *name;
  const char *fn;
  size_t size;
  std::function<int32_t(void *)> call;
};

// clang-format off
#define R(fn, Rec, ...) {#fn, "oda_1588_" #fn, sizeof(Rec), [](void *p) { return clk_1588_##fn(1, 3, __VA_ARGS__ static_cast<Rec *>(p)); }}
const ReadBack kReadBacks[] = {
    R(get_ptp_control, ClkNpPtpCtrlRec), R(get_ptp_state, uint32_t), R(get_encap_type, uint32_t),
    R(get_encap_sport_identity_tx, ClkNpPortIdentity), R(get_encap_sport_identity_rx, ClkNpPortIdentity, 1,),
    R(get_dfx_t4_sub_t3, ClkNpDfxDelay, 0,),
};
#undef R
// clang-format on

TEST_F(Adapter, LocalReadsCopyOnlyTheCallersSizeAndNothingOnFailure) {
  fwmsim::engine().setScribbleOnFault(true);
  for (const ReadBack &r : kReadBacks) {
    uint8_t record[32];
    std::memset(record, 0x3C, sizeof record);
    EXPECT_EQ(r.call(record), 0) << r.name;
    EXPECT_NE(std::count(record, record + r.size, 0x3C), static_cast<ptrdiff_t>(r.size)) << r.name;
    for (size_t i = r.size; i < sizeof record; ++i) ASSERT_EQ(record[i], 0x3C) << r.name << i;
    std::memset(record, 0x3C, sizeof record);
    fwmsim::faults().inject(r.fn, 1);
    EXPECT_EQ(r.call(record), CLK_NP_ERR_FAIL) << r.name;
    for (size_t i = 0; i < sizeof record; ++i) ASSERT_EQ(record[i], 0x3C) << r.name << i;
  }
  // A read straight into the caller's record keeps what the engine wrote.
  fwmsim::faults().inject("oda_1588_get_dfx_t2_sub_t1", 1);
  ClkNpDfxDelay delay{};
  EXPECT_EQ(clk_1588_get_dfx_t2_sub_t1(1, 3, 0, &delay), 1);
  EXPECT_EQ(delay.word[0], 0xA5A5A5A5u);
}

// The last accepted values reach the engine, a UDP port as its low 16 bits;
// the port control alone always answers 0; the control read hands word 0 in
// and returns two words; a null MAC programs zeros.
TEST_F(Adapter, AcceptedValuesPortControlControlReadAndNullMac) {
  Timeline t;
  EXPECT_EQ(clk_1588_set_ptp_state(1, 3, 9), 0);
  EXPECT_EQ(clk_1588_set_encap_flagfield_sel(1, 3, 8, 0), 0);
  EXPECT_EQ(clk_1588_set_announce_alarm(1, 3, 1, 0), 0);
  EXPECT_EQ(clk_1588_set_encap_udp_sport(1, 3, 65536 + 319), 0);
  EXPECT_THAT(t.lines(),
              ElementsAre("oda_1588_set_ptp_state(1, 3, 9)", "oda_1588_set_encap_flagfield_sel(1, 3, 8, 0)",
                          "oda_1588_set_announce_alarm(1, 3, 1, 0)", "oda_1588_set_encap_udp_sport(1, 3, 319)"));
  Timeline control;
  EXPECT_EQ(clk_oda_port_set_control(0, 0xFFFFFFFF, 0x00000001, 7), 0);
  EXPECT_EQ(clk_oda_port_set_control(0, 5, CLK_NP_FWD_TARGET_NONE, 1), 0);
  EXPECT_THAT(control.lines(), ElementsAre("oda_port_set_control(0, 0x40007FF, {130, 7, 0, 0, 0, 0x3C000001})",
                                           "oda_port_set_control(0, 0x40007FF, {254, 7, 0, 0, 0, 0x3C000001})"));
  ASSERT_EQ(clk_1588_set_ptp_control(1, 3, 31, 0x1234), 0);
  ClkNpPtpCtrlRec rec{{3, 99}};
  EXPECT_EQ(clk_1588_get_ptp_control(1, 31, &rec), 0);
  EXPECT_THAT(rec.word, ElementsAre(3u, 0x1234u));
  EXPECT_EQ(clk_1588_get_ptp_control(1, 30, &rec), 0);  // a type never set reads as 0
  EXPECT_THAT(rec.word, ElementsAre(3u, 0u));
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(clk_1588_set_encap_da(1, 3, 1, mac), 0);
  Timeline nullMac;
  EXPECT_EQ(clk_1588_set_encap_da(1, 3, 1, nullptr), 0);
  EXPECT_THAT(nullMac.lines(), ElementsAre("oda_1588_set_encap_da(1, 3, 1, 00:00:00:00:00:00)"));
  EXPECT_EQ(fwmsim::engine().port(1, 3).da[1], (fwmsim::Mac{}));
}

}  // namespace
