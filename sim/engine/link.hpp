#pragma once

#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"

namespace fwmsim {

using Stamp = std::optional<fwmptp::Timestamp>;

// What a wire port's frames travel through: the packet socket on a network
// interface (Link), nothing (NoLink: every send fails), or a link of the
// virtual network. It knows frames, not what they carry. Stamps it gives are
// true time; now() is the clock the port's schedule runs on.
class Transport {
 public:
  virtual ~Transport() = default;
  const std::string &iface() const { return iface_; }
  const fwmptp::MacAddr &mac() const { return mac_; }
  uint32_t ip() const { return ip_; }
  bool hardwareStamps() const { return hardware_; }

  struct Sent {
    bool ok = false;
    int error = 0;  // errno of a failed send
    Stamp stamp;    // with a stamp asked for and given
  };
  // Sends a whole frame; with `wantStamp`, also its transmit stamp.
  virtual Sent send(std::span<const uint8_t> frame, bool wantStamp) = 0;
  // The schedule's clock: any fixed origin, nanoseconds.
  virtual std::chrono::nanoseconds now() const;
  // True time now (a one-step Sync's origin time).
  virtual fwmptp::Timestamp trueNow() const;

 protected:
  explicit Transport(std::string iface) : iface_(std::move(iface)) {}
  std::string iface_;
  fwmptp::MacAddr mac_{};
  uint32_t ip_ = 0;
  bool hardware_ = false;
};

// A port on no link ("injected"): what it answers fails to send.
class NoLink final : public Transport {
 public:
  NoLink() : Transport("injected") {}
  Sent send(std::span<const uint8_t>, bool) override { return {false, EBADF, std::nullopt}; }
};

// The packet socket on one network interface, the kernel's time stamps of
// what it sends and receives, and the interface's own addresses.
class Link final : public Transport {
 public:
  explicit Link(std::string iface) : Transport(std::move(iface)) {}
  ~Link() override;
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;

  // Why `iface` cannot carry a wire port, or nothing when it can.
  static std::optional<std::string> check(const std::string &iface);
  // Opens the socket, asks for time stamps and joins the PTP groups.
  bool open(std::string *why);
  int fd() const { return fd_; }

  // Waits briefly for the transmit stamp when one is asked for.
  Sent send(std::span<const uint8_t> frame, bool wantStamp) override;
  // Hands every frame waiting on the socket, with its receive stamp, to
  // `onFrame`; with `errorQueue` (epoll said so), first drops what came to
  // the receiving socket's error queue.
  void receive(const std::function<void(std::span<const uint8_t>, const Stamp &)> &onFrame, bool errorQueue);

 private:
  int fd_ = -1;      // packet socket: what the port receives
  int txFd_ = -1;    // packet socket that receives nothing: what the port sends, and its stamps
  int igmpFd_ = -1;  // holds the IPv4 group membership
  int socketStamping_ = 0;
  bool stampAll_ = false;  // the kernel takes no per-frame stamp request: every frame is stamped
};

// The groups a wire port listens to besides the primary ones.
inline constexpr fwmptp::MacAddr kIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x01, 0x81};
inline constexpr fwmptp::MacAddr kPeerMac{0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
inline constexpr fwmptp::MacAddr kPeerIpv4GroupMac{0x01, 0x00, 0x5E, 0x00, 0x00, 0x6B};
inline constexpr uint32_t kPeerGroup = 0xE000006Bu;  // 224.0.0.107

}  // namespace fwmsim
