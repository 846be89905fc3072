/* Dead-loop monitor. */
#ifndef FWMCLK_PLATFORM_QUAY_H
#define FWMCLK_PLATFORM_QUAY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t QUAY_InitDeadloopMonitor(void);
uint32_t regDeadloopMon(uint32_t tid, uint32_t t1, uint32_t t2, uint32_t t3, uint32_t t4);
void dm_opers(uint32_t phase);

#ifdef __cplusplus
}
#endif
#endif
