/* The host's log-and-diagnosis agent. */
#ifndef FWMCLK_PLATFORM_IM_AGENT_H
#define FWMCLK_PLATFORM_IM_AGENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The process's existing agent handle, 0 when there is none. Host's thread, at start-up. */
uint32_t IM_Agent_GetHandle(void);
/* Creates an agent from a 72-byte parameter record; its handle, 0 on failure. The log agent's
 * start-up task. */
uint32_t IM_Agent_Init(void *para);
/* Tells the agent the master board's address; 0 on success. The log agent's tasks. */
uint32_t IM_Agent_SetMainBoardIP(uint32_t handle, uint32_t ipv4);
/* Releases the agent; 0 on success. Whichever host thread asks the library to release it. */
uint32_t IM_Agent_UnInit(uint32_t handle);
/* Creates a log object and writes it through `obj`; 0 on success. Every thread that logs: host,
 * orchestrator, timer, worker and the log agent's tasks. */
uint32_t IM_Agent_ObjCreate(uint32_t kind, uint32_t id, void **obj, uint32_t handle);
/* Adds one parameter of `len` bytes to a log object; 0 on success. Every thread that logs. */
uint32_t IM_Agent_AddPara(void *obj, uint32_t type, uint16_t len, const void *data, uint32_t handle);
/* Sends a log object, which the agent owns from then on, sent or not; 0 on success. Every thread
 * that logs. */
uint32_t IM_Agent_Send(void *obj, uint32_t handle);
/* Frees a log object that was not sent; 0 on success. Every thread that logs. */
uint32_t IM_Agent_ObjFree(void *obj, uint32_t handle);
/* Prints a debug line through the agent; 0 on success. Every thread that logs. */
int32_t IM_Agent_Debug(const void *rec8, const char *name, uint32_t id, const char *fmt, ...);

#ifdef __cplusplus
}
#endif
#endif
