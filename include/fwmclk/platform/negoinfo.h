/* Clock negotiation-information client. */
#ifndef FWMCLK_PLATFORM_NEGOINFO_H
#define FWMCLK_PLATFORM_NEGOINFO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uintptr_t CLOCK_NegoinfoiNtfyCliInit(void *initRec);
uint32_t CLOCK_NegoinfoiNtfyCliConnect(uintptr_t client);
uint32_t CLOCK_NegoinfoiNtfyCliUninit(uintptr_t client);
uint32_t CLOCK_NegoinfoiNtfyCliMsgSend(uintptr_t client, const void *msg, uint32_t len);
int32_t CLOCK_NegoinfoiSliceKeyCmp(const void *a, const void *b);
char *CLOCK_NegoinfoiSliceKeyGetStr(const void *key, char *buf, uint32_t bufLen);
int32_t CLOCK_NegoinfoiSliceKeyCodec(void *key, void *buf, uint32_t len, uint32_t direction);

#ifdef __cplusplus
}
#endif
#endif
