// Chrome trace-event JSON (chrome://tracing, ui.perfetto.dev). Virtual time
// has millisecond steps and many calls share one millisecond, so records are
// placed one microsecond apart within their millisecond to keep their order.
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "fwmsim/clock.hpp"
#include "fwmtools/ack_json.hpp"
#include "fwmtools/sender.hpp"
#include "outputs.hpp"

namespace clksim {

namespace {

using nlohmann::json;

std::string functionName(const std::string &text) { return text.substr(0, text.find('(')); }

class TimelineWriter : public TraceObserver {
 public:
  TimelineWriter(std::string path, std::FILE *file) : path_(std::move(path)), file_(file) {}
  ~TimelineWriter() override {
    if (file_) std::fclose(file_);
  }
  TimelineWriter(const TimelineWriter &) = delete;
  TimelineWriter &operator=(const TimelineWriter &) = delete;

  // "measure U/P IFACE t2-t1 NS ns seq N": a counter track per port and difference.
  void counter(const std::string &text, uint64_t ts) {
    std::istringstream in(text);
    std::string word, port, iface, what;
    long long ns = 0;
    if (!(in >> word >> port >> iface >> what >> ns) || word != "measure") return;
    put({{"ph", "C"}, {"pid", 1}, {"ts", ts}, {"name", port + " " + what + " (ns)"}, {"args", {{what, ns}}}});
  }

  static const FieldValue *field(const TraceRecord &r, std::string_view name) {
    for (const auto &f : r.fields)
      if (f.name == name) return &f;
    return nullptr;
  }

  // One counter track per engine for each value the time keeping reports.
  void keptTime(const TraceRecord &r, std::string_view track, std::string_view name, const char *arg, uint64_t ts) {
    const FieldValue *unit = field(r, "unit"), *v = field(r, name);
    if (!unit || !v) return;
    put({{"ph", "C"},
         {"pid", 1},
         {"ts", ts},
         {"name", fmt::format("unit {} {}", unit->text, track)},
         {"args", {{arg, json::parse(v->json)}}}});
  }

  void begin(const Scenario &sc) override {
    // Written as the run goes: a long run holds no more than a short one.
    write("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[");
    put({{"ph", "M"}, {"pid", 1}, {"name", "process_name"}, {"args", {{"name", "clksim: " + sc.name}}}});
  }

