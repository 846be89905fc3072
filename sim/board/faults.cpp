#include "fwmsim/faults.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fwmsim {

namespace {

using enum FailsAs;

// Every import but the ones without a failure outcome: dm_opers, free and
// strlen return nothing to fail, and malloc belongs to the C library (and to
// the sanitizers' allocators in the checked builds).
constexpr Faultable kFaultables[] = {
    {"BKF_CommInit", Zero},
    {"BKF_CommUninit", Nonzero},
    {"BKF_MeshCliChInit", Zero},
    {"BKF_UrlMeshSet", Nonzero},
    {"CLOCK_NegoinfoiNtfyCliConnect", Nonzero},
    {"CLOCK_NegoinfoiNtfyCliInit", Zero},
    {"CLOCK_NegoinfoiNtfyCliMsgSend", Nonzero},
    {"CLOCK_NegoinfoiNtfyCliUninit", Nonzero},
    {"CLOCK_NegoinfoiSliceKeyCmp", AnyValue},
    {"CLOCK_NegoinfoiSliceKeyCodec", Nonzero},
    {"CLOCK_NegoinfoiSliceKeyGetStr", Zero},
    {"COMP_GetVTable", Nonzero},
    {"DEVM_GetMasterBoardIp", Nonzero},
    {"DEVM_GetSelfBoardIp", Nonzero},
    {"FWM_ORCH_CLK_RegSrvIntf", Nonzero},
    {"FWM_QUE_AsyRead", NotPositive},
    {"FWM_QUE_AsyWrite", Zero},
    {"FWM_QUE_CreateNew", Zero},
    {"FWM_QUE_Destory", Nonzero},
    {"FWM_QUE_EpollReg", Nonzero},
    {"FWM_Srv_Get_ChassisId", AnyValue},
    {"FWM_Srv_Get_ChipType", AnyValue},
    {"FWM_Srv_Get_FeNum", AnyValue},
    {"FWM_Srv_Get_Slotid", AnyValue},
    {"FwmEpollTaskCreate", Nonzero},
    {"IM_Agent_AddPara", Nonzero},
    {"IM_Agent_Debug", Nonzero},
    {"IM_Agent_GetHandle", Zero},
    {"IM_Agent_Init", Zero},
    {"IM_Agent_ObjCreate", Nonzero},
    {"IM_Agent_ObjFree", Nonzero},
    {"IM_Agent_Send", Nonzero},
    {"IM_Agent_SetMainBoardIP", Nonzero},
    {"IM_Agent_UnInit", Nonzero},
    {"MESH_Close", Nonzero},
    {"MESH_EpollCreate", Negative},
    {"MESH_EpollWait", NotPositive},
    {"ORIN_HandleInitialize", Nonzero},
    {"ORIN_MemAlloc", Zero},
    {"ORIN_MemFree", Nonzero},
    {"ORIN_ReltmrCbkStart", Nonzero},
    {"ORIN_ReltmrStop", Nonzero},
    {"ORIN_SystimeGet", Nonzero},
    {"ORIN_TaskCreate", Nonzero},
    {"QUAY_InitDeadloopMonitor", Nonzero},
    {"Tarn_NpProcCtrlPacket", Nonzero},
    {"localtime_r", Zero},
    {"memcpy_s", Nonzero},
    {"memset_s", Nonzero},
    {"oda_1588_get_announce_alarm", Nonzero},
    {"oda_1588_get_announce_field_rx", Nonzero},
    {"oda_1588_get_announce_field_tx", Nonzero},
    {"oda_1588_get_dfx_t2_sub_t1", Nonzero},
    {"oda_1588_get_dfx_t4_sub_t3", Nonzero},
    {"oda_1588_get_encap_domain_number", Nonzero},
    {"oda_1588_get_encap_flagfield", Nonzero},
    {"oda_1588_get_encap_sport_identity_rx", Nonzero},
    {"oda_1588_get_encap_sport_identity_tx", Nonzero},
    {"oda_1588_get_encap_type", Nonzero},
    {"oda_1588_get_pkt_stat", Nonzero},
    {"oda_1588_get_pkt_stat_alarm", Nonzero},
    {"oda_1588_get_pkt_tx_en", Nonzero},
    {"oda_1588_get_port_en", Nonzero},
    {"oda_1588_get_ptp_control", Nonzero},
    {"oda_1588_get_ptp_state", Nonzero},
    {"oda_1588_get_ssm_stat", Nonzero},
    {"oda_1588_get_timestamp", Nonzero},
    {"oda_1588_set_announce_alarm", Nonzero},
    {"oda_1588_set_announce_field_tx", Nonzero},
    {"oda_1588_set_announce_timeout", Nonzero},
    {"oda_1588_set_encap_da", Nonzero},
    {"oda_1588_set_encap_da_sel", Nonzero},
    {"oda_1588_set_encap_dip", Nonzero},
    {"oda_1588_set_encap_dip_sel", Nonzero},
    {"oda_1588_set_encap_domain_number", Nonzero},
    {"oda_1588_set_encap_dscp", Nonzero},
    {"oda_1588_set_encap_flagfield", Nonzero},
    {"oda_1588_set_encap_flagfield_sel", Nonzero},
    {"oda_1588_set_encap_ipheader", Nonzero},
    {"oda_1588_set_encap_sa", Nonzero},
    {"oda_1588_set_encap_sip", Nonzero},
    {"oda_1588_set_encap_sport_identity_rx", Nonzero},
    {"oda_1588_set_encap_sport_identity_tx", Nonzero},
    {"oda_1588_set_encap_type", Nonzero},
    {"oda_1588_set_encap_udp_sport", Nonzero},
    {"oda_1588_set_encap_vlan", Nonzero},
    {"oda_1588_set_pkt_interval", Nonzero},
    {"oda_1588_set_pkt_rx_en", Nonzero},
    {"oda_1588_set_pkt_tx_en", Nonzero},
    {"oda_1588_set_port_en", Nonzero},
    {"oda_1588_set_ptp_control", Nonzero},
    {"oda_1588_set_ptp_state", Nonzero},
    {"oda_1588_set_ssm_rx_en", Nonzero},
    {"oda_port_set_control", Nonzero},
    {"regDeadloopMon", Nonzero},
    {"sleep", Nonzero},
    {"strcpy_s", Nonzero},
    {"strftime", Zero},
    {"syscall", Negative},
    {"time", Negative},
    {"vsnprintf_s", Negative},
    {"vsprintf_s", Negative},
};

}  // namespace

