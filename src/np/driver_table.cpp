// Per-unit driver tables.
#include "fwmclk/np.h"

extern "C" void FWM_SRV_1588_DriverInit(void) {}
