/* OS abstraction layer: named handles, memory partitions, tasks, relative
 * timers and system time. */
#ifndef FWMCLK_PLATFORM_ORIN_H
#define FWMCLK_PLATFORM_ORIN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Entry of a task; runs on the new task and ends it by returning. */
typedef void (*ORIN_TASK_ENTRY)(void);
/* Called on the platform's timer thread at each expiry, one call at a time per timer. */
typedef void (*ORIN_RELTMR_CALLBACK)(uintptr_t param, uint32_t timerName);

typedef struct { /* 12 bytes */
  uint16_t year;
  uint8_t month, day, hour, minute, second, week;
  uint32_t millisecond;
} ORIN_SYSTIME;

/* Creates a named memory handle and writes it; 0 on success. Host's thread, at start-up. */
uint32_t ORIN_HandleInitialize(const char *name, uint32_t *handle);
/* A block of `size` bytes from a partition (contents undefined), null when out of memory. Any thread. */
void *ORIN_MemAlloc(uint32_t handle, uint8_t partition, uint32_t size);
/* Releases a block; `owner` is a handle or a partition number, either must be accepted. 0 on success.
 * Any thread. */
uint32_t ORIN_MemFree(uint32_t owner, void *block);
/* Fills the local system time; 0 on success. Every thread that logs. */
uint32_t ORIN_SystimeGet(ORIN_SYSTIME *sysTime);
/* Starts a task running `entry` and writes its id; 0 on success. Host's thread (start-up and the
 * master-address event). The entry may sleep for seconds. */
uint32_t ORIN_TaskCreate(const char *name, uint32_t *taskId, ORIN_TASK_ENTRY entry, uint32_t a1, uint32_t a2,
                         uint32_t a3, uint32_t args[4]);
/* Starts a relative timer of `length` ms (mode 0 one-shot, 1 periodic) that calls `callback` with
 * `param` on the timer thread, and writes its handle; 0 on success. Orchestrator's thread (the
 * 500 ms announce timer) and the worker task (the framework's timers). */
uint32_t ORIN_ReltmrCbkStart(uint32_t *timer, uint32_t memHandle, uint32_t length, uint32_t reserved, uintptr_t param,
                             uint32_t mode, ORIN_RELTMR_CALLBACK callback);
/* Stops a timer; 0 on success. Orchestrator's thread and the worker task, each for its own timers. */
uint32_t ORIN_ReltmrStop(uint32_t *timer);

#ifdef __cplusplus
}
#endif
#endif
