// A wire port's link: the packet socket on one network interface, the
// kernel's time stamps of what it sends and receives, and the interface's
// own addresses. It knows frames, not what they carry.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"

namespace fwmsim {

using Stamp = std::optional<fwmptp::Timestamp>;

class Link {
 public:
  Link() = default;  // on no link: every send fails
  explicit Link(std::string iface) : iface_(std::move(iface)) {}
  ~Link();
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;

  // Why `iface` cannot carry a wire port, or nothing when it can.
  static std::optional<std::string> check(const std::string &iface);
  // Opens the socket, asks for time stamps and joins the PTP groups.
  bool open(std::string *why);

  const std::string &iface() const { return iface_; }
  int fd() const { return fd_; }
  const fwmptp::MacAddr &mac() const { return mac_; }
  uint32_t ip() const { return ip_; }
  bool hardwareStamps() const { return hardware_; }

  struct Sent {
    bool ok = false;
    int error = 0;  // errno of a failed send
    Stamp stamp;    // with a stamp asked for and given
  };
  // Sends a whole frame; with `wantStamp`, waits briefly for its transmit stamp.
  Sent send(std::span<const uint8_t> frame, bool wantStamp);
  // Hands every frame waiting on the socket, with its receive stamp, to `onFrame`.
  void receive(const std::function<void(std::span<const uint8_t>, const Stamp &)> &onFrame);

 private:
  std::string iface_ = "injected";
  int fd_ = -1;      // packet socket
  int igmpFd_ = -1;  // holds the IPv4 group membership
  fwmptp::MacAddr mac_{};
  uint32_t ip_ = 0;
  bool hardware_ = false;
};

// The groups a wire port listens to besides the primary ones.
inline constexpr fwmptp::MacAddr kIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x01, 0x81};
inline constexpr fwmptp::MacAddr kPeerMac{0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
inline constexpr fwmptp::MacAddr kPeerIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x00, 0x6B};
inline constexpr uint32_t kPeerGroup = 0xE000006Bu;  // 224.0.0.107

}  // namespace fwmsim
