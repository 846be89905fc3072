#include "trace.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "fwmptp/frame.hpp"
#include "fwmsim/recorder.hpp"
#include "outputs.hpp"

namespace clksim {

namespace {

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

// Which layer wrote a log line: the tag at its start says.
Layer logLayer(std::string_view text) {
  if (startsWith(text, "1588.") || startsWith(text, "[CLK_NP]")) return Layer::Np;
  if (startsWith(text, "[1588]")) return Layer::Driver;
  if (startsWith(text, "[FWM_SRV_BKF]")) return Layer::Channel;
  return Layer::Service;
}

}  // namespace

const char *layerName(Layer l) {
  switch (l) {
    case Layer::Orchestrator:
      return "orchestrator";
    case Layer::Service:
      return "service";
    case Layer::Np:
      return "np";
    case Layer::Driver:
      return "driver";
    case Layer::Platform:
      return "platform";
    case Layer::Channel:
      return "channel";
    case Layer::Sim:
      return "sim";
  }
  return "?";
}

int layerDepth(Layer l) {
  switch (l) {
    case Layer::Orchestrator:
      return 0;
    case Layer::Service:
      return 1;
    case Layer::Channel:
      return 1;
    case Layer::Np:
      return 2;
    case Layer::Platform:
      return 2;
    case Layer::Driver:
      return 3;
    case Layer::Sim:
      return 0;
  }
  return 0;
}

const char *kindName(TraceKind k) {
  switch (k) {
    case TraceKind::StepBegin:
      return "step_begin";
    case TraceKind::StepEnd:
      return "step_end";
    case TraceKind::Call:
      return "call";
    case TraceKind::Log:
      return "log";
    case TraceKind::Debug:
      return "debug";
    case TraceKind::Ack:
      return "ack";
    case TraceKind::PeerRx:
      return "peer_rx";
    case TraceKind::Note:
      return "note";
    case TraceKind::Wire:
      return "wire";
    case TraceKind::Port:
      return "port";
    case TraceKind::TeSample:
      return "te_sample";
    case TraceKind::ServoAdjust:
      return "servo_adjust";
    case TraceKind::ServoState:
      return "servo_state";
    case TraceKind::TeJudged:
      return "te_judged";
    case TraceKind::Decision:
      return "decision";
  }
  return "?";
}

std::string resultText(const CallResult &r) {
  if (r.pointer) return r.value ? "&" : "NULL";
  return std::to_string(r.value);
}

TraceRecord classify(const fwmsim::Event &e) {
  TraceRecord r;
  r.timeMs = e.vtimeMs;
  r.thread = e.thread;
  r.facility = e.facility;
  r.text = e.text;
  while (!r.text.empty() && (r.text.back() == '\n' || r.text.back() == '\r')) r.text.pop_back();
  r.bytes = e.bytes;
  if (e.facility == "log") {
    r.kind = TraceKind::Log;
    auto sp = r.text.find(' ');
    r.level = r.text.substr(0, sp);
    r.text = sp == std::string::npos ? std::string() : r.text.substr(sp + 1);
    r.layer = logLayer(r.text);
  } else if (e.facility == "debug" && startsWith(e.text, "print(")) {
    // print(id, level, "format") followed by the line as the framework formatted it
    r.kind = TraceKind::Debug;
    r.layer = Layer::Np;
    if (auto end = r.text.find("\") "); end != std::string::npos) r.text = r.text.substr(end + 3);
    while (!r.text.empty() && (r.text.back() == '\n' || r.text.back() == '\r')) r.text.pop_back();
  } else if (e.facility == "wire") {
    r.kind = TraceKind::Wire;
    r.layer = Layer::Sim;
    if (auto frame = fwmptp::parseFrame(r.bytes)) r.announce = fwmptp::decodeAnnounce(frame->payload);
  } else if (e.facility == "oda") {
    r.kind = TraceKind::Call;
    r.layer = Layer::Driver;
  } else {
    r.kind = TraceKind::Call;
    r.layer = Layer::Platform;
  }
  return r;
}

namespace {
class KindFilter : public TraceObserver {
 public:
  KindFilter(std::unique_ptr<TraceObserver> out, std::vector<bool> pass) : out_(std::move(out)), pass_(pass) {}
  void begin(const Scenario &sc) override { out_->begin(sc); }
  void record(const TraceRecord &r) override {
    if (pass_[static_cast<size_t>(r.kind)]) out_->record(r);
  }
  void end() override { out_->end(); }
  std::string error() const override { return out_->error(); }

 private:
  std::unique_ptr<TraceObserver> out_;
  std::vector<bool> pass_;
};
}  // namespace

std::unique_ptr<TraceObserver> onlyKinds(std::unique_ptr<TraceObserver> output, const std::string &kinds,
                                         std::string *error) {
  constexpr auto kKinds = static_cast<size_t>(TraceKind::Decision) + 1;
  std::vector<bool> pass(kKinds);
  std::string all;
  for (size_t k = 0; k < kKinds; ++k) all += fmt::format("{}{}", k ? "," : "", kindName(static_cast<TraceKind>(k)));
  for (size_t from = 0; from <= kinds.size();) {
    const size_t to = std::min(kinds.find(',', from), kinds.size());
    const std::string name = kinds.substr(from, to - from);
    size_t k = 0;
    while (k < kKinds && name != kindName(static_cast<TraceKind>(k))) ++k;
    if (k == kKinds) {
      *error = fmt::format("--only {}: no kind of record '{}' (kinds: {})", kinds, name, all);
      return nullptr;
    }
    pass[k] = true;
    from = to + 1;
  }
  return std::make_unique<KindFilter>(std::move(output), std::move(pass));
}

void SummaryObserver::record(const TraceRecord &r) {
  s_.virtualMs = std::max(s_.virtualMs, r.timeMs);
  switch (r.kind) {
    case TraceKind::StepBegin:
      ++s_.steps;
      break;
    case TraceKind::StepEnd:
      // A request that could not be made (no operation table) ends without a result.
      if (r.layer != Layer::Orchestrator) break;
      if (!r.result) {
        ++s_.requestsNotMade;
        break;
      }
      ++s_.requests;
      if (*r.result != 0) ++s_.failedRequests;
      break;
    case TraceKind::Call:
      (r.layer == Layer::Driver ? s_.engineCalls : s_.platformCalls)++;
      break;
    case TraceKind::Log:
      ++s_.logLines;
      if (r.level == "ERROR") ++s_.errorLines;
      break;
    case TraceKind::Debug:
      ++s_.debugLines;
      if (r.text.find("Fe module error") != std::string::npos) ++s_.feModuleErrors;
      break;
    case TraceKind::Ack:
      if (!ackNotSent(r)) ++s_.acks;
      if (r.unheard) ++s_.acksUnheard;
      break;
    case TraceKind::PeerRx:
      ++s_.peerReceived;
      break;
    case TraceKind::TeJudged:
      s_.judged.push_back(r);
      break;
    case TraceKind::Note:
    case TraceKind::Port:
    case TraceKind::TeSample:
    case TraceKind::ServoAdjust:
    case TraceKind::ServoState:
    case TraceKind::Decision:
      break;
    case TraceKind::Wire:
      if (startsWith(r.text, "tx ")) ++s_.wireSent;
      if (startsWith(r.text, "timeout ")) ++s_.wireTimeouts;
      if (startsWith(r.text, "rx "))
        ++(r.text.find(" dropped: ") != std::string::npos ? s_.wireDropped : s_.wireReceived);
      break;
  }
}

}  // namespace clksim
