// Chrome trace-event JSON (chrome://tracing, ui.perfetto.dev). Virtual time
// has millisecond steps and many calls share one millisecond, so records are
// placed one microsecond apart within their millisecond to keep their order.
#include <fmt/format.h>

#include <deque>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "fwmtools/ack_json.hpp"
#include "outputs.hpp"

namespace clksim {

namespace {

using nlohmann::json;

std::string functionName(const std::string &text) { return text.substr(0, text.find('(')); }

class TimelineWriter : public TraceObserver {
 public:
  explicit TimelineWriter(std::string path) : path_(std::move(path)) {}

  void begin(const Scenario &sc) override {
    events_.push_back({{"ph", "M"}, {"pid", 1}, {"name", "process_name"}, {"args", {{"name", "clksim: " + sc.name}}}});
  }

  void record(const TraceRecord &r) override {
    uint64_t ts = stamp(r.timeMs);
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
        events_.push_back({{"ph", "X"},
                           {"pid", 1},
                           {"tid", tid},
                           {"ts", it->second.ts},
                           {"dur", std::max<uint64_t>(1, ts - it->second.ts)},
                           {"name", it->second.name},
                           {"cat", "step"},
                           {"args", args}});
        open_.erase(it);
        return;
      }
      case TraceKind::Call: {
        noteRun(r, tid, ts);
        std::string fn = functionName(r.text);
        events_.push_back({{"ph", "X"},
                           {"pid", 1},
                           {"tid", tid},
                           {"ts", ts},
                           {"dur", 1},
                           {"name", fn},
                           {"cat", layerName(r.layer)},
                           {"args", {{"call", r.text}}}});
        // The event queue is the hand-off between threads: draw each post
        // to the read that picks it up.
        if (fn == "FWM_QUE_AsyWrite") {
          flows_.push_back(++flowId_);
          events_.push_back({{"ph", "s"},
                             {"pid", 1},
                             {"tid", tid},
                             {"ts", ts},
                             {"id", flowId_},
                             {"name", "queue"},
                             {"cat", "queue"}});
        } else if (fn == "FWM_QUE_AsyRead" && !flows_.empty()) {
          events_.push_back({{"ph", "f"},
                             {"bp", "e"},
                             {"pid", 1},
                             {"tid", tid},
                             {"ts", ts},
                             {"id", flows_.front()},
                             {"name", "queue"},
                             {"cat", "queue"}});
          flows_.pop_front();
        }
        return;
      }
      case TraceKind::Log:
      case TraceKind::Debug:
      case TraceKind::Note:
        noteRun(r, tid, ts);
        events_.push_back(
            {{"ph", "i"},
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
        json args = {{"text", r.text}};
        if (r.announce) args["announce"] = fwmtools::announceToJson(*r.announce);
        events_.push_back({{"ph", "i"},
                           {"s", "t"},
                           {"pid", 1},
                           {"tid", tid},
                           {"ts", ts},
                           {"name", r.text.substr(0, r.text.find(' '))},
                           {"cat", "wire"},
                           {"args", args}});
        return;
      }
      case TraceKind::Ack:
      case TraceKind::PeerRx: {
        noteRun(r, tid, ts);
        json args = {{"text", r.text}};
        if (r.ack) args["announce"] = fwmtools::ackToJson(*r.ack);
        events_.push_back({{"ph", "i"},
                           {"s", "p"},
                           {"pid", 1},
                           {"tid", tid},
                           {"ts", ts},
                           {"name", r.kind == TraceKind::Ack ? "ack sent" : "ack received"},
                           {"cat", "ack"},
                           {"args", args}});
        return;
      }
    }
  }

  void end() override {
    for (auto &[tid, run] : runs_) flushRun(tid, run);
    json doc = {{"traceEvents", events_}, {"displayTimeUnit", "ms"}};
    std::ofstream(path_) << doc.dump() << "\n";
  }

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

  uint64_t stamp(uint64_t timeMs) {
    if (timeMs != lastMs_) lastMs_ = timeMs, within_ = 0;
    return timeMs * 1000 + std::min<uint64_t>(within_++, 999);
  }

  int track(const std::string &thread) {
    auto it = tids_.find(thread);
    if (it != tids_.end()) return it->second;
    int tid = static_cast<int>(tids_.size()) + 1;
    tids_[thread] = tid;
    events_.push_back({{"ph", "M"}, {"pid", 1}, {"tid", tid}, {"name", "thread_name"}, {"args", {{"name", thread}}}});
    events_.push_back(
        {{"ph", "M"}, {"pid", 1}, {"tid", tid}, {"name", "thread_sort_index"}, {"args", {{"sort_index", tid}}}});
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
    run.last = ts;
  }

  void closeRunIfLeft(const TraceRecord &r, int tid, uint64_t) {
    for (auto &[t, run] : runs_)
      if (t != tid && run.active && run.timeMs != r.timeMs) flushRun(t, run);
  }

  void flushRun(int tid, Run &run) {
    if (!run.active) return;
    bool timer = run.thread.find("tmr") != std::string::npos || run.thread.find("timer") != std::string::npos;
    events_.push_back({{"ph", "X"},
                       {"pid", 1},
                       {"tid", tid},
                       {"ts", run.start},
                       {"dur", run.last - run.start + 1},
                       {"name", timer ? "tick" : "turn"},
                       {"cat", "thread"}});
    run.active = false;
  }

  std::string path_;
  json events_ = json::array();
  std::map<std::string, int> tids_;
  std::map<int, Open> open_;
  std::map<int, Run> runs_;
  std::deque<int> flows_;
  int flowId_ = 0;
  uint64_t lastMs_ = UINT64_MAX, within_ = 0;
};

class PcapObserver : public TraceObserver {
 public:
  void begin(const Scenario &sc) override {
    addr_.srcIp = sc.board.selfIp;
    addr_.srcMac[5] = static_cast<uint8_t>(sc.board.slot);
  }
  void record(const TraceRecord &r) override {
    // Captures get a fixed date so that files from virtual runs compare equal.
    constexpr uint64_t kEpochUs = 1704067200ull * 1000000ull;  // 2024-01-01T00:00:00Z
    // Packets of the wire ports go in as they were on the link.
    if (r.kind == TraceKind::Wire && !r.bytes.empty()) {
      lastUs_ = std::max(lastUs_ + 1, kEpochUs + r.timeMs * 1000);
      writer.write(lastUs_, r.bytes);
    }
    if (r.kind != TraceKind::Ack || !r.ack) return;
    lastUs_ = std::max(lastUs_ + 1, kEpochUs + r.timeMs * 1000);
    writer.writeAnnounce(lastUs_, r.ack->announce, addr_);
  }
  void end() override { writer.close(); }
  fwmtools::PcapWriter writer;

 private:
  fwmtools::FrameAddressing addr_;
  uint64_t lastUs_ = 0;
};

}  // namespace

std::unique_ptr<TraceObserver> makeTimelineWriter(std::string path) {
  return std::make_unique<TimelineWriter>(std::move(path));
}

std::unique_ptr<TraceObserver> makePcapWriter(std::string path, std::string *error) {
  auto p = std::make_unique<PcapObserver>();
  if (!p->writer.open(path, error)) return nullptr;
  return p;
}

}  // namespace clksim
