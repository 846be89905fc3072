// Walking the PTP port list from any thread: the links are published with
// release stores, so a walker sees either the old list or a complete node.
#pragma once

#include "fwmclk/supervision.h"

namespace fwmclk {

ClkPtpPortNode *firstPort();
ClkPtpPortNode *nextPort(ClkPtpPortNode *node);
bool isListEnd(const ClkPtpPortNode *node);

}  // namespace fwmclk
