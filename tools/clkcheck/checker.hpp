// Checks a stream of captured frames against a profile, port by port (a port
// is a source port identity). Frames go in one at a time and findings come
// out as they are found; what is kept per port is a fixed set of counters and
// short bounded queues, so memory stays flat however long the capture.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "capture.hpp"
#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "profiles.hpp"

namespace clkcheck {

struct Finding {
  std::string_view rule;  // one of kRules
  uint64_t frame = 0;
  int64_t timeNs = 0;  // since the capture's first frame
  std::string port;    // "001b19.fffe.000001-1"
  std::string_view message;
  std::string text;
};

// The rules, each a word that findings carry, with what it checks.
struct Rule {
  std::string_view name, what;
};
inline constexpr Rule kRules[] = {
    {"malformed", "a PTP frame the codec refuses"},
    {"transport", "Ethernet or UDP/IPv4 as the profile allows"},
    {"destination", "group address, unicast and UDP port the message type calls for"},
    {"domain", "domainNumber within the profile's range"},
    {"flags", "reserved bits clear, unicastFlag as addressed, alternateMasterFlag where allowed"},
    {"interval", "logMessageInterval within the profile's range for its message type"},
    {"mechanism", "only the profile's delay mechanism's messages"},
    {"rate", "mean interval within 5 % of 2^logMessageInterval"},
    {"gap", "no gap over twice the message's interval"},
    {"follow-up", "every two-step Sync's Follow_Up, within 10 ms"},
    {"delay-resp", "every Delay_Req answered, within the profile's shortest request interval"},
    {"sequence", "sequenceId one more than the port's last of the type"},
    {"announce", "clockClass, priority1, stepsRemoved and currentUtcOffset consistent"},
    {"programmed", "what the scenario programmed the port to send"},
};

struct PortKey {
  uint64_t clock = 0;
  uint16_t port = 0;
  auto operator<=>(const PortKey &) const = default;
};
std::string portText(const PortKey &k);

// Per port and message type, for the summary.
struct TypeStats {
  uint64_t count = 0, findings = 0;
  int64_t firstNs = 0, lastNs = 0, maxGapNs = 0;
  int log = 0;  // the last logMessageInterval carried
};

// A message as the checker sees it, for checks added from outside.
struct Seen {
  const Packet *packet;
  const fwmptp::ParsedFrame &frame;
  const fwmptp::EventMessage &header;
  const fwmptp::Announce *announce;  // announces only
};

class Checker {
 public:
  using Sink = std::function<void(const Finding &)>;
  using Extra = std::function<void(const Seen &, const std::function<void(std::string_view, std::string)> &)>;
  Checker(const Profile &profile, Sink sink) : profile_(profile), sink_(std::move(sink)) {}
  // A further check on every decoded message, reporting through the same sink.
  void addCheck(Extra check) { extra_ = std::move(check); }

  void frame(const Packet &p);
  // The end of the capture: open rate windows are judged.
  void finish();
  // A finding made outside, counted and reported like the checker's own.
  void report(const Finding &f) { emit(f, true); }

  const std::map<PortKey, std::array<TypeStats, 16>> &stats() const { return stats_; }
  uint64_t frames() const { return frames_; }
  uint64_t messages() const { return messages_; }
  uint64_t findings() const { return findings_; }
  uint64_t repeats() const { return repeats_; }

 private:
  struct Awaited {
    PortKey port;
    uint16_t seq;
    int64_t timeNs;
    uint64_t frame;
    bool overdue;
  };
  struct Run {  // messages of one type at one logMessageInterval
    uint64_t count = 0, lastFrame = 0;
    int64_t startNs = 0, lastNs = 0;
    int log = 0;
  };
  struct PortState {
    std::array<std::optional<uint16_t>, 16> lastSeq;
    std::array<Run, 16> runs;
    std::optional<fwmptp::Announce> announce;
    bool sentDelayReq = false;
  };
  using Report = std::function<void(std::string_view, std::string)>;

  void message(const Packet &p, const fwmptp::ParsedFrame &f, const fwmptp::EventMessage &m, const fwmptp::Announce *a);
  void checkFraming(const fwmptp::ParsedFrame &f, const fwmptp::EventMessage &m, const Report &report);
  void checkInterval(const fwmptp::EventMessage &m, const Report &report);
  void checkTiming(PortState &s, TypeStats &t, const Packet &p, const fwmptp::EventMessage &m, const Report &report);
  void checkPairs(const Packet &p, const fwmptp::EventMessage &m, const Report &report);
  void checkAnnounce(PortState &s, const fwmptp::Announce &a, const Report &report);
  void closeRun(const PortKey &k, uint8_t type, Run &r);
  void expire(int64_t nowNs);
  void emit(Finding f, bool always = false);

  const Profile &profile_;
  Sink sink_;
  Extra extra_;
  std::map<PortKey, std::array<TypeStats, 16>> stats_;
  std::map<PortKey, PortState> ports_;
  std::deque<Awaited> syncs_, delayReqs_;  // two-step Syncs and Delay_Reqs awaiting their answers
  std::set<std::string> said_;             // findings already reported, to say each once
  std::optional<int64_t> firstNs_;
  int64_t lastNs_ = 0;
  uint64_t frames_ = 0, messages_ = 0, findings_ = 0, repeats_ = 0;
};

}  // namespace clkcheck
