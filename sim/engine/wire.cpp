// The simulated engine's wire ports: one epoll thread, packet sockets.
#include "fwmsim/engine/wire.hpp"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <linux/ethtool.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {

using Steady = std::chrono::steady_clock;
using Ns = std::chrono::nanoseconds;

constexpr uint32_t kStateMaster = 6, kStateUncalibrated = 8, kStateSlave = 9;
constexpr uint32_t kCtrlSyncSrcIdCheck = 10;
constexpr auto kStampWait = std::chrono::milliseconds(20);    // how long a transmit stamp may take to come back
constexpr auto kIdleRecheck = std::chrono::milliseconds(50);  // how soon a newly enabled port starts sending
constexpr fwmptp::MacAddr kIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x01, 0x81};
constexpr fwmptp::MacAddr kPeerMac{0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
constexpr fwmptp::MacAddr kPeerIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x00, 0x6B};
constexpr uint32_t kPeerGroup = 0xE000006Bu;  // 224.0.0.107

Ns intervalOf(int log2s) {
  return std::chrono::duration_cast<Ns>(std::chrono::duration<double>(std::ldexp(1.0, log2s)));
}

// What the wire needs of a port's engine state, copied under the engine's lock.
struct Programmed {
  bool enabled = false, transmit = false, receive = false;
  uint32_t state = 0;
  ClkNpAnnFields tx{};
  uint32_t flagField = 0, domain = 0, encap = 0, vlan = 0, dscp = 0, interval = 0;
  Words3 identityTx{}, identityRx{};
  bool srcIdCheck = false, syncSrcIdCheck = false;
  std::array<Mac, kOdaPktTypes> da{}, sa{};
  PerPktType dip{}, sip{}, txEnable{}, rxEnable{}, intervals{};
  uint32_t timeoutMultiple = 0, timeoutInterval = 0;

  bool sends(uint32_t type) const { return enabled && txEnable[type] == 1; }
  bool takes(uint32_t type) const { return enabled && rxEnable[type] == 1; }
  bool master() const { return state == kStateMaster; }
  bool slave() const { return state == kStateSlave || state == kStateUncalibrated; }
  fwmptp::PortIdentity self() const {
    return {uint64_t{identityTx[0]} << 32 | identityTx[1], static_cast<uint16_t>(identityTx[2])};
  }
  int log(uint32_t type) const { return static_cast<int>(intervals[type]) - static_cast<int>(kOdaIntervalUnit); }
};

bool controlOn(const OdaPort &p, uint32_t type) {
  auto it = p.ptpControl.find(type);
  return it != p.ptpControl.end() && it->second == 1;
}

Programmed programmed(uint32_t unit, uint32_t portNo) {
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
    return g;
  });
}

__attribute__((format(printf, 1, 2))) std::string strf(const char *f, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, f);
  std::vsnprintf(buf, sizeof buf, f, ap);
  va_end(ap);
  return buf;
}

std::string unitPort(uint32_t unit, uint32_t portNo) { return strf("%u/%u", unit, portNo); }

std::string describe(const fwmptp::Announce &a) {
  return strf("announce seq %u domain %u from %s-%u: GM %s priority1 %u class %u priority2 %u steps %u", a.sequenceId,
              a.domainNumber, fwmptp::clockIdentityText(a.sourceClockIdentity).c_str(), a.sourcePortNumber,
              fwmptp::clockIdentityText(a.grandmasterIdentity).c_str(), a.grandmasterPriority1, a.clockClass,
              a.grandmasterPriority2, a.stepsRemoved);
}

bool isZero(const Mac &m) { return m == Mac{}; }

using Stamp = std::optional<fwmptp::Timestamp>;

fwmptp::Timestamp fromTimespec(const timespec &t) {
  return {static_cast<uint64_t>(t.tv_sec), static_cast<uint32_t>(t.tv_nsec)};
}

EngineTime engineTime(const fwmptp::Timestamp &t) { return {t.seconds, t.nanoseconds}; }

std::string timeText(const fwmptp::Timestamp &t) {
  return strf("%llu.%09u", static_cast<unsigned long long>(t.seconds), t.nanoseconds);
}

// A two-step Sync heard, waiting for its Follow_Up.
struct AwaitedSync {
  uint16_t sequenceId = 0;
  fwmptp::PortIdentity source;
  fwmptp::Timestamp t2;
  int64_t correction = 0;
};

// A Delay_Req sent, waiting for its Delay_Resp.
struct AwaitedResp {
  uint16_t sequenceId = 0;
  fwmptp::Timestamp t3;
};

