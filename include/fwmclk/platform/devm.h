/* Device-management queries about the board. */
#ifndef FWMCLK_PLATFORM_DEVM_H
#define FWMCLK_PLATFORM_DEVM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Chip type of the board's forwarding engines. Host's thread at start-up, then the orchestrator's
 * thread on every port configuration. */
uint32_t FWM_Srv_Get_ChipType(void);
/* Number of forwarding engines on the board. Host's thread, at start-up. */
uint32_t FWM_Srv_Get_FeNum(void);
/* Chassis number, for failure reports. Orchestrator's thread and the timer thread. */
uint32_t FWM_Srv_Get_ChassisId(void);
/* This board's slot in the given chassis, for failure reports. Orchestrator's thread and the timer
 * thread. */
uint32_t FWM_Srv_Get_Slotid(uint32_t chassisId);
/* Writes this board's IPv4 address (0 while not known yet); 0 on success. The log agent's start-up
 * task, which polls it. */
uint32_t DEVM_GetSelfBoardIp(uint32_t *ipv4);
/* Writes the master board's IPv4 address (0 while not known yet); 0 on success. The log agent's
 * tasks. */
uint32_t DEVM_GetMasterBoardIp(uint32_t *ipv4);

#ifdef __cplusplus
}
#endif
#endif
