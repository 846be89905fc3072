// Scenarios built into clksim (the files of scenarios/, embedded at build time).
#pragma once

#include <span>
#include <string_view>

namespace clksim {

struct BuiltinScenario {
  std::string_view name;
  std::string_view yaml;
};

std::span<const BuiltinScenario> builtinScenarios();
const BuiltinScenario *findBuiltin(std::string_view name);
inline constexpr std::string_view kDefaultScenario = "mira-story";

}  // namespace clksim
