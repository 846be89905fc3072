#include "fwmsim/recorder.hpp"

#include <cinttypes>
#include <cstdio>

#include "fwmsim/clock.hpp"

namespace fwmsim {

namespace {
thread_local std::string tlThreadName = "host";
}  // namespace

void setThreadName(std::string name) { tlThreadName = std::move(name); }
const std::string &threadName() { return tlThreadName; }

void Recorder::add(std::string_view facility, std::string text, std::vector<uint8_t> bytes) {
  if (!enabled()) return;
  Event ev{std::string(facility), tlThreadName, std::move(text), clock().nowMs(), std::move(bytes)};
  std::function<void(const Event &)> sink;
  {
    std::lock_guard lk(mu_);
    sink = sink_;
    if (!sink) {
      events_.push_back(std::move(ev));
      return;
    }
  }
  sink(ev);
}

std::vector<std::string> Recorder::texts() const {
  std::lock_guard lk(mu_);
  std::vector<std::string> out;
  out.reserve(events_.size());
  for (const auto &e : events_) out.push_back(e.text);
  return out;
}

std::vector<std::string> Recorder::texts(std::string_view facility) const {
  std::lock_guard lk(mu_);
  std::vector<std::string> out;
  for (const auto &e : events_)
    if (e.facility == facility) out.push_back(e.text);
  return out;
}

size_t Recorder::mark() const {
  std::lock_guard lk(mu_);
  return events_.size();
}

std::vector<std::string> Recorder::textsSince(size_t mark) const {
  std::lock_guard lk(mu_);
  std::vector<std::string> out;
  for (size_t i = mark; i < events_.size(); ++i) out.push_back(events_[i].text);
  return out;
}

std::vector<Event> Recorder::events() const {
  std::lock_guard lk(mu_);
  return events_;
}

void Recorder::clear() {
  std::lock_guard lk(mu_);
  events_.clear();
}

void Recorder::setSink(std::function<void(const Event &)> sink) {
  std::lock_guard lk(mu_);
  sink_ = std::move(sink);
  streaming_.store(static_cast<bool>(sink_), std::memory_order_relaxed);
}

Recorder &recorder() {
  static auto *r = new Recorder;  // outlives every simulated thread
  return *r;
}

std::string callText(std::string_view fn, std::initializer_list<std::string> args) {
  std::string s(fn);
  s += '(';
  bool first = true;
  for (const auto &a : args) {
    if (!first) s += ", ";
    s += a;
    first = false;
  }
  s += ')';
  return s;
}

std::string arg(uint64_t v) { return std::to_string(v); }
std::string arg(int64_t v) { return std::to_string(v); }
std::string arg(Hex v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%" PRIX64, v.v);
  return buf;
}
std::string arg(Ptr v) { return v.p != nullptr ? "&" : "NULL"; }
std::string arg(const char *s) {
  if (s == nullptr) return "NULL";
  return std::string("\"") + s + "\"";
}

}  // namespace fwmsim
