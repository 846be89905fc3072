#include <algorithm>
#include <cctype>
#include <sstream>

#include "fwmsim/faults.hpp"
#include "fwmtools/announce.hpp"
#include "loader_impl.hpp"
#include "values.hpp"

namespace clksim {

namespace {

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

std::vector<std::string_view> allStepNames() {
  std::vector<std::string_view> names;
  for (const auto &op : operations()) names.push_back(op.name);
  names.insert(names.end(), kEventSteps.begin(), kEventSteps.end());
  return names;
}

}  // namespace

const std::vector<std::string_view> kEventSteps = {"advance",
                                                   "notify",
                                                   "note",
                                                   "fail",
                                                   "announce_received",
                                                   "announce_timeout",
                                                   "alarms_cleared",
                                                   "engine_timestamps",
                                                   "engine_t2_sub_t1",
                                                   "engine_t4_sub_t3",
                                                   "engine_pkt_stat",
                                                   "ports"};

uint64_t Loader::namedValue(const std::string &what, const YAML::Node &v, uint64_t max, CodeNames names) {
  if (v.IsScalar())
    if (auto code = codeOf(names, v.Scalar())) return *code;
  if (!names.empty() && v.IsScalar() && !v.Scalar().empty() && std::isalpha(static_cast<unsigned char>(v.Scalar()[0])))
    fail(v, what + ": unknown name '" + v.Scalar() + "'" + suggestion(v.Scalar(), allNames(names)) +
                "; expected a number or one of: " + joinNames(allNames(names)));
  return unsignedValue(what, v, max);
}

// Identities and intervals are written either way; the record gets words.
void Loader::putIdentity(const std::string &what, const YAML::Node &v, const FieldDesc &f,
                         std::vector<uint8_t> &bytes) {
  std::string s = scalar(what, v, "a clock identity");
  std::optional<PortId> id;
  if (f.kind != FieldKind::ClockId) {
    id = parsePortIdentity(s);
    if (!id) fail(v, what + ": expected a port identity like 001b19.fffe.000001-1, got '" + s + "'");
  } else if (auto clock = fwmtools::parseClockIdentity(s)) {
    id = PortId{*clock, 0};
  } else {
    fail(v, what + ": expected a clock identity like 001b19.fffe.000001, got '" + s + "'");
  }
  const bool words = f.kind == FieldKind::PortIdWords;
  putLe(bytes, f.offset, 4, id->clock >> 32);
  putLe(bytes, words ? f.offset + 4 : f.offset2, 4, id->clock & 0xFFFFFFFFu);
  if (f.kind != FieldKind::ClockId) putLe(bytes, words ? f.offset + 8 : f.offset3, 4, id->port);
}

FieldValue Loader::setField(const RecordDesc &rec, const FieldDesc &f, const std::string &owner, const YAML::Node &v,
                            std::vector<uint8_t> &bytes) {
  const std::string what = "field '" + std::string(f.name) + "' of " + owner + " (" + std::string(rec.type) + ")";
  FieldValue shown{std::string(f.name), displayValue(v), {}};
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
      putLe(bytes, f.offset, 4, namedValue(what, v, 0xFFFFFFFFu, f.names));
      break;
    case FieldKind::Interval: {
      const bool duration = v.IsScalar() && v.Scalar().ends_with("s");
      const auto code = duration ? intervalCode(v.Scalar()) : std::nullopt;
      if (duration && !code)
        fail(v, what + ": '" + v.Scalar() + "' is no interval; intervals are 2^n s from 7.8ms to 8192s (125ms, 1s)");
      putLe(bytes, f.offset, 4, code ? *code : unsignedValue(what, v, 0xFFFFFFFFu));
      break;
    }
    case FieldKind::S32:
      putLe(bytes, f.offset, 4, static_cast<uint32_t>(signedValue(what, v, INT32_MIN, INT32_MAX)));
      break;
    case FieldKind::Bits: {
      uint64_t x = namedValue(what, v, f.mask, f.names);
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
    case FieldKind::PortIdWords:
      if (v.IsScalar()) {
        putIdentity(what, v, f, bytes);
        break;
      }
      [[fallthrough]];
    case FieldKind::Words: {
      if (!v.IsSequence()) fail(v, what + ": expected a list of " + std::to_string(f.count) + " words");
      if (v.size() > f.count)
        fail(v, what + ": expected at most " + std::to_string(f.count) + " words, got " + std::to_string(v.size()));
      for (size_t i = 0; i < v.size(); ++i)
        putLe(bytes, f.offset + 4 * i, 4, unsignedValue(what + " word " + std::to_string(i), v[i], 0xFFFFFFFFu));
      break;
    }
    case FieldKind::ClockId:
    case FieldKind::PortIdentity:
      putIdentity(what, v, f, bytes);
      break;
  }
  shown.json = fieldJson(f, bytes);
  if (f.kind == FieldKind::Interval || !f.names.empty()) shown.text = fieldText(f, bytes);
  return shown;
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
      r.fields.push_back(setField(*op.record, *f, name, kv.second, r.record));
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
  // What a clock says when nobody set it up: left zero, an omitted field
  // would announce the best clock there is.
  for (auto [field, value] : {std::pair{"grandmasterPriority1", 128u},
                              {"grandmasterPriority2", 128u},
                              {"clockAccuracy", 0xFEu},
                              {"offsetScaledLogVariance", 0xFFFFu},
                              {"clockClass", 248u}})
    putLe(bytes, rec.find(field)->offset, rec.find(field)->kind == FieldKind::U16 ? 2 : 4, value);
  for (const auto &kv : n)
    if (const FieldDesc *f = rec.find(kv.first.as<std::string>()))
      a.shown.push_back(setField(rec, *f, name, kv.second, bytes));
  std::copy(bytes.begin(), bytes.end(), a.fields.begin());
  return a;
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
  } else if (name == "ports") {
    if (scalar("ports", v, "all") != "all") fail(v, "ports: expected 'all', got '" + v.Scalar() + "'");
    s.body = Ports{};
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

}  // namespace clksim
