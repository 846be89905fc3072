#include "checker.hpp"

#include <fmt/format.h>

#include <cmath>

namespace clkcheck {

namespace {

using fwmptp::EventMessage;
using fwmptp::ParsedFrame;

constexpr int kUnicastInterval = 0x7F;  // "no interval": Delay_Req, the peer messages, unicast streams
constexpr int64_t kFollowUpWithinNs = 10'000'000;
constexpr double kRateTolerance = 0.05;
constexpr uint64_t kMinRun = 4;  // messages at one interval before their rate is judged
constexpr size_t kMaxPorts = 4096, kMaxAwaited = 1024, kMaxSaid = 4096;
constexpr uint16_t kFlagAlternateMaster = 0x0100, kFlagUnicast = 0x0400, kFlagsReserved = 0x1880;
constexpr uint16_t kFlagsLeap = 0x0003;  // leap61, leap59
constexpr uint32_t kPrimaryGroup = 0xE0000181u, kPeerGroup = 0xE000006Bu;
constexpr fwmptp::MacAddr kPrimaryMac{0x01, 0x1B, 0x19, 0x00, 0x00, 0x00}, kPeerMac{0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};

// What a message type's logMessageInterval holds.
enum class Iv : uint8_t { None, Announce, Sync, DelayReq, Pdelay };
struct Kind {
  Iv interval;
  bool rated;        // sent at a steady rate, judged against its own interval
  bool ownSequence;  // numbered on its own (the answers carry their request's)
  bool event;        // to UDP port 319
  bool peer;         // of the peer delay mechanism, to the peer group address
  bool known;
};
constexpr Kind kReserved{Iv::None, false, false, false, false, false};
constexpr Kind kKinds[16] = {
    {Iv::Sync, true, true, true, false, true},    // Sync
    {Iv::None, false, true, true, false, true},   // Delay_Req
    {Iv::Pdelay, false, true, true, true, true},  // Pdelay_Req
    {Iv::None, false, false, true, true, true},   // Pdelay_Resp
    kReserved,
    kReserved,
    kReserved,
    kReserved,
    {Iv::Sync, false, false, false, false, true},      // Follow_Up
    {Iv::DelayReq, false, false, false, false, true},  // Delay_Resp
    {Iv::None, false, false, false, true, true},       // Pdelay_Resp_Follow_Up
    {Iv::Announce, true, true, false, false, true},    // Announce
    {Iv::None, false, true, false, false, true},       // Signaling
    {Iv::None, false, false, false, false, true},      // Management
    kReserved,
    kReserved,
};

int64_t intervalNs(int log) { return static_cast<int64_t>(std::ldexp(1e9, log)); }
std::string ms(int64_t ns) { return fmt::format("{:.3f} ms", static_cast<double>(ns) / 1e6); }
std::string ipText(uint32_t ip) {
  return fmt::format("{}.{}.{}.{}", ip >> 24, ip >> 16 & 0xFF, ip >> 8 & 0xFF, ip & 0xFF);
}
std::string macText(const fwmptp::MacAddr &m) {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", m[0], m[1], m[2], m[3], m[4], m[5]);
}
PortKey keyOf(const fwmptp::PortIdentity &p) { return {p.clockIdentity, p.portNumber}; }

}  // namespace

std::string portText(const PortKey &k) { return fwmptp::clockIdentityText(k.clock) + "-" + std::to_string(k.port); }

void Checker::emit(Finding f, bool always) {
  ++findings_;
  std::string key = fmt::format("{} {} {} {}", f.rule, f.port, f.message, f.text);
  if (!always && (said_.count(key) || said_.size() >= kMaxSaid)) {
    ++repeats_;
    return;
  }
  said_.insert(std::move(key));
  sink_(f);
}

void Checker::frame(const Packet &p) {
  ++frames_;
  if (!firstNs_) firstNs_ = p.timeNs;
  lastNs_ = p.timeNs;
  expire(p.timeNs);
  const auto f = fwmptp::parseFrame(p.bytes);
  if (!f) return;
  ++messages_;
  auto refuse = [&](std::string text) {
    emit({"malformed", p.number, p.timeNs - *firstNs_, "-", "PTP", std::move(text)});
  };
  fwmptp::Reject why{};
  const auto m = fwmptp::decodeHeader(f->payload, &why);
  if (!m) return refuse(fmt::format("message refused: {}", fwmptp::rejectName(why)));
  if (!kKinds[m->messageType].known) return refuse(fmt::format("reserved message type {}", m->messageType));
  std::optional<fwmptp::Announce> a;
  std::optional<EventMessage> e;
  if (m->messageType == fwmptp::kMsgAnnounce && !(a = fwmptp::decodeAnnounce(f->payload, std::nullopt, &why)))
    return refuse(fmt::format("Announce refused: {}", fwmptp::rejectName(why)));
  if (fwmptp::eventSize(m->messageType) && !(e = fwmptp::decodeEvent(f->payload, std::nullopt, &why)))
    return refuse(fmt::format("{} refused: {}", fwmptp::messageTypeName(m->messageType), fwmptp::rejectName(why)));
  message(p, *f, e ? *e : *m, a ? &*a : nullptr);
}

void Checker::message(const Packet &p, const ParsedFrame &f, const EventMessage &m, const fwmptp::Announce *a) {
  const PortKey key = keyOf(m.source);
  if (!stats_.count(key) && stats_.size() >= kMaxPorts) return;
  auto &t = stats_[key][m.messageType];
  auto &s = ports_[key];
  const Report report = [&](std::string_view rule, std::string text) {
    ++t.findings;
    emit(
        {rule, p.number, p.timeNs - *firstNs_, portText(key), fwmptp::messageTypeName(m.messageType), std::move(text)});
  };
  checkFraming(f, m, report);
  checkInterval(m, report);
  const Kind &kind = kKinds[m.messageType];
  if (kind.ownSequence) {
    auto &last = s.lastSeq[m.messageType];
    if (last && m.sequenceId != static_cast<uint16_t>(*last + 1))
      report("sequence", fmt::format("sequenceId {} after {}", m.sequenceId, *last));
    last = m.sequenceId;
  }
  checkTiming(s, t, p, m, report);
  checkPairs(p, m, report);
  if (a) checkAnnounce(s, *a, report);
  if (extra_) extra_({&p, f, m, a}, report);
  if (t.count++ == 0) t.firstNs = p.timeNs;
  t.lastNs = p.timeNs;
  t.log = m.logMessageInterval;
}

void Checker::checkFraming(const ParsedFrame &f, const EventMessage &m, const Report &report) {
  const Kind &kind = kKinds[m.messageType];
  if (!(profile_.transports & (f.ipv4 ? kOverUdp4 : kOverL2)))
    report("transport", f.ipv4 ? "over UDP/IPv4; the profile carries PTP over Ethernet only"
                               : "over Ethernet; the profile carries PTP over UDP/IPv4 only");
  const bool multicast = f.ipv4 ? (f.dstIp >> 28) == 0xE : (f.dstMac[0] & 1) != 0;
  const std::string to = f.ipv4 ? ipText(f.dstIp) : macText(f.dstMac);
  if (!multicast && profile_.cast == Cast::Multicast)
    report("destination", fmt::format("unicast to {}; the profile sends to its group address", to));
  if (multicast && profile_.cast == Cast::Unicast)
    report("destination", fmt::format("multicast to {}; the profile is unicast", to));
  if (multicast && profile_.cast != Cast::Unicast) {
    const bool l2ok = f.dstMac == (kind.peer ? kPeerMac : kPrimaryMac) || (profile_.anyL2Group && f.dstMac == kPeerMac);
    const uint32_t group = kind.peer ? kPeerGroup : kPrimaryGroup;
    const fwmptp::MacAddr groupMac{0x01,
                                   0x00,
                                   0x5E,
                                   static_cast<uint8_t>(group >> 16 & 0x7F),
                                   static_cast<uint8_t>(group >> 8),
                                   static_cast<uint8_t>(group)};
    if (f.ipv4 ? (f.dstIp != group || f.dstMac != groupMac) : !l2ok)
      report("destination",
             fmt::format("to {}{}, not the group address of {}", to, f.ipv4 ? " (" + macText(f.dstMac) + ")" : "",
                         fwmptp::messageTypeName(m.messageType)));
  }
  if (f.ipv4 && f.udpPort != (kind.event ? fwmptp::kEventPort : fwmptp::kGeneralPort))
    report("destination",
           fmt::format("to UDP port {}; {} messages go to {}", f.udpPort, kind.event ? "event" : "general",
                       kind.event ? fwmptp::kEventPort : fwmptp::kGeneralPort));
  if (!profile_.domain.contains(m.domainNumber))
    report("domain",
           fmt::format("domainNumber {} outside {}..{}", m.domainNumber, profile_.domain.lo, profile_.domain.hi));
  if (m.flagField & kFlagsReserved)
    report("flags", fmt::format("reserved flag bits 0x{:04x} set", m.flagField & kFlagsReserved));
  if (((m.flagField & kFlagUnicast) != 0) != !multicast)
    report("flags", fmt::format("unicastFlag {} on a message {}", m.flagField & kFlagUnicast ? "set" : "clear",
                                multicast ? "to a group address" : "to one receiver"));
  if ((m.flagField & kFlagAlternateMaster) && !profile_.alternateMaster)
    report("flags", "alternateMasterFlag set; the profile has no alternate masters");
  const bool peer = kind.peer, delay = m.messageType == fwmptp::kMsgDelayReq || m.messageType == fwmptp::kMsgDelayResp;
  if (profile_.delay == DelayMechanism::EndToEnd ? peer : delay)
    report("mechanism", profile_.delay == DelayMechanism::EndToEnd ? "peer delay message in an end-to-end profile"
                                                                   : "delay request message in a peer-to-peer profile");
}

void Checker::checkInterval(const EventMessage &m, const Report &report) {
  const Kind &kind = kKinds[m.messageType];
  const Range *range = kind.interval == Iv::Announce   ? &profile_.announce
                       : kind.interval == Iv::Sync     ? &profile_.sync
                       : kind.interval == Iv::DelayReq ? &profile_.delayReq
                       : kind.interval == Iv::Pdelay   ? &profile_.pdelayReq
                                                       : nullptr;
  const int log = m.logMessageInterval;
  // Unicast streams and the older peer delay request carry "no interval".
  const bool noneAllowed = !range || (kind.interval != Iv::Announce && ((m.flagField & kFlagUnicast) || kind.peer));
  if (log == kUnicastInterval ? !noneAllowed : !range || !range->contains(log))
    report("interval", range ? fmt::format("logMessageInterval {} outside {}..{}", log, range->lo, range->hi)
                             : fmt::format("logMessageInterval {}, not 127 (0x7f)", log));
}

void Checker::checkTiming(PortState &s, TypeStats &t, const Packet &p, const EventMessage &m, const Report &report) {
  const int log = m.logMessageInterval;
  if (!kKinds[m.messageType].rated || log == kUnicastInterval || log < -10 || log > 10) return;
  Run &r = s.runs[m.messageType];
  if (r.count > 0) {
    const int64_t gap = p.timeNs - r.lastNs, nominal = intervalNs(r.log);
    t.maxGapNs = std::max(t.maxGapNs, gap);
    if (gap > 2 * nominal)
      report("gap", fmt::format("{} since the last, over twice the interval of {}", ms(gap), ms(nominal)));
  }
  if (r.count == 0 || r.log != log) {
    closeRun(keyOf(m.source), m.messageType, r);
    r = {0, 0, p.timeNs, p.timeNs, log};
  }
  ++r.count;
  r.lastNs = p.timeNs;
  r.lastFrame = p.number;
}

void Checker::closeRun(const PortKey &k, uint8_t type, Run &r) {
  if (r.count < kMinRun) return;
  const double mean = static_cast<double>(r.lastNs - r.startNs) / static_cast<double>(r.count - 1);
  const double nominal = static_cast<double>(intervalNs(r.log));
  if (std::abs(mean - nominal) <= kRateTolerance * nominal) return;
  ++stats_[k][type].findings;
  emit({"rate", r.lastFrame, r.lastNs - *firstNs_, portText(k), fwmptp::messageTypeName(type),
        fmt::format("mean interval {} over {} messages, {:+.1f} % off {} (logMessageInterval {})",
                    ms(static_cast<int64_t>(mean)), r.count, (mean - nominal) * 100 / nominal,
                    ms(static_cast<int64_t>(nominal)), r.log)});
}

void Checker::checkPairs(const Packet &p, const EventMessage &m, const Report &report) {
  const PortKey key = keyOf(m.source);
  auto take = [](std::deque<Awaited> &q, const PortKey &k, uint16_t seq) -> std::optional<Awaited> {
    for (auto it = q.begin(); it != q.end(); ++it)
      if (it->port == k && it->seq == seq) {
        Awaited a = *it;
        q.erase(it);
        return a;
      }
    return std::nullopt;
  };
  auto await = [&](std::deque<Awaited> &q, const PortKey &k) {
    if (q.size() >= kMaxAwaited) q.pop_front();
    q.push_back({k, m.sequenceId, p.timeNs, p.number, false});
  };
  const int64_t delayWithin = intervalNs(profile_.delayReq.lo);
  switch (m.messageType) {
    case fwmptp::kMsgSync:
      if (m.flagField & fwmptp::kFlagTwoStep) await(syncs_, key);
      break;
    case fwmptp::kMsgFollowUp:
      if (auto s = take(syncs_, key, m.sequenceId)) {
        if (!s->overdue && p.timeNs - s->timeNs > kFollowUpWithinNs)
          report("follow-up", fmt::format("{} after its Sync, over 10 ms", ms(p.timeNs - s->timeNs)));
      } else if (stats_[key][fwmptp::kMsgSync].count > 0) {
        report("follow-up", fmt::format("sequenceId {} follows no two-step Sync", m.sequenceId));
      }
      break;
    case fwmptp::kMsgDelayReq:
      await(delayReqs_, key);
      ports_[key].sentDelayReq = true;
      break;
    case fwmptp::kMsgDelayResp:
      if (auto r = take(delayReqs_, keyOf(m.requesting), m.sequenceId)) {
        if (!r->overdue && p.timeNs - r->timeNs > delayWithin)
          report("delay-resp",
                 fmt::format("{} after its Delay_Req, over {}", ms(p.timeNs - r->timeNs), ms(delayWithin)));
      } else if (const auto it = ports_.find(keyOf(m.requesting)); it != ports_.end() && it->second.sentDelayReq) {
        report("delay-resp",
               fmt::format("to {} sequenceId {} answers no Delay_Req", portText(keyOf(m.requesting)), m.sequenceId));
      }
      break;
    default:
      break;
  }
}

void Checker::expire(int64_t nowNs) {
  auto sweep = [&](std::deque<Awaited> &q, int64_t within, uint8_t type, std::string_view rule, uint8_t answer) {
    for (auto &a : q)
      if (!a.overdue && nowNs - a.timeNs > within) {
        a.overdue = true;
        ++stats_[a.port][type].findings;
        emit({rule, a.frame, a.timeNs - *firstNs_, portText(a.port), fwmptp::messageTypeName(type),
              fmt::format("sequenceId {} has no {} within {}", a.seq, fwmptp::messageTypeName(answer), ms(within))});
      }
    while (!q.empty() && nowNs - q.front().timeNs > 4 * within) q.pop_front();
  };
  sweep(syncs_, kFollowUpWithinNs, fwmptp::kMsgSync, "follow-up", fwmptp::kMsgFollowUp);
  sweep(delayReqs_, intervalNs(profile_.delayReq.lo), fwmptp::kMsgDelayReq, "delay-resp", fwmptp::kMsgDelayResp);
}

void Checker::checkAnnounce(PortState &s, const fwmptp::Announce &a, const Report &report) {
  if (!allowsClass(profile_, a.clockClass))
    report("announce", fmt::format("clockClass {} is not one the profile allows", a.clockClass));
  if (profile_.priority1 && a.grandmasterPriority1 != profile_.priority1)
    report("announce", fmt::format("grandmasterPriority1 {}; the profile fixes it at {}", a.grandmasterPriority1,
                                   profile_.priority1));
  if (a.stepsRemoved >= 255) report("announce", fmt::format("stepsRemoved {}: receivers discard it", a.stepsRemoved));
  const bool self = a.grandmasterIdentity == a.sourceClockIdentity;
  if (self != (a.stepsRemoved == 0))
    report("announce", self ? fmt::format("the sender is the grandmaster but stepsRemoved is {}", a.stepsRemoved)
                            : fmt::format("stepsRemoved 0, but the grandmaster is {}",
                                          fwmptp::clockIdentityText(a.grandmasterIdentity)));
  if (s.announce && s.announce->grandmasterIdentity == a.grandmasterIdentity &&
      s.announce->currentUtcOffset != a.currentUtcOffset && !(s.announce->flagField & kFlagsLeap))
    report("announce", fmt::format("currentUtcOffset {} after {} with no leap second announced", a.currentUtcOffset,
                                   s.announce->currentUtcOffset));
  s.announce = a;
}

void Checker::finish() {
  for (auto &[k, s] : ports_)
    for (uint8_t type = 0; type < 16; ++type) closeRun(k, type, s.runs[type]);
}

}  // namespace clkcheck
