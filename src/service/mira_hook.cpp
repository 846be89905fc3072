// The Mira-family hook of the port configuration.
#include "fwmclk/service_ops.h"
#include "platform/devm.h"
#include "service/svc_common.hpp"

namespace {

constexpr uint32_t kChipTypeMira = 40;

}  // namespace

extern "C" {

// Only Mira boards supervise received announces; every other chip is left alone.
uint32_t FWM_SRV_CLK_MIRASpecialProc(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  (void)cfg;
  if (FWM_Srv_Get_ChipType() != kChipTypeMira) return 0;
  (void)FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "[FWM_SRV] MIRASpecialProc unit=%u port=%u", unit, port);
  return 0;
}

}  // extern "C"
