#include "loader_impl.hpp"

#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <set>
#include <sstream>

#include "fwmsim/faults.hpp"
#include "fwmtools/announce.hpp"
#include "values.hpp"

namespace clksim {

namespace {

// Where brackets of flow style ([ or {) nest deepest: the parser reports its
// depth limit where it stopped scanning ahead, which can be the end of the
// file, not the place that is too deep.
SourcePos deepestFlow(std::string_view text, const std::string &file, int *depth) {
  SourcePos at{file, 1, 1};
  int now = 0, line = 1, column = 0;
  char quote = 0;
  bool comment = false, escaped = false;
  *depth = 0;
  for (char c : text) {
    ++column;
    if (c == '\n') {
      ++line, column = 0, comment = false;
    } else if (comment) {
    } else if (quote != 0) {
      if (!escaped && c == quote) quote = 0;
      escaped = quote == '"' && !escaped && c == '\\';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '#') {
      comment = true;
    } else if (c == '[' || c == '{') {
      if (++now > *depth) *depth = now, at.line = line, at.column = column;
    } else if ((c == ']' || c == '}') && now > 0) {
      --now;
    }
  }
  return at;
}

// Scenarios are hand-written; anything larger is not one.
constexpr std::uintmax_t kMaxFileBytes = 1u << 20;

const std::vector<std::string_view> kTopKeys = {"name", "description", "board", "steps"};
const std::vector<std::string_view> kBoardKeys = {"chipType", "engines",   "chassis",   "slot",      "selfIp",
                                                  "masterIp", "coldAgent", "logLevels", "wirePorts", "clocks",
                                                  "network",  "servos",    "timeError", "boundary"};
const std::vector<std::string_view> kLevelNames = {"DEBUG", "INFO", "MSG", "ERROR", "SYSBOOT", "PROCINIT"};
}  // namespace

std::vector<std::string_view> eventStepNames() { return kEventSteps; }

std::string LoadError::text() const {
  std::string s = pos.file;
  if (pos.line > 0) s += ":" + std::to_string(pos.line) + ":" + std::to_string(pos.column);
  s += ": error: ";
  // What a file says is shown, never obeyed by the terminal.
  for (char c : message) {
    auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F) {
      static constexpr char kHex[] = "0123456789abcdef";
      s += std::string("\\x") + kHex[u >> 4] + kHex[u & 15];
    } else {
      s += c;
    }
  }
  return s;
}

const YAML::Node &Loader::mapping(const std::string &what, const YAML::Node &n) {
  if (!n.IsMap()) fail(n, what + ": expected a mapping of field: value");
  return n;
}

std::string Loader::key(const std::string &what, const YAML::Node &k) {
  if (!k.IsScalar()) fail(k, what + ": a field name is a plain word, not a " + (k.IsMap() ? "mapping" : "list"));
  return k.Scalar();
}

void Loader::knownKeys(const std::string &what, const YAML::Node &n, const std::vector<std::string_view> &keys) {
  std::set<std::string, std::less<>> seen;
  for (const auto &kv : n) {
    std::string k = key(what, kv.first);
    if (!seen.insert(k).second) fail(kv.first, "field '" + k + "' of " + what + " given twice");
    if (std::find(keys.begin(), keys.end(), k) == keys.end())
      fail(kv.first,
           "unknown field '" + k + "' of " + what + suggestion(k, keys) + "; expected one of: " + joinNames(keys));
  }
}

std::string Loader::scalar(const std::string &what, const YAML::Node &v, const char *expected) {
  if (!v.IsScalar())
    fail(v, what + ": expected " + expected + ", got " +
                (v.IsNull() ? "nothing" : "a " + std::string(v.IsMap() ? "mapping" : "list")));
  return v.Scalar();
}

uint64_t Loader::unsignedValue(const std::string &what, const YAML::Node &v, uint64_t max) {
  std::string s = scalar(what, v, "an unsigned integer");
  auto x = parseUnsigned(s);
  if (!x) fail(v, what + ": expected an unsigned integer (decimal, 0x.. or 0b..), got '" + s + "'");
  if (*x > max) fail(v, what + ": " + s + " does not fit (at most " + std::to_string(max) + ")");
  return *x;
}

