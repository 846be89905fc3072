// What clksim and clkpeer answer with: one table of exit codes, which their
// --help prints and docs/clksim.md repeats, and the command-line parse that
// keeps the parser's own codes out of it.
#pragma once

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace fwmtools {

enum class Tool : unsigned { Clksim = 1, Clkpeer = 2 };

struct ExitCode {
  int code;
  unsigned tools;  // bits of Tool
  const char *meaning;
};

inline constexpr int kExitOk = 0, kExitStepFailed = 1, kExitRefused = 2, kExitOutput = 3, kExitSocket = 4;

inline constexpr ExitCode kExitCodes[] = {
    {kExitOk, 3,
     "done: every scenario step was made (clksim), or stopped by --count, --idle-exit-ms or a signal "
     "(clkpeer)"},
    {kExitStepFailed, 1, "a scenario step could not be made, e.g. a request before start-up; the rest still ran"},
    {kExitRefused, 3, "the command line or the scenario was refused; nothing ran"},
    {kExitOutput, 3, "an output (--pcap, --timeline, --report, standard output) could not be created or written"},
    {kExitSocket, 2, "the socket to listen on could not be opened, e.g. the port is in use"},
};

// The footer of --help: the codes that `tool` can answer with.
inline std::string exitCodeHelp(Tool tool) {
  std::string s = "Exit codes:";
  for (const auto &e : kExitCodes)
    if (e.tools & static_cast<unsigned>(tool)) s += fmt::format("\n  {}  {}", e.code, e.meaning);
  return s;
}

// Parses the command line. nullopt: go on. Otherwise the exit code: 0 after
// --help, kExitRefused (with the parser's message) for anything refused.
inline std::optional<int> parseCommandLine(CLI::App &app, int argc, char **argv) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError &e) {
    return app.exit(e) == 0 ? kExitOk : kExitRefused;
  }
}

}  // namespace fwmtools
