// The ordered log of everything the library did to the simulated platform.
//
// Each platform function of the simulated backend appends one event: the
// facility it belongs to, the thread it ran on and its call text, e.g.
//   oda_1588_set_ptp_control(0, 3, 7, 1, 0)
// Tests compare slices of the log against expected tables; clksim prints it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace fwmsim {

struct Event {
  std::string facility;        // "orin", "devm", "agent", "comp", "debug", "orch", "tarn", "oda", ...
  std::string thread;          // the simulated thread's name ("host" for the caller of the library)
  std::string text;            // the call as text
  uint64_t vtimeMs = 0;        // the board clock when it happened
  std::vector<uint8_t> bytes;  // a record passed by the library, where one matters
};

class Recorder {
 public:
  void add(std::string_view facility, std::string text, std::vector<uint8_t> bytes = {});

  // All call texts, in order; or those of one facility.
  std::vector<std::string> texts() const;
  std::vector<std::string> texts(std::string_view facility) const;
  // Call texts added after a mark taken earlier.
  size_t mark() const;
  std::vector<std::string> textsSince(size_t mark) const;
  std::vector<Event> events() const;
  void clear();

  // Called synchronously for each new event (clksim prints as things happen).
  // While a sink is set the events stream to it and are not kept, here nor in
  // the board's own histories (log lines, debug lines): a run of any length
  // holds no more memory than a short one.
  void setSink(std::function<void(const Event &)> sink);
  // Whether events are kept for inspection (on, and no sink).
  bool keeping() const { return enabled() && !streaming_.load(std::memory_order_relaxed); }

  // Recording is on unless switched off (benchmarks measure without it).
  void setEnabled(bool on) { enabled_.store(on, std::memory_order_relaxed); }
  bool enabled() const { return enabled_.load(std::memory_order_relaxed); }

 private:
  mutable std::mutex mu_;
  std::vector<Event> events_;
  std::function<void(const Event &)> sink_;
  std::atomic<bool> enabled_{true};
  std::atomic<bool> streaming_{false};
};

Recorder &recorder();

// Name of the simulated thread the caller runs on, as recorded in events.
void setThreadName(std::string name);
const std::string &threadName();

// Formatting of call texts: unsigned numbers in decimal, strings quoted,
// pointers as "&" (present) or "NULL" so logs are stable across runs.
struct Hex {
  uint64_t v;
};
struct Ptr {
  const void *p;
};
std::string callText(std::string_view fn, std::initializer_list<std::string> args);
std::string arg(uint64_t v);
std::string arg(int64_t v);
inline std::string arg(uint32_t v) { return arg(static_cast<uint64_t>(v)); }
inline std::string arg(int32_t v) { return arg(static_cast<int64_t>(v)); }
inline std::string arg(uint16_t v) { return arg(static_cast<uint64_t>(v)); }
inline std::string arg(uint8_t v) { return arg(static_cast<uint64_t>(v)); }
std::string arg(Hex v);
std::string arg(Ptr v);
std::string arg(const char *s);

template <class... A>
std::string call(std::string_view fn, const A &...a) {
  return callText(fn, {arg(a)...});
}

template <class... A>
void record(std::string_view facility, std::string_view fn, const A &...a) {
  if (!recorder().enabled()) return;
  recorder().add(facility, call(fn, a...));
}

}  // namespace fwmsim