std::span<const Faultable> faultables() { return kFaultables; }

const Faultable *findFaultable(std::string_view fn) {
  for (const auto &f : kFaultables)
    if (f.function == fn) return &f;
  return nullptr;
}

std::string faultRefusal(std::string_view fn, uint32_t code) {
  const Faultable *f = findFaultable(fn);
  if (f == nullptr) return "the board cannot fail '" + std::string(fn) + "'";
  const auto s = static_cast<int32_t>(code);
  switch (f->failsAs) {
    case Nonzero:
      if (code == 0) return "code 0 means success for " + std::string(fn) + "; a failure is any other code";
      break;
    case Zero:
      if (code != 0) return std::string(fn) + " fails only with 0 (nothing made); another code claims success";
      break;
    case Negative:
      if (s >= 0)
        return std::string(fn) + " fails only with a negative result; " + std::to_string(s) + " means success";
      break;
    case NotPositive:
      if (s > 0)
        return std::string(fn) + " fails only with 0 or less (nothing read); " + std::to_string(s) +
               " claims entries it never wrote";
      break;
    case AnyValue:
      break;
  }
  return {};
}

void Faults::inject(std::string fn, uint32_t code, int times, int skip) {
  if (std::string why = faultRefusal(fn, code); !why.empty()) {
    std::fprintf(stderr, "fwmsim: fault not injected: %s\n", why.c_str());
    std::abort();
  }
  std::lock_guard lk(mu_);
  plans_[std::move(fn)] = Plan{code, times, skip};
  planned_.store(plans_.size(), std::memory_order_release);
}

std::optional<uint32_t> Faults::take(std::string_view fn) {
  if (planned_.load(std::memory_order_acquire) == 0) return std::nullopt;
  std::lock_guard lk(mu_);
  auto it = plans_.find(fn);
  if (it == plans_.end()) return std::nullopt;
  Plan &p = it->second;
  if (p.skip > 0) {
    --p.skip;
    return std::nullopt;
  }
  uint32_t code = p.code;
  ++delivered_[it->first];
  if (p.times != kAlways && --p.times <= 0) {
    plans_.erase(it);
    planned_.store(plans_.size(), std::memory_order_release);
  }
  return code;
}

int Faults::delivered(std::string_view fn) const {
  std::lock_guard lk(mu_);
  auto it = delivered_.find(fn);
  return it == delivered_.end() ? 0 : it->second;
}

void Faults::clear() {
  std::lock_guard lk(mu_);
  plans_.clear();
  delivered_.clear();
  planned_.store(0, std::memory_order_release);
}

Faults &faults() {
  static auto *f = new Faults;
  return *f;
}

}  // namespace fwmsim
