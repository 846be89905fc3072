#include "loader.hpp"

#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <set>
#include <sstream>

#include "fwmsim/faults.hpp"
#include "fwmtools/announce.hpp"

namespace clksim {

namespace {

struct Failure {
  LoadError error;
};

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
    throw Failure{{std::move(pos), std::move(message)}};
  }

  void board(const YAML::Node &n, BoardSetup &b);
  Step step(const YAML::Node &n);
  Request request(const OpDesc &op, const std::string &name, const YAML::Node &n);
  AnnounceReceived announce(const std::string &name, const YAML::Node &n);
  void unitPort(const std::string &what, const YAML::Node &n, uint32_t &unit, uint32_t &port);
  void setField(const RecordDesc &rec, const FieldDesc &f, const std::string &owner, const YAML::Node &v,
                std::vector<uint8_t> &bytes);

  uint64_t unsignedValue(const std::string &what, const YAML::Node &v, uint64_t max);
  int64_t signedValue(const std::string &what, const YAML::Node &v, int64_t min, int64_t max);
  std::string scalar(const std::string &what, const YAML::Node &v, const char *expected);
  const YAML::Node &mapping(const std::string &what, const YAML::Node &n);
  void knownKeys(const std::string &what, const YAML::Node &n, const std::vector<std::string_view> &keys);
  std::string key(const std::string &what, const YAML::Node &k);

  std::string file_;
};

std::string joinNames(const std::vector<std::string_view> &names) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i) out += ", ";
    out += names[i];
  }
  return out;
}

size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diag = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t up = row[j];
      bool same =
          std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (same ? 0 : 1)});
      diag = up;
    }
  }
  return row[b.size()];
}

std::string suggestion(std::string_view wrong, const std::vector<std::string_view> &names) {
  std::string_view best;
  size_t bestD = std::numeric_limits<size_t>::max();
  for (auto n : names) {
    size_t d = editDistance(wrong, n);
    if (d < bestD) bestD = d, best = n;
  }
  if (best.empty() || bestD > std::max<size_t>(2, wrong.size() / 3)) return {};
  return std::string(" (did you mean '") + std::string(best) + "'?)";
}

std::optional<uint64_t> parseUnsigned(std::string s) {
  if (s == "true") return 1;
  if (s == "false") return 0;
  s.erase(std::remove(s.begin(), s.end(), '_'), s.end());
  int base = 10;
  size_t i = 0;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'))
    base = 16, i = 2;
  else if (s.size() > 2 && s[0] == '0' && (s[1] == 'b' || s[1] == 'B'))
    base = 2, i = 2;
  if (i >= s.size()) return std::nullopt;
  uint64_t v = 0;
  for (; i < s.size(); ++i) {
    char c = s[i];
    int d = (c >= '0' && c <= '9')   ? c - '0'
            : (c >= 'a' && c <= 'f') ? c - 'a' + 10
            : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                     : 99;
    if (d >= base) return std::nullopt;
    if (v > (std::numeric_limits<uint64_t>::max() - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base))
      return std::nullopt;
    v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
  }
  return v;
}

// `count` octets separated by `sep`, each of 1 to `digits` digits in `base`
// and at most 255: no signs, blanks or wrap-around.
template <size_t N>
std::optional<std::array<uint8_t, N>> parseOctets(std::string_view s, char sep, int base, size_t digits) {
  std::array<uint8_t, N> out{};
  for (size_t i = 0; i < N; ++i) {
    size_t len = 0;
    unsigned v = 0;
    for (; len < s.size() && s[len] != sep; ++len) {
      int d = std::isdigit(static_cast<unsigned char>(s[len])) ? s[len] - '0'
              : std::isxdigit(static_cast<unsigned char>(s[len]))
                  ? std::tolower(static_cast<unsigned char>(s[len])) - 'a' + 10
                  : 99;
      if (d >= base || len >= digits) return std::nullopt;
      v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
    }
    if (len == 0 || v > 255) return std::nullopt;
    out[i] = static_cast<uint8_t>(v);
    s.remove_prefix(len);
    if (i + 1 < N) {
      if (s.empty()) return std::nullopt;
      s.remove_prefix(1);
    }
  }
  if (!s.empty()) return std::nullopt;
  return out;
}

