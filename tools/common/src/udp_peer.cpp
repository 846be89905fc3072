#include "fwmtools/udp_peer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace fwmtools {

namespace {

bool toSockaddr(const Endpoint &e, sockaddr_in &sa) {
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_port = htons(e.port);
  std::string host = e.host == "localhost" ? "127.0.0.1" : e.host;
  return inet_pton(AF_INET, host.c_str(), &sa.sin_addr) == 1;
}

}  // namespace

std::optional<Endpoint> parseEndpoint(const std::string &text, bool allowAnyPort) {
  Endpoint e;
  std::string portText = text;
  if (auto colon = text.rfind(':'); colon != std::string::npos) {
    if (colon > 0) e.host = text.substr(0, colon);
    portText = text.substr(colon + 1);
  }
  if (portText.empty() || portText.size() > 5) return std::nullopt;
  unsigned long port = 0;
  for (char c : portText) {
    if (c < '0' || c > '9') return std::nullopt;
    port = port * 10 + static_cast<unsigned long>(c - '0');
  }
  if ((port == 0 && !allowAnyPort) || port > 65535) return std::nullopt;
  e.port = static_cast<uint16_t>(port);
  sockaddr_in sa;
  if (!toSockaddr(e, sa)) return std::nullopt;
  return e;
}

UdpSocket::~UdpSocket() {
  if (fd_ >= 0) ::close(fd_);
}

UdpSocket::UdpSocket(UdpSocket &&other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

UdpSocket &UdpSocket::operator=(UdpSocket &&other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

bool UdpSocket::bind(const Endpoint &at, std::string *error) {
  auto fail = [&](const std::string &what) {
    if (error) *error = what + ": " + std::strerror(errno);
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    return false;
  };
  fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return fail("socket");
  sockaddr_in sa;
  if (!toSockaddr(at, sa)) {
    errno = EINVAL;
    return fail("address " + at.host);
  }
  if (::bind(fd_, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0)
    return fail("bind " + at.host + ":" + std::to_string(at.port));
  return true;
}

uint16_t UdpSocket::localPort() const {
  sockaddr_in sa;
  socklen_t len = sizeof sa;
  if (fd_ < 0 || ::getsockname(fd_, reinterpret_cast<sockaddr *>(&sa), &len) != 0) return 0;
  return ntohs(sa.sin_port);
}

std::optional<std::vector<uint8_t>> UdpSocket::receive(std::chrono::milliseconds timeout) {
  if (fd_ < 0) return std::nullopt;
  pollfd p{fd_, POLLIN, 0};
  int r = ::poll(&p, 1, static_cast<int>(timeout.count()));
  if (r <= 0) return std::nullopt;
  // Room for the largest UDP datagram, so that an oversized one is seen whole
  // and reported with its real length rather than cut to size.
  std::vector<uint8_t> buf(65536);
  ssize_t n = ::recv(fd_, buf.data(), buf.size(), MSG_TRUNC);
  if (n < 0) return std::nullopt;
  buf.resize(std::min(buf.size(), static_cast<size_t>(n)));
  return buf;
}

bool UdpSocket::sendTo(const Endpoint &to, const void *data, size_t len) {
  sockaddr_in sa;
  if (fd_ < 0 || !toSockaddr(to, sa)) return false;
  return ::sendto(fd_, data, len, 0, reinterpret_cast<sockaddr *>(&sa), sizeof sa) == static_cast<ssize_t>(len);
}

bool someoneListens(const Endpoint &to) {
  in_addr want{};
  if (inet_pton(AF_INET, to.host == "localhost" ? "127.0.0.1" : to.host.c_str(), &want) != 1) return false;
  std::ifstream table("/proc/net/udp");
  if (!table) return true;  // no way to tell: do not claim a loss
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    unsigned slot = 0, address = 0, port = 0;
    // "  12: 0100007F:9C43 00000000:0000 07 ...": the local address in network order, as hex
    if (std::sscanf(line.c_str(), " %u: %x:%x", &slot, &address, &port) != 3 || port != to.port) continue;
    if (address == 0 || address == want.s_addr) return true;
  }
  return false;
}

}  // namespace fwmtools