struct Port {
  uint32_t unit = 0, port = 0;
  std::string iface;
  int ifindex = 0;
  int fd = -1;      // packet socket
  int igmpFd = -1;  // holds the IPv4 group membership
  fwmptp::MacAddr ifMac{};
  uint32_t ifIp = 0;
  bool hardwareStamps = false;
  // Transmit: announces, Syncs, Delay_Reqs, each on its own schedule and sequence.
  bool transmitting = false, syncing = false, requesting = false;
  Steady::time_point nextTx{}, nextSync{}, nextDelayReq{};
  uint16_t sequenceId = 0, syncSequence = 0, delayReqSequence = 0;
  uint16_t ipId = 0;
  // Receive.
  bool heard = false;
  int heardLog = 0;
  Steady::time_point timeoutAt{};
  std::optional<AwaitedSync> awaitedSync;
  std::optional<AwaitedResp> awaitedResp;

  ~Port() {
    if (fd >= 0) ::close(fd);
    if (igmpFd >= 0) ::close(igmpFd);
  }
};

// The stamp of a received or looped-back frame: the interface's when there
// is one, the kernel's software stamp otherwise.
Stamp stampOf(msghdr &msg, bool *hardware) {
  for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SO_TIMESTAMPING) continue;
    scm_timestamping ts{};
    std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
    *hardware = ts.ts[2].tv_sec != 0 || ts.ts[2].tv_nsec != 0;
    const timespec &t = *hardware ? ts.ts[2] : ts.ts[0];
    if (t.tv_sec == 0 && t.tv_nsec == 0) return std::nullopt;
    return fromTimespec(t);
  }
  return std::nullopt;
}

// The identity of a PTP frame: its message type and sequence id.
std::optional<std::pair<uint8_t, uint16_t>> keyOf(std::span<const uint8_t> frame) {
  auto parsed = fwmptp::parseFrame(frame);
  if (!parsed || parsed->payload.size() < fwmptp::kHeaderSize) return std::nullopt;
  const auto &b = parsed->payload;
  return std::pair<uint8_t, uint16_t>(b[0] & 0x0F, static_cast<uint16_t>(b[30] << 8 | b[31]));
}

// Reads transmit stamps off the socket's error queue until the one of the
// frame with `key` arrives (waiting at most kStampWait) or, without a key,
// until the queue is empty.
Stamp takeTxStamp(int fd, std::optional<std::pair<uint8_t, uint16_t>> key, bool *hardware) {
  const auto deadline = Steady::now() + kStampWait;
  while (true) {
    uint8_t data[2048];
    alignas(cmsghdr) uint8_t control[512];
    iovec iov{data, sizeof data};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(fd, &msg, MSG_ERRQUEUE | MSG_DONTWAIT);
    if (n >= 0) {
      if (key && keyOf(std::span<const uint8_t>(data, static_cast<size_t>(n))) == key) return stampOf(msg, hardware);
      continue;
    }
    if (!key) return std::nullopt;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now()).count();
    if (left <= 0) return std::nullopt;
    pollfd pfd{fd, 0, 0};  // POLLERR is always reported
    if (::poll(&pfd, 1, static_cast<int>(left)) <= 0) return std::nullopt;
  }
}

// Asks the interface for hardware stamps; true when it gives them.
bool enableHardwareStamps(int fd, const std::string &iface) {
  ifreq ifr{};
  std::memcpy(ifr.ifr_name, iface.data(), iface.size());
  ethtool_ts_info info{};
  info.cmd = ETHTOOL_GET_TS_INFO;
  ifr.ifr_data = reinterpret_cast<char *>(&info);
  constexpr uint32_t kNeeded =
      SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
  if (::ioctl(fd, SIOCETHTOOL, &ifr) != 0 || (info.so_timestamping & kNeeded) != kNeeded) return false;
  hwtstamp_config cfg{};
  cfg.tx_type = HWTSTAMP_TX_ON;
  cfg.rx_filter = HWTSTAMP_FILTER_ALL;
  ifr.ifr_data = reinterpret_cast<char *>(&cfg);
  return ::ioctl(fd, SIOCSHWTSTAMP, &ifr) == 0;
}

}  // namespace

struct WireState {
  std::mutex mu;  // ports_ and the thread's lifecycle
  std::vector<std::unique_ptr<Port>> ports;
  std::vector<std::unique_ptr<Port>> injected;  // ports on no link (Wire::deliver)
  int epfd = -1, stopFd = -1;
  std::thread thread;
  std::atomic<uint64_t> sent{0}, received{0}, dropped{0}, timeouts{0};

