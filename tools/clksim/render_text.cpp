#include <fmt/format.h>

#include "fwmtools/ack_text.hpp"
#include "outputs.hpp"
#include "values.hpp"

namespace clksim {

namespace {

// ANSI styles; empty when the output is not a terminal.
struct Style {
  bool on;
  const char *operator()(const char *code) const { return on ? code : ""; }
};
constexpr const char *kReset = "\033[0m", *kBold = "\033[1m", *kDim = "\033[2m", *kRed = "\033[31m",
                     *kGreen = "\033[32m", *kYellow = "\033[33m", *kBlue = "\033[34m", *kMagenta = "\033[35m",
                     *kCyan = "\033[36m";

bool plumbing(const TraceRecord &r) {
  if (r.facility != "agent") return false;
  for (const char *p : {"IM_Agent_ObjCreate", "IM_Agent_AddPara", "IM_Agent_Send", "IM_Agent_ObjFree"})
    if (r.text.rfind(p, 0) == 0) return true;
  return false;
}

// Platform results are codes (0 = success) or pointers (NULL = failure).
bool failed(const CallResult &r) { return r.pointer ? r.value == 0 : r.value != 0; }

std::string describeSource(const SourcePos &p) {
  if (p.line == 0) return p.file;
  return fmt::format("{}:{}", p.file, p.line);
}

class TextRenderer : public TraceObserver {
 public:
  TextRenderer(std::FILE *out, TextOptions opt) : out_(out), opt_(opt), s_{opt.colour} {}

  void begin(const Scenario &sc) override {
    fmt::print(out_, "{}clksim{} scenario {}{}{} ({})\n", s_(kBold), s_(kReset), s_(kBold),
               sc.name.empty() ? "(unnamed)" : sc.name, s_(kReset), sc.source);
    if (!sc.description.empty()) fmt::print(out_, "  {}\n", sc.description);
    const BoardSetup &b = sc.board;
    fmt::print(out_, "board: chip type {}{}, {} engine{}, chassis {} slot {}, self {}, master {}{}\n", b.chipType,
               b.chipType == 40 ? " (Mira family)" : "", b.engines, b.engines == 1 ? "" : "s", b.chassis, b.slot,
               ip(b.selfIp), ip(b.masterIp), b.coldAgent ? ", no log agent yet" : "");
    std::fflush(out_);
  }

  void record(const TraceRecord &r) override {
    switch (r.kind) {
      case TraceKind::StepBegin:
        stepBegin(r);
        break;
      case TraceKind::StepEnd:
        stepEnd(r);
        break;
      case TraceKind::Call:
        if (!opt_.verbose && plumbing(r)) return;
        line(r, r.layer == Layer::Driver ? kBlue : kDim, r.layer == Layer::Driver ? "oda" : r.facility,
             (r.returned ? fmt::format("{} = {}{}{}", r.text, s_(failed(*r.returned) ? kRed : ""),
                                       resultText(*r.returned), s_(failed(*r.returned) ? kReset : ""))
                         : r.text) +
                 (r.sinceMs ? fmt::format("   ({} since {:.3f})", r.returned ? "blocked" : "still waiting",
                                          static_cast<double>(*r.sinceMs) / 1000.0)
                            : ""));
        break;
      case TraceKind::Log:
        line(r, r.level == "ERROR" ? kRed : "", layerName(r.layer),
             fmt::format("{:<5} {}", r.level, annotateCodes(r.text)));
        break;
      case TraceKind::Debug:
        line(r, r.text.find("Fe module error") != std::string::npos ? kYellow : kDim, "debug", r.text);
        break;
      case TraceKind::Ack:
      case TraceKind::PeerRx:
        ack(r);
        break;
      case TraceKind::Note:
        line(r, kMagenta, "sim", r.text);
        break;
      case TraceKind::Wire:
        line(r, kYellow, "wire", r.text);
        break;
      case TraceKind::TeSample:
        return;
      case TraceKind::ServoAdjust:
        line(r, kDim, "servo", r.text);
        break;
      case TraceKind::ServoState:
        line(r, kMagenta, "servo", r.text);
        break;
      case TraceKind::Decision:
        line(r, kBold, "peer", r.text);
        break;
      case TraceKind::TeJudged: {
        // A verdict's further lines sit under its first.
        const std::string indent(static_cast<size_t>(8 + 2 * (layerDepth(r.layer) + 1) + 9), ' ');
        std::string text;
        for (char c : r.text) text += c == '\n' ? "\n" + indent : std::string(1, c);
        line(r, kBold, "TE", text);
        break;
      }
      case TraceKind::Port: {
        std::string f;
        for (const auto &fv : r.fields)
          if (fv.name != "port") f += fmt::format(" {}={}", fv.name, fv.text);
        fmt::print(out_, "{}  port {}{}\n", timeCol(r), r.fields.empty() ? "" : r.fields.front().text, f);
        break;
      }
    }
    std::fflush(out_);
  }

 private:
  static std::string ip(uint32_t v) {
    return fmt::format("{}.{}.{}.{}", v >> 24, (v >> 16) & 0xFF, (v >> 8) & 0xFF, v & 0xFF);
  }

  std::string timeCol(const TraceRecord &r) {
    if (r.timeMs == lastTime_) return std::string(8, ' ');
    lastTime_ = r.timeMs;
    return fmt::format("{:>7.3f} ", static_cast<double>(r.timeMs) / 1000.0);
  }

  std::string threadCol(const TraceRecord &r) {
    if (r.thread == stepThread_ || r.thread.empty()) return {};
    return fmt::format("{}[{}]{} ", s_(kCyan), r.thread, s_(kReset));
  }

