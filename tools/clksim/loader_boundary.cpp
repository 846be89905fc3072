// The board's `boundary` key: the card as a boundary clock, for its deciding
// peer and its acting orchestrator.
#include <fmt/format.h>

#include "loader_impl.hpp"
#include "values.hpp"

namespace clksim {

namespace {

const std::vector<std::string_view> kBoundaryKeys = {"profile",    "identity",      "priority1", "priority2",
                                                     "clockClass", "clockAccuracy", "variance",  "localPriority",
                                                     "ports",      "classes",       "domain"};
const std::vector<std::string_view> kBoundaryPortKeys = {"unit", "port", "localPriority", "masterOnly"};
const std::vector<std::string_view> kClassKeys = {"holdover", "outOfHoldover", "freeRun", "holdoverBudget"};
const std::vector<std::string_view> kProfiles = {"default", "telecom"};

}  // namespace

void Loader::boundary(const YAML::Node &n, BoundarySetup &b) {
  mapping("board field 'boundary'", n);
  knownKeys("boundary", n, kBoundaryKeys);
  b.present = true;
  if (n["profile"]) {
    std::string p = scalar("boundary field 'profile'", n["profile"], "a profile");
    if (p != kProfiles[0] && p != kProfiles[1])
      fail(n["profile"],
           "boundary field 'profile': unknown profile '" + p + "'; expected one of: " + joinNames(kProfiles));
    b.profile = p == "telecom" ? fwmtools::bmca::Profile::Telecom : fwmtools::bmca::Profile::Default;
  }
  auto &s = b.self;
  if (n["identity"]) {
    std::string id = scalar("boundary field 'identity'", n["identity"], "a clock identity");
    auto pid = parsePortIdentity(id + "-1");
    if (!pid || pid->clock == 0)
      fail(n["identity"], "boundary field 'identity': expected a clock identity like 001b19.fffe.00a001");
    s.identity = pid->clock;
  }
  auto u = [&](const YAML::Node &m, const std::string &owner, const char *key, auto &field, uint64_t max) {
    if (m[key])
      field = static_cast<std::decay_t<decltype(field)>>(unsignedValue(owner + " field '" + key + "'", m[key], max));
  };
  u(n, "boundary", "priority1", s.priority1, 255), u(n, "boundary", "priority2", s.priority2, 255);
  u(n, "boundary", "clockClass", s.clockClass, 255), u(n, "boundary", "clockAccuracy", s.clockAccuracy, 255);
  u(n, "boundary", "variance", s.variance, 0xFFFF), u(n, "boundary", "localPriority", s.localPriority, 255);
  if (n["domain"]) b.domain = static_cast<uint8_t>(unsignedValue("boundary field 'domain'", n["domain"], 255));
  const auto &ports = n["ports"];
  if (!ports || !ports.IsSequence() || ports.size() == 0)
    fail(ports ? ports : n, "boundary field 'ports': expected a list of {unit, port, localPriority, masterOnly}");
  for (const auto &p : ports) {
    mapping("a boundary port", p);
    knownKeys("a boundary port", p, kBoundaryPortKeys);
    BoundaryPort bp;
    unitPort("a boundary port", p, bp.unit, bp.port);
    if (bp.unit > 7)
      fail(p["unit"], fmt::format("boundary port field 'unit': {} is beyond the last engine (7)", bp.unit));
    for (const auto &other : b.ports)
      if (other.unit == bp.unit && other.port == bp.port)
        fail(p, fmt::format("a boundary port: unit {} port {} is listed already", bp.unit, bp.port));
    u(p, "boundary port", "localPriority", bp.localPriority, 255);
    u(p, "boundary port", "masterOnly", bp.masterOnly, 1);
    b.ports.push_back(bp);
  }
  if (const auto &c = n["classes"]) {
    mapping("boundary field 'classes'", c);
    knownKeys("classes", c, kClassKeys);
    u(c, "classes", "holdover", b.classes.holdover, 255),
        u(c, "classes", "outOfHoldover", b.classes.outOfHoldover, 255);
    u(c, "classes", "freeRun", b.classes.freeRun, 255);
    if (c["holdoverBudget"]) {
      b.classes.holdoverBudgetS =
          static_cast<double>(nanos("classes field 'holdoverBudget'", c["holdoverBudget"])) / 1e9;
      if (b.classes.holdoverBudgetS < 0) fail(c["holdoverBudget"], "classes field 'holdoverBudget': not below 0");
    }
  }
}

}  // namespace clksim
