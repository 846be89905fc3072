// The clock orchestrator's registration and the control-packet security module.
#include "fwmclk/platform/orch.h"
#include <algorithm>

#include "fwmclk/platform/tarn.h"
#include "fwmsim/board.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

extern "C" {

uint32_t FWM_ORCH_CLK_RegSrvIntf(void *intf) {
  fwmsim::record("orch", "FWM_ORCH_CLK_RegSrvIntf", fwmsim::Ptr{intf});
  if (auto code = fwmsim::faults().take("FWM_ORCH_CLK_RegSrvIntf")) return *code;
  auto *slots = static_cast<void **>(intf);
  fwmsim::orchestrator().registrations.emplace_back(slots, slots + 15);
  return fwmsim::orchestrator().regResult;
}

uint32_t Tarn_NpProcCtrlPacket(uint32_t operation, void *rule) {
  const auto *bytes = static_cast<const uint8_t *>(rule);
  std::vector<uint8_t> rec(bytes, bytes + 396);
  fwmsim::recorder().add("tarn", fwmsim::call("Tarn_NpProcCtrlPacket", operation, fwmsim::Ptr{rule}), rec);
  auto &rules = fwmsim::orchestrator().rules;
  const bool present = std::find(rules.begin(), rules.end(), rec) != rules.end();
  rules.push_back(std::move(rec));
  if (auto code = fwmsim::faults().take("Tarn_NpProcCtrlPacket")) return *code;
  // The module keeps what it installed; the same rule again is reported, not added.
  return present ? 5u : 0u;
}

}  // extern "C"