  void run();
  Steady::time_point service(Port &p, Steady::time_point now);
  void transmit(Port &p, const Programmed &g);
  Stamp send(Port &p, const Programmed &g, uint32_t pktType, std::span<const uint8_t> msg, const std::string &what,
             size_t statWord, bool wantStamp);
  void sendSync(Port &p, const Programmed &g);
  void sendDelayReq(Port &p, const Programmed &g);
  void receive(Port &p);
  void handle(Port &p, std::span<const uint8_t> frame, const Stamp &rxStamp);
  void handleEvent(Port &p, const Programmed &g, std::span<const uint8_t> frame, const fwmptp::EventMessage &m,
                   const Stamp &rxStamp);
  void drop(Port &p, std::span<const uint8_t> frame, size_t statWord, const std::string &why);
  void accepted(Port &p, std::span<const uint8_t> frame, size_t statWord, const std::string &text);
  // A difference measured: into the engine's t2 - t1 or t4 - t3 record, and the trace.
  void measured(Port &p, const char *what, int64_t nanos, uint16_t sequenceId);
};

namespace {

WireState &state() {
  static auto *s = new WireState;  // the thread may outlive main's objects
  return *s;
}

void recordWire(std::string text, std::span<const uint8_t> frame) {
  if (!recorder().enabled()) return;
  recorder().add("wire", std::move(text), std::vector<uint8_t>(frame.begin(), frame.end()));
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

fwmptp::Timestamp realtimeNow() {
  timespec t{};
  ::clock_gettime(CLOCK_REALTIME, &t);
  return fromTimespec(t);
}

}  // namespace

// Builds the frame of `msg` as packet type `pktType` is programmed and sends
// it; with `wantStamp`, returns its transmit stamp.
Stamp WireState::send(Port &p, const Programmed &g, uint32_t pktType, std::span<const uint8_t> msg,
                      const std::string &what, size_t statWord, bool wantStamp) {
  const bool peer = pktType == kOdaPktPdelay;
  const uint8_t type = msg[0] & 0x0F;
  fwmptp::FrameLayout layout;
  layout.ipv4 = g.encap == 2 || g.encap == 3;
  layout.vlanTag = (g.encap == 1 || g.encap == 3) ? g.vlan : 0;
  const fwmptp::MacAddr group =
      peer ? (layout.ipv4 ? kPeerIpv4GroupMac : kPeerMac) : (layout.ipv4 ? kIpv4GroupMac : fwmptp::kPrimaryMac);
  layout.dstMac = !isZero(g.da[pktType]) ? g.da[pktType] : group;
  layout.srcMac = !isZero(g.sa[pktType]) ? g.sa[pktType] : p.ifMac;
  layout.dstIp = g.dip[pktType] != 0 ? g.dip[pktType] : peer ? kPeerGroup : fwmptp::kPrimaryGroup;
  layout.srcIp = g.sip[pktType] != 0 ? g.sip[pktType] : p.ifIp;
  layout.dscp = static_cast<uint8_t>(g.dscp & 0x3F);
  layout.udpPort = type < 8 ? fwmptp::kEventPort : fwmptp::kGeneralPort;
  layout.ipId = p.ipId++;
  const auto frame = fwmptp::buildFrame(msg, layout);
  const std::string who = "tx " + unitPort(p.unit, p.port) + " " + p.iface + " ";
  (void)takeTxStamp(p.fd, std::nullopt, nullptr);  // stamps nobody waited for
  if (::send(p.fd, frame.data(), frame.size(), MSG_DONTWAIT) != static_cast<ssize_t>(frame.size())) {
    engine().countPacket(p.unit, p.port, stat::kTxFailed);
    recordWire(who + "failed: " + std::strerror(errno), frame);
    return std::nullopt;
  }
  engine().countPacket(p.unit, p.port, statWord);
  sent.fetch_add(1, std::memory_order_relaxed);
  Stamp stamp;
  bool hardware = false;
  if (wantStamp) {
    stamp = takeTxStamp(p.fd, keyOf(frame), &hardware);
    if (!stamp) engine().countPacket(p.unit, p.port, stat::kNoTimestamp);
  }
  recordWire(who + what + (stamp ? ", sent at " + timeText(*stamp) : wantStamp ? ", no time stamp" : ""), frame);
  return stamp;
}

void WireState::transmit(Port &p, const Programmed &g) {
  fwmptp::Announce a;
  a.messageType = fwmptp::kMsgAnnounce;
  a.versionPtp = fwmptp::kVersion;
  a.messageLength = fwmptp::kAnnounceSize;
  a.domainNumber = static_cast<uint8_t>(g.domain);
  a.flagField = static_cast<uint16_t>(g.flagField);
  a.sourceClockIdentity = uint64_t{g.identityTx[0]} << 32 | g.identityTx[1];
  a.sourcePortNumber = static_cast<uint16_t>(g.identityTx[2]);
  a.sequenceId = p.sequenceId++;
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
  (void)send(p, g, kOdaPktAnnounce, msg, describe(a), kStatAnnTx, false);
}

// A MASTER's Sync: one-step with the origin time read just before sending,
// or two-step with the transmit stamp in a Follow_Up.
void WireState::sendSync(Port &p, const Programmed &g) {
  const bool twoStep = g.sends(kOdaPktFollowUp);
  auto m = eventFrom(g, fwmptp::kMsgSync, p.syncSequence++, static_cast<int8_t>(g.log(kOdaPktSync)));
  if (twoStep)
    m.flagField |= fwmptp::kFlagTwoStep;
  else
    m.timestamp = realtimeNow();
  const auto stamp = send(p, g, kOdaPktSync, fwmptp::encodeEvent(m).view(), describe(m), stat::kSyncTx, twoStep);
  const uint32_t flags = ts::kFlagValid | (twoStep ? ts::kFlagTwoStep : 0) | (p.hardwareStamps ? ts::kFlagHardware : 0);
  if (!twoStep) {
    engine().stampTime(p.unit, p.port, ts::kT1, engineTime(m.timestamp), m.sequenceId, flags);
    return;
  }
  if (!stamp) return;
  auto f = eventFrom(g, fwmptp::kMsgFollowUp, m.sequenceId, m.logMessageInterval);
  f.timestamp = *stamp;
  (void)send(p, g, kOdaPktSync, fwmptp::encodeEvent(f).view(), describe(f), stat::kFollowUpTx, false);
  engine().stampTime(p.unit, p.port, ts::kT1, engineTime(*stamp), m.sequenceId, flags);
}

void WireState::sendDelayReq(Port &p, const Programmed &g) {
  auto m = eventFrom(g, fwmptp::kMsgDelayReq, p.delayReqSequence++, 0x7F);
  const auto t3 = send(p, g, kOdaPktDelay, fwmptp::encodeEvent(m).view(), describe(m), stat::kDelayReqTx, true);
  p.awaitedResp.reset();
  if (t3) p.awaitedResp = AwaitedResp{m.sequenceId, *t3};
}

Steady::time_point WireState::service(Port &p, Steady::time_point now) {
  const Programmed g = programmed(p.unit, p.port);
  Steady::time_point next = now + kIdleRecheck;
  // One schedule: `on` says whether the message is due at all, `period` how often.
  auto schedule = [&](bool on, bool &running, Steady::time_point &at, int log, auto &&sendOne) {
    if (!on) {
      running = false;
      return;
    }
    if (!running) at = now;
    running = true;
    if (now >= at) {
      sendOne();
      const Ns period = intervalOf(log);
      at += period;
      if (at <= now) at = now + period;  // fell behind: keep the rate, not a burst
    }
    next = std::min(next, at);
  };
  schedule(g.transmit, p.transmitting, p.nextTx, static_cast<int>(g.interval) - static_cast<int>(kOdaIntervalUnit),
           [&] { transmit(p, g); });
  schedule(g.master() && g.sends(kOdaPktSync), p.syncing, p.nextSync, g.log(kOdaPktSync), [&] { sendSync(p, g); });
  schedule(g.slave() && g.sends(kOdaPktDelay), p.requesting, p.nextDelayReq, g.log(kOdaPktDelay),
           [&] { sendDelayReq(p, g); });
  if (!g.receive || g.timeoutMultiple == 0) {
    p.heard = false;
  } else if (p.heard) {
    const int log =
        g.timeoutInterval != 0 ? static_cast<int>(g.timeoutInterval) - static_cast<int>(kOdaIntervalUnit) : p.heardLog;
    const Ns window = intervalOf(log) * g.timeoutMultiple;
    if (now >= p.timeoutAt) {
      engine().announceTimedOut(p.unit, p.port);
      timeouts.fetch_add(1, std::memory_order_relaxed);
      recordWire("timeout " + unitPort(p.unit, p.port) + " " + p.iface +
                     strf(": no announce for %.3f s", std::chrono::duration<double>(window).count()),
                 {});
      p.timeoutAt = now + window;
    }
    next = std::min(next, p.timeoutAt);
  }
  return next;
}

void WireState::drop(Port &p, std::span<const uint8_t> frame, size_t statWord, const std::string &why) {
  engine().countPacket(p.unit, p.port, statWord);
  dropped.fetch_add(1, std::memory_order_relaxed);
  recordWire("rx " + unitPort(p.unit, p.port) + " " + p.iface + " dropped: " + why, frame);
}

void WireState::measured(Port &p, const char *what, int64_t nanos, uint16_t sequenceId) {
  engine().addDelay(p.unit, p.port, what[1] == '4', nanos, sequenceId);
  recordWire(strf("measure %s %s %s %lld ns seq %u", unitPort(p.unit, p.port).c_str(), p.iface.c_str(), what,
                  static_cast<long long>(nanos), sequenceId),
             {});
}

void WireState::accepted(Port &p, std::span<const uint8_t> frame, size_t statWord, const std::string &text) {
  engine().countPacket(p.unit, p.port, statWord);
  received.fetch_add(1, std::memory_order_relaxed);
  recordWire("rx " + unitPort(p.unit, p.port) + " " + p.iface + " " + text, frame);
}

// Event messages: what a MASTER answers and what a SLAVE measures.
void WireState::handleEvent(Port &p, const Programmed &g, std::span<const uint8_t> frame, const fwmptp::EventMessage &m,
                            const Stamp &rxStamp) {
  const char *name = fwmptp::messageTypeName(m.messageType);
  const uint32_t hw = p.hardwareStamps ? ts::kFlagHardware : 0;
  const std::string text = describe(m);
  auto needStamp = [&] {
    if (rxStamp) return true;
    drop(p, frame, stat::kNoTimestamp, std::string(name) + " without a time stamp");
    return false;
  };
  auto completeSync = [&](uint16_t seq, const fwmptp::Timestamp &t1, const fwmptp::Timestamp &t2, int64_t corr,
                          uint32_t flags) {
    engine().stampTime(p.unit, p.port, ts::kT1, engineTime(t1), seq, flags | ts::kFlagValid | hw);
    engine().stampTime(p.unit, p.port, ts::kT2, engineTime(t2), seq, flags | ts::kFlagValid | hw);
    measured(p, "t2-t1", fwmptp::nanosBetween(t2, t1) - (corr >> 16), seq);
  };
  switch (m.messageType) {
    case fwmptp::kMsgSync: {
      if (!g.takes(kOdaPktSync)) return drop(p, frame, stat::kForeign, "Sync reception is off");
      const uint64_t expected = uint64_t{g.identityRx[0]} << 32 | g.identityRx[1];
      if (g.syncSrcIdCheck &&
          (m.source.clockIdentity != expected || m.source.portNumber != (g.identityRx[2] & 0xFFFFu)))
        return drop(p, frame, stat::kForeign,
                    "Sync from other source identity " + fwmptp::clockIdentityText(m.source.clockIdentity));
      if (!needStamp()) return;
      accepted(p, frame, stat::kSyncRx, text + ", received at " + timeText(*rxStamp));
      p.awaitedSync.reset();
      if (m.flagField & fwmptp::kFlagTwoStep)
        p.awaitedSync = AwaitedSync{m.sequenceId, m.source, *rxStamp, m.correctionField};
      else
        completeSync(m.sequenceId, m.timestamp, *rxStamp, m.correctionField, 0);
      return;
    }
    case fwmptp::kMsgFollowUp: {
      if (!g.takes(kOdaPktSync)) return drop(p, frame, stat::kForeign, "Follow_Up reception is off");
      if (!p.awaitedSync || p.awaitedSync->source != m.source)
        return drop(p, frame, stat::kFollowUpNoSync,
                    "Follow_Up seq " + std::to_string(m.sequenceId) + " without a Sync");
      if (p.awaitedSync->sequenceId != m.sequenceId)
        return drop(p, frame, stat::kBadSequence,
                    strf("Follow_Up seq %u, Sync seq %u awaited it", m.sequenceId, p.awaitedSync->sequenceId));
      const AwaitedSync s = *p.awaitedSync;
      p.awaitedSync.reset();
      accepted(p, frame, stat::kFollowUpRx, text);
      completeSync(s.sequenceId, m.timestamp, s.t2, s.correction + m.correctionField, ts::kFlagTwoStep);
      return;
    }
    case fwmptp::kMsgDelayReq: {
      if (!g.master() || !g.takes(kOdaPktDelay)) return drop(p, frame, stat::kForeign, "Delay_Req not answered here");
      if (!needStamp()) return;
      accepted(p, frame, stat::kDelayReqRx, text + ", received at " + timeText(*rxStamp));
      engine().stampTime(p.unit, p.port, ts::kT4, engineTime(*rxStamp), m.sequenceId, ts::kFlagValid | hw);
      if (!g.sends(kOdaPktDelay)) return;
      auto r = eventFrom(g, fwmptp::kMsgDelayResp, m.sequenceId, static_cast<int8_t>(g.log(kOdaPktDelay)));
      r.correctionField = m.correctionField;
      r.timestamp = *rxStamp;
      r.requesting = m.source;
      (void)send(p, g, kOdaPktDelay, fwmptp::encodeEvent(r).view(), describe(r), stat::kDelayRespTx, false);
      return;
    }
    case fwmptp::kMsgDelayResp: {
      if (!g.takes(kOdaPktDelayResp)) return drop(p, frame, stat::kForeign, "Delay_Resp reception is off");
      if (m.requesting != g.self())
        return drop(p, frame, stat::kOtherRequester,
                    strf("Delay_Resp for %s-%u", fwmptp::clockIdentityText(m.requesting.clockIdentity).c_str(),
                         m.requesting.portNumber));
      if (!p.awaitedResp || p.awaitedResp->sequenceId != m.sequenceId)
        return drop(p, frame, stat::kBadSequence,
                    p.awaitedResp
                        ? strf("Delay_Resp seq %u, Delay_Req seq %u awaited", m.sequenceId, p.awaitedResp->sequenceId)
                        : strf("Delay_Resp seq %u, no Delay_Req awaited", m.sequenceId));
      const AwaitedResp r = *p.awaitedResp;
      p.awaitedResp.reset();
      accepted(p, frame, stat::kDelayRespRx, text);
      engine().stampTime(p.unit, p.port, ts::kT3, engineTime(r.t3), r.sequenceId, ts::kFlagValid | hw);
      engine().stampTime(p.unit, p.port, ts::kT4, engineTime(m.timestamp), r.sequenceId, ts::kFlagValid | hw);
      measured(p, "t4-t3", fwmptp::nanosBetween(m.timestamp, r.t3) - (m.correctionField >> 16), r.sequenceId);
      return;
    }
    case fwmptp::kMsgPdelayReq: {
      if (!g.takes(kOdaPktPdelay) || !g.sends(kOdaPktPdelay))
        return drop(p, frame, stat::kForeign, "Pdelay_Req not answered here");
      if (!needStamp()) return;
      accepted(p, frame, stat::kPdelayReqRx, text + ", received at " + timeText(*rxStamp));
      auto r = eventFrom(g, fwmptp::kMsgPdelayResp, m.sequenceId, 0x7F);
      r.flagField |= fwmptp::kFlagTwoStep;
      r.timestamp = *rxStamp;
      r.requesting = m.source;
      const auto t3 = send(p, g, kOdaPktPdelay, fwmptp::encodeEvent(r).view(), describe(r), stat::kPdelayRespTx, true);
      if (!t3) return;
      auto f = eventFrom(g, fwmptp::kMsgPdelayRespFollowUp, m.sequenceId, 0x7F);
      f.correctionField = m.correctionField;
      f.timestamp = *t3;
      f.requesting = m.source;
      (void)send(p, g, kOdaPktPdelay, fwmptp::encodeEvent(f).view(), describe(f), stat::kPdelayRespFollowUpTx, false);
      return;
    }
    default:  // the answers to a peer delay request this port never makes
      return drop(p, frame, stat::kForeign, std::string(name) + " not awaited");
  }
}

void WireState::handle(Port &p, std::span<const uint8_t> frame, const Stamp &rxStamp) {
  auto parsed = fwmptp::parseFrame(frame);
  if (!parsed) return;  // not PTP: the rest of the link's traffic
  const Programmed g = programmed(p.unit, p.port);
  fwmptp::Reject why = fwmptp::Reject::None;
  const auto type = fwmptp::peekMessageType(parsed->payload);
  if (type && fwmptp::eventSize(*type) != 0) {
    auto m = fwmptp::decodeEvent(parsed->payload, static_cast<uint8_t>(g.domain), &why);
    if (m) return handleEvent(p, g, frame, *m, rxStamp);
    const bool malformed = why != fwmptp::Reject::Domain;
    return drop(p, frame, malformed ? kStatMalformed : kStatForeign,
                std::string(fwmptp::messageTypeName(*type)) + " " + fwmptp::rejectName(why));
  }
  auto a = fwmptp::decodeAnnounce(parsed->payload, static_cast<uint8_t>(g.domain), &why);
  if (!a) {
    const bool malformed =
        why == fwmptp::Reject::Short || why == fwmptp::Reject::Version || why == fwmptp::Reject::Length;
    drop(p, frame, malformed ? kStatMalformed : kStatForeign, fwmptp::rejectName(why));
    return;
  }
  if (!g.receive) {
    drop(p, frame, kStatForeign, "announce reception is off");
    return;
  }
  const uint64_t expected = uint64_t{g.identityRx[0]} << 32 | g.identityRx[1];
  if (g.srcIdCheck && (a->sourceClockIdentity != expected || a->sourcePortNumber != (g.identityRx[2] & 0xFFFFu))) {
    drop(p, frame, kStatForeign, "other source identity " + fwmptp::clockIdentityText(a->sourceClockIdentity));
    return;
  }
  ClkNpAnnFields f{};
  f.currentUtcOffset = static_cast<uint16_t>(a->currentUtcOffset);
  f.grandmasterIdentityHigh = static_cast<uint32_t>(a->grandmasterIdentity >> 32);
  f.grandmasterIdentityLow = static_cast<uint32_t>(a->grandmasterIdentity);
  f.clockClass = a->clockClass;
  f.clockAccuracy = a->clockAccuracy;
  f.offsetScaledLogVariance = a->offsetScaledLogVariance;
  f.grandmasterPriority1 = a->grandmasterPriority1;
  f.grandmasterPriority2 = a->grandmasterPriority2;
  f.stepsRemoved = a->stepsRemoved;
  f.timeSource = a->timeSource;
  f.domainNumber = a->domainNumber;
  f.flagField = a->flagField;
  f.logMessageInterval = static_cast<uint8_t>(a->logMessageInterval);
  f.sourceClockIdentityHigh = static_cast<uint32_t>(a->sourceClockIdentity >> 32);
  f.sourceClockIdentityLow = static_cast<uint32_t>(a->sourceClockIdentity);
  f.sourcePortNumber = a->sourcePortNumber;
  const bool changed = engine().receiveAnnounce(p.unit, p.port, f);
  engine().countPacket(p.unit, p.port, kStatAnnRx);
  received.fetch_add(1, std::memory_order_relaxed);
  p.heard = true;
  p.heardLog = a->logMessageInterval;
  const int log =
      g.timeoutInterval != 0 ? static_cast<int>(g.timeoutInterval) - static_cast<int>(kOdaIntervalUnit) : p.heardLog;
  p.timeoutAt = Steady::now() + intervalOf(log) * std::max(g.timeoutMultiple, 1u);
  recordWire("rx " + unitPort(p.unit, p.port) + " " + p.iface + " " + describe(*a) +
                 (changed ? " (changed: ANNOUNCE_CHANGE raised)" : ""),
             frame);
}

void WireState::receive(Port &p) {
  (void)takeTxStamp(p.fd, std::nullopt, nullptr);  // the error queue also wakes epoll
  while (true) {
    uint8_t buf[2048];
    alignas(cmsghdr) uint8_t control[512];
    sockaddr_ll from{};
    iovec iov{buf, sizeof buf};
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(p.fd, &msg, MSG_DONTWAIT);
    if (n < 0) return;
    if (from.sll_pkttype == PACKET_OUTGOING) continue;  // our own frames, looped back to the socket
    bool hardware = false;
    const Stamp stamp = stampOf(msg, &hardware);
    handle(p, std::span<const uint8_t>(buf, static_cast<size_t>(n)), stamp);
  }
}

void WireState::run() {
  setThreadName("wire");
  epoll_event events[64];
  while (true) {
    auto now = Steady::now();
    auto next = now + kIdleRecheck;
    {
      std::lock_guard lk(mu);
      for (auto &p : ports) next = std::min(next, service(*p, now));
    }
    auto waitMs = std::chrono::ceil<std::chrono::milliseconds>(next - Steady::now()).count();
    int n = ::epoll_wait(epfd, events, 64, static_cast<int>(std::max<int64_t>(waitMs, 0)));
    std::lock_guard lk(mu);
    for (int i = 0; i < n; ++i) {
      if (events[i].data.ptr == nullptr) return;  // the stop event
      receive(*static_cast<Port *>(events[i].data.ptr));
    }
  }
}

std::optional<std::string> Wire::checkInterface(const std::string &iface) {
  if (iface.empty() || iface.size() >= IFNAMSIZ || ::if_nametoindex(iface.c_str()) == 0)
    return "no network interface named '" + iface + "'";
  int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq ifr{};
  std::memcpy(ifr.ifr_name, iface.data(), iface.size());
  const bool up = s >= 0 && ::ioctl(s, SIOCGIFFLAGS, &ifr) == 0 && (ifr.ifr_flags & IFF_UP) != 0;
  if (s >= 0) ::close(s);
  if (!up) return "network interface '" + iface + "' is down (ip link set " + iface + " up)";
  int raw = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
  if (raw < 0)
    return "no permission for raw frames on '" + iface + "' (" + std::strerror(errno) +
           "): run as root or inside 'unshare -rn'";
  ::close(raw);
  return std::nullopt;
}

bool Wire::attach(uint32_t unit, uint32_t portNo, const std::string &iface, std::string *why) {
  if (auto bad = checkInterface(iface)) {
    if (why) *why = *bad;
    return false;
  }
  auto p = std::make_unique<Port>();
  p->unit = unit;
  p->port = portNo;
  p->iface = iface;
  p->ifindex = static_cast<int>(::if_nametoindex(iface.c_str()));
  p->fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_ALL));
  sockaddr_ll sll{};
  sll.sll_family = AF_PACKET;
  sll.sll_protocol = htons(ETH_P_ALL);
  sll.sll_ifindex = p->ifindex;
  if (p->fd < 0 || ::bind(p->fd, reinterpret_cast<sockaddr *>(&sll), sizeof sll) != 0) {
    if (why) *why = "cannot open '" + iface + "': " + std::strerror(errno);
    return false;
  }
  p->hardwareStamps = enableHardwareStamps(p->fd, iface);
  int stamping = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
  if (p->hardwareStamps)
    stamping |= SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
  if (::setsockopt(p->fd, SOL_SOCKET, SO_TIMESTAMPING, &stamping, sizeof stamping) != 0) {
    if (why) *why = "no time stamps on '" + iface + "': " + std::strerror(errno);
    return false;
  }
  // The link-level groups of both transports, and the IPv4 group joined so
  // that switches snooping IGMP forward it to us.
  for (const auto &mac : {fwmptp::kPrimaryMac, kIpv4GroupMac, kPeerMac, kPeerIpv4GroupMac}) {
    packet_mreq mr{};
    mr.mr_ifindex = p->ifindex;
    mr.mr_type = PACKET_MR_MULTICAST;
    mr.mr_alen = 6;
    std::memcpy(mr.mr_address, mac.data(), 6);
    (void)::setsockopt(p->fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr);
  }
  p->igmpFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ip_mreqn mreq{};
  mreq.imr_ifindex = p->ifindex;
  for (uint32_t group : {fwmptp::kPrimaryGroup, kPeerGroup}) {
    mreq.imr_multiaddr.s_addr = htonl(group);
    if (p->igmpFd >= 0) (void)::setsockopt(p->igmpFd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &mreq, sizeof mreq);
  }
  ifreq ifr{};
  std::memcpy(ifr.ifr_name, iface.data(), iface.size());
  if (p->igmpFd >= 0 && ::ioctl(p->igmpFd, SIOCGIFHWADDR, &ifr) == 0)
    std::memcpy(p->ifMac.data(), ifr.ifr_hwaddr.sa_data, 6);
  if (p->igmpFd >= 0 && ::ioctl(p->igmpFd, SIOCGIFADDR, &ifr) == 0)
    p->ifIp = ntohl(reinterpret_cast<sockaddr_in *>(&ifr.ifr_addr)->sin_addr.s_addr);

  WireState &s = state();
  std::lock_guard lk(s.mu);
  if (s.epfd < 0) {
    s.epfd = ::epoll_create1(EPOLL_CLOEXEC);
    s.stopFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.ptr = nullptr;
    ::epoll_ctl(s.epfd, EPOLL_CTL_ADD, s.stopFd, &ev);
  }
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.ptr = p.get();
  ::epoll_ctl(s.epfd, EPOLL_CTL_ADD, p->fd, &ev);
  s.ports.push_back(std::move(p));
  if (!s.thread.joinable()) s.thread = std::thread([&s] { s.run(); });
  return true;
}

