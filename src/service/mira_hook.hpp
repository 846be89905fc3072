// The Mira-family hook of the port configuration: records the port for the
// announce supervision, makes sure the channel's worker exists, and keeps the
// announce timer running exactly while some port is enabled. Inline, because
// every port configuration runs it; the exported operation is the same code.
#pragma once

#include <stdint.h>

#include "diag/log.hpp"
#include "diag/shared_word.hpp"
#include "fwmclk/channel.h"
#include "fwmclk/platform/devm.h"
#include "fwmclk/service_ops.h"
#include "fwmclk/supervision.h"

namespace fwmclk::svc {

constexpr uint32_t kChipTypeMira = 40;

// Only Mira boards supervise received announces; every other chip is left
// alone. The list, the worker and the timer are set up once and then found
// set up on every later configuration: the checks in front of those calls
// only spare them the call, each one checks again for itself.
[[gnu::always_inline]] inline uint32_t miraSpecialProc(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  if (FWM_Srv_Get_ChipType() != kChipTypeMira) return 0;
  if (g_clkCreateListCnt == 0) FWM_SRV_CLK_InitLocal();
  // A port that could not be recorded is simply not supervised; the rest goes on.
  (void)FWM_SRV_CLK_SavePtpPortCfg(unit, port, cfg);
  if (loadShared(g_FwmSrvBkfThreadId) == 0) FWM_SRV_CLK_CreateBkfTask();
  if (cfg->enable == 1) {
    if (g_clkAnndetectTmr == 0) FWM_SRV_CLK_PtpAnnTimerEntry();
  } else {
    (void)FWM_SRV_CLK_PtpAnnTimerDestroy();
  }
  FWMCLK_LOG(FWM_CLK_LOG_MSG, "[FWM_SRV] MIRASpecialProc unit=%u port=%u", unit, port);
  return 0;
}

}  // namespace fwmclk::svc