std::optional<uint32_t> parseIpv4(const std::string &s) {
  auto o = parseOctets<4>(s, '.', 10, 3);
  if (!o) return std::nullopt;
  return uint32_t{(*o)[0]} << 24 | uint32_t{(*o)[1]} << 16 | uint32_t{(*o)[2]} << 8 | (*o)[3];
}

std::optional<std::array<uint8_t, 6>> parseMac(const std::string &s) { return parseOctets<6>(s, ':', 16, 2); }

void putLe(std::vector<uint8_t> &b, size_t at, size_t width, uint64_t v) {
  for (size_t i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

uint32_t getLe32(const std::vector<uint8_t> &b, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= static_cast<uint32_t>(b[at + i]) << (8 * i);
  return v;
}

std::string displayValue(const YAML::Node &v) {
  if (v.IsScalar()) return v.Scalar();
  std::ostringstream os;
  YAML::Emitter e;
  e << YAML::Flow << v;
  return e.c_str();
}

// One step never runs the board for more than a virtual day.
constexpr uint64_t kMaxAdvanceMs = 24ull * 3600 * 1000;
// Scenarios are hand-written; anything larger is not one.
constexpr std::uintmax_t kMaxFileBytes = 1u << 20;

const std::vector<std::string_view> kTopKeys = {"name", "description", "board", "steps"};
const std::vector<std::string_view> kBoardKeys = {"chipType", "engines",   "chassis",   "slot",     "selfIp",
                                                  "masterIp", "coldAgent", "logLevels", "wirePorts"};
const std::vector<std::string_view> kLevelNames = {"DEBUG", "INFO", "MSG", "ERROR", "SYSBOOT", "PROCINIT"};
const std::vector<std::string_view> kEventSteps = {
    "advance",           "notify",           "note",           "fail",
    "announce_received", "announce_timeout", "alarms_cleared", "engine_timestamps",
    "engine_t2_sub_t1",  "engine_t4_sub_t3", "engine_pkt_stat"};

std::vector<std::string_view> allStepNames() {
  std::vector<std::string_view> names;
  for (const auto &op : operations()) names.push_back(op.name);
  names.insert(names.end(), kEventSteps.begin(), kEventSteps.end());
  return names;
}

}  // namespace

std::optional<WirePort> parseWirePort(std::string_view text) {
  const size_t colon = text.find(':'), eq = text.find('=');
  if (colon == std::string_view::npos || eq == std::string_view::npos || eq < colon || eq + 1 == text.size())
    return std::nullopt;
  auto number = [](std::string_view digits, uint32_t max) -> std::optional<uint32_t> {
    uint32_t v = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v);
    if (ec != std::errc() || end != digits.data() + digits.size() || digits.empty() || v > max) return std::nullopt;
    return v;
  };
  auto unit = number(text.substr(0, colon), 7);
  auto port = number(text.substr(colon + 1, eq - colon - 1), 0xFFFFFFFFu);
  if (!unit || !port) return std::nullopt;
  return WirePort{*unit, *port, std::string(text.substr(eq + 1))};
}

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

