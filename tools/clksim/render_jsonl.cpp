#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "fwmtools/ack_json.hpp"
#include "outputs.hpp"

namespace clksim {

namespace {

std::string hexBytes(const std::vector<uint8_t> &b) {
  std::string s;
  s.reserve(b.size() * 2);
  for (uint8_t x : b) s += fmt::format("{:02x}", x);
  return s;
}

nlohmann::json value(const FieldValue &fv) {
  return fv.json.empty() ? nlohmann::json(fv.text) : nlohmann::json::parse(fv.json);
}

class JsonlRenderer : public TraceObserver {
 public:
  explicit JsonlRenderer(std::FILE *out) : out_(out) {}

  void begin(const Scenario &sc) override {
    const BoardSetup &b = sc.board;
    nlohmann::json j = {{"kind", "scenario"},
                        {"name", sc.name},
                        {"source", sc.source},
                        {"steps", sc.steps.size()},
                        {"board",
                         {{"chipType", b.chipType},
                          {"engines", b.engines},
                          {"chassis", b.chassis},
                          {"slot", b.slot},
                          {"selfIp", b.selfIp},
                          {"masterIp", b.masterIp},
                          {"coldAgent", b.coldAgent}}}};
    for (const auto &w : b.wirePorts)
      j["board"]["wirePorts"].push_back(fmt::format("{}:{}={}", w.unit, w.port, w.iface));
    put(j);
  }

  void record(const TraceRecord &r) override {
    nlohmann::json j = {{"seq", r.seq},   {"t_ms", r.timeMs},   {"kind", kindName(r.kind)},
                        {"step", r.step}, {"thread", r.thread}, {"layer", layerName(r.layer)}};
    if (!r.facility.empty()) j["facility"] = r.facility;
    if (!r.level.empty()) j["level"] = r.level;
    if (!r.text.empty()) j["text"] = r.text;
    if (!r.stepName.empty()) j["name"] = r.stepName;
    if (!r.target.empty()) j["target"] = r.target;
    if (!r.fields.empty()) {
      nlohmann::json f = nlohmann::json::object();
      for (const auto &fv : r.fields) f[fv.name] = value(fv);
      j["fields"] = f;
    }
    if (r.result) j["result"] = *r.result;
    if (r.returned) j["result"] = r.returned->value;  // for a pointer: 1, or 0 for NULL
    if (r.returned && r.returned->pointer) j["pointer"] = true;
    if (r.sinceMs) j["since_ms"] = *r.sinceMs;
    if (!r.replyWords.empty()) j["reply"] = r.replyWords;
    for (const auto &fv : r.decoded) j["decoded"][fv.name] = value(fv);
    if (r.pos.line) j["source"] = fmt::format("{}:{}:{}", r.pos.file, r.pos.line, r.pos.column);
    if (!r.bytes.empty()) j["bytes"] = hexBytes(r.bytes);
    if (r.ack) j["ack"] = fwmtools::ackToJson(*r.ack);
    if (r.kind == TraceKind::Ack) j["delivered"] = !ackNotSent(r) && !r.unheard;
    if (r.announce) j["announce"] = fwmtools::announceToJson(*r.announce);
    put(j);
  }

 private:
  void put(const nlohmann::json &j) {
    fmt::print(out_, "{}\n", j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    std::fflush(out_);
  }
  std::FILE *out_;
};

}  // namespace

std::unique_ptr<TraceObserver> makeJsonlRenderer(std::FILE *out) { return std::make_unique<JsonlRenderer>(out); }

void printJsonlSummary(std::FILE *out, const Summary &s) {
  nlohmann::json j = {{"kind", "summary"},
                      {"steps", s.steps},
                      {"requests", s.requests},
                      {"failedRequests", s.failedRequests},
                      {"requestsNotMade", s.requestsNotMade},
                      {"engineCalls", s.engineCalls},
                      {"platformCalls", s.platformCalls},
                      {"logLines", s.logLines},
                      {"errorLines", s.errorLines},
                      {"debugLines", s.debugLines},
                      {"feModuleErrors", s.feModuleErrors},
                      {"acks", s.acks},
                      {"peerReceived", s.peerReceived},
                      {"acksUnheard", s.acksUnheard},
                      {"wireSent", s.wireSent},
                      {"wireReceived", s.wireReceived},
                      {"wireDropped", s.wireDropped},
                      {"wireTimeouts", s.wireTimeouts},
                      {"virtualMs", s.virtualMs},
                      {"realtime", s.realtime}};
  for (const auto &r : s.judged) {
    nlohmann::json e = nlohmann::json::object();
    for (const auto &fv : r.fields) e[fv.name] = value(fv);
    j["timeError"].push_back(e);
  }
  fmt::print(out, "{}\n", j.dump());
}

}  // namespace clksim
