/* Everything the clock service exports. */
#ifndef FWMCLK_FWMCLK_H
#define FWMCLK_FWMCLK_H

#include "base.h"
#include "diag.h"
#include "service.h"
#include "np.h"
#include "driver.h"
#include "service_ops.h"
#include "channel.h"

#endif
