// Every platform function the library imports, failed in turn during one
// representative workload: a cold start with the log agent coming up, port
// configuration, announce supervision with acknowledgements to the peer,
// queries, and the channel and agent released at the end. Each failure must
// leave the process alive, show its defined outcome, and give back every
// memory block the run does not keep.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fwmclk/fwmclk.h"
#include "fwmclk/np.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"
#include "loader.hpp"
#include "runner.hpp"

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char *kWorkload = R"(
board: {chipType: 40, engines: 2, selfIp: 10.0.0.3, masterIp: 10.0.0.254, coldAgent: 1, logLevels: [INFO, MSG, ERROR]}
steps:
  - notify: startup
  - advance: 12s
  - notify: master_ip
  - set_ptp_glb_cfg: {slavePort: 3}
  - set_ptp_pkt_encap: {unit: 0, port: 3, targetBoard: 3, encapType: 3, vlanId: 100, dscp: 46, destMac: 01:00:5e:00:01:81, destIp: 224.0.1.129, srcIp: 10.3.0.1}
  - set_ptp_port_cfg: {unit: 0, port: 3, enable: 1, portState: 9, domainNumber: 24, ctrlType1Value: 1, annTimeoutMultiple: 3, ifIndex: 3}
  - set_ptp_rx_ctl: {unit: 0, port: 3, pktType: 2, rxEnable: 1, domainCheck: 1, srcPortIdCheck: 1}
  - set_ptp_tx_ctl: {unit: 0, port: 3, pktType: 2, txEnable: 1, interval: 1}
  - set_ptp_rx_src_port_id: {unit: 0, port: 3, pktType: 2, identity: [0x001b19ff, 0xfe00a001, 1]}
  - set_ptp_tx_src_port_id: {unit: 0, port: 3, identity: [0x001b19ff, 0xfe030003, 5]}
  - set_ptp_port_asym: {unit: 0, port: 3, asymmetry: -100}
  - set_ptp_port_pkt: {unit: 0, port: 3, clockClass: 6, grandmasterIdentity: 001b19.fffe.00a001}
  - set_ssm_port_cfg: {unit: 0, port: 3, ssmRxEn: 1}
  - advance: 2500ms
  - announce_received: {unit: 0, port: 3, grandmasterIdentity: 001b19.fffe.00a001, clockClass: 6, domainNumber: 24,
                       sourcePortIdentity: 001b19.fffe.00a001-1}
  - advance: 500ms
  - announce_timeout: {unit: 0, port: 3}
  - advance: 1s
  - alarms_cleared: {unit: 0, port: 3}
  - get_ptp_timestamp: {unit: 0, port: 3}
  - get_ptp_t2_sub_t1: {unit: 0, port: 3}
  - get_ptp_t4_sub_t3: {unit: 0, port: 3}
  - get_ptp_pkt_stat: {unit: 0, port: 3}
  - set_ptp_ann_clr: {unit: 0, port: 3}
  - set_ptp_port_cfg: {unit: 0, port: 3, enable: 0, portState: 1, domainNumber: 24, ifIndex: 3}
  - advance: 1s
)";

// What the run showed: requests with their results, log and debug lines,
// the peer's receptions, the simulator's notes.
struct Transcript : clksim::TraceObserver {
  std::vector<std::string> lines;
  void record(const clksim::TraceRecord &r) override {
    if (r.kind == clksim::TraceKind::StepEnd && !r.target.empty())
      lines.push_back(r.target + " = " + std::to_string(r.result.value_or(0)));
    else if (r.kind != clksim::TraceKind::StepBegin && r.kind != clksim::TraceKind::StepEnd)
      lines.push_back(r.text);
  }
};

struct Row {
  const char *function;
  int times;            // 0: every call; -1: the library never calls it (only its address is handed on)
  const char *with;     // a second import failed on every call, to reach the path that calls `function`
  int blocksKept;       // memory blocks the failure leaves allocated, beyond the clean run's
  const char *outcome;  // a line only the failure gives ("!line": one the failure suppresses; "": none visible)
  friend void PrintTo(const Row &r, std::ostream *os) { *os << r.function; }
};

