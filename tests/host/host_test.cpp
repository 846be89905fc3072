// A host that compares every function pointer the library hands it with its own
// reference to the function. Built as a position-independent executable and
// without position-independent code, which gives each library function whose
// address it takes a canonical address in the executable: the library must hand
// out that one too.
#include <dlfcn.h>

#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/bkf.h"
#include "fwmclk/platform/fwm_que.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmclk/platform/orch.h"
#include "fwmclk/platform/orin.h"
#include "fwmsim/channel.hpp"
#include "testkit.hpp"

namespace {

template <class Fn>
const void *p(Fn fn) {
  return reinterpret_cast<const void *>(fn);
}

// What the host's platform functions were handed, by what for. Filled from
// the library's threads.
std::mutex gMu;
std::map<std::string, const void *> gHeld;
void hold(const std::string &what, const void *fn) {
  const std::lock_guard lock(gMu);
  gHeld[what] = fn;
}

// A table's function pointers, held as "<prefix><slot number>".
template <size_t N, class Table>
void holdSlots(const std::string &prefix, const Table &table) {
  static_assert(sizeof(Table) == N * sizeof(void (*)()));
  void (*slots[N])();
  std::memcpy(slots, &table, sizeof slots);
  for (size_t k = 0; k < N; ++k) hold(prefix + std::to_string(k), p(slots[k]));
}

// The simulated board's own implementation, to which the host hands each call on.
template <class Fn>
Fn board(const char *name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
#define BOARD(fn) board<decltype(&(fn))>(#fn)

}  // namespace

// The platform functions through which the library hands functions over.
extern "C" {
uint32_t FWM_ORCH_CLK_RegSrvIntf(void *intf) {
  holdSlots<FWM_CLK_ORCH_SLOT_NUM>("orchestrator slot ", *static_cast<ClkSrvOrchIntf *>(intf));
  return BOARD(FWM_ORCH_CLK_RegSrvIntf)(intf);
}
uint32_t IM_Agent_Init(void *para) {
  const auto *rec = static_cast<ClkImAgentInitPara *>(para);
  hold("agent memAlloc", p(rec->memAlloc)), hold("agent memFree", p(rec->memFree));
  hold("agent logTrace", p(rec->logTrace)), hold("agent getSysTime", p(rec->getSysTime));
  return BOARD(IM_Agent_Init)(para);
}
uint32_t ORIN_TaskCreate(const char *name, uint32_t *id, ORIN_TASK_ENTRY entry, uint32_t a1, uint32_t a2, uint32_t a3,
                         uint32_t args[4]) {
  hold(std::string("task ") + name, p(entry));
  return BOARD(ORIN_TaskCreate)(name, id, entry, a1, a2, a3, args);
}
uint32_t FwmEpollTaskCreate(const char *name, uint32_t *id, FWM_EPOLL_TASK_ENTRY entry, uint32_t arg) {
  hold(std::string("task ") + name, p(entry));
  return BOARD(FwmEpollTaskCreate)(name, id, entry, arg);
}
uint32_t FWM_QUE_EpollReg(uint32_t queue, int32_t epollFd, MESH_EPOLL_HANDLER handler) {
  hold("queue handler", p(handler));
  return BOARD(FWM_QUE_EpollReg)(queue, epollFd, handler);
}
uintptr_t BKF_CommInit(void *initRec) {
  const auto *rec = static_cast<ClkBkfCommInitRec *>(initRec);
  hold("framework memAlloc", p(rec->memAlloc)), hold("framework memFree", p(rec->memFree));
  hold("framework recordLog", p(rec->recordLog)), hold("framework sysLogPrintf", p(rec->sysLogPrintf));
  hold("framework timerStartOnce", p(rec->timerStartOnce)), hold("framework timerStop", p(rec->timerStop));
  hold("framework timerStartLoop", p(rec->timerStartLoop));
  return BOARD(BKF_CommInit)(initRec);
}
uint32_t ORIN_ReltmrCbkStart(uint32_t *timer, uint32_t memHandle, uint32_t length, uint32_t reserved, uintptr_t param,
                             uint32_t mode, ORIN_RELTMR_CALLBACK callback) {
  if (mode == 0) hold("one-shot timer callback", p(callback));
  return BOARD(ORIN_ReltmrCbkStart)(timer, memHandle, length, reserved, param, mode, callback);
}
}  // extern "C"

namespace {

// The host's own references, by what the library should have handed over:
// the orchestrator's slots and the adapter's operations in slot order, then
// one function each.
// clang-format off
const void *const kOrchOps[] = {
    p(FWM_SRV_CLK_SetPtpGlbCfg), p(FWM_SRV_CLK_SetPtpPortCfg), p(FWM_SRV_CLK_SetPtpPktEncap), p(FWM_SRV_CLK_SetPtpRxCtl),
    p(FWM_SRV_CLK_SetPtpTxCtl), p(FWM_SRV_CLK_SetPtpRxSrcPortId), p(FWM_SRV_CLK_SetPtpTxSrcPortId),
    p(FWM_SRV_CLK_SetPtpPortAsym), p(FWM_SRV_CLK_SetPtpPortPkt), p(FWM_SRV_CLK_SetPtpAnnClr),
    p(FWM_SRV_CLK_GetPtpTimestamp), p(FWM_SRV_CLK_GetPtpT2SubT1), p(FWM_SRV_CLK_GetPtpT4SubT3),
    p(FWM_SRV_CLK_GetPtpPktStat), p(FWM_SRV_CLK_SetSsmPortCfg)};
const void *const kAdapterOps[] = {
    p(clk_1588_init), p(clk_1588_set_ssm_rx_enable), p(clk_1588_set_ptp_control), p(clk_1588_get_ptp_control),
    p(clk_1588_set_ptp_state), p(clk_1588_get_ptp_state), p(clk_1588_set_encap_type), p(clk_1588_get_encap_type),
    p(clk_1588_set_encap_da_sel), p(clk_1588_set_encap_dip_sel), p(clk_1588_set_encap_flagfield_sel),
    p(clk_1588_set_encap_flagfield), p(clk_1588_get_encap_flagfield), p(clk_1588_set_encap_domain_number),
    p(clk_1588_get_encap_domain_number), p(clk_1588_set_encap_sport_identity_tx),
    p(clk_1588_get_encap_sport_identity_tx), p(clk_1588_set_encap_sport_identity_rx),
    p(clk_1588_get_encap_sport_identity_rx), p(clk_1588_set_encap_da), p(clk_1588_set_encap_sa),
    p(clk_1588_set_encap_dip), p(clk_1588_set_encap_sip), p(clk_1588_set_encap_dscp), p(clk_1588_set_encap_vlan),
    p(clk_1588_set_encap_udp_sport), p(clk_1588_set_encap_ipheader), p(clk_1588_set_pkt_tx_en),
    p(clk_1588_get_pkt_tx_en), p(clk_1588_set_pkt_rx_en), p(clk_1588_set_pkt_interval), p(clk_1588_get_pkt_stat_alarm),
    p(clk_1588_get_pkt_stat), p(clk_1588_set_announce_timeout), p(clk_1588_get_announce_alarm),
    p(clk_1588_set_announce_alarm), p(clk_1588_set_announce_field_tx), p(clk_1588_get_announce_field_tx),
    p(clk_1588_get_announce_field_rx), p(clk_1588_set_port_en), p(clk_1588_get_port_en), p(clk_1588_get_time_stamp),
    p(clk_1588_get_ssm_stat), p(clk_1588_get_dfx_t2_sub_t1), p(clk_1588_get_dfx_t4_sub_t3)};
const std::pair<const char *, const void *> kOthers[] = {
    {"agent memAlloc", p(FWM_SRV_ORCH_CLK_ImAgentMemAlloc)}, {"agent memFree", p(FWM_SRV_ORCH_CLK_ImAgentMemFree)},
    {"agent logTrace", p(FWM_SRV_ORCH_CLK_ImAgentLogTrace)}, {"agent getSysTime", p(FWM_SRV_ORCH_CLK_ImAgentGetSysTime)},
    {"task ClkSrvIMAgent", p(FWM_SRV_ORCH_CLK_ImAgentInitTaskEntry)},
    {"task ClkSrvIMAgentUpdateMasterIp", p(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIpTaskEntry)},
    {"task CLK_FWM_BKF", p(FWM_SRV_CLK_BkfProcThread)}, {"queue handler", p(FWM_SRV_BKF_QueueDataProc)},
    {"dispatch 0", p(FWM_SRV_BKF_ProcQueNegoiTimer)}, {"dispatch 1", p(FWM_SRV_BKF_ProcQueSendAckMsg)},
    {"framework memAlloc", p(FWM_SRV_BkfMalloc)}, {"framework memFree", p(FWM_SRV_BkfFree)},
    {"framework recordLog", p(FWM_SRV_BkfRecordLog)}, {"framework sysLogPrintf", p(FWM_SRV_BkfSysLogPrintf)},
    {"framework timerStartOnce", p(FWM_SRV_BKF_TimerStartOnce)}, {"framework timerStartLoop", p(FWM_SRV_BKF_TimerStartLoop)},
    {"framework timerStop", p(FWM_SRV_BKF_TimerStop)}, {"one-shot timer callback", p(FWM_SRV_BKF_TimerOutProc)}};
// clang-format on

std::vector<std::pair<std::string, const void *>> hostReferences() {
  std::vector<std::pair<std::string, const void *>> rows(std::begin(kOthers), std::end(kOthers));
  auto slots = [&rows](const std::string &prefix, const auto &ops) {
    for (size_t k = 0; k < std::size(ops); ++k) rows.emplace_back(prefix + std::to_string(k), ops[k]);
  };
  slots("orchestrator slot ", kOrchOps), slots("unit 0 slot ", kAdapterOps), slots("unit 1 slot ", kAdapterOps);
  return rows;
}

void noTimerWork(uintptr_t) {}

}  // namespace

// One test name per build, so that the two executables' tests stay apart.
#define HOST_TEST(kind) TEST(kind, EveryFunctionHandedOutIsTheOneTheHostKnows)
HOST_TEST(FWMCLK_HOST_KIND) {
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
  fwmsim::clock().advance(5000);  // the agent's task brings the agent up
  ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP), 0);
  // An enabled port on the Mira board brings the channel up on its worker.
  ClkPtpPortCfg cfg{};
  cfg.enable = 1;
  ASSERT_EQ(FWM_SRV_CLK_SetPtpPortCfg(0, 3, 0xFFFFFFFFu, &cfg), 0u);
  fwmsim::clock().settle();
  ASSERT_NE(fwmsim::framework().startTimerOnce(noTimerWork, 100, 0), nullptr);
  holdSlots<CLK_NP_SLOT_NUM>("unit 0 slot ", g_fnNpClkDriver[0]),
      holdSlots<CLK_NP_SLOT_NUM>("unit 1 slot ", g_fnNpClkDriver[1]);
  hold("dispatch 0", p(g_clkBkfQueMsgDispatchTbl[0].proc)), hold("dispatch 1", p(g_clkBkfQueMsgDispatchTbl[1].proc));

  const std::lock_guard lock(gMu);
  for (const auto &[what, own] : hostReferences()) EXPECT_EQ(gHeld[what], own) << what;
}
