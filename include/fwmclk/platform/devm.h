/* Device-management queries about the board. */
#ifndef FWMCLK_PLATFORM_DEVM_H
#define FWMCLK_PLATFORM_DEVM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t FWM_Srv_Get_ChipType(void);
uint32_t FWM_Srv_Get_FeNum(void);
uint32_t FWM_Srv_Get_ChassisId(void);
uint32_t FWM_Srv_Get_Slotid(uint32_t chassisId);
uint32_t DEVM_GetSelfBoardIp(uint32_t *ipv4);
uint32_t DEVM_GetMasterBoardIp(uint32_t *ipv4);

#ifdef __cplusplus
}
#endif
#endif