constexpr size_t kCleanBlocks = 1;  // the enabled port's node

// After the scenario: the NP entries no operation reaches, the debug print
// and log paths, and the channel and agent released, each with its result.
void afterTheRun(std::vector<std::string> &out) {
  uint32_t w[16] = {};
  ClkNpPortEnInfo info{};
  auto np = [&](const char *name, int32_t r) { out.push_back(std::string(name) + " = " + std::to_string(r)); };
  np("GetPtpCtrl", CLK_NP_1588_GetPtpCtrl(0, 5, reinterpret_cast<ClkNpPtpCtrlRec *>(w)));
  np("GetPtpState", CLK_NP_1588_GetPtpState(0, 3, w));
  np("GetEncapType", CLK_NP_1588_GetEncapType(0, 3, w));
  np("GetEncapFlagField", CLK_NP_1588_GetEncapFlagField(0, 3, w));
  np("GetEncapDomainNumber", CLK_NP_1588_GetEncapDomainNumber(0, 3, w));
  np("GetEncapSportIdentityTx", CLK_NP_1588_GetEncapSportIdentityTx(0, 3, reinterpret_cast<ClkNpPortIdentity *>(w)));
  np("GetEncapSportIdentityRx", CLK_NP_1588_GetEncapSportIdentityRx(0, 3, 1, reinterpret_cast<ClkNpPortIdentity *>(w)));
  // A type the entry refuses: one report line, for the slot and time imports.
  np("GetEncapSportIdentityRx type 2",
     CLK_NP_1588_GetEncapSportIdentityRx(0, 3, 2, reinterpret_cast<ClkNpPortIdentity *>(w)));
  np("GetPktstatAlarm", CLK_NP_1588_GetPktstatAlarm(0, 3, 2, 0, w));
  np("GetPortEn", CLK_NP_1588_GetPortEn(0, 3, w));
  np("SetEncapDaSel", CLK_NP_1588_SetEncapDaSel(0, 3, 2, 1));
  np("SetEncapDipSel", CLK_NP_1588_SetEncapDipSel(0, 3, 2, 1));
  np("SetEncapFlagFieldSel", CLK_NP_1588_SetEncapFlagFieldSel(0, 3, 2, 1));
  np("SetEncapIpHeader", CLK_NP_1588_SetEncapIpHeader(0, 3, w));
  np("SetEncapUdpSport", CLK_NP_1588_SetEncapUdpSport(0, 3, 319));
  np("SetPortEn", CLK_NP_1588_SetPortEn(0, 3, 1, &info));
  np("GetSsmStat", CLK_NP_1588_GetSsmStat(0, 3, 0, w));
  g_clkSrvImAgentDebugSwitch[FWM_CLK_LOG_ERROR] = 1;
  np("debug log", FWM_SRV_ORCH_CLK_ImAgentDebugLog(FWM_CLK_LOG_ERROR, "matrix %d", 1));
  np("diag log", FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "matrix %d", 2));
  ClkImAgentSysTime t{};
  (void)FWM_SRV_ORCH_CLK_ImAgentGetSysTime(&t);
  np("sys time year", t.year);
  FWM_SRV_CLK_BkfUnInit();
  np("agent released", static_cast<int32_t>(FWM_SRV_ORCH_CLK_ImAgentUnInit()));
}

class FaultMatrix : public ::testing::TestWithParam<Row> {};

