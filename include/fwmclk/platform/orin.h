/* OS abstraction layer: named handles, memory partitions, tasks, relative
 * timers and system time. */
#ifndef FWMCLK_PLATFORM_ORIN_H
#define FWMCLK_PLATFORM_ORIN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*ORIN_TASK_ENTRY)(void);
typedef void (*ORIN_RELTMR_CALLBACK)(uintptr_t param, uint32_t timerName);

typedef struct { /* 12 bytes */
  uint16_t year;
  uint8_t month, day, hour, minute, second, week;
  uint32_t millisecond;
} ORIN_SYSTIME;

uint32_t ORIN_HandleInitialize(const char *name, uint32_t *handle);
void *ORIN_MemAlloc(uint32_t handle, uint8_t partition, uint32_t size);
uint32_t ORIN_MemFree(uint32_t owner, void *block);
uint32_t ORIN_SystimeGet(ORIN_SYSTIME *sysTime);
uint32_t ORIN_TaskCreate(const char *name, uint32_t *taskId, ORIN_TASK_ENTRY entry, uint32_t a1, uint32_t a2,
                         uint32_t a3, uint32_t args[4]);
uint32_t ORIN_ReltmrCbkStart(uint32_t *timer, uint32_t memHandle, uint32_t length, uint32_t reserved, uintptr_t param,
                             uint32_t mode, ORIN_RELTMR_CALLBACK callback);
uint32_t ORIN_ReltmrStop(uint32_t *timer);

#ifdef __cplusplus
}
#endif
#endif