  void record(const TraceRecord &r) override {
    uint64_t ts = r.stampUs;
    int tid = track(r.thread);
    closeRunIfLeft(r, tid, ts);
    switch (r.kind) {
      case TraceKind::StepBegin:
        open_[tid] = {ts, r.stepName, r.target.empty() ? r.text : r.target};
        return;
      case TraceKind::StepEnd: {
        auto it = open_.find(tid);
        if (it == open_.end()) return;
        json args = {{"call", it->second.detail}};
        if (r.result) args["result"] = *r.result;
        put({{"ph", "X"},
             {"pid", 1},
             {"tid", tid},
             {"ts", it->second.ts},
             {"dur", ts > it->second.ts ? ts - it->second.ts : 1},
             {"name", it->second.name},
             {"cat", "step"},
             {"args", args}});
        open_.erase(it);
        return;
      }
      case TraceKind::Call: {
        noteRun(r, tid, ts);
        std::string fn = functionName(r.text);
        json args = {{"call", r.text}};
        if (r.returned) args["result"] = resultText(*r.returned);
        // A blocking wait is a span from its start to its return.
        const uint64_t from = r.sinceMs ? *r.sinceMs * 1000 : ts;
        put({{"ph", "X"},
             {"pid", 1},
             {"tid", tid},
             {"ts", from},
             {"dur", ts - from + 1},
             {"name", fn},
             {"cat", layerName(r.layer)},
             {"args", args}});
        // The event queue is the hand-off between threads: one arrow from
        // each post to the read that takes it, paired in the order they
        // happened (a read can reach this stream before its post does).
        if (fn == "FWM_QUE_AsyWrite") handOff(posts_, reads_, tid, ts, true);
        if (fn == "FWM_QUE_AsyRead") handOff(reads_, posts_, tid, ts, false);
        return;
      }
      case TraceKind::Log:
      case TraceKind::Debug:
      case TraceKind::Note:
        noteRun(r, tid, ts);
        put({{"ph", "i"},
             {"s", "t"},
             {"pid", 1},
             {"tid", tid},
             {"ts", ts},
             {"name", r.kind == TraceKind::Log ? r.level + " " + r.text.substr(0, 48) : r.text.substr(0, 48)},
             {"cat", kindName(r.kind)},
             {"args", {{"text", r.text}}}});
        return;
      case TraceKind::Wire: {
        noteRun(r, tid, ts);
        counter(r.text, ts);
        json args = {{"text", r.text}};
        if (r.announce) args["announce"] = fwmtools::announceToJson(*r.announce);
        put({{"ph", "i"},
             {"s", "t"},
             {"pid", 1},
             {"tid", tid},
             {"ts", ts},
             {"name", r.text.substr(0, r.text.find(' '))},
             {"cat", "wire"},
             {"args", args}});
        return;
      }
      case TraceKind::Port:
        return;
      case TraceKind::TeSample:
        keptTime(r, "TE (ns)", "te_ns", "TE", ts);
        return;
      case TraceKind::ServoAdjust:
        keptTime(r, "frequency adjustment (ppb)", "freq_ppb", "ppb", ts);
        if (field(r, "step_ns"))
          put({{"ph", "i"}, {"s", "p"}, {"pid", 1}, {"ts", ts}, {"name", r.text}, {"cat", "servo"}});
        return;
      case TraceKind::ServoState:
      case TraceKind::TeJudged:
      case TraceKind::Decision:
        put({{"ph", "i"},
             {"s", "p"},
             {"pid", 1},
             {"ts", ts},
             {"name", r.text.substr(0, r.text.find(": "))},
             {"cat", kindName(r.kind)},
             {"args", {{"text", r.text}}}});
        return;
      case TraceKind::Ack:
      case TraceKind::PeerRx: {
        noteRun(r, tid, ts);
        json args = {{"text", r.text}};
        if (r.ack) args["announce"] = fwmtools::ackToJson(*r.ack);
        put({{"ph", "i"},
             {"s", "p"},
             {"pid", 1},
             {"tid", tid},
             {"ts", ts},
             {"name", r.kind == TraceKind::PeerRx ? "ack received"
                      : ackNotSent(r)             ? "ack not sent"
                                                  : "ack sent"},
             {"cat", "ack"},
             {"args", args}});
        return;
      }
    }
  }

  void end() override {
    for (auto &[tid, run] : runs_) flushRun(tid, run);
    write("]}\n");
    bool ok = std::fclose(file_) == 0 && written_;
    file_ = nullptr;
    if (!ok) error_ = fmt::format("--timeline {}: writing the file failed", path_);
  }
  std::string error() const override { return error_; }

 private:
  struct Open {
    uint64_t ts;
    std::string name, detail;
  };
  // A burst of activity on a background thread (a timer tick, a worker turn)
  // becomes one slice around its calls.
  struct Run {
    uint64_t start = 0, last = 0, timeMs = 0;
    std::string thread;
    bool active = false;
  };

  void write(std::string_view text) {
    written_ = std::fwrite(text.data(), 1, text.size(), file_) == text.size() && written_;
  }

  void put(const json &event) {
    if (!first_) write(",");
    first_ = false;
    write(event.dump());
  }

  struct End {
    int tid;
    uint64_t ts;
  };
  void handOff(std::deque<End> &mine, std::deque<End> &other, int tid, uint64_t ts, bool post) {
    if (other.empty()) {
      mine.push_back({tid, ts});
      return;
    }
    const End from = post ? End{tid, ts} : other.front(), to = post ? other.front() : End{tid, ts};
    other.pop_front();
    ++flowId_;
    put({{"ph", "s"},
         {"pid", 1},
         {"tid", from.tid},
         {"ts", from.ts},
         {"id", flowId_},
         {"name", "queue"},
         {"cat", "queue"}});
    put({{"ph", "f"},
         {"bp", "e"},
         {"pid", 1},
         {"tid", to.tid},
         {"ts", to.ts},
         {"id", flowId_},
         {"name", "queue"},
         {"cat", "queue"}});
  }

