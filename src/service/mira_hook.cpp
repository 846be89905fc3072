// The Mira-family hook as an operation of its own (service/mira_hook.hpp).
#include "service/mira_hook.hpp"

extern "C" uint32_t FWM_SRV_CLK_MIRASpecialProc(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  return fwmclk::svc::miraSpecialProc(unit, port, cfg);
}

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_MIRA_HOOK)
