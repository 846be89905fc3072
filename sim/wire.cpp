// The simulated engine's wire ports: one epoll thread, packet sockets.
#include "fwmsim/wire.hpp"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

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
#include "fwmptp/frame.hpp"
#include "fwmsim/engine.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {

using Steady = std::chrono::steady_clock;
using Ns = std::chrono::nanoseconds;

constexpr uint32_t kStateMaster = 6;
constexpr auto kIdleRecheck = std::chrono::milliseconds(50);  // how soon a newly enabled port starts sending
constexpr fwmptp::MacAddr kIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x01, 0x81};

Ns intervalOf(int log2s) {
  return std::chrono::duration_cast<Ns>(std::chrono::duration<double>(std::ldexp(1.0, log2s)));
}

// What the wire needs of a port's engine state, copied under the engine's lock.
struct Programmed {
  bool transmit = false, receive = false;
  ClkNpAnnFields tx{};
  uint32_t flagField = 0, domain = 0, encap = 0, vlan = 0, dscp = 0, interval = 0;
  Words3 identityTx{}, identityRx{};
  bool srcIdCheck = false;
  Mac da{}, sa{};
  uint32_t dip = 0, sip = 0;
  uint32_t timeoutMultiple = 0, timeoutInterval = 0;
};

Programmed programmed(uint32_t unit, uint32_t portNo) {
  return engine().with(unit, portNo, [](OdaPort &p) {
    Programmed g;
    const bool on = p.portEnable == 1;
    g.transmit = on && p.state == kStateMaster && p.txEnable[kOdaPktAnnounce] == 1;
    g.receive = on && p.rxEnable[kOdaPktAnnounce] == 1;
    g.tx = p.txFields;
    g.flagField = p.flagField;
    g.domain = p.domainNumber;
    g.encap = p.encap;
    g.vlan = p.vlan;
    g.dscp = p.dscp;
    g.interval = p.interval[kOdaPktAnnounce];
    g.identityTx = p.identityTx;
    g.identityRx = p.identityRx[1];
    auto check = p.ptpControl.find(kCtrlAnnSrcIdCheck);
    g.srcIdCheck = check != p.ptpControl.end() && check->second == 1;
    g.da = p.da[kOdaPktAnnounce];
    g.sa = p.sa[kOdaPktAnnounce];
    g.dip = p.dip[kOdaPktAnnounce];
    g.sip = p.sip[kOdaPktAnnounce];
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

struct Port {
  uint32_t unit = 0, port = 0;
  std::string iface;
  int ifindex = 0;
  int fd = -1;      // packet socket
  int igmpFd = -1;  // holds the IPv4 group membership
  fwmptp::MacAddr ifMac{};
  uint32_t ifIp = 0;
  // Transmit.
  bool transmitting = false;
  Steady::time_point nextTx{};
  uint16_t sequenceId = 0;
  uint16_t ipId = 0;
  // Receive.
  bool heard = false;
  int heardLog = 0;
  Steady::time_point timeoutAt{};

  ~Port() {
    if (fd >= 0) ::close(fd);
    if (igmpFd >= 0) ::close(igmpFd);
  }
};

}  // namespace

struct WireState {
  std::mutex mu;  // ports_ and the thread's lifecycle
  std::vector<std::unique_ptr<Port>> ports;
  int epfd = -1, stopFd = -1;
  std::thread thread;
  std::atomic<uint64_t> sent{0}, received{0}, dropped{0}, timeouts{0};

  void run();
  Steady::time_point service(Port &p, Steady::time_point now);
  void transmit(Port &p, const Programmed &g);
  void receive(Port &p);
  void handle(Port &p, std::span<const uint8_t> frame);
  void drop(Port &p, std::span<const uint8_t> frame, size_t statWord, const std::string &why);
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

}  // namespace

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

  fwmptp::FrameLayout layout;
  layout.ipv4 = g.encap == 2 || g.encap == 3;
  layout.vlanTag = (g.encap == 1 || g.encap == 3) ? g.vlan : 0;
  layout.dstMac = !isZero(g.da) ? g.da : layout.ipv4 ? kIpv4GroupMac : fwmptp::kPrimaryMac;
  layout.srcMac = !isZero(g.sa) ? g.sa : p.ifMac;
  layout.dstIp = g.dip != 0 ? g.dip : fwmptp::kPrimaryGroup;
  layout.srcIp = g.sip != 0 ? g.sip : p.ifIp;
  layout.dscp = static_cast<uint8_t>(g.dscp & 0x3F);
  layout.udpPort = fwmptp::kGeneralPort;
  layout.ipId = p.ipId++;
  const auto msg = fwmptp::encodeAnnounce(a);
  const auto frame = fwmptp::buildFrame(msg, layout);
  if (::send(p.fd, frame.data(), frame.size(), MSG_DONTWAIT) != static_cast<ssize_t>(frame.size())) {
    recordWire("tx " + unitPort(p.unit, p.port) + " " + p.iface + " failed: " + std::strerror(errno), frame);
    return;
  }
  engine().countPacket(p.unit, p.port, kStatAnnTx);
  sent.fetch_add(1, std::memory_order_relaxed);
  recordWire("tx " + unitPort(p.unit, p.port) + " " + p.iface + " " + describe(a), frame);
}

Steady::time_point WireState::service(Port &p, Steady::time_point now) {
  const Programmed g = programmed(p.unit, p.port);
  Steady::time_point next = now + kIdleRecheck;
  if (g.transmit) {
    const Ns period = intervalOf(static_cast<int>(g.interval) - static_cast<int>(kOdaIntervalUnit));
    if (!p.transmitting) p.nextTx = now;
    p.transmitting = true;
    if (now >= p.nextTx) {
      transmit(p, g);
      p.nextTx += period;
      if (p.nextTx <= now) p.nextTx = now + period;  // fell behind: keep the rate, not a burst
    }
    next = std::min(next, p.nextTx);
  } else {
    p.transmitting = false;
  }
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

void WireState::handle(Port &p, std::span<const uint8_t> frame) {
  auto parsed = fwmptp::parseFrame(frame);
  if (!parsed) return;  // not PTP: the rest of the link's traffic
  const Programmed g = programmed(p.unit, p.port);
  fwmptp::Reject why = fwmptp::Reject::None;
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
  uint8_t buf[2048];
  while (true) {
    sockaddr_ll from{};
    socklen_t len = sizeof from;
    ssize_t n = ::recvfrom(p.fd, buf, sizeof buf, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &len);
    if (n < 0) return;
    if (from.sll_pkttype == PACKET_OUTGOING) continue;  // our own frames, looped back to the socket
    handle(p, std::span<const uint8_t>(buf, static_cast<size_t>(n)));
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
  // The link-level groups of both transports, and the IPv4 group joined so
  // that switches snooping IGMP forward it to us.
  for (const auto &mac : {fwmptp::kPrimaryMac, kIpv4GroupMac}) {
    packet_mreq mr{};
    mr.mr_ifindex = p->ifindex;
    mr.mr_type = PACKET_MR_MULTICAST;
    mr.mr_alen = 6;
    std::memcpy(mr.mr_address, mac.data(), 6);
    (void)::setsockopt(p->fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr);
  }
  p->igmpFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ip_mreqn mreq{};
  mreq.imr_multiaddr.s_addr = htonl(fwmptp::kPrimaryGroup);
  mreq.imr_ifindex = p->ifindex;
  if (p->igmpFd >= 0) (void)::setsockopt(p->igmpFd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &mreq, sizeof mreq);
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
  if (s.epfd >= 0) ::close(s.epfd);
  if (s.stopFd >= 0) ::close(s.stopFd);
  s.epfd = s.stopFd = -1;
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
