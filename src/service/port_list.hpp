// Walking the PTP port list from any thread: the links are published with
// release stores, so a walker sees either the old list or a complete node.
#pragma once

#include "diag/shared_word.hpp"
#include "fwmclk/supervision.h"

namespace fwmclk {

// The list head stands in for a node only as the end marker; it is never read as one.
inline ClkPtpPortNode *listHead() { return reinterpret_cast<ClkPtpPortNode *>(&g_ClkLocalData); }
inline ClkPtpPortNode *firstPort() { return loadShared(g_ClkLocalData.next); }
inline ClkPtpPortNode *nextPort(ClkPtpPortNode *node) { return loadShared(node->next); }
inline bool isListEnd(const ClkPtpPortNode *node) { return node == listHead() || node == nullptr; }

}  // namespace fwmclk
