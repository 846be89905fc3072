// The Mira-family hook of the port configuration: records the port for the
// announce supervision, makes sure the channel's worker exists, and keeps the
// announce timer running exactly while some port is enabled.
#include "fwmclk/channel.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/service_ops.h"
#include "fwmclk/supervision.h"
#include "service/svc_common.hpp"

namespace {

constexpr uint32_t kChipTypeMira = 40;

}  // namespace

extern "C" {

// Only Mira boards supervise received announces; every other chip is left alone.
uint32_t FWM_SRV_CLK_MIRASpecialProc(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  if (FWM_Srv_Get_ChipType() != kChipTypeMira) return 0;
  FWM_SRV_CLK_InitLocal();
  // A port that could not be recorded is simply not supervised; the rest goes on.
  (void)FWM_SRV_CLK_SavePtpPortCfg(unit, port, cfg);
  (void)FWM_SRV_CLK_CreateBkfTask();
  if (cfg->enable == 1) {
    FWM_SRV_CLK_PtpAnnTimerEntry();
  } else {
    (void)FWM_SRV_CLK_PtpAnnTimerDestroy();
  }
  (void)FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "[FWM_SRV] MIRASpecialProc unit=%u port=%u", unit, port);
  return 0;
}

}  // extern "C"