TEST_P(FaultMatrix, FailureGivesItsDefinedOutcomeAndLeavesNothingBehind) {
  const Row &row = GetParam();
  auto sc = std::get<clksim::Scenario>(clksim::loadScenario(kWorkload, "workload"));
  for (const char *fn : {row.with, row.function})
    if (const auto *f = fn != nullptr ? fwmsim::findFaultable(fn) : nullptr)
      sc.steps.insert(sc.steps.begin(), {{},
                                         "fail",
                                         clksim::Fail{fn, fwmsim::typicalFailure(f->failsAs),
                                                      fn == row.function && row.times > 0 ? row.times : -1, 0}});
  Transcript t;
  clksim::Runner runner(sc, {});
  runner.addObserver(&t);
  t.lines.push_back("run = " + std::to_string(runner.run()));
  const size_t mark = fwmsim::recorder().mark();
  afterTheRun(t.lines);
  fwmsim::clock().settle();
  for (auto &l : fwmsim::recorder().textsSince(mark)) t.lines.push_back(std::move(l));
  const int delivered = fwmsim::faults().delivered(row.function);
  fwmsim::faults().clear();

  if (row.times < 0) {
    EXPECT_EQ(delivered, 0) << "the library calls " << row.function;
  } else if (std::string_view(row.function) != "none") {
    EXPECT_GT(delivered, 0) << row.function << " was never called";
  }
  const std::string_view outcome = row.outcome;
  if (outcome.starts_with('!')) {
    EXPECT_THAT(t.lines, Not(Contains(HasSubstr(std::string(outcome.substr(1))))));
  } else if (!outcome.empty()) {
    EXPECT_THAT(t.lines, Contains(HasSubstr(std::string(outcome))));
  }
  EXPECT_EQ(fwmsim::memory().outstanding(), kCleanBlocks + static_cast<size_t>(row.blocksKept));
  if (HasFailure())
    for (const auto &l : t.lines) std::printf("| %s\n", l.c_str());
}

// Every call failed, the usual failure code, nothing more kept than the clean run.
constexpr Row R(const char *fn, const char *outcome) { return {fn, 0, nullptr, 0, outcome}; }

