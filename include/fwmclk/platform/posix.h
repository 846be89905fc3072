/* The C library and POSIX calls the service makes, from the host's C library: malloc and free (the
 * framework's builder block, worker task), sleep (the log agent's tasks), time, localtime_r and
 * strftime (debug lines: orchestrator's thread and timer thread), strlen (any thread) and syscall
 * for the kernel thread id (worker task). */
#ifndef FWMCLK_PLATFORM_POSIX_H
#define FWMCLK_PLATFORM_POSIX_H

#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

/* The kernel thread id; the ARM target numbers this system call 224. */
#if defined(__arm__)
#ifdef __cplusplus
static_assert(SYS_gettid == 224, "gettid is system call 224 on the ARM target");
#else
_Static_assert(SYS_gettid == 224, "gettid is system call 224 on the ARM target");
#endif
#endif

#endif
