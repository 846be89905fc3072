/* The clock orchestrator's registration of service operations. */
#ifndef FWMCLK_PLATFORM_ORCH_H
#define FWMCLK_PLATFORM_ORCH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the 15 service operations (ClkSrvOrchIntf) and copies them; 0 on success. Host's thread, at
 * start-up. The orchestrator then calls them on its own thread(s). */
uint32_t FWM_ORCH_CLK_RegSrvIntf(void *intf);

#ifdef __cplusplus
}
#endif
#endif
