// A UDP endpoint on the loopback address: the negotiation peer's socket, and
// the sender that tests and clksim use to reach a peer.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fwmtools {

struct Endpoint {
  std::string host = "127.0.0.1";
  uint16_t port = 0;
};

// "HOST:PORT" or ":PORT" or "PORT"; nullopt when malformed. Port 0 (any free
// port) is accepted only where a socket is bound, not where one is reached.
std::optional<Endpoint> parseEndpoint(const std::string &text, bool allowAnyPort = false);

// Whether a UDP socket on this host is bound where `to` points (the kernel's
// socket table): a datagram sent where nobody is bound is dropped unseen.
bool someoneListens(const Endpoint &to);

class UdpSocket {
 public:
  UdpSocket() = default;
  ~UdpSocket();
  UdpSocket(UdpSocket &&other) noexcept;
  UdpSocket &operator=(UdpSocket &&other) noexcept;
  UdpSocket(const UdpSocket &) = delete;
  UdpSocket &operator=(const UdpSocket &) = delete;

  // Binds to host:port (port 0 picks a free one).
  bool bind(const Endpoint &at, std::string *error = nullptr);
  uint16_t localPort() const;

  // Waits at most `timeout` for one datagram; nullopt on timeout.
  std::optional<std::vector<uint8_t>> receive(std::chrono::milliseconds timeout);
  bool sendTo(const Endpoint &to, const void *data, size_t len);

  bool valid() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

}  // namespace fwmtools