void Wire::stop() {
  WireState &s = state();
  if (s.thread.joinable()) {
    uint64_t one = 1;
    (void)::write(s.stopFd, &one, sizeof one);
    s.thread.join();
  }
  std::lock_guard lk(s.mu);
  s.ports.clear();
  s.injected.clear();
  if (s.epfd >= 0) ::close(s.epfd);
  if (s.stopFd >= 0) ::close(s.stopFd);
  s.epfd = s.stopFd = -1;
}

void Wire::deliver(uint32_t unit, uint32_t portNo, std::span<const uint8_t> frame, std::optional<timespec> stamp) {
  WireState &s = state();
  std::lock_guard lk(s.mu);
  auto at = [&](std::vector<std::unique_ptr<Port>> &v) {
    auto it = std::find_if(v.begin(), v.end(), [&](auto &p) { return p->unit == unit && p->port == portNo; });
    return it != v.end() ? it->get() : nullptr;
  };
  Port *p = at(s.ports);
  if (!p) p = at(s.injected);
  if (!p) {
    s.injected.push_back(std::make_unique<Port>());
    p = s.injected.back().get();
    p->unit = unit;
    p->port = portNo;
    p->iface = "injected";
  }
  s.handle(*p, frame, stamp ? Stamp(fromTimespec(*stamp)) : std::nullopt);
}

WireTotals Wire::totals() const {
  WireState &s = state();
  return {s.sent.load(), s.received.load(), s.dropped.load(), s.timeouts.load()};
}

Wire &wire() {
  static Wire w;
  return w;
}

}  // namespace fwmsim
