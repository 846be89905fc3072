/* Message-channel framework. */
#ifndef FWMCLK_PLATFORM_BKF_H
#define FWMCLK_PLATFORM_BKF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Brings up the message-channel framework from a 124-byte record (with the worker's epoll
 * descriptor and the library's memory, log and timer hooks); its handle, 0 on failure. Worker task. */
uintptr_t BKF_CommInit(void *initRec);
/* Releases the framework; 0 on success. Whichever thread tears the channel down. */
uint32_t BKF_CommUninit(uintptr_t comm);
/* Opens the notification channel from a 16-byte record; its handle, 0 on failure. Worker task. */
uintptr_t BKF_MeshCliChInit(uintptr_t comm, void *chRec);
/* Fills a 28-byte address area with an IPv4 address, port and name; 0 on success. Worker task. */
uint32_t BKF_UrlMeshSet(void *url, uint32_t ipv4, uint32_t port, const char *name);

#ifdef __cplusplus
}
#endif
#endif
