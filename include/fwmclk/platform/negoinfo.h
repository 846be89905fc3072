/* Clock negotiation-information client. */
#ifndef FWMCLK_PLATFORM_NEGOINFO_H
#define FWMCLK_PLATFORM_NEGOINFO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Creates the notification client from a 60-byte record; its handle, 0 on failure. Worker task. */
uintptr_t CLOCK_NegoinfoiNtfyCliInit(void *initRec);
/* Asks the client to connect to the negotiation peer (0 is accepted as client); 0 on success. Worker
 * task. */
uint32_t CLOCK_NegoinfoiNtfyCliConnect(uintptr_t client);
/* Releases the client; 0 on success. Whichever thread tears the channel down. */
uint32_t CLOCK_NegoinfoiNtfyCliUninit(uintptr_t client);
/* Sends one acknowledgement message of `len` bytes to the peer; 0 on success. Worker task. */
uint32_t CLOCK_NegoinfoiNtfyCliMsgSend(uintptr_t client, const void *msg, uint32_t len);
/* Slice-key helpers: the library only hands their addresses to the framework, which calls them on
 * the worker task. */
int32_t CLOCK_NegoinfoiSliceKeyCmp(const void *a, const void *b);
char *CLOCK_NegoinfoiSliceKeyGetStr(const void *key, char *buf, uint32_t bufLen);
int32_t CLOCK_NegoinfoiSliceKeyCodec(void *key, void *buf, uint32_t len, uint32_t direction);

#ifdef __cplusplus
}
#endif
#endif
