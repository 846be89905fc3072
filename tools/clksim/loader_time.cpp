// The board's time-keeping keys: clocks, network, servos, timeError (and boundary, in loader_boundary.cpp).
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "loader_impl.hpp"
#include "values.hpp"

namespace clksim {

namespace {

const std::vector<std::string_view> kClockKeys = {"unit", "offset", "ppm", "wander", "wanderStep", "steps", "seed"};
const std::vector<std::string_view> kClockStepKeys = {"at", "ppm", "phase"};
const std::vector<std::string_view> kNetworkKeys = {"seed", "stampStep", "grandmasters", "links"};
const std::vector<std::string_view> kGmKeys = {
    "name",     "identity",   "portNumber", "domain",      "priority1", "priority2",    "clockClass", "clockAccuracy",
    "variance", "timeSource", "utcOffset",  "logAnnounce", "logSync",   "logDelayResp", "twoStep",    "ipv4"};
const std::vector<std::string_view> kLinkKeys = {"from",  "to",        "delay", "jitter", "jitterSize",
                                                 "extra", "extraBack", "loss",  "outages"};
const std::vector<std::string_view> kJitterNames = {"none", "uniform", "normal", "exponential"};
const std::vector<std::string_view> kServoKeys = {
    "unit",       "port",          "kp",           "ki",         "kpScale",
    "kpExponent", "kpNormMax",     "kiScale",      "kiExponent", "kiNormMax",
    "firstStep",  "stepThreshold", "maxFrequency", "holdover",   "softwareStamps"};
const std::vector<std::string_view> kTeKeys = {"sample", "settling", "lockThreshold"};

// Nanoseconds per unit suffix, longest first so that "ms" is not read as "s".
struct Suffix {
  std::string_view name;
  double ns;
};
constexpr Suffix kSuffixes[] = {{"min", 60e9}, {"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};

std::optional<double> number(const std::string &s) {
  if (s.empty()) return std::nullopt;
  char *end = nullptr;
  double v = std::strtod(s.c_str(), &end);
  if (end != s.c_str() + s.size() || !std::isfinite(v)) return std::nullopt;
  return v;
}

// "1ms", "-500ns", "1.5s": whole nanoseconds.
std::optional<int64_t> nanosOf(const std::string &s) {
  for (const auto &suffix : kSuffixes) {
    if (s.size() <= suffix.name.size() || !s.ends_with(suffix.name)) continue;
    auto x = number(s.substr(0, s.size() - suffix.name.size()));
    if (!x || std::fabs(*x * suffix.ns) > 9e18) return std::nullopt;
    return std::llround(*x * suffix.ns);
  }
  return std::nullopt;
}

std::optional<std::pair<uint32_t, uint32_t>> unitPortOf(const std::string &s) {
  auto w = parseWirePort(s + "=x");
  if (!w) return std::nullopt;
  return std::pair{w->unit, w->port};
}

}  // namespace

double Loader::real(const std::string &what, const YAML::Node &v, double min, double max) {
  std::string s = scalar(what, v, "a number");
  auto x = number(s);
  if (!x) fail(v, what + ": expected a number, got '" + s + "'");
  if (*x < min || *x > max) fail(v, what + ": " + s + " is out of range (" + fmt::format("{} to {})", min, max));
  return *x;
}

int64_t Loader::nanos(const std::string &what, const YAML::Node &v) {
  std::string s = scalar(what, v, "a time like 1ms, 500ns or 2s");
  auto ns = nanosOf(s);
  if (!ns) fail(v, what + ": expected a time like 1ms, 500ns or 2s, got '" + s + "'");
  return *ns;
}

void Loader::timekeeping(const YAML::Node &n, TimeKeeping &t) {
  if (n["clocks"]) clocks(n["clocks"], t.clocks);
  if (n["network"]) network(n["network"], t.network);
  if (n["servos"]) servos(n["servos"], t.servos);
  if (n["boundary"]) boundary(n["boundary"], t.boundary);
  if (const auto &te = n["timeError"]) {
    mapping("board field 'timeError'", te);
    knownKeys("timeError", te, kTeKeys);
    if (te["sample"]) {
      t.te.sampleNs = nanos("timeError field 'sample'", te["sample"]);
      if (t.te.sampleNs < 1'000'000) fail(te["sample"], "timeError field 'sample': at least 1ms");
    }
    if (te["settling"]) t.te.settleS = static_cast<double>(nanos("timeError field 'settling'", te["settling"])) / 1e9;
    if (te["lockThreshold"])
      t.te.lockThresholdNs = static_cast<double>(nanos("timeError field 'lockThreshold'", te["lockThreshold"]));
  }
}

void Loader::clocks(const YAML::Node &n, std::vector<EngineClock> &out) {
  if (!n.IsSequence()) fail(n, "board field 'clocks': expected a list of {unit, offset, ppm, wander, steps, seed}");
  for (const auto &c : n) {
    mapping("a clock", c);
    knownKeys("a clock", c, kClockKeys);
    if (!c["unit"]) fail(c, "a clock: missing field 'unit'");
    EngineClock e;
    e.unit = static_cast<uint32_t>(unsignedValue("clock field 'unit'", c["unit"], 7));
    for (const auto &other : out)
      if (other.unit == e.unit) fail(c["unit"], "a clock: unit " + std::to_string(e.unit) + " has one already");
    if (c["offset"]) e.model.offsetNs = nanos("clock field 'offset'", c["offset"]);
    if (c["ppm"]) e.model.ppm = real("clock field 'ppm'", c["ppm"], -1000, 1000);
    if (c["wander"]) e.model.wanderPpmPerSqrtS = real("clock field 'wander'", c["wander"], 0, 100);
    if (c["wanderStep"]) {
      e.model.wanderStepNs = nanos("clock field 'wanderStep'", c["wanderStep"]);
      if (e.model.wanderStepNs < 1'000'000) fail(c["wanderStep"], "clock field 'wanderStep': at least 1ms");
    }
    if (c["seed"]) e.seed = unsignedValue("clock field 'seed'", c["seed"], UINT64_MAX);
    if (const auto &steps = c["steps"]) {
      if (!steps.IsSequence()) fail(steps, "clock field 'steps': expected a list of {at, ppm, phase}");
      for (const auto &s : steps) {
        mapping("a clock step", s);
        knownKeys("a clock step", s, kClockStepKeys);
        if (!s["at"]) fail(s, "a clock step: missing field 'at'");
        fwmsim::ClockStep st;
        st.atNs = nanos("clock step field 'at'", s["at"]);
        if (s["ppm"]) st.ppm = real("clock step field 'ppm'", s["ppm"], -1000, 1000);
        if (s["phase"]) st.phaseNs = nanos("clock step field 'phase'", s["phase"]);
        e.model.steps.push_back(st);
      }
    }
    out.push_back(std::move(e));
  }
}

void Loader::network(const YAML::Node &n, NetworkSetup &out) {
  mapping("board field 'network'", n);
  knownKeys("network", n, kNetworkKeys);
  out.present = true;
  if (n["seed"]) out.seed = unsignedValue("network field 'seed'", n["seed"], UINT64_MAX);
  int64_t stamp = n["stampStep"] ? nanos("network field 'stampStep'", n["stampStep"]) : 0;
  if (stamp < 0) fail(n["stampStep"], "network field 'stampStep': not below 0");
  if (const auto &gms = n["grandmasters"]) {
    if (!gms.IsSequence()) fail(gms, "network field 'grandmasters': expected a list of {name, identity, ...}");
    for (const auto &g : gms) {
      mapping("a grandmaster", g);
      knownKeys("a grandmaster", g, kGmKeys);
      if (!g["name"]) fail(g, "a grandmaster: missing field 'name'");
      NetGrandmaster gm;
      gm.name = scalar("grandmaster field 'name'", g["name"], "a name");
      if (unitPortOf(gm.name)) fail(g["name"], "grandmaster field 'name': '" + gm.name + "' reads as an engine port");
      for (const auto &other : out.grandmasters)
        if (other.name == gm.name) fail(g["name"], "a grandmaster named '" + gm.name + "' is there already");
      auto &s = gm.shape;
      if (g["identity"]) {
        std::string id = scalar("grandmaster field 'identity'", g["identity"], "a clock identity");
        auto pid = parsePortIdentity(id + "-1");
        if (!pid)
          fail(g["identity"], "grandmaster field 'identity': expected a clock identity like 001b19.fffe.000001");
        s.identity = pid->clock;
      }
      auto u = [&](const char *key, auto &field, uint64_t max) {
        if (g[key])
          field = static_cast<std::decay_t<decltype(field)>>(
              unsignedValue(std::string("grandmaster field '") + key + "'", g[key], max));
      };
      auto i = [&](const char *key, auto &field, int64_t min, int64_t max) {
        if (g[key])
          field = static_cast<std::decay_t<decltype(field)>>(
              signedValue(std::string("grandmaster field '") + key + "'", g[key], min, max));
      };
      u("portNumber", s.portNumber, 0xFFFF), u("domain", s.domain, 255), u("priority1", s.priority1, 255);
      u("priority2", s.priority2, 255), u("clockClass", s.clockClass, 255), u("clockAccuracy", s.clockAccuracy, 255);
      u("variance", s.variance, 0xFFFF), u("timeSource", s.timeSource, 255);
      i("utcOffset", s.utcOffset, -32768, 32767), i("logAnnounce", s.logAnnounce, -7, 7);
      i("logSync", s.logSync, -7, 7), i("logDelayResp", s.logDelayResp, -7, 7);
      if (g["twoStep"]) s.twoStep = unsignedValue("grandmaster field 'twoStep'", g["twoStep"], 1) != 0;
      if (g["ipv4"]) s.ipv4 = unsignedValue("grandmaster field 'ipv4'", g["ipv4"], 1) != 0;
      out.grandmasters.push_back(std::move(gm));
    }
  }
  if (const auto &links = n["links"]) {
    if (!links.IsSequence()) fail(links, "network field 'links': expected a list of {from, to, delay, ...}");
    for (const auto &l : links) {
      out.links.push_back(link(l, out));
      out.links.back().shape.stampStepNs = stamp;
    }
  }
}

NetLink Loader::link(const YAML::Node &l, const NetworkSetup &net) {
  mapping("a link", l);
  knownKeys("a link", l, kLinkKeys);
  NetLink k;
  for (const char *end : {"from", "to"}) {
    if (!l[end]) fail(l, std::string("a link: missing field '") + end + "'");
    std::string s = scalar(std::string("link field '") + end + "'", l[end], "UNIT:PORT or a grandmaster's name");
    bool gm = false;
    for (const auto &g : net.grandmasters) gm = gm || g.name == s;
    if (!gm && !unitPortOf(s))
      fail(l[end], std::string("link field '") + end + "': '" + s +
                       "' is neither an engine port (UNIT:PORT) nor a grandmaster above");
    (std::string_view(end) == "from" ? k.from : k.to) = s;
  }
  if (k.from == k.to) fail(l["to"], "a link: joins '" + k.from + "' to itself");
  auto &there = k.shape.there, &back = k.shape.back;
  if (l["delay"]) there.delayNs = back.delayNs = nanos("link field 'delay'", l["delay"]);
  if (l["jitter"]) {
    std::string j = scalar("link field 'jitter'", l["jitter"], "a distribution");
    auto it = std::find(kJitterNames.begin(), kJitterNames.end(), j);
    if (it == kJitterNames.end())
      fail(l["jitter"],
           "link field 'jitter': unknown distribution '" + j + "'; expected one of: " + joinNames(kJitterNames));
    there.jitter = back.jitter = static_cast<fwmsim::Jitter>(it - kJitterNames.begin());
  }
  if (l["jitterSize"]) there.jitterNs = back.jitterNs = nanos("link field 'jitterSize'", l["jitterSize"]);
  if (l["extra"]) there.extraNs = nanos("link field 'extra'", l["extra"]);
  if (l["extraBack"]) back.extraNs = nanos("link field 'extraBack'", l["extraBack"]);
  for (int64_t v : {there.delayNs, there.jitterNs, there.extraNs, back.extraNs})
    if (v < 0) fail(l, "a link: delays are not below 0");
  if (l["loss"]) there.loss = back.loss = real("link field 'loss'", l["loss"], 0, 1);
  if (const auto &o = l["outages"]) {
    const char *what = "link field 'outages': expected a list of FROM-TO times, e.g. [\"10s-20s\"]";
    if (!o.IsSequence()) fail(o, what);
    for (const auto &item : o) {
      std::string s = scalar("link field 'outages'", item, "FROM-TO");
      size_t dash = s.find('-', 1);
      if (dash == std::string::npos) fail(item, what);
      auto from = nanosOf(s.substr(0, dash)), to = nanosOf(s.substr(dash + 1));
      if (!from || !to) fail(item, what);
      if (*to <= *from) fail(item, "link field 'outages': '" + s + "' ends before it starts");
      there.outages.emplace_back(*from, *to);
    }
    back.outages = there.outages;
  }
  return k;
}

void Loader::servos(const YAML::Node &n, std::vector<ServoSetup> &out) {
  if (!n.IsSequence()) fail(n, "board field 'servos': expected a list of {unit, port, kp, ki, ...}");
  for (const auto &s : n) {
    mapping("a servo", s);
    knownKeys("a servo", s, kServoKeys);
    ServoSetup v;
    unitPort("a servo", s, v.unit, v.port);
    for (const auto &other : out)
      if (other.unit == v.unit)
        fail(s, "a servo: unit " + std::to_string(v.unit) + " is steered by one already (one per engine clock)");
    auto &c = v.config;
    auto r = [&](const char *key, double &field, double min, double max) {
      if (s[key]) field = real(std::string("servo field '") + key + "'", s[key], min, max);
    };
    r("kp", c.kp, 0, 100), r("ki", c.ki, 0, 100), r("kpScale", c.kpScale, 0, 100), r("kiScale", c.kiScale, 0, 100);
    r("kpExponent", c.kpExponent, -10, 10), r("kiExponent", c.kiExponent, -10, 10);
    r("kpNormMax", c.kpNormMax, 0, 100), r("kiNormMax", c.kiNormMax, 0, 100);
    if (s["firstStep"]) c.firstStepThresholdNs = static_cast<double>(nanos("servo field 'firstStep'", s["firstStep"]));
    if (s["stepThreshold"])
      c.stepThresholdNs = static_cast<double>(nanos("servo field 'stepThreshold'", s["stepThreshold"]));
    r("maxFrequency", c.maxFrequencyPpb, 0, fwmsim::kRtcMaxAdjPpb);
    if (s["holdover"])
      c.holdoverIntervals = static_cast<int>(unsignedValue("servo field 'holdover'", s["holdover"], 1000));
    if (s["softwareStamps"])
      c.softwareStamps = unsignedValue("servo field 'softwareStamps'", s["softwareStamps"], 1) != 0;
    out.push_back(v);
  }
}

}  // namespace clksim
