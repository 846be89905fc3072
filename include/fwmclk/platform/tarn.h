/* Control-packet security module. */
#ifndef FWMCLK_PLATFORM_TARN_H
#define FWMCLK_PLATFORM_TARN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Installs a 396-byte control-packet rule; 0 on success, 5 when it is already present. Host's
 * thread, at start-up. */
uint32_t Tarn_NpProcCtrlPacket(uint32_t operation, void *rule);

#ifdef __cplusplus
}
#endif
#endif