int64_t Loader::signedValue(const std::string &what, const YAML::Node &v, int64_t min, int64_t max) {
  std::string s = scalar(what, v, "an integer");
  bool neg = !s.empty() && s[0] == '-';
  auto x = parseUnsigned(neg ? s.substr(1) : s);
  if (!x || *x > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    fail(v, what + ": expected an integer, got '" + s + "'");
  int64_t r = neg ? -static_cast<int64_t>(*x) : static_cast<int64_t>(*x);
  if (r < min || r > max)
    fail(v, what + ": " + s + " does not fit (" + std::to_string(min) + " to " + std::to_string(max) + ")");
  return r;
}

void Loader::board(const YAML::Node &n, BoardSetup &b) {
  mapping("board", n);
  knownKeys("board", n, kBoardKeys);
  auto u32 = [&](const char *key, uint32_t &out, uint64_t max) {
    if (n[key]) out = static_cast<uint32_t>(unsignedValue(std::string("board field '") + key + "'", n[key], max));
  };
  u32("chipType", b.chipType, 0xFFFFFFFFu);
  u32("engines", b.engines, 8);
  u32("chassis", b.chassis, 0xFFFFFFFFu);
  u32("slot", b.slot, 0xFFFFFFFFu);
  for (const char *key : {"selfIp", "masterIp"}) {
    if (!n[key]) continue;
    std::string s = scalar(std::string("board field '") + key + "'", n[key], "an IPv4 address");
    auto ip = parseIpv4(s);
    if (!ip)
      fail(n[key], std::string("board field '") + key + "': expected an IPv4 address like 10.0.0.1, got '" + s + "'");
    (std::string_view(key) == "selfIp" ? b.selfIp : b.masterIp) = *ip;
  }
  if (n["coldAgent"]) b.coldAgent = unsignedValue("board field 'coldAgent'", n["coldAgent"], 1) != 0;
  if (const auto &lv = n["logLevels"]) {
    if (!lv.IsSequence())
      fail(lv, "board field 'logLevels': expected a list of level names (" + joinNames(kLevelNames) + ")");
    b.logLevels.fill(false);
    for (const auto &item : lv) {
      std::string s = scalar("board field 'logLevels'", item, "a level name");
      auto it = std::find(kLevelNames.begin(), kLevelNames.end(), s);
      if (it == kLevelNames.end())
        fail(item, "board field 'logLevels': unknown level '" + s + "'; expected one of: " + joinNames(kLevelNames));
      b.logLevels[static_cast<size_t>(it - kLevelNames.begin())] = true;
    }
  }
  if (const auto &wp = n["wirePorts"]) {
    const char *what = "board field 'wirePorts': expected a list of UNIT:PORT=IFACE, e.g. [\"0:3=veth0\"]";
    if (!wp.IsSequence()) fail(wp, what);
    for (const auto &item : wp) {
      auto port = parseWirePort(scalar("board field 'wirePorts'", item, "UNIT:PORT=IFACE"));
      if (!port) fail(item, what);
      b.wirePorts.push_back(*port);
    }
  }
  timekeeping(n, b.time);
}

Scenario Loader::load(std::string_view text) {
  // A document marker after content starts a second document. Found in the
  // text: the library's LoadAll loops forever on some malformed input.
  bool content = false;
  int lineNo = 0;
  for (size_t at = 0; at <= text.size();) {
    size_t end = std::min(text.find('\n', at), text.size());
    std::string_view line = text.substr(at, end - at);
    ++lineNo;
    if ((line == "---" || line.starts_with("--- ")) && content)
      fail(SourcePos{file_, lineNo, 1}, "a second YAML document; a scenario file holds one");
    if (!line.empty() && line[0] != '#' && line[0] != '%' && line != "---") content = true;
    at = end + 1;
  }
  YAML::Node root;
  try {
    root = YAML::Load(std::string(text));
  } catch (const YAML::DeepRecursion &e) {
    int flowDepth = 0;
    SourcePos deepest = deepestFlow(text, file_, &flowDepth);
    fail(flowDepth > 5 ? deepest : SourcePos{file_, e.mark.line + 1, e.mark.column + 1},
         "nested more than " + std::to_string(e.depth()) +
             " levels deep; a scenario nests its lists and mappings 5 levels at most");
  } catch (const YAML::ParserException &e) {
    fail(SourcePos{file_, e.mark.line + 1, e.mark.column + 1}, "not valid YAML: " + e.msg);
  }
  if (!root.IsMap())
    fail(root.Mark().is_null() ? SourcePos{file_, 1, 1} : at(root),
         "expected a scenario: a mapping with 'board' and 'steps'");
  knownKeys("the scenario", root, kTopKeys);
  Scenario sc;
  sc.source = file_;
  if (root["name"]) sc.name = scalar("name", root["name"], "a text");
  if (root["description"]) sc.description = scalar("description", root["description"], "a text");
  if (!root["board"])
    fail(SourcePos{file_, 1, 1}, "missing 'board': the line card to simulate (chipType, engines, chassis, slot, ...)");
  board(root["board"], sc.board);
  if (!root["steps"]) fail(SourcePos{file_, 1, 1}, "missing 'steps': the timeline to run");
  const YAML::Node &steps = root["steps"];
  if (!steps.IsSequence()) fail(steps, "steps: expected a list of steps ('- name: value')");
  for (const auto &n : steps) sc.steps.push_back(step(n));
  return sc;
}

LoadResult loadScenario(std::string_view yaml, const std::string &sourceName) {
  try {
    return Loader(sourceName).load(yaml);
  } catch (const LoadFailure &f) {
    return f.error;
  } catch (const YAML::Exception &e) {
    return LoadError{{sourceName, e.mark.line + 1, e.mark.column + 1}, e.msg};
  } catch (const std::exception &e) {
    return LoadError{{sourceName, 0, 0}, std::string("cannot load the scenario: ") + e.what()};
  }
}

LoadResult loadScenarioFile(const std::string &path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) return LoadError{{path, 0, 0}, "a directory, not a scenario file"};
  std::ifstream in(path, std::ios::binary);
  if (!in) return LoadError{{path, 0, 0}, "cannot read the file"};
  // Read no more than the cap allows: the path may be a device or a pipe.
  std::string text(kMaxFileBytes + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  if (text.size() > kMaxFileBytes)
    return LoadError{{path, 0, 0}, "larger than " + std::to_string(kMaxFileBytes >> 10) + " KiB; not a scenario file"};
  return loadScenario(text, path);
}

}  // namespace clksim