// What every service operation shares: its result arithmetic and its two
// standard log lines.
#pragma once

#include <stdint.h>

#include "diag/log.hpp"
#include "fwmclk/diag.h"

namespace fwmclk::svc {

// NP results are signed; the service ORs them and hands them up unsigned.
constexpr uint32_t res(int32_t npResult) { return static_cast<uint32_t>(npResult); }

// Result of a null request record or an invalid packet type.
constexpr uint32_t kRefused = 1;

// "[FWM_SRV] <op>, null pointer" at ERROR; the refusal to hand back.
inline uint32_t nullRecord(const char *op) {
  FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV] %s, null pointer", op);
  return kRefused;
}

// "[FWM_SRV_CLK] <op> failed, Ret=%u" at ERROR when r is non-zero; returns r.
inline uint32_t checked(const char *op, uint32_t r) {
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] %s failed, Ret=%u", op, r);
  return r;
}

}  // namespace fwmclk::svc