void Loader::setField(const RecordDesc &rec, const FieldDesc &f, const std::string &owner, const YAML::Node &v,
                      std::vector<uint8_t> &bytes) {
  const std::string what = "field '" + std::string(f.name) + "' of " + owner + " (" + std::string(rec.type) + ")";
  switch (f.kind) {
    case FieldKind::U8:
      putLe(bytes, f.offset, 1, unsignedValue(what, v, 0xFF));
      break;
    case FieldKind::S8: {
      bool neg = v.IsScalar() && !v.Scalar().empty() && v.Scalar()[0] == '-';
      putLe(bytes, f.offset, 1,
            neg ? static_cast<uint8_t>(signedValue(what, v, INT8_MIN, -1)) : unsignedValue(what, v, 0xFF));
      break;
    }
    case FieldKind::U16:
      putLe(bytes, f.offset, 2, unsignedValue(what, v, 0xFFFF));
      break;
    case FieldKind::U32:
      putLe(bytes, f.offset, 4, unsignedValue(what, v, 0xFFFFFFFFu));
      break;
    case FieldKind::S32:
      putLe(bytes, f.offset, 4, static_cast<uint32_t>(signedValue(what, v, INT32_MIN, INT32_MAX)));
      break;
    case FieldKind::Bits: {
      uint64_t x = unsignedValue(what, v, f.mask);
      uint32_t word = getLe32(bytes, f.offset);
      word = (word & ~(f.mask << f.shift)) | static_cast<uint32_t>(x << f.shift);
      putLe(bytes, f.offset, 4, word);
      break;
    }
    case FieldKind::Mac: {
      auto m = parseMac(scalar(what, v, "a MAC address"));
      if (!m) fail(v, what + ": expected a MAC address like 00:1b:19:00:00:01, got '" + v.Scalar() + "'");
      std::copy(m->begin(), m->end(), bytes.begin() + f.offset);
      break;
    }
    case FieldKind::Ipv4: {
      std::string s = scalar(what, v, "an IPv4 address");
      auto ip = parseIpv4(s);
      if (!ip) {
        auto n = parseUnsigned(s);
        if (!n || *n > 0xFFFFFFFFu) fail(v, what + ": expected an IPv4 address like 10.0.0.1, got '" + s + "'");
        ip = static_cast<uint32_t>(*n);
      }
      putLe(bytes, f.offset, 4, *ip);
      break;
    }
    case FieldKind::Words: {
      if (!v.IsSequence()) fail(v, what + ": expected a list of " + std::to_string(f.count) + " words");
      if (v.size() > f.count)
        fail(v, what + ": expected at most " + std::to_string(f.count) + " words, got " + std::to_string(v.size()));
      for (size_t i = 0; i < v.size(); ++i)
        putLe(bytes, f.offset + 4 * i, 4, unsignedValue(what + " word " + std::to_string(i), v[i], 0xFFFFFFFFu));
      break;
    }
    case FieldKind::ClockId:
    case FieldKind::PortIdentity: {
      std::string s = scalar(what, v, "a clock identity");
      std::string id = s;
      uint64_t portNumber = 0;
      if (f.kind == FieldKind::PortIdentity) {
        auto dash = s.rfind('-');
        auto pn = dash == std::string::npos ? std::nullopt : parseUnsigned(s.substr(dash + 1));
        if (!pn || *pn > 0xFFFF)
          fail(v, what + ": expected a port identity like 001b19.fffe.000001-1, got '" + s + "'");
        id = s.substr(0, dash);
        portNumber = *pn;
      }
      auto clock = fwmtools::parseClockIdentity(id);
      if (!clock) fail(v, what + ": expected a clock identity like 001b19.fffe.000001, got '" + s + "'");
      putLe(bytes, f.offset, 4, *clock >> 32);
      putLe(bytes, f.offset2, 4, *clock & 0xFFFFFFFFu);
      if (f.kind == FieldKind::PortIdentity) putLe(bytes, f.offset3, 4, portNumber);
      break;
    }
  }
}

void Loader::unitPort(const std::string &what, const YAML::Node &n, uint32_t &unit, uint32_t &port) {
  for (const char *key : {"unit", "port"}) {
    if (!n[key]) fail(n, what + ": missing field '" + key + "'");
    uint32_t v = static_cast<uint32_t>(unsignedValue(what + " field '" + key + "'", n[key], 0xFFFFFFFFu));
    (std::string_view(key) == "unit" ? unit : port) = v;
  }
}

