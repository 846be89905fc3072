// What a wire port makes of a received frame. Each frame is judged once,
// against what the engine is programmed to take, into a Verdict; settling it
// counts it, traces it and fills the engine's records in one place.
#include <algorithm>

#include "fwmsim/recorder.hpp"
#include "port.hpp"

namespace fwmsim {

namespace {

EngineTime engineTime(const fwmptp::Timestamp &t) { return {t.seconds, t.nanoseconds}; }

Verdict dropped(size_t stat, std::string why) {
  Verdict v;
  v.stat = stat;
  v.text = std::move(why);
  return v;
}

Verdict took(size_t stat, std::string text) {
  Verdict v = dropped(stat, std::move(text));
  v.accepted = true;
  return v;
}

std::string identityText(const fwmptp::PortIdentity &id) {
  return strf("%s-%u", fwmptp::clockIdentityText(id.clockIdentity).c_str(), id.portNumber);
}

ClkNpAnnFields fieldsOf(const fwmptp::Announce &a) {
  ClkNpAnnFields f{};
  f.currentUtcOffset = static_cast<uint16_t>(a.currentUtcOffset);
  f.grandmasterIdentityHigh = static_cast<uint32_t>(a.grandmasterIdentity >> 32);
  f.grandmasterIdentityLow = static_cast<uint32_t>(a.grandmasterIdentity);
  f.clockClass = a.clockClass;
  f.clockAccuracy = a.clockAccuracy;
  f.offsetScaledLogVariance = a.offsetScaledLogVariance;
  f.grandmasterPriority1 = a.grandmasterPriority1;
  f.grandmasterPriority2 = a.grandmasterPriority2;
  f.stepsRemoved = a.stepsRemoved;
  f.timeSource = a.timeSource;
  f.domainNumber = a.domainNumber;
  f.flagField = a.flagField;
  f.logMessageInterval = static_cast<uint8_t>(a.logMessageInterval);
  f.sourceClockIdentityHigh = static_cast<uint32_t>(a.sourceClockIdentity >> 32);
  f.sourceClockIdentityLow = static_cast<uint32_t>(a.sourceClockIdentity);
  f.sourcePortNumber = a.sourcePortNumber;
  return f;
}

std::string describe(const fwmptp::Announce &a) {
  return strf("announce seq %u domain %u from %s-%u: GM %s priority1 %u class %u priority2 %u steps %u", a.sequenceId,
              a.domainNumber, fwmptp::clockIdentityText(a.sourceClockIdentity).c_str(), a.sourcePortNumber,
              fwmptp::clockIdentityText(a.grandmasterIdentity).c_str(), a.grandmasterPriority1, a.clockClass,
              a.grandmasterPriority2, a.stepsRemoved);
}

// A field of the engine's record into the message's narrower one; the
// scenario loader keeps each within the message's range.
struct Narrow {
  uint32_t v;
  template <class T>
  operator T() const {
    return static_cast<T>(v);
  }
};

}  // namespace

void PortReceiver::handle(std::span<const uint8_t> frame, const Stamp &rxStamp, bool hardware) {
  auto parsed = fwmptp::parseFrame(frame);
  if (!parsed) return;  // not PTP: the rest of the link's traffic
  const Programmed g = programmed(unit_, port_);
  Verdict v = judge(g, parsed->payload, onEngineClock(unit_, rxStamp), hardware ? ts::kFlagHardware : 0);
  settle(g, frame, v);
  if (v.answer) answer(g, *v.answer, v.requestCorrection);
}

Verdict PortReceiver::judge(const Programmed &g, std::span<const uint8_t> payload, const Stamp &rxStamp, uint32_t hw) {
  fwmptp::Reject why = fwmptp::Reject::None;
  const auto type = fwmptp::peekMessageType(payload);
  if (type && fwmptp::eventSize(*type) != 0) {
    auto m = fwmptp::decodeEvent(payload, static_cast<uint8_t>(g.domain), &why);
    if (m) return event(g, *m, rxStamp, hw);
    return dropped(why != fwmptp::Reject::Domain ? kStatMalformed : kStatForeign,
                   std::string(fwmptp::messageTypeName(*type)) + " " + fwmptp::rejectName(why));
  }
  auto a = fwmptp::decodeAnnounce(payload, std::nullopt, &why);
  if (!a) {
    const bool malformed =
        why == fwmptp::Reject::Short || why == fwmptp::Reject::Version || why == fwmptp::Reject::Length;
    return dropped(malformed ? kStatMalformed : kStatForeign, fwmptp::rejectName(why));
  }
  return announced(g, *a);
}

// Whatever brought it, an announce meets these rules before the engine takes it.
Verdict PortReceiver::announced(const Programmed &g, const fwmptp::Announce &a) {
  if (!g.exists) return dropped(kStatForeign, strf("no such unit %u", unit_));
  if (a.domainNumber != static_cast<uint8_t>(g.domain))
    return dropped(kStatForeign, fwmptp::rejectName(fwmptp::Reject::Domain));
  if (!g.receive) return dropped(kStatForeign, "announce reception is off");
  if (g.srcIdCheck && fwmptp::PortIdentity{a.sourceClockIdentity, a.sourcePortNumber} != g.expected())
    return dropped(kStatForeign, "other source identity " + fwmptp::clockIdentityText(a.sourceClockIdentity));
  Verdict v = took(kStatAnnRx, describe(a));
  v.announce = fieldsOf(a);
  v.heardLog = a.logMessageInterval;
  return v;
}

AnnounceOffer PortReceiver::offer(const ClkNpAnnFields &f) {
  fwmptp::Announce a{};
  auto as = [](uint32_t v) { return Narrow{v}; };
  a.currentUtcOffset = static_cast<int16_t>(f.currentUtcOffset);
  a.grandmasterIdentity = uint64_t{f.grandmasterIdentityHigh} << 32 | f.grandmasterIdentityLow;
  a.clockClass = as(f.clockClass);
  a.clockAccuracy = as(f.clockAccuracy);
  a.offsetScaledLogVariance = as(f.offsetScaledLogVariance);
  a.grandmasterPriority1 = as(f.grandmasterPriority1);
  a.grandmasterPriority2 = as(f.grandmasterPriority2);
  a.stepsRemoved = as(f.stepsRemoved);
  a.timeSource = as(f.timeSource);
  a.domainNumber = as(f.domainNumber);
  a.flagField = as(f.flagField);
  a.logMessageInterval = static_cast<int8_t>(f.logMessageInterval);
  a.sourceClockIdentity = uint64_t{f.sourceClockIdentityHigh} << 32 | f.sourceClockIdentityLow;
  a.sourcePortNumber = as(f.sourcePortNumber);
  const Programmed g = programmed(unit_, port_);
  Verdict v = announced(g, a);
  settle(g, {}, v);
  return {v.accepted, v.changed, v.text};
}

AnnounceOffer PortReceiver::offerTimeout() {
  const Programmed g = programmed(unit_, port_);
  Verdict v = !g.exists    ? dropped(kStatForeign, strf("no such unit %u", unit_))
              : !g.receive ? dropped(kStatForeign, "announce reception is off")
                           : took(0, "no announce for a timeout window");
  if (!v.accepted) {
    counters_.dropped.fetch_add(1, std::memory_order_relaxed);
    recordWire("timeout " + sender_.who() + " dropped: " + v.text, {});
    return {false, false, v.text};
  }
  engine().announceTimedOut(unit_, port_);
  counters_.timeouts.fetch_add(1, std::memory_order_relaxed);
  recordWire("timeout " + sender_.who() + ": " + v.text, {});
  return {true, true, v.text};
}

// Event messages: what a MASTER answers and what a SLAVE measures.
Verdict PortReceiver::event(const Programmed &g, const fwmptp::EventMessage &m, const Stamp &rxStamp, uint32_t hw) {
  const std::string name = fwmptp::messageTypeName(m.messageType);
  const bool stamped = rxStamp.has_value();
  const std::string at = stamped ? ", received at " + timeText(*rxStamp) : "";
  auto sync = [&](Verdict v, uint16_t seq, const fwmptp::Timestamp &t1, const fwmptp::Timestamp &t2, int64_t corr,
                  uint32_t flags) {
    v.times.push_back({ts::kT1, t1, seq, flags | ts::kFlagValid | hw});
    v.times.push_back({ts::kT2, t2, seq, flags | ts::kFlagValid | hw});
    v.measured = Verdict::Difference{"t2-t1", fwmptp::nanosBetween(t2, t1) - (corr >> 16) - g.asymmetry, seq};
    return v;
  };
  switch (m.messageType) {
    case fwmptp::kMsgSync: {
      if (!g.takes(kOdaPktSync)) return dropped(kStatForeign, "Sync reception is off");
      if (g.syncSrcIdCheck && m.source != g.expected())
        return dropped(kStatForeign,
                       "Sync from other source identity " + fwmptp::clockIdentityText(m.source.clockIdentity));
      if (!stamped) return dropped(stat::kNoTimestamp, name + " without a time stamp");
      awaitedSync_.reset();
      Verdict v = took(stat::kSyncRx, describe(m) + at);
      if (!(m.flagField & fwmptp::kFlagTwoStep))
        return sync(v, m.sequenceId, m.timestamp, *rxStamp, m.correctionField, 0);
      awaitedSync_ = AwaitedSync{m.sequenceId, m.source, *rxStamp, m.correctionField};
      return v;
    }
    case fwmptp::kMsgFollowUp: {
      if (!g.takes(kOdaPktSync)) return dropped(kStatForeign, "Follow_Up reception is off");
      if (!awaitedSync_ || awaitedSync_->source != m.source)
        return dropped(stat::kFollowUpNoSync, "Follow_Up seq " + std::to_string(m.sequenceId) + " without a Sync");
      if (awaitedSync_->sequenceId != m.sequenceId)
        return dropped(stat::kBadSequence,
                       strf("Follow_Up seq %u, Sync seq %u awaited it", m.sequenceId, awaitedSync_->sequenceId));
      const AwaitedSync s = *awaitedSync_;
      awaitedSync_.reset();
      return sync(took(stat::kFollowUpRx, describe(m)), s.sequenceId, m.timestamp, s.t2,
                  s.correction + m.correctionField, ts::kFlagTwoStep);
    }
    case fwmptp::kMsgDelayReq: {
      if (!g.master() || !g.takes(kOdaPktDelay)) return dropped(kStatForeign, "Delay_Req not answered here");
      if (!stamped) return dropped(stat::kNoTimestamp, name + " without a time stamp");
      Verdict v = took(stat::kDelayReqRx, describe(m) + at);
      v.times.push_back({ts::kT4, *rxStamp, m.sequenceId, ts::kFlagValid | hw});
      if (!g.sends(kOdaPktDelay)) return v;
      auto r = eventFrom(g, fwmptp::kMsgDelayResp, m.sequenceId, static_cast<int8_t>(g.log(kOdaPktDelay)));
      r.correctionField = m.correctionField;
      r.timestamp = *rxStamp;
      r.requesting = m.source;
      v.answer = r;
      return v;
    }
    case fwmptp::kMsgDelayResp: {
      if (!g.takes(kOdaPktDelayResp)) return dropped(kStatForeign, "Delay_Resp reception is off");
      if (m.requesting != g.self())
        return dropped(stat::kOtherRequester, "Delay_Resp for " + identityText(m.requesting));
      auto &awaited = sender_.awaitedResp_;
      if (!awaited || awaited->first != m.sequenceId)
        return dropped(stat::kBadSequence,
                       awaited ? strf("Delay_Resp seq %u, Delay_Req seq %u awaited", m.sequenceId, awaited->first)
                               : strf("Delay_Resp seq %u, no Delay_Req awaited", m.sequenceId));
      const auto [seq, t3] = *awaited;
      awaited.reset();
      Verdict v = took(stat::kDelayRespRx, describe(m));
      v.times.push_back({ts::kT3, t3, seq, ts::kFlagValid | hw});
      v.times.push_back({ts::kT4, m.timestamp, seq, ts::kFlagValid | hw});
      v.measured = Verdict::Difference{
          "t4-t3", fwmptp::nanosBetween(m.timestamp, t3) - (m.correctionField >> 16) + g.asymmetry, seq};
      return v;
    }
    case fwmptp::kMsgPdelayReq: {
      if (!g.takes(kOdaPktPdelay) || !g.sends(kOdaPktPdelay))
        return dropped(kStatForeign, "Pdelay_Req not answered here");
      if (!stamped) return dropped(stat::kNoTimestamp, name + " without a time stamp");
      Verdict v = took(stat::kPdelayReqRx, describe(m) + at);
      auto r = eventFrom(g, fwmptp::kMsgPdelayResp, m.sequenceId, 0x7F);
      r.flagField |= fwmptp::kFlagTwoStep;
      r.timestamp = *rxStamp;
      r.requesting = m.source;
      v.answer = r;
      v.requestCorrection = m.correctionField;
      return v;
    }
    default:  // the answers to a peer delay request this port never makes
      return dropped(kStatForeign, name + " not awaited");
  }
}

void PortReceiver::settle(const Programmed &g, std::span<const uint8_t> frame, Verdict &v) {
  const std::string who = sender_.who();
  if (!v.accepted) {
    if (g.exists) engine().countPacket(unit_, port_, v.stat);
    counters_.dropped.fetch_add(1, std::memory_order_relaxed);
    recordWire("rx " + who + " dropped: " + v.text, frame);
    return;
  }
  if (v.announce) {
    v.changed = engine().receiveAnnounce(unit_, port_, *v.announce);
    if (v.changed) v.text += " (changed: ANNOUNCE_CHANGE raised)";
    heard_ = true;
    heardLog_ = v.heardLog;
    timeoutAt_ = sender_.link().now() + intervalOf(g.timeoutLog(heardLog_)) * std::max(g.timeoutMultiple, 1u);
  }
  engine().countPacket(unit_, port_, v.stat);
  counters_.received.fetch_add(1, std::memory_order_relaxed);
  recordWire("rx " + who + " " + v.text, frame);
  for (const auto &t : v.times) engine().stampTime(unit_, port_, t.at, engineTime(t.time), t.sequenceId, t.flags);
  if (const auto &d = v.measured) {
    engine().addDelay(unit_, port_, d->what[1] == '4', d->nanos, d->sequenceId);
    recordWire(
        strf("measure %s %s %lld ns seq %u", who.c_str(), d->what, static_cast<long long>(d->nanos), d->sequenceId),
        {});
  }
}

void PortReceiver::answer(const Programmed &g, const fwmptp::EventMessage &r, int64_t requestCorrection) {
  if (r.messageType == fwmptp::kMsgDelayResp) {
    (void)sender_.send(g, kOdaPktDelay, fwmptp::encodeEvent(r).view(), describe(r), stat::kDelayRespTx, false);
    return;
  }
  const auto t3 = sender_.send(g, kOdaPktPdelay, fwmptp::encodeEvent(r).view(), describe(r), stat::kPdelayRespTx, true);
  if (!t3) return;
  auto f = eventFrom(g, fwmptp::kMsgPdelayRespFollowUp, r.sequenceId, 0x7F);
  f.correctionField = requestCorrection;
  f.timestamp = *t3;
  f.requesting = r.requesting;
  (void)sender_.send(g, kOdaPktPdelay, fwmptp::encodeEvent(f).view(), describe(f), stat::kPdelayRespFollowUpTx, false);
}

WireTime PortReceiver::supervise(const Programmed &g, WireTime now, WireTime next) {
  if (!g.receive || g.timeoutMultiple == 0) {
    heard_ = false;
    return next;
  }
  if (!heard_) return next;
  const auto window = intervalOf(g.timeoutLog(heardLog_)) * g.timeoutMultiple;
  if (now >= timeoutAt_) {
    engine().announceTimedOut(unit_, port_);
    counters_.timeouts.fetch_add(1, std::memory_order_relaxed);
    recordWire(
        "timeout " + sender_.who() + strf(": no announce for %.3f s", std::chrono::duration<double>(window).count()),
        {});
    timeoutAt_ = now + window;
  }
  return std::min(next, timeoutAt_);
}

}  // namespace fwmsim
