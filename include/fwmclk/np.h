/* The NP clock abstraction: per-unit driver tables and the exported entries. */
#ifndef FWMCLK_NP_H
#define FWMCLK_NP_H

#include "base.h"

FWMCLK_EXTERN_C_BEGIN

/* Fills each unit's driver table according to the board's chip type. Host thread, start-up. */
FWMCLK_API void FWM_SRV_1588_DriverInit(void);

FWMCLK_EXTERN_C_END

#endif
