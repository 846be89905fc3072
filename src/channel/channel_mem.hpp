// Blocks of the channel's memory handle and partition: queue messages, their
// payload copies and timer records. Any thread.
#pragma once

#include <cstdint>

#include "fwmclk/channel.h"
#include "fwmclk/platform/orin.h"

namespace fwmclk {

inline void *channelAlloc(uint32_t size) {
  return ORIN_MemAlloc(FWM_SRV_BKF_GetMemHdl(), FWM_SRV_BKF_GetMemPtNo(), size);
}

inline void channelFree(void *block) { (void)ORIN_MemFree(FWM_SRV_BKF_GetMemPtNo(), block); }

}  // namespace fwmclk