const Row kRows[] = {
    R("none", ""),
    R("BKF_CommInit", "[FWM_SRV_BKF] BkfInitComm fail!"),
    {"BKF_CommUninit", 0, nullptr, 1, ""},
    R("BKF_MeshCliChInit", "[FWM_SRV_BKF] BkfNftyInit fail!"),
    R("BKF_UrlMeshSet", "[FWM_SRV_BKF] BKF_UrlMeshSet ret=1"),
    R("CLOCK_NegoinfoiNtfyCliConnect", "SendAckMsgProc fail, ret=33."),
    R("CLOCK_NegoinfoiNtfyCliInit", "[FWM_SRV_BKF] Bkf is not ready!"),
    R("CLOCK_NegoinfoiNtfyCliMsgSend", "SendAckMsgProc fail, ret=1."),
    R("CLOCK_NegoinfoiNtfyCliUninit", ""),
    {"CLOCK_NegoinfoiSliceKeyCmp", -1, nullptr, 0, ""},
    {"CLOCK_NegoinfoiSliceKeyCodec", -1, nullptr, 0, ""},
    {"CLOCK_NegoinfoiSliceKeyGetStr", -1, nullptr, 0, ""},
    {"COMP_GetVTable", 0, nullptr, -1, "FWM_Srv_Clk_Notify(1) = 1"},
    R("DEVM_GetMasterBoardIp", ""),
    R("DEVM_GetSelfBoardIp", "IM_Agent_SetMainBoardIP(0x0,"),
    {"FWM_ORCH_CLK_RegSrvIntf", 0, nullptr, -1, "no operation table registered"},
    {"FWM_QUE_AsyRead", 1, nullptr, 0, ""},
    R("FWM_QUE_AsyWrite", "QueProcWrite fail, msgtype=1, writeCnt=0."),
    R("FWM_QUE_CreateNew", "[FWM_SRV_BKF] Create epoll que failed!"),
    {"FWM_QUE_Destory", 0, "FWM_QUE_EpollReg", 0, "Create epoll reg failed!, ret=1"},
    R("FWM_QUE_EpollReg", "[FWM_SRV_BKF] Create epoll reg failed!, ret=1"),
    R("FWM_Srv_Get_ChassisId", "Slot=0/3"),
    {"FWM_Srv_Get_ChipType", 0, nullptr, -1, "SetPtpGlbCfg(&ClkPtpGlbCfg) = 4294967280"},
    R("FWM_Srv_Get_FeNum", "SetPtpGlbCfg(&ClkPtpGlbCfg) = 4294967280"),
    R("FWM_Srv_Get_Slotid", "Slot=1/0"),
    R("FwmEpollTaskCreate", "[FWM_SRV_BKF] CreateBkfTask fail, ret=1"),
    R("IM_Agent_AddPara", "IM_Agent_ObjFree(&"),
    R("IM_Agent_Debug", "debug log = 1"),
    R("IM_Agent_GetHandle", ""),
    R("IM_Agent_Init", "IM_Agent_SetMainBoardIP(0x0,"),
    R("IM_Agent_ObjCreate", "Create object failed, return 0x1."),
    {"IM_Agent_ObjFree", 0, "IM_Agent_AddPara", 0, "IM_Agent_ObjFree(&"},
    R("IM_Agent_Send", "Send msg failed, return 0x1."),
    R("IM_Agent_SetMainBoardIP", ""),
    R("IM_Agent_UnInit", "agent released = 1"),
    {"MESH_Close", 0, "FWM_QUE_CreateNew", 0, "Create epoll que failed!"},
    R("MESH_EpollCreate", "[FWM_SRV_BKF] Create clk epoll failed!"),
    {"MESH_EpollWait", 1, nullptr, 0, ""},
    {"ORIN_HandleInitialize", 0, nullptr, -1, "FWM_Srv_Clk_Notify(1) = 1"},
    {"ORIN_MemAlloc", 0, nullptr, -1, "[FWM_SRV] PtpAddPort Malloc failed."},
    {"ORIN_MemFree", 0, nullptr, 3, ""},
    R("ORIN_ReltmrCbkStart", "ORIN_ReltmrCbkStart failed, Ret=1"),
    R("ORIN_ReltmrStop", ""),
    R("ORIN_SystimeGet", "sys time year = 0"),
    R("ORIN_TaskCreate", "debug log = 1"),
    R("QUAY_InitDeadloopMonitor", "Init Deadloop monitor failed ret=1"),
    R("Tarn_NpProcCtrlPacket", "FWM_Srv_Clk_Notify(1) = 1"),
    R("localtime_r", "!Fe module error"),
    R("memcpy_s", "SetPtpGlbCfg(&ClkPtpGlbCfg) = 4294967280"),
    R("memset_s", "!announce lost (no grandmaster)"),  // the loss is sent over unwiped bytes
    R("oda_1588_get_announce_alarm", "Reason=Failed to [1588]get announce alarm."),
    R("oda_1588_get_announce_field_rx", "Reason=Failed to [1588]get announce field rx."),
    R("oda_1588_get_announce_field_tx", "GetAnnounceFieldTx failed, Ret=1"),
    R("oda_1588_get_dfx_t2_sub_t1", "FWM_SRV_CLK_GetPtpT2SubT1(0, 3, 0, &ClkPtpDfxDelay) = 1"),
    R("oda_1588_get_dfx_t4_sub_t3", "FWM_SRV_CLK_GetPtpT4SubT3(0, 3, 0, &ClkPtpDfxDelay) = 1"),
    R("oda_1588_get_encap_domain_number", "GetEncapDomainNumber = 1"),
    R("oda_1588_get_encap_flagfield", "GetEncapFlagField = 1"),
    R("oda_1588_get_encap_sport_identity_rx", "GetEncapSportIdentityRx = 1"),
    R("oda_1588_get_encap_sport_identity_tx", "GetEncapSportIdentityTx = 1"),
    R("oda_1588_get_encap_type", "GetEncapType = 1"),
    R("oda_1588_get_pkt_stat", "FWM_SRV_CLK_GetPtpPktStat(0, 3, 0, &ClkPtpPktStat) = 1"),
    R("oda_1588_get_pkt_stat_alarm", "GetPktstatAlarm = 1"),
    R("oda_1588_get_pkt_tx_en", "SetPtpPortPktProc failed, Ret=1"),
    R("oda_1588_get_port_en", "GetPortEn = 1"),
    R("oda_1588_get_ptp_control", "GetPtpCtrl = 1"),
    R("oda_1588_get_ptp_state", "GetPtpState = 1"),
    R("oda_1588_get_ssm_stat", "GetSsmStat = 1"),
    R("oda_1588_get_timestamp", "FWM_SRV_CLK_GetPtpTimestamp(0, 3, &ClkPtpTimestamp) = 1"),
    R("oda_1588_set_announce_alarm", "FWM_SRV_CLK_SetPtpAnnClr(0, 3) = 1"),
    R("oda_1588_set_announce_field_tx", "SetPtpPortPkt failed, Ret=1"),
    R("oda_1588_set_announce_timeout", "SetPtpPortCfg2 failed, Ret=1"),
    R("oda_1588_set_encap_da", "Reason=Failed to [1588]set encap da."),
    R("oda_1588_set_encap_da_sel", "SetEncapDaSel = 1"),
    R("oda_1588_set_encap_dip", "Reason=Failed to [1588]set encap dip."),
    R("oda_1588_set_encap_dip_sel", "SetEncapDipSel = 1"),
    R("oda_1588_set_encap_domain_number", "FWM_SRV_CLK_SetPtpPortCfg(0, 3, 0xffffffff, &ClkPtpPortCfg) = 1"),
    R("oda_1588_set_encap_dscp", "SetPtpPktEncap failed, Ret=1"),
    R("oda_1588_set_encap_flagfield", "SetAnnPortPkt failed, unit=0 port=3 ret=1"),
    R("oda_1588_set_encap_flagfield_sel", "SetEncapFlagFieldSel = 1"),
    R("oda_1588_set_encap_ipheader", "SetEncapIpHeader = 1"),
    R("oda_1588_set_encap_sa", "Reason=Failed to [1588]set encap sa."),
    R("oda_1588_set_encap_sip", "Reason=Failed to [1588]set encap sip."),
    R("oda_1588_set_encap_sport_identity_rx", "Reason=Failed to [1588]set encap sport identity rx."),
    R("oda_1588_set_encap_sport_identity_tx", "SetEncapSportIdentityTx failed, ret = 1"),
    R("oda_1588_set_encap_type", "SetPtpPktEncapData failed, Ret=1"),
    R("oda_1588_set_encap_udp_sport", "SetEncapUdpSport = 1"),
    R("oda_1588_set_encap_vlan", "SetPtpEncapVlan failed, Ret=1"),
    R("oda_1588_set_pkt_interval", "Reason=Failed to [1588]set pkt interval."),
    R("oda_1588_set_pkt_rx_en", "Reason=Failed to [1588]set pkt rx enable."),
    R("oda_1588_set_pkt_tx_en", "Reason=Failed to [1588]set pkt tx enable."),
    R("oda_1588_set_port_en", "Reason=Failed to [1588]set port enable."),
    R("oda_1588_set_ptp_control", "Reason=Failed to [1588]set ptp control."),
    R("oda_1588_set_ptp_state", "Reason=Failed to [1588]set ptp state."),
    R("oda_1588_set_ssm_rx_en", "Reason=Failed to [1588]set ssm rx enable."),
    R("oda_port_set_control", ""),
    R("regDeadloopMon", "Register Deadloop monitor failed, ret=1"),
    R("sleep", ""),
    R("strcpy_s", ""),
    R("strftime", "\")  Fe module error"),
    R("syscall", "regDeadloopMon(4294967295"),
    R("time", "1969-12-31 23:59:59 Fe module error"),
    R("vsnprintf_s", "!Fe module error"),
    R("vsprintf_s", "512, \"\",")};

INSTANTIATE_TEST_SUITE_P(Imports, FaultMatrix, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row> &p) { return std::string(p.param.function); });

TEST(FaultMatrixTable, HasARowForEveryImportTheBoardCanFail) {
  std::vector<std::string_view> rows, imports;
  for (const Row &r : kRows) rows.emplace_back(r.function);
  for (const auto &f : fwmsim::faultables()) imports.push_back(f.function);
  rows.erase(rows.begin());  // "none"
  EXPECT_THAT(rows, ::testing::ElementsAreArray(imports));
}

}  // namespace
