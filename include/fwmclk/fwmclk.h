/* Everything the clock service exports. */
#ifndef FWMCLK_FWMCLK_H
#define FWMCLK_FWMCLK_H

#include "base.h"
#include "channel.h"
#include "diag.h"
#include "driver.h"
#include "np.h"
#include "service.h"
#include "service_ops.h"
#include "supervision.h"

#endif
