/* Dead-loop monitor. */
#ifndef FWMCLK_PLATFORM_QUAY_H
#define FWMCLK_PLATFORM_QUAY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Prepares the dead-loop monitor; 0 on success. Worker task, as it starts. */
uint32_t QUAY_InitDeadloopMonitor(void);
/* Puts a kernel thread id under the monitor with four time limits; 0 on success. Worker task, for
 * itself. */
uint32_t regDeadloopMon(uint32_t tid, uint32_t t1, uint32_t t2, uint32_t t3, uint32_t t4);
/* Marks the start (0) and end (1) of one message's processing. Worker task. */
void dm_opers(uint32_t phase);

#ifdef __cplusplus
}
#endif
#endif
