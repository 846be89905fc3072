/* Component registry; through it the memory-partition entry and the debug
 * framework are reached. */
#ifndef FWMCLK_PLATFORM_COMP_H
#define FWMCLK_PLATFORM_COMP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* component 1000, interface 1004, index 4 */
typedef uint32_t (*COMP_GETMEMPTNO_FN)(uint32_t module, const char *name);
/* component 1000, interface 1008, index 1 */
typedef uint32_t (*COMP_MODULEREG_FN)(const char *name, uint32_t *id);
/* component 1000, interface 1008, index 5 */
typedef void (*COMP_PRINT_FN)(uint32_t id, uint32_t level, const char *fmt, ...);

uint32_t COMP_GetVTable(uint32_t component, uint32_t iface, void **table);

#ifdef __cplusplus
}
#endif
#endif