  int track(const std::string &thread) {
    auto it = tids_.find(thread);
    if (it != tids_.end()) return it->second;
    int tid = static_cast<int>(tids_.size()) + 1;
    tids_[thread] = tid;
    put({{"ph", "M"}, {"pid", 1}, {"tid", tid}, {"name", "thread_name"}, {"args", {{"name", thread}}}});
    put({{"ph", "M"}, {"pid", 1}, {"tid", tid}, {"name", "thread_sort_index"}, {"args", {{"sort_index", tid}}}});
    return tid;
  }

  static bool background(const std::string &thread) {
    return thread != "orchestrator" && thread != "host" && thread != "peer";
  }

  void noteRun(const TraceRecord &r, int tid, uint64_t ts) {
    if (!background(r.thread)) return;
    Run &run = runs_[tid];
    if (run.active && run.timeMs != r.timeMs) flushRun(tid, run);
    if (!run.active) run = {ts, ts, r.timeMs, r.thread, true};
    run.start = std::min(run.start, ts);
    run.last = std::max(run.last, ts);
  }

  void closeRunIfLeft(const TraceRecord &r, int tid, uint64_t) {
    for (auto &[t, run] : runs_)
      if (t != tid && run.active && run.timeMs != r.timeMs) flushRun(t, run);
  }

  void flushRun(int tid, Run &run) {
    if (!run.active) return;
    bool timer = run.thread.find("tmr") != std::string::npos || run.thread.find("timer") != std::string::npos;
    put({{"ph", "X"},
         {"pid", 1},
         {"tid", tid},
         {"ts", run.start},
         {"dur", run.last - run.start + 1},
         {"name", timer ? "tick" : "turn"},
         {"cat", "thread"}});
    run.active = false;
  }

  std::string path_, error_;
  std::FILE *file_;
  bool first_ = true, written_ = true;
  std::map<std::string, int> tids_;
  std::map<int, Open> open_;
  std::map<int, Run> runs_;
  std::deque<End> posts_, reads_;
  int flowId_ = 0;
};

class PcapObserver : public TraceObserver {
 public:
  void begin(const Scenario &sc) override {
    addr_.srcIp = sc.board.selfIp;
    addr_.srcMac[5] = static_cast<uint8_t>(sc.board.slot);
    // Dated by the board's wall clock, like its debug lines (virtual runs
    // start at the same date every time, so their captures compare equal).
    const auto &c = fwmsim::clock();
    epochUs_ = static_cast<uint64_t>(c.wallSeconds()) * 1000000u - c.nowMs() * 1000u;
  }
  void record(const TraceRecord &r) override {
    // Packets of the wire ports go in as they were on the link.
    if (r.kind == TraceKind::Wire && !r.bytes.empty()) {
      lastUs_ = std::max(lastUs_ + 1, epochUs_ + r.timeMs * 1000);
      writer.write(lastUs_, r.bytes);
    }
    if (r.kind != TraceKind::Ack || !r.ack || ackNotSent(r)) return;
    const uint64_t us = std::max(lastUs_ + 1, epochUs_ + r.timeMs * 1000);
    // The announce came from the grandmaster's side, not from this card.
    if (writer.writeAnnounce(us, r.ack->announce, fwmtools::senderFrame(r.ack->announce, r.frame.value_or(addr_))))
      lastUs_ = us;
  }
  void end() override { writer.close(&error_); }
  std::string error() const override { return error_; }
  fwmtools::PcapWriter writer;

 private:
  fwmtools::FrameAddressing addr_;
  uint64_t epochUs_ = 0, lastUs_ = 0;
  std::string error_;
};

}  // namespace

std::unique_ptr<TraceObserver> makeTimelineWriter(std::string path, std::string *error) {
  std::FILE *f = std::fopen(path.c_str(), "w");
  if (!f) {
    *error = fmt::format("--timeline {}: cannot create the file: {}", path, std::strerror(errno));
    return nullptr;
  }
  return std::make_unique<TimelineWriter>(std::move(path), f);
}

std::unique_ptr<TraceObserver> makePcapWriter(std::string path, std::string *error) {
  auto p = std::make_unique<PcapObserver>();
  if (!p->writer.open(path, error)) return nullptr;
  return p;
}

}  // namespace clksim
