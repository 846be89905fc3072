/* Component registry; through it the memory-partition entry and the debug
 * framework are reached. */
#ifndef FWMCLK_PLATFORM_COMP_H
#define FWMCLK_PLATFORM_COMP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Component 1000, interface 1004, index 4: partition number for the module's memory, 0 on failure.
 * Host's thread, at start-up. */
typedef uint32_t (*COMP_GETMEMPTNO_FN)(uint32_t module, const char *name);
/* Component 1000, interface 1008, index 1: registers the debug module by name and writes its id; 0 on
 * success. Host's thread, at start-up. */
typedef uint32_t (*COMP_MODULEREG_FN)(const char *name, uint32_t *id);
/* Component 1000, interface 1008, index 5: prints one debug line of the registered module.
 * Orchestrator's thread and the timer thread. */
typedef void (*COMP_PRINT_FN)(uint32_t id, uint32_t level, const char *fmt, ...);

/* Writes the address of a component interface's function table (null allowed); 0 when the lookup
 * was done. Host's thread, at start-up. */
uint32_t COMP_GetVTable(uint32_t component, uint32_t iface, void **table);

#ifdef __cplusplus
}
#endif
#endif
