/* The host's log-and-diagnosis agent. */
#ifndef FWMCLK_PLATFORM_IM_AGENT_H
#define FWMCLK_PLATFORM_IM_AGENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t IM_Agent_GetHandle(void);
uint32_t IM_Agent_Init(void *para);
uint32_t IM_Agent_SetMainBoardIP(uint32_t handle, uint32_t ipv4);
uint32_t IM_Agent_UnInit(uint32_t handle);
uint32_t IM_Agent_ObjCreate(uint32_t kind, uint32_t id, void **obj, uint32_t handle);
uint32_t IM_Agent_AddPara(void *obj, uint32_t type, uint16_t len, const void *data, uint32_t handle);
uint32_t IM_Agent_Send(void *obj, uint32_t handle);
uint32_t IM_Agent_ObjFree(void *obj, uint32_t handle);
int32_t IM_Agent_Debug(const void *rec8, const char *name, uint32_t id, const char *fmt, ...);

#ifdef __cplusplus
}
#endif
#endif
