// Reads a scenario from YAML and checks all of it before anything runs. A
// wrong scenario is refused with the place (file:line:column) and what was
// expected there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "scenario.hpp"

namespace clksim {

struct LoadError {
  SourcePos pos;
  std::string message;
  // "file:line:column: error: message"
  std::string text() const;
};

using LoadResult = std::variant<Scenario, LoadError>;

LoadResult loadScenario(std::string_view yaml, const std::string &sourceName);
LoadResult loadScenarioFile(const std::string &path);

// "UNIT:PORT=IFACE" (unit 0..7); nothing when malformed.
std::optional<WirePort> parseWirePort(std::string_view text);

// Step names a scenario may use besides the fifteen operations.
std::vector<std::string_view> eventStepNames();

}  // namespace clksim
