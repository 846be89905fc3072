// Wire ports: any (unit, port) of the simulated engine attached to a network
// interface, so that the engine's announces and event messages leave on a
// real link and real ones reach its receive side.
//
// The port transmits and receives as the library programmed it through the
// engine driver: encapsulation 2 and 3 are IPv4/UDP (224.0.1.129, port 320,
// the programmed DSCP, TTL 1), others Ethernet (ethertype 0x88F7 to
// 01-1B-19-00-00-00); 1 and 3 carry the programmed 802.1Q tag. Programmed
// MAC and IPv4 addresses of the announce packet type replace the defaults
// (the interface's own addresses, the PTP primary groups). Frames are built
// whole and sent through a packet socket, which needs CAP_NET_RAW (root, or
// inside `unshare -rn`).
//
// Transmit: an enabled port (port enable 1) in the MASTER state (6) with
// announce transmission enabled sends announces every 2^(code - 7) s of its
// announce interval code, from the transmit fields, flag field, domain and
// source port identity in the engine at that moment, with a sequence id
// counting per port.
// Receive: a port that is enabled with announce reception enabled accepts
// announces of its domain (and, when the source identity check is on, of
// the programmed identity only); each updates the engine's received fields
// (Engine::receiveAnnounce). Once a port has heard an announce, every whole
// timeout window without one latches the timeout alarm. Malformed and
// foreign PTP packets are counted in the packet statistics and dropped;
// other traffic on the interface is ignored.
//
// Event messages follow the packet types' enables and intervals as the
// engine's header lists them: a MASTER sends Sync (two-step with Follow_Up
// when Follow_Up transmission is on) and answers Delay_Req; a SLAVE sends
// Delay_Req and takes Syncs, Follow_Ups and the Delay_Resps addressed to it;
// peer delay requests are answered where programmed. Every event message is
// stamped by the kernel (SO_TIMESTAMPING: software stamps both ways, the
// interface's where it has hardware stamping), and what a port measures
// fills the engine's time-stamp, t2 - t1 and t4 - t3 records; every message
// sent, received or dropped is counted in the packet statistics by type and
// reason. A bad message (truncated, out of sequence, unasked for, for another
// port) is counted and changes nothing else.
//
// One network thread serves all attached ports (epoll); it touches the
// engine only through its lock, briefly, so the library's threads never wait
// on the network. It runs on the wall clock. Every packet sent, received or
// dropped and every timeout is recorded under facility "wire", with the
// whole frame as the event's bytes.
#pragma once

#include <time.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "fwmsim/engine/engine.hpp"

namespace fwmsim {

// What a port made of an announce or a timeout handed in without a frame.
struct AnnounceOffer {
  bool accepted = false, changed = false;
  std::string text;  // what was taken, or why it was dropped
};

struct WireTotals {
  uint64_t sent = 0, received = 0, dropped = 0, timeouts = 0;
};

class Wire {
 public:
  // Why `iface` cannot carry a wire port (no such interface, down, no
  // permission for raw frames), or nothing when it can.
  static std::optional<std::string> checkInterface(const std::string &iface);

  // Attaches (unit, port) to `iface` and starts the network thread if needed.
  bool attach(uint32_t unit, uint32_t port, const std::string &iface, std::string *why);
  // Hands `frame` to the receive path of (unit, port) as if it had arrived
  // with kernel time stamp `stamp` (none: without one). A port that is not
  // attached gets a state of its own, on no link ("injected"): what it
  // answers fails to send. For tests and replays.
  void deliver(uint32_t unit, uint32_t port, std::span<const uint8_t> frame, std::optional<timespec> stamp);
  // An announce's fields arriving on (unit, port), and a timeout window
  // passing there, by other means than a frame (a simulator's scenario):
  // judged by the rules a received frame passes (the unit, the domain,
  // announce reception, the source identity check), counted and traced the
  // same way.
  AnnounceOffer offerAnnounce(uint32_t unit, uint32_t port, const ClkNpAnnFields &fields);
  AnnounceOffer offerTimeout(uint32_t unit, uint32_t port);
  // Stops the thread and closes every port.
  void stop();
  WireTotals totals() const;
};

Wire &wire();

}  // namespace fwmsim
