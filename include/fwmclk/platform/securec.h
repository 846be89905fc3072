/* Bounds-checked memory and string functions provided by the host platform. */
#ifndef FWMCLK_PLATFORM_SECUREC_H
#define FWMCLK_PLATFORM_SECUREC_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bounds-checked memory and text functions: 0 on success (the formatters: the characters written, -1
 * when the text did not fit). Every thread that runs library code. */
int memset_s(void *dest, size_t destMax, int c, size_t count);
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int strcpy_s(char *dest, size_t destMax, const char *src);
int vsprintf_s(char *dest, size_t destMax, const char *fmt, va_list ap);
int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, va_list ap);

#ifdef __cplusplus
}
#endif
#endif