Request Loader::request(const OpDesc &op, const std::string &name, const YAML::Node &n) {
  Request r;
  r.op = &op;
  r.arg = op.argDefault;
  std::vector<std::string_view> keys;
  if (hasUnitPort(op.shape)) keys = {"unit", "port"};
  if (!op.argName.empty()) keys.push_back(op.argName);
  if (op.record && op.nullChecked) keys.push_back("nullRecord");
  if (op.record && !isReply(op.shape))
    for (const auto &f : op.record->fields) keys.push_back(f.name);
  if (op.record) r.record.assign(op.record->size, 0);
  if (n.IsNull() && !hasUnitPort(op.shape)) return r;
  mapping(name, n);
  knownKeys(name, n, keys);
  if (hasUnitPort(op.shape)) unitPort(name, n, r.unit, r.port);
  if (!op.argName.empty() && n[std::string(op.argName)])
    r.arg = static_cast<uint32_t>(
        unsignedValue(name + " field '" + std::string(op.argName) + "'", n[std::string(op.argName)], 0xFFFFFFFFu));
  if (n["nullRecord"]) {
    r.nullRecord = unsignedValue(name + " field 'nullRecord'", n["nullRecord"], 1) != 0;
  }
  for (const auto &kv : n) {
    std::string k = kv.first.as<std::string>();
    if (!op.record || isReply(op.shape)) continue;
    if (const FieldDesc *f = op.record->find(k)) {
      setField(*op.record, *f, name, kv.second, r.record);
      r.fields.push_back({k, displayValue(kv.second)});
    }
  }
  return r;
}

AnnounceReceived Loader::announce(const std::string &name, const YAML::Node &n) {
  AnnounceReceived a;
  const RecordDesc &rec = announceFieldsRecord();
  mapping(name, n);
  std::vector<std::string_view> keys = {"unit", "port"};
  for (const auto &f : rec.fields) keys.push_back(f.name);
  knownKeys(name, n, keys);
  unitPort(name, n, a.unit, a.port);
  std::vector<uint8_t> bytes(rec.size, 0);
  for (const auto &kv : n) {
    std::string k = kv.first.as<std::string>();
    if (const FieldDesc *f = rec.find(k)) {
      setField(rec, *f, name, kv.second, bytes);
      a.shown.push_back({k, displayValue(kv.second)});
    }
  }
  std::copy(bytes.begin(), bytes.end(), a.fields.begin());
  return a;
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
}

