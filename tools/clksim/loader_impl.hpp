// The loader's inside, shared by the document side (loader.cpp: the file,
// the YAML, the board) and the step table (steps.cpp: each step and the
// record fields it fills).
#pragma once

#include <yaml-cpp/yaml.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "loader.hpp"

namespace clksim {

struct LoadFailure {
  LoadError error;
};

class Loader {
 public:
  explicit Loader(std::string file) : file_(std::move(file)) {}

  Scenario load(std::string_view text);

 private:
  SourcePos at(const YAML::Node &n) const {
    YAML::Mark m = n.Mark();
    if (m.is_null()) return {file_, 0, 0};
    return {file_, m.line + 1, m.column + 1};
  }
  [[noreturn]] void fail(const YAML::Node &n, std::string message) const { fail(at(n), std::move(message)); }
  [[noreturn]] void fail(SourcePos pos, std::string message) const {
    throw LoadFailure{{std::move(pos), std::move(message)}};
  }

  void board(const YAML::Node &n, BoardSetup &b);
  // The clocks, network, servos and time-error keys of the board (loader_time.cpp).
  void timekeeping(const YAML::Node &n, TimeKeeping &t);
  void clocks(const YAML::Node &n, std::vector<EngineClock> &out);
  void network(const YAML::Node &n, NetworkSetup &out);
  NetLink link(const YAML::Node &n, const NetworkSetup &net);
  void servos(const YAML::Node &n, std::vector<ServoSetup> &out);
  // The card as a boundary clock (loader_boundary.cpp).
  void boundary(const YAML::Node &n, BoundarySetup &b);
  int64_t nanos(const std::string &what, const YAML::Node &v);
  double real(const std::string &what, const YAML::Node &v, double min, double max);
  Step step(const YAML::Node &n);
  Request request(const OpDesc &op, const std::string &name, const YAML::Node &n);
  AnnounceReceived announce(const std::string &name, const YAML::Node &n);
  void unitPort(const std::string &what, const YAML::Node &n, uint32_t &unit, uint32_t &port);
  FieldValue setField(const RecordDesc &rec, const FieldDesc &f, const std::string &owner, const YAML::Node &v,
                      std::vector<uint8_t> &bytes);
  void putIdentity(const std::string &what, const YAML::Node &v, const FieldDesc &f, std::vector<uint8_t> &bytes);
  uint64_t namedValue(const std::string &what, const YAML::Node &v, uint64_t max, CodeNames names);

  uint64_t unsignedValue(const std::string &what, const YAML::Node &v, uint64_t max);
  int64_t signedValue(const std::string &what, const YAML::Node &v, int64_t min, int64_t max);
  std::string scalar(const std::string &what, const YAML::Node &v, const char *expected);
  const YAML::Node &mapping(const std::string &what, const YAML::Node &n);
  void knownKeys(const std::string &what, const YAML::Node &n, const std::vector<std::string_view> &keys);
  std::string key(const std::string &what, const YAML::Node &k);

  std::string file_;
};

// Step names besides the operations.
extern const std::vector<std::string_view> kEventSteps;

}  // namespace clksim
