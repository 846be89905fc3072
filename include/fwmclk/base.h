/* Definitions shared by every public header of the clock service. */
#ifndef FWMCLK_BASE_H
#define FWMCLK_BASE_H

#include <stddef.h>
#include <stdint.h>

/* Marks the names the library exports; everything else in it is hidden. The
 * library's own build defines it first, to export each name itself. */
#ifndef FWMCLK_API
#if defined(__GNUC__)
#define FWMCLK_API __attribute__((visibility("default")))
#else
#define FWMCLK_API
#endif
#endif

#ifdef __cplusplus
#define FWMCLK_EXTERN_C_BEGIN extern "C" {
#define FWMCLK_EXTERN_C_END }
#define FWMCLK_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define FWMCLK_EXTERN_C_BEGIN
#define FWMCLK_EXTERN_C_END
#define FWMCLK_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* Layout checks written for the 32-bit line card hold only where pointers are
 * 4 bytes; elsewhere the records keep natural alignment with wider pointers. */
#if UINTPTR_MAX == 0xFFFFFFFFu
#define FWMCLK_TARGET_32BIT 1
#define FWMCLK_ASSERT_32(cond, msg) FWMCLK_STATIC_ASSERT(cond, msg)
#else
#define FWMCLK_TARGET_32BIT 0
#define FWMCLK_ASSERT_32(cond, msg) FWMCLK_STATIC_ASSERT(1, msg)
#endif

#endif