Step Loader::step(const YAML::Node &n) {
  if (!n.IsMap() || n.size() != 1)
    fail(n, "a step is one 'name: value' pair, e.g. '- advance: 2s' or '- set_ptp_glb_cfg: {slavePort: 3}'");
  auto kv = *n.begin();
  Step s;
  s.pos = at(kv.first);
  s.name = key("a step", kv.first);
  const YAML::Node &v = kv.second;
  const std::string &name = s.name;
  if (const OpDesc *op = findOperation(name)) {
    s.body = request(*op, name, v);
  } else if (name == "advance") {
    Advance a;
    std::string t = scalar("advance", v, "a duration");
    if (!parseDuration(t, a.ms)) fail(v, "advance: expected a duration like 2s, 500ms or 1.5s, got '" + t + "'");
    if (a.ms > kMaxAdvanceMs) fail(v, "advance: " + t + " is more than a day; advance a day at a time");
    s.body = a;
  } else if (name == "notify") {
    Notify e;
    std::string t = scalar("notify", v, "an event");
    if (t == "startup")
      e.event = 1;
    else if (t == "master_ip")
      e.event = 3;
    else if (t.empty() || (t[0] != '-' && !std::isdigit(static_cast<unsigned char>(t[0]))))
      fail(v, "notify: expected startup, master_ip or an event number, got '" + t + "'");
    else
      e.event = static_cast<int32_t>(signedValue("notify", v, INT32_MIN, INT32_MAX));
    s.body = e;
  } else if (name == "note") {
    s.body = Note{scalar("note", v, "a text")};
  } else if (name == "fail") {
    Fail f;
    mapping("fail", v);
    knownKeys("fail", v, {"function", "code", "times", "skip"});
    if (!v["function"]) fail(v, "fail: missing field 'function' (e.g. oda_1588_set_ptp_control)");
    f.function = scalar("fail field 'function'", v["function"], "a function name");
    const fwmsim::Faultable *target = fwmsim::findFaultable(f.function);
    if (target == nullptr) {
      std::vector<std::string_view> names;
      for (const auto &x : fwmsim::faultables()) names.push_back(x.function);
      fail(v["function"], "fail: the board cannot fail '" + f.function + "'" + suggestion(f.function, names) +
                              "; it fails the platform functions the library calls, e.g. oda_1588_set_ptp_control");
    }
    f.code = fwmsim::typicalFailure(target->failsAs);
    if (v["code"]) {
      f.code = static_cast<uint32_t>(signedValue("fail field 'code'", v["code"], INT32_MIN, UINT32_MAX));
      if (std::string why = fwmsim::faultRefusal(f.function, f.code); !why.empty()) fail(v["code"], "fail: " + why);
    }
    if (v["times"]) {
      if (v["times"].IsScalar() && v["times"].Scalar() == "always")
        f.times = -1;
      else
        f.times = static_cast<int>(unsignedValue("fail field 'times' (a count or 'always')", v["times"], 1000000));
    }
    if (v["skip"]) f.skip = static_cast<int>(unsignedValue("fail field 'skip'", v["skip"], 1000000));
    s.body = f;
  } else if (name == "announce_received") {
    s.body = announce(name, v);
  } else if (name == "announce_timeout" || name == "alarms_cleared") {
    AnnounceAlarm a;
    mapping(name, v);
    knownKeys(name, v, {"unit", "port"});
    unitPort(name, v, a.unit, a.port);
    a.what = name == "announce_timeout" ? AlarmEvent::Timeout : AlarmEvent::Cleared;
    s.body = a;
  } else if (name.rfind("engine_", 0) == 0 &&
             std::find(kEventSteps.begin(), kEventSteps.end(), name) != kEventSteps.end()) {
    EngineValues e;
    struct Kind {
      std::string_view name;
      EngineData what;
      size_t words;
    };
    static constexpr Kind kKinds[] = {{"engine_timestamps", EngineData::Timestamps, 16},
                                      {"engine_t2_sub_t1", EngineData::T2SubT1, 6},
                                      {"engine_t4_sub_t3", EngineData::T4SubT3, 6},
                                      {"engine_pkt_stat", EngineData::PktStat, 37}};
    const Kind *k = &kKinds[0];
    for (const auto &c : kKinds)
      if (c.name == name) k = &c;
    mapping(name, v);
    knownKeys(name, v, {"unit", "port", "words"});
    unitPort(name, v, e.unit, e.port);
    e.what = k->what;
    const auto &w = v["words"];
    if (!w || !w.IsSequence())
      fail(w ? w : v, name + ": expected 'words', a list of up to " + std::to_string(k->words) + " words");
    if (w.size() > k->words)
      fail(w, name + ": the engine record has " + std::to_string(k->words) + " words, got " + std::to_string(w.size()));
    for (size_t i = 0; i < w.size(); ++i)
      e.words.push_back(static_cast<uint32_t>(unsignedValue(name + " word " + std::to_string(i), w[i], 0xFFFFFFFFu)));
    e.words.resize(k->words, 0);
    s.body = e;
  } else {
    auto names = allStepNames();
    fail(kv.first, "unknown operation '" + name + "'" + suggestion(name, names) + "; expected a service operation (" +
                       joinNames(std::vector<std::string_view>(names.begin(), names.begin() + 15)) + ") or an event (" +
                       joinNames(kEventSteps) + ")");
  }
  return s;
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
  } catch (const Failure &f) {
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

bool parseDuration(std::string_view text, uint64_t &ms) {
  std::string s(text);
  size_t i = 0;
  while (i < s.size() && (std::isdigit(static_cast<unsigned char>(s[i])) || s[i] == '.')) ++i;
  if (i == 0) return false;
  std::string num = s.substr(0, i), unit = s.substr(i);
  while (!unit.empty() && unit.front() == ' ') unit.erase(0, 1);
  char *end = nullptr;
  double v = std::strtod(num.c_str(), &end);
  if (!end || *end != '\0' || v < 0) return false;
  double factor;
  if (unit.empty() || unit == "ms")
    factor = 1;
  else if (unit == "s")
    factor = 1000;
  else if (unit == "min")
    factor = 60000;
  else
    return false;
  double total = v * factor;
  if (total > 1e12 || total != std::floor(total)) return false;
  ms = static_cast<uint64_t>(total);
  return true;
}

std::string formatDuration(uint64_t ms) {
  if (ms % 1000 == 0) return std::to_string(ms / 1000) + "s";
  return std::to_string(ms) + "ms";
}

}  // namespace clksim
