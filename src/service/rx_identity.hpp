// The source port identity expected in received packets: the operation of
// slot 5 and a step of every port configuration, which runs it inline.
#pragma once

#include <stdint.h>

#include "diag/log.hpp"
#include "fwmclk/np.h"
#include "service/svc_common.hpp"

namespace fwmclk::svc {

// The one orchestrator packet type that uses identity type 0.
constexpr uint32_t kRxIdentityAltPktType = 4;

[[gnu::always_inline]] inline uint32_t setRxSrcPortId(uint32_t unit, uint32_t port, uint32_t pktType,
                                                      const uint32_t (&words)[3]) {
  ClkNpPortIdentity identity{};
  identity.word[0] = words[0];
  identity.word[1] = words[1];
  identity.word[2] = words[2];
  const uint32_t identityType = pktType == kRxIdentityAltPktType ? 0u : 1u;
  const uint32_t r = res(CLK_NP_1588_SetEncapSportIdentityRx(unit, port, identityType, &identity));
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = %u", r);
  return r;
}

}  // namespace fwmclk::svc
