/* Event queues of the forwarding-management process and its epoll tasks. */
#ifndef FWMCLK_PLATFORM_FWM_QUE_H
#define FWMCLK_PLATFORM_FWM_QUE_H

#include <stdint.h>

#include "mesh.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t (*FWM_EPOLL_TASK_ENTRY)(void);

uint32_t FWM_QUE_CreateNew(const char *name, uint32_t mode, uint32_t depth, uint32_t entrySize);
uint32_t FWM_QUE_EpollReg(uint32_t queueId, int32_t epollFd, MESH_EPOLL_HANDLER handler);
uint32_t FWM_QUE_Destory(uint32_t queueId);
uint32_t FWM_QUE_AsyWrite(uint32_t queueId, uintptr_t *entries, uint32_t count);
int32_t FWM_QUE_AsyRead(uint32_t queueId, uintptr_t *entries, uint32_t count);
uint32_t FwmEpollTaskCreate(const char *name, uint32_t *taskId, FWM_EPOLL_TASK_ENTRY entry, uint32_t arg);

#ifdef __cplusplus
}
#endif
#endif
