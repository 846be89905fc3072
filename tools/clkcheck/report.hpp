// What clkcheck prints: one line per finding as it is found, then a summary
// per port and message type and the verdict; as text for people or as JSON
// lines for machines.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "checker.hpp"

namespace clkcheck {

class Output {
 public:
  virtual ~Output() = default;
  virtual void finding(const Finding &f) = 0;
  // The summary and the verdict line.
  virtual void end(const Checker &c, const Profile &p) = 0;
};

std::unique_ptr<Output> makeTextOutput(std::FILE *out);
std::unique_ptr<Output> makeJsonlOutput(std::FILE *out);

// "12.062500000": nanoseconds as seconds.
std::string secondsText(int64_t ns);

}  // namespace clkcheck
