/* Epoll-style event layer. */
#ifndef FWMCLK_PLATFORM_MESH_H
#define FWMCLK_PLATFORM_MESH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Called by the worker task for each ready source a wait reports. */
typedef uint32_t (*MESH_EPOLL_HANDLER)(uintptr_t context, uint32_t events, uint32_t data);

typedef struct {              /* 16 bytes on the 32-bit target */
  uint32_t events;            /* 0x00: the handler's 2nd argument */
  MESH_EPOLL_HANDLER handler; /* 0x04: null when nothing is registered */
  uint32_t data;              /* 0x08: the handler's 3rd argument */
  uintptr_t context;          /* 0x0C: the handler's 1st argument (the queue id for a queue) */
} MESH_EPOLL_EVENT;

/* Creates an epoll instance; its descriptor, -1 on failure. Worker task. */
int32_t MESH_EpollCreate(void);
/* Waits up to `timeoutMs` (-1: no limit) and fills up to `maxEvents` records; their number, 0 or less
 * for none. Worker task, in its endless loop. */
int32_t MESH_EpollWait(int32_t fd, MESH_EPOLL_EVENT *events, int32_t maxEvents, int32_t timeoutMs);
/* Closes a descriptor. Worker task, when its start-up fails. */
int32_t MESH_Close(int32_t fd);

#ifdef __cplusplus
}
#endif
#endif
