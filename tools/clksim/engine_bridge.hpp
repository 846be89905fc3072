// The simulator's hands on the simulated platform beyond the library's own
// calls: the forwarding engine's side (announces arriving, alarms, values the
// engine returns, failing driver calls) and where the negotiation client
// sends. This is the one place that knows those simulated interfaces.
#pragma once

#include <optional>
#include <string>

#include "fwmtools/pcap.hpp"
#include "fwmtools/udp_peer.hpp"
#include "scenario.hpp"

namespace clksim {

struct BridgeResult {
  bool applied = false;
  std::string note;  // what was done, or why it could not be
};

BridgeResult applyFail(const Fail &f);
BridgeResult applyAnnounce(const AnnounceReceived &a);
BridgeResult applyAlarm(const AnnounceAlarm &a);
BridgeResult applyValues(const EngineValues &v);

// How the engine frames announces on a port, as the library programmed it:
// encapsulation 0 Ethernet, 1 Ethernet in an 802.1Q VLAN, 2 UDP/IPv4,
// 3 UDP/IPv4 in a VLAN, with the port's announce addresses and DSCP.
// nullopt for a port whose encapsulation was never programmed, or one (4)
// whose framing is the engine's own.
std::optional<fwmtools::FrameAddressing> portFraming(uint32_t unit, uint32_t port);

// Points the simulated negotiation client at `peer` (real UDP on loopback).
BridgeResult routeNegotiationClient(const fwmtools::Endpoint &peer);

}  // namespace clksim
