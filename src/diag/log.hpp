// The library's own diagnostic lines. A level that is switched off drops the
// line right here, at the price of one read of its switch, before any value is
// evaluated or the variadic function is called; a line that passes goes to the
// exported FWM_SRV_ORCH_CLK_ImAgentDiagLog, which checks the agent and the
// switch again for itself, so what reaches the agent is the same either way.
// Use it where the line's result is not wanted; a caller that hands the
// result on calls the exported function.
#pragma once

#include <atomic>
#include <cstdint>

#include "fwmclk/diag.h"

namespace fwmclk {

// The host may flip a switch at any time; the switch guards nothing else, so
// the read needs no ordering.
inline bool diagOn(uint32_t level) {
  return level < FWM_CLK_LOG_LEVEL_NUM &&
         std::atomic_ref<uint32_t>(g_clkSrvImAgentDiagSwitch[level]).load(std::memory_order_relaxed) != 0;
}

}  // namespace fwmclk

// A macro so that the compiler still checks the format against the values.
#define FWMCLK_LOG(level, ...)                                                            \
  do {                                                                                    \
    if (fwmclk::diagOn(level)) (void)FWM_SRV_ORCH_CLK_ImAgentDiagLog(level, __VA_ARGS__); \
  } while (false)
