// One port at a glance: what the engine holds for it (state, domain,
// enables, what it last heard, its counters and drops by reason) and the
// last acknowledgement the library sent for it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "scenario.hpp"

namespace clksim {

using PortKey = std::pair<uint32_t, uint32_t>;  // unit, port

// The ports a scenario names on units the board has, in order.
std::set<PortKey> portsOf(const Scenario &sc);

struct LastAck {
  uint64_t timeMs = 0;
  std::string text;
};

// The port's values, each with its JSON; `lastAck` when one was sent.
std::vector<FieldValue> portRow(PortKey port, const std::optional<LastAck> &lastAck);

}  // namespace clksim
