// Packet sockets and kernel time stamps for the wire ports.
#include "link.hpp"

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
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace fwmsim {

namespace {

using Steady = std::chrono::steady_clock;
constexpr auto kStampWait = std::chrono::milliseconds(20);  // how long a transmit stamp may take to come back
constexpr unsigned kBatch = 8;                              // frames taken off the socket per call
#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

fwmptp::Timestamp fromTimespec(const timespec &t) {
  return {static_cast<uint64_t>(t.tv_sec), static_cast<uint32_t>(t.tv_nsec)};
}

// The stamp of a received or looped-back frame: the interface's when there
// is one, the kernel's software stamp otherwise.
Stamp stampOf(msghdr &msg) {
  for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SO_TIMESTAMPING) continue;
    scm_timestamping ts{};
    std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
    const bool hardware = ts.ts[2].tv_sec != 0 || ts.ts[2].tv_nsec != 0;
    const timespec &t = hardware ? ts.ts[2] : ts.ts[0];
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
Stamp takeTxStamp(int fd, std::optional<std::pair<uint8_t, uint16_t>> key) {
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
      if (key && keyOf(std::span<const uint8_t>(data, static_cast<size_t>(n))) == key) return stampOf(msg);
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

std::chrono::nanoseconds Transport::now() const { return std::chrono::steady_clock::now().time_since_epoch(); }

fwmptp::Timestamp Transport::trueNow() const {
  timespec t{};
  ::clock_gettime(CLOCK_REALTIME, &t);
  return {static_cast<uint64_t>(t.tv_sec), static_cast<uint32_t>(t.tv_nsec)};
}

Link::~Link() {
  if (fd_ >= 0) ::close(fd_);
  if (txFd_ >= 0) ::close(txFd_);
  if (igmpFd_ >= 0) ::close(igmpFd_);
}

std::optional<std::string> Link::check(const std::string &iface) {
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

bool Link::open(std::string *why) {
  const int ifindex = static_cast<int>(::if_nametoindex(iface_.c_str()));
  fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_ALL));
  sockaddr_ll sll{};
  sll.sll_family = AF_PACKET;
  sll.sll_protocol = htons(ETH_P_ALL);
  sll.sll_ifindex = ifindex;
  if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr *>(&sll), sizeof sll) != 0) {
    if (why) *why = "cannot open '" + iface_ + "': " + std::strerror(errno);
    return false;
  }
  // Frames go out through a socket of their own, bound to no protocol: the
  // kernel queues a transmit stamp on the sending socket between stamping the
  // frame and handing it on, and on the receiving socket that would wake the
  // wire thread's epoll in the middle of every stamped send, the time of it
  // showing in the link's delay one way only. Nothing waits on this one.
  sll.sll_protocol = 0;
  txFd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (txFd_ < 0 || ::bind(txFd_, reinterpret_cast<sockaddr *>(&sll), sizeof sll) != 0) {
    if (why) *why = "cannot open '" + iface_ + "' for sending: " + std::strerror(errno);
    return false;
  }
  hardware_ = enableHardwareStamps(fd_, iface_);
  // Receive stamps for every frame; transmit stamps are asked for per frame (send).
  socketStamping_ = SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
  if (hardware_) socketStamping_ |= SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
  if (::setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPING, &socketStamping_, sizeof socketStamping_) != 0 ||
      ::setsockopt(txFd_, SOL_SOCKET, SO_TIMESTAMPING, &socketStamping_, sizeof socketStamping_) != 0) {
    if (why) *why = "no time stamps on '" + iface_ + "': " + std::strerror(errno);
    return false;
  }
  // Our own frames would come back to this socket, each a copy and a wake-up
  // of the wire thread (older kernels ignore this; receive drops them there).
  int one = 1;
  (void)::setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one);
  // The link-level groups of both transports, and the IPv4 group joined so
  // that switches snooping IGMP forward it to us.
  for (const auto &mac : {fwmptp::kPrimaryMac, kIpv4GroupMac, kPeerMac, kPeerIpv4GroupMac}) {
    packet_mreq mr{};
    mr.mr_ifindex = ifindex;
    mr.mr_type = PACKET_MR_MULTICAST;
    mr.mr_alen = 6;
    std::memcpy(mr.mr_address, mac.data(), 6);
    (void)::setsockopt(fd_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr);
  }
  igmpFd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ip_mreqn mreq{};
  mreq.imr_ifindex = ifindex;
  for (uint32_t group : {fwmptp::kPrimaryGroup, kPeerGroup}) {
    mreq.imr_multiaddr.s_addr = htonl(group);
    (void)::setsockopt(igmpFd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &mreq, sizeof mreq);  // EBADF without a socket
  }
  ifreq ifr{};
  std::memcpy(ifr.ifr_name, iface_.data(), iface_.size());
  if (igmpFd_ >= 0 && ::ioctl(igmpFd_, SIOCGIFHWADDR, &ifr) == 0) std::memcpy(mac_.data(), ifr.ifr_hwaddr.sa_data, 6);
  if (igmpFd_ >= 0 && ::ioctl(igmpFd_, SIOCGIFADDR, &ifr) == 0)
    ip_ = ntohl(reinterpret_cast<sockaddr_in *>(&ifr.ifr_addr)->sin_addr.s_addr);
  return true;
}

