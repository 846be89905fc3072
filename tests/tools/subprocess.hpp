// Runs the desk tools as child processes, with bounded waits only.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace fwmtest {

struct Outcome {
  int exitCode = -1;  // -1: killed after the time limit
  std::string out, err;
};

// Runs to the end (killed after `limit`) and collects both streams.
Outcome runTool(const std::vector<std::string> &argv, std::chrono::milliseconds limit = std::chrono::seconds(60));

// A child that keeps running while the test talks to it.
class Child {
 public:
  explicit Child(const std::vector<std::string> &argv);
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  // The next line of standard error, waiting at most `limit`.
  std::optional<std::string> errLine(std::chrono::milliseconds limit);
  // Waits for the end (kills after `limit`) and returns all the output.
  Outcome finish(std::chrono::milliseconds limit);

 private:
  pid_t pid_ = -1;
  int fds_[2] = {-1, -1};  // standard output, standard error
  Outcome result_;
  std::string *sinks_[2] = {&result_.out, &result_.err};
  size_t errRead_ = 0;  // standard error up to here was handed out by errLine()
};

std::vector<std::string> splitLines(const std::string &s);

// A whole file ("" if it cannot be read).
std::string readFile(const std::string &path);

// A path named `name` in a directory of this test process's own, made on
// first use and removed with everything in it when the process ends: cases
// run side by side, and what they write (whole runs' records among it) must
// not pile up.
std::string scratch(const std::string &name);

// Whether /usr/bin/<name> can be run.
bool haveTool(const char *name);

// What tshark reads from a capture: a line of comma-separated fields (named
// in `fields`, separated by spaces) per frame.
std::string dissect(const std::string &pcap, const std::string &fields);

}  // namespace fwmtest
