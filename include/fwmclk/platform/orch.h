/* The clock orchestrator's registration of service operations. */
#ifndef FWMCLK_PLATFORM_ORCH_H
#define FWMCLK_PLATFORM_ORCH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t FWM_ORCH_CLK_RegSrvIntf(void *intf);

#ifdef __cplusplus
}
#endif
#endif
