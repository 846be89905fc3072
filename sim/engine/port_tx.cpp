// What a wire port sends, when, and how it is framed.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fwmsim/board.hpp"
#include "fwmsim/engine/rtc.hpp"
#include "fwmsim/recorder.hpp"
#include "port.hpp"

namespace fwmsim {

namespace {

constexpr auto kIdleRecheck = std::chrono::milliseconds(50);  // how soon a newly enabled port starts sending

bool controlOn(const OdaPort &p, uint32_t type) {
  auto it = p.ptpControl.find(type);
  return it != p.ptpControl.end() && it->second == 1;
}

bool isZero(const Mac &m) { return m == Mac{}; }

std::string describe(const fwmptp::Announce &a) {
  return strf("announce seq %u domain %u from %s-%u: GM %s priority1 %u class %u priority2 %u steps %u", a.sequenceId,
              a.domainNumber, fwmptp::clockIdentityText(a.sourceClockIdentity).c_str(), a.sourcePortNumber,
              fwmptp::clockIdentityText(a.grandmasterIdentity).c_str(), a.grandmasterPriority1, a.clockClass,
              a.grandmasterPriority2, a.stepsRemoved);
}

fwmptp::Timestamp timestampOf(int64_t ns) {
  ns = std::max<int64_t>(ns, 0);
  return {static_cast<uint64_t>(ns / kRtcNsPerSecond), static_cast<uint32_t>(ns % kRtcNsPerSecond)};
}

EngineTime engineTime(const fwmptp::Timestamp &t) { return {t.seconds, t.nanoseconds}; }

}  // namespace

Stamp onEngineClock(uint32_t unit, const Stamp &trueStamp) {
  if (!trueStamp || !hasClockModel(unit)) return trueStamp;
  return timestampOf(readNs(unit, static_cast<int64_t>(trueStamp->seconds) * kRtcNsPerSecond + trueStamp->nanoseconds));
}

Programmed programmed(uint32_t unit, uint32_t portNo) {
  if (unit >= board().feNum) {
    Programmed none;
    none.exists = false;
    return none;
  }
  return engine().with(unit, portNo, [](OdaPort &p) {
    Programmed g;
    g.enabled = p.portEnable == 1;
    g.state = p.state;
    g.transmit = g.enabled && p.state == kStateMaster && p.txEnable[kOdaPktAnnounce] == 1;
    g.receive = g.enabled && p.rxEnable[kOdaPktAnnounce] == 1;
    g.tx = p.txFields;
    g.flagField = p.flagField;
    g.domain = p.domainNumber;
    g.encap = p.encap;
    g.vlan = p.vlan;
    g.dscp = p.dscp;
    g.interval = p.interval[kOdaPktAnnounce];
    g.identityTx = p.identityTx;
    g.identityRx = p.identityRx[1];
    g.srcIdCheck = controlOn(p, kCtrlAnnSrcIdCheck);
    g.syncSrcIdCheck = controlOn(p, kCtrlSyncSrcIdCheck);
    g.da = p.da;
    g.sa = p.sa;
    g.dip = p.dip;
    g.sip = p.sip;
    g.txEnable = p.txEnable;
    g.rxEnable = p.rxEnable;
    g.intervals = p.interval;
    g.timeoutMultiple = p.annTimeoutMultiple;
    g.timeoutInterval = p.annTimeoutInterval;
    g.asymmetry = p.asymmetryNs;
    return g;
  });
}

void recordWire(std::string text, std::span<const uint8_t> frame) {
  if (!recorder().enabled()) return;
  recorder().add("wire", std::move(text), std::vector<uint8_t>(frame.begin(), frame.end()));
}

std::string strf(const char *f, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, f);
  std::vsnprintf(buf, sizeof buf, f, ap);
  va_end(ap);
  return buf;
}

std::string timeText(const fwmptp::Timestamp &t) {
  return strf("%llu.%09u", static_cast<unsigned long long>(t.seconds), t.nanoseconds);
}

std::chrono::nanoseconds intervalOf(int log2s) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(std::ldexp(1.0, log2s)));
}