  void stepBegin(const TraceRecord &r) {
    lastTime_ = UINT64_MAX;
    if (r.stepName == "note") {
      fmt::print(out_, "\n{}{}# {}{}\n", timeCol(r), s_(kMagenta), r.text, s_(kReset));
      return;
    }
    stepThread_ = r.thread;
    std::string what = r.target.empty() ? r.text : r.target;
    fmt::print(out_, "\n{}{}── {} {}{}{}\n", s_(kBold), timeCol(r), r.stepName, s_(kReset), s_(kDim),
               std::string(r.pos.line ? "  " + describeSource(r.pos) : "") + s_(kReset));
    if (r.layer == Layer::Orchestrator) {
      fmt::print(out_, "{}{}→ {}{}\n", std::string(8, ' '), s_(kBold), what, s_(kReset));
      if (!r.fields.empty()) {
        std::string f;
        for (const auto &fv : r.fields) f += fmt::format("{}{}={}", f.empty() ? "" : " ", fv.name, fv.text);
        fmt::print(out_, "{}  {}{}{}\n", std::string(8, ' '), s_(kDim), f, s_(kReset));
      }
    } else if (!what.empty()) {
      fmt::print(out_, "{}  {}\n", std::string(8, ' '), what);
      if (!r.fields.empty()) {
        std::string f;
        for (const auto &fv : r.fields) f += fmt::format("{}{}={}", f.empty() ? "" : " ", fv.name, fv.text);
        fmt::print(out_, "{}  {}{}{}\n", std::string(8, ' '), s_(kDim), f, s_(kReset));
      }
    }
  }

  void stepEnd(const TraceRecord &r) {
    if (!r.result) return;
    bool ok = *r.result == 0;
    std::string extra;
    if (!r.replyWords.empty()) {
      extra = "  reply";
      for (uint32_t w : r.replyWords) extra += fmt::format(" {:#x}", w);
    }
    for (const auto &fv : r.decoded)
      extra += fmt::format("{}{}={}", &fv == r.decoded.data() ? "\n    " : " ", fv.name, fv.text);
    fmt::print(out_, "{}{}← {}{}{}{}\n", timeCol(r), s_(kBold), s_(ok ? kGreen : kRed),
               ok ? "0" : fmt::format("{} ({:#x})", *r.result, *r.result), s_(kReset), extra);
  }

  void line(const TraceRecord &r, const char *colour, std::string_view tag, const std::string &text) {
    int depth = layerDepth(r.layer) + 1;
    fmt::print(out_, "{}{}{}{}{:<8} {}{}\n", timeCol(r), std::string(static_cast<size_t>(depth) * 2, ' '), threadCol(r),
               s_(colour), tag, text, s_(kReset));
  }

  void ack(const TraceRecord &r) {
    if (ackNotSent(r) || r.unheard) {
      line(r, kRed, "ack", r.text);
      return;
    }
    const char *tag = r.kind == TraceKind::Ack ? "ack→peer" : "peer";
    line(r, kGreen, tag, r.text);
    if (!r.ack || r.kind != TraceKind::Ack) return;
    for (const auto &l : fwmtools::describeAck(*r.ack))
      fmt::print(out_, "{}{}{}{}\n", std::string(static_cast<size_t>(8 + 2 * (layerDepth(r.layer) + 1) + 9), ' '),
                 s_(kGreen), l, s_(kReset));
  }

  std::FILE *out_;
  TextOptions opt_;
  Style s_;
  uint64_t lastTime_ = UINT64_MAX;
  std::string stepThread_;
};

}  // namespace

std::unique_ptr<TraceObserver> makeTextRenderer(std::FILE *out, TextOptions opt) {
  return std::make_unique<TextRenderer>(out, opt);
}

namespace {
std::string count(size_t n, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", n, n == 1 ? one : many);
}
}  // namespace

void printTextSummary(std::FILE *out, const Summary &s, bool colour) {
  Style st{colour};
  fmt::print(out, "\n{}summary{}: {}, {} ({} failed{}), {}, {}\n", st(kBold), st(kReset),
             count(s.steps, "step", "steps"), count(s.requests, "request", "requests"), s.failedRequests,
             s.requestsNotMade ? fmt::format(", {} more could not be made", s.requestsNotMade) : "",
             count(s.engineCalls, "engine call", "engine calls"),
             count(s.platformCalls, "platform call", "platform calls"));
  fmt::print(out, "         {} ({} ERROR), {} ({} \"Fe module error\"), {}", count(s.logLines, "log line", "log lines"),
             s.errorLines, count(s.debugLines, "debug line", "debug lines"), s.feModuleErrors,
             count(s.acks, "acknowledgement", "acknowledgements"));
  if (s.peerReceived) fmt::print(out, " ({} received by the peer)", s.peerReceived);
  if (s.acksUnheard) fmt::print(out, " ({} sent where nobody listened: not delivered)", s.acksUnheard);
  if (s.wireSent + s.wireReceived + s.wireDropped + s.wireTimeouts)
    fmt::print(out, "\n         wire: {} sent, {} received, {} dropped, {}", count(s.wireSent, "message", "messages"),
               s.wireReceived, count(s.wireDropped, "packet", "packets"), count(s.wireTimeouts, "timeout", "timeouts"));
  fmt::print(out, "\n         {} time {:.3f} s\n", s.realtime ? "real" : "virtual",
             static_cast<double>(s.virtualMs) / 1000.0);
  // The verdict's first line: lock, window, max|TE|, cTE and the class met.
  for (const auto &r : s.judged) fmt::print(out, "         {}\n", r.text.substr(0, r.text.find('\n')));
}

}  // namespace clksim
