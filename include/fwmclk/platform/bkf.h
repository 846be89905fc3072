/* Message-channel framework. */
#ifndef FWMCLK_PLATFORM_BKF_H
#define FWMCLK_PLATFORM_BKF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uintptr_t BKF_CommInit(void *initRec);
uint32_t BKF_CommUninit(uintptr_t comm);
uintptr_t BKF_MeshCliChInit(uintptr_t comm, void *chRec);
uint32_t BKF_UrlMeshSet(void *url, uint32_t ipv4, uint32_t port, const char *name);

#ifdef __cplusplus
}
#endif
#endif