std::string describe(const fwmptp::EventMessage &m) {
  std::string s = strf("%s seq %u domain %u from %s-%u", fwmptp::messageTypeName(m.messageType), m.sequenceId,
                       m.domainNumber, fwmptp::clockIdentityText(m.source.clockIdentity).c_str(), m.source.portNumber);
  if (m.messageType != fwmptp::kMsgDelayReq && m.messageType != fwmptp::kMsgPdelayReq &&
      !(m.messageType == fwmptp::kMsgSync && (m.flagField & fwmptp::kFlagTwoStep)))
    s += " time " + timeText(m.timestamp);
  if (m.requesting != fwmptp::PortIdentity{})
    s += strf(" for %s-%u", fwmptp::clockIdentityText(m.requesting.clockIdentity).c_str(), m.requesting.portNumber);
  return s;
}

fwmptp::EventMessage eventFrom(const Programmed &g, uint8_t type, uint16_t sequenceId, int8_t log) {
  fwmptp::EventMessage m;
  m.messageType = type;
  m.domainNumber = static_cast<uint8_t>(g.domain);
  m.flagField = static_cast<uint16_t>(g.flagField & ~uint32_t{fwmptp::kFlagTwoStep});
  m.source = g.self();
  m.sequenceId = sequenceId;
  m.logMessageInterval = log;
  return m;
}

Stamp PortSender::send(const Programmed &g, uint32_t pktType, std::span<const uint8_t> msg, const std::string &what,
                       size_t statWord, bool wantStamp) {
  const bool peer = pktType == kOdaPktPdelay;
  const uint8_t type = msg[0] & 0x0F;
  fwmptp::FrameLayout layout;
  layout.ipv4 = g.encap == 2 || g.encap == 3;
  layout.vlanTag = (g.encap == 1 || g.encap == 3) ? g.vlan : 0;
  const fwmptp::MacAddr group =
      peer ? (layout.ipv4 ? kPeerIpv4GroupMac : kPeerMac) : (layout.ipv4 ? kIpv4GroupMac : fwmptp::kPrimaryMac);
  layout.dstMac = !isZero(g.da[pktType]) ? g.da[pktType] : group;
  layout.srcMac = !isZero(g.sa[pktType]) ? g.sa[pktType] : link_.mac();
  layout.dstIp = g.dip[pktType] != 0 ? g.dip[pktType] : peer ? kPeerGroup : fwmptp::kPrimaryGroup;
  layout.srcIp = g.sip[pktType] != 0 ? g.sip[pktType] : link_.ip();
  layout.dscp = static_cast<uint8_t>(g.dscp & 0x3F);
  layout.udpPort = type < 8 ? fwmptp::kEventPort : fwmptp::kGeneralPort;
  layout.ipId = ipId_++;
  const auto frame = fwmptp::buildFrame(msg, layout);
  Transport::Sent sent = link_.send(frame, wantStamp);
  sent.stamp = onEngineClock(unit_, sent.stamp);
  if (!sent.ok) {
    engine().countPacket(unit_, port_, stat::kTxFailed);
    recordWire("tx " + who_ + " failed: " + std::strerror(sent.error), frame);
    return std::nullopt;
  }
  engine().countPacket(unit_, port_, statWord);
  counters_.sent.fetch_add(1, std::memory_order_relaxed);
  if (wantStamp && !sent.stamp) engine().countPacket(unit_, port_, stat::kNoTimestamp);
  recordWire("tx " + who_ + " " + what +
                 (sent.stamp  ? ", sent at " + timeText(*sent.stamp)
                  : wantStamp ? ", no time stamp"
                              : ""),
             frame);
  return sent.stamp;
}

