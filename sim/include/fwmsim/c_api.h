/* The simulated board as a C program sees it: what the orchestrator received
 * at start-up, how many platform calls were made, and failure injection. */
#ifndef FWMSIM_C_API_H
#define FWMSIM_C_API_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The fifteen slots of the latest operation table handed to the orchestrator
 * (a ClkSrvOrchIntf), or NULL before any registration. */
void *fwmsim_registered_orch_table(void);

/* Number of calls recorded so far for one facility ("oda", "orin", ...). */
size_t fwmsim_call_count(const char *facility);

/* The next `times` calls of the platform function `fn` return `code`. */
void fwmsim_inject_fault(const char *fn, uint32_t code, int times);

/* Waits until no simulated thread is busy. */
void fwmsim_settle(void);

#ifdef __cplusplus
}
#endif

#endif
