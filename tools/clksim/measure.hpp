// What the four measurement queries handed the orchestrator, decoded through
// the engine's own definitions of its record words: times as seconds and
// nanoseconds, delays in nanoseconds, the packet counters by name.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "scenario.hpp"

namespace clksim {

// Nothing for other steps or a reply of the wrong size.
std::vector<FieldValue> decodeMeasurement(std::string_view stepName, const std::vector<uint32_t> &reply);

}  // namespace clksim