void PortSender::announce(const Programmed &g) {
  fwmptp::Announce a;
  a.messageType = fwmptp::kMsgAnnounce;
  a.versionPtp = fwmptp::kVersion;
  a.messageLength = fwmptp::kAnnounceSize;
  a.domainNumber = static_cast<uint8_t>(g.domain);
  a.flagField = static_cast<uint16_t>(g.flagField);
  a.sourceClockIdentity = uint64_t{g.identityTx[0]} << 32 | g.identityTx[1];
  a.sourcePortNumber = static_cast<uint16_t>(g.identityTx[2]);
  a.sequenceId = sequenceId_++;
  a.controlField = fwmptp::kControlAnnounce;
  a.logMessageInterval = static_cast<int8_t>(static_cast<int>(g.interval) - static_cast<int>(kOdaIntervalUnit));
  a.currentUtcOffset = static_cast<int16_t>(g.tx.currentUtcOffset);
  a.grandmasterPriority1 = static_cast<uint8_t>(g.tx.grandmasterPriority1);
  a.clockClass = static_cast<uint8_t>(g.tx.clockClass);
  a.clockAccuracy = static_cast<uint8_t>(g.tx.clockAccuracy);
  a.offsetScaledLogVariance = static_cast<uint16_t>(g.tx.offsetScaledLogVariance);
  a.grandmasterPriority2 = static_cast<uint8_t>(g.tx.grandmasterPriority2);
  a.grandmasterIdentity = uint64_t{g.tx.grandmasterIdentityHigh} << 32 | g.tx.grandmasterIdentityLow;
  a.stepsRemoved = static_cast<uint16_t>(g.tx.stepsRemoved);
  a.timeSource = static_cast<uint8_t>(g.tx.timeSource);
  const auto msg = fwmptp::encodeAnnounce(a);
  (void)send(g, kOdaPktAnnounce, msg, describe(a), kStatAnnTx, false);
}

// A MASTER's Sync: one-step with the origin time read just before sending,
// or two-step with the transmit stamp in a Follow_Up.
void PortSender::sync(const Programmed &g) {
  const bool twoStep = g.sends(kOdaPktFollowUp);
  auto m = eventFrom(g, fwmptp::kMsgSync, syncSequence_++, static_cast<int8_t>(g.log(kOdaPktSync)));
  if (twoStep)
    m.flagField |= fwmptp::kFlagTwoStep;
  else
    m.timestamp = *onEngineClock(unit_, link_.trueNow());
  const auto stamp = send(g, kOdaPktSync, fwmptp::encodeEvent(m).view(), describe(m), stat::kSyncTx, twoStep);
  const uint32_t flags =
      ts::kFlagValid | (twoStep ? ts::kFlagTwoStep : 0) | (link_.hardwareStamps() ? ts::kFlagHardware : 0);
  if (!twoStep) {
    engine().stampTime(unit_, port_, ts::kT1, engineTime(m.timestamp), m.sequenceId, flags);
    return;
  }
  if (!stamp) return;
  auto f = eventFrom(g, fwmptp::kMsgFollowUp, m.sequenceId, m.logMessageInterval);
  f.timestamp = *stamp;
  (void)send(g, kOdaPktSync, fwmptp::encodeEvent(f).view(), describe(f), stat::kFollowUpTx, false);
  engine().stampTime(unit_, port_, ts::kT1, engineTime(*stamp), m.sequenceId, flags);
}

void PortSender::delayReq(const Programmed &g) {
  auto m = eventFrom(g, fwmptp::kMsgDelayReq, delayReqSequence_++, 0x7F);
  const auto t3 = send(g, kOdaPktDelay, fwmptp::encodeEvent(m).view(), describe(m), stat::kDelayReqTx, true);
  awaitedResp_.reset();
  if (t3) awaitedResp_.emplace(m.sequenceId, *t3);
}

WireTime PortSender::service(const Programmed &g, WireTime now) {
  WireTime next = now + kIdleRecheck;
  // One schedule: `on` says whether the message is due at all, `log` how often.
  auto schedule = [&](bool on, bool &running, WireTime &at, int log, auto &&sendOne) {
    if (!on) {
      running = false;
      return;
    }
    if (!running) at = now;
    running = true;
    if (now >= at) {
      sendOne();
      const auto period = intervalOf(log);
      at += period;
      if (at <= now) at = now + period;  // fell behind: keep the rate, not a burst
    }
    next = std::min(next, at);
  };
  schedule(g.transmit, transmitting_, nextTx_, static_cast<int>(g.interval) - static_cast<int>(kOdaIntervalUnit),
           [&] { announce(g); });
  schedule(g.master() && g.sends(kOdaPktSync), syncing_, nextSync_, g.log(kOdaPktSync), [&] { sync(g); });
  schedule(g.slave() && g.sends(kOdaPktDelay), requesting_, nextDelayReq_, g.log(kOdaPktDelay), [&] { delayReq(g); });
  return next;
}

}  // namespace fwmsim