// Only the frames whose stamp is wanted ask for one: every other stamp would
// be a clone of the frame on the error queue, to be thrown away. Kernels that
// refuse the request per message get it for the whole socket, and the stamps
// nobody waits for are drained before the next frame goes out.
Link::Sent Link::send(std::span<const uint8_t> frame, bool wantStamp) {
  iovec iov{const_cast<uint8_t *>(frame.data()), frame.size()};
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(uint32_t))] = {};
  if (wantStamp && !stampAll_) {
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    cmsghdr *c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SO_TIMESTAMPING;
    c->cmsg_len = CMSG_LEN(sizeof(uint32_t));
    const uint32_t flags = hardware_ ? SOF_TIMESTAMPING_TX_HARDWARE : SOF_TIMESTAMPING_TX_SOFTWARE;
    std::memcpy(CMSG_DATA(c), &flags, sizeof flags);
  }
  Sent s;
  if (stampAll_) (void)takeTxStamp(txFd_, std::nullopt);  // the stamps of frames nobody waited for
  ssize_t n = ::sendmsg(txFd_, &msg, MSG_DONTWAIT);
  if (n < 0 && errno == EINVAL && msg.msg_controllen != 0) {
    int all = socketStamping_ | SOF_TIMESTAMPING_TX_SOFTWARE | (hardware_ ? SOF_TIMESTAMPING_TX_HARDWARE : 0);
    stampAll_ = ::setsockopt(txFd_, SOL_SOCKET, SO_TIMESTAMPING, &all, sizeof all) == 0;
    msg.msg_control = nullptr;
    msg.msg_controllen = 0;
    n = ::sendmsg(txFd_, &msg, MSG_DONTWAIT);
  }
  if (n != static_cast<ssize_t>(frame.size())) {
    s.error = errno;
    return s;
  }
  s.ok = true;
  if (wantStamp) s.stamp = takeTxStamp(txFd_, keyOf(frame));
  return s;
}

void Link::receive(const std::function<void(std::span<const uint8_t>, const Stamp &)> &onFrame, bool errorQueue) {
  if (errorQueue) (void)takeTxStamp(fd_, std::nullopt);  // stamps that came too late for their sender
  uint8_t bufs[kBatch][2048];
  alignas(cmsghdr) uint8_t controls[kBatch][512];
  while (true) {
    sockaddr_ll from[kBatch]{};
    iovec iov[kBatch];
    mmsghdr msgs[kBatch]{};
    for (unsigned i = 0; i < kBatch; ++i) {
      iov[i] = {bufs[i], sizeof bufs[i]};
      msghdr &m = msgs[i].msg_hdr;
      m.msg_name = &from[i];
      m.msg_namelen = sizeof from[i];
      m.msg_iov = &iov[i];
      m.msg_iovlen = 1;
      m.msg_control = controls[i];
      m.msg_controllen = sizeof controls[i];
    }
    const int n = ::recvmmsg(fd_, msgs, kBatch, MSG_DONTWAIT, nullptr);
    if (n <= 0) return;
    for (int i = 0; i < n; ++i) {
      if (from[i].sll_pkttype == PACKET_OUTGOING) continue;  // our own frames, where the kernel still loops them back
      onFrame(std::span<const uint8_t>(bufs[i], msgs[i].msg_len), stampOf(msgs[i].msg_hdr));
    }
    if (static_cast<unsigned>(n) < kBatch) return;  // the socket is empty: no call just to learn that
  }
}

}  // namespace fwmsim
