/* Event queues of the forwarding-management process and its epoll tasks. */
#ifndef FWMCLK_PLATFORM_FWM_QUE_H
#define FWMCLK_PLATFORM_FWM_QUE_H

#include <stdint.h>

#include "mesh.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Entry of an epoll task; runs on the new task and ends it by returning. */
typedef uint32_t (*FWM_EPOLL_TASK_ENTRY)(void);

/* Creates a named queue of `depth` entries of `entrySize` bytes; its id, 0 on failure. Worker task. */
uint32_t FWM_QUE_CreateNew(const char *name, uint32_t mode, uint32_t depth, uint32_t entrySize);
/* Registers the queue on the epoll instance so that a wait reports it with `handler` and the queue id
 * as context; 0 on success. Worker task. */
uint32_t FWM_QUE_EpollReg(uint32_t queueId, int32_t epollFd, MESH_EPOLL_HANDLER handler);
/* Destroys a queue. Worker task, when its start-up fails. */
uint32_t FWM_QUE_Destory(uint32_t queueId);
/* Appends entries without blocking; the number written. Any thread that posts to the worker: the
 * timer thread above all. Must be safe against a concurrent read. */
uint32_t FWM_QUE_AsyWrite(uint32_t queueId, uintptr_t *entries, uint32_t count);
/* Takes up to `count` entries without blocking; the number read, 0 or less for none. Worker task. */
int32_t FWM_QUE_AsyRead(uint32_t queueId, uintptr_t *entries, uint32_t count);
/* Starts a task running `entry` and writes its id before the entry can run; 0 on success.
 * Orchestrator's thread, on the first port configuration of a board that supervises announces. */
uint32_t FwmEpollTaskCreate(const char *name, uint32_t *taskId, FWM_EPOLL_TASK_ENTRY entry, uint32_t arg);

#ifdef __cplusplus
}
#endif
#endif
