#include "report.hpp"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace clkcheck {

namespace {

// Per port and message type: the mean interval over the capture (0 for fewer than two).
double meanIntervalMs(const TypeStats &t) {
  return t.count < 2 ? 0.0 : static_cast<double>(t.lastNs - t.firstNs) / 1e6 / static_cast<double>(t.count - 1);
}

template <class F>
void eachRow(const Checker &c, F &&row) {
  for (const auto &[port, types] : c.stats())
    for (size_t type = 0; type < types.size(); ++type)
      if (types[type].count) row(portText(port), fwmptp::messageTypeName(static_cast<uint8_t>(type)), types[type]);
}

std::string verdict(const Checker &c, const Profile &p) {
  if (c.findings() == 0)
    return fmt::format("{} frames, {} PTP messages, {} ports: keeps {}", c.frames(), c.messages(), c.stats().size(),
                       p.name);
  return fmt::format("{} frames, {} PTP messages, {} ports: {} findings against {}{}", c.frames(), c.messages(),
                     c.stats().size(), c.findings(), p.name,
                     c.repeats() ? fmt::format(" ({} repeated, not shown)", c.repeats()) : "");
}

class TextOutput : public Output {
 public:
  explicit TextOutput(std::FILE *out) : out_(out) {}
  void finding(const Finding &f) override {
    fmt::print(out_, "frame {} at {}: {} {}: [{}] {}\n", f.frame, secondsText(f.timeNs), f.port, f.message, f.rule,
               f.text);
  }
  void end(const Checker &c, const Profile &p) override {
    fmt::print(out_, "\n{:<24} {:<22} {:>7} {:>14} {:>4} {:>14} {:>8}\n", "port", "message", "count", "mean interval",
               "log", "largest gap", "findings");
    eachRow(c, [&](const std::string &port, const char *type, const TypeStats &t) {
      fmt::print(out_, "{:<24} {:<22} {:>7} {:>11.3f} ms {:>4} {:>11.3f} ms {:>8}\n", port, type, t.count,
                 meanIntervalMs(t), t.log, static_cast<double>(t.maxGapNs) / 1e6, t.findings);
    });
    fmt::print(out_, "\nclkcheck: {}\n", verdict(c, p));
  }

 private:
  std::FILE *out_;
};

class JsonlOutput : public Output {
 public:
  explicit JsonlOutput(std::FILE *out) : out_(out) {}
  void finding(const Finding &f) override {
    line({{"kind", "finding"},
          {"rule", f.rule},
          {"frame", f.frame},
          {"time", secondsText(f.timeNs)},
          {"port", f.port},
          {"message", f.message},
          {"text", f.text}});
  }
  void end(const Checker &c, const Profile &p) override {
    eachRow(c, [&](const std::string &port, const char *type, const TypeStats &t) {
      line({{"kind", "summary"},
            {"port", port},
            {"message", type},
            {"count", t.count},
            {"meanIntervalMs", meanIntervalMs(t)},
            {"logMessageInterval", t.log},
            {"largestGapMs", static_cast<double>(t.maxGapNs) / 1e6},
            {"findings", t.findings}});
    });
    line({{"kind", "result"},
          {"profile", p.name},
          {"frames", c.frames()},
          {"messages", c.messages()},
          {"ports", c.stats().size()},
          {"findings", c.findings()},
          {"keeps", c.findings() == 0},
          {"text", verdict(c, p)}});
  }

 private:
  void line(const nlohmann::json &j) { fmt::print(out_, "{}\n", j.dump()); }
  std::FILE *out_;
};

}  // namespace

std::string secondsText(int64_t ns) {
  return fmt::format("{}{}.{:09}", ns < 0 ? "-" : "", std::abs(ns) / 1000000000, std::abs(ns) % 1000000000);
}

std::unique_ptr<Output> makeTextOutput(std::FILE *out) { return std::make_unique<TextOutput>(out); }
std::unique_ptr<Output> makeJsonlOutput(std::FILE *out) { return std::make_unique<JsonlOutput>(out); }

}  // namespace clkcheck
