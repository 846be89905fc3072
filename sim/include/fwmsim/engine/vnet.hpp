// The virtual network: engine ports and reference grandmasters joined
// pairwise by virtual links, run in virtual time.
//
// Time here is true time in nanoseconds since the epoch. Nothing moves on its
// own: whoever advances the board calls runUntil, which runs every frame
// arrival and every port's due work up to that instant, in time order, on
// the caller's thread (ties in the order they were scheduled). Between calls
// nothing is woken, so an idle stretch costs nothing.
//
// A link carries frames each way with a fixed delay, a delay variation drawn
// from a distribution, an extra one-way delay, a loss probability and
// outages (frames sent within [from, to) are lost). It does not reorder: a
// frame never arrives before one sent earlier the same way. Stamps are the
// true instants a frame leaves and arrives, truncated to the link's stamp
// step (0: exact). Random draws come from one generator per direction,
// seeded from the network's seed, so the same seed gives the same run.
//
// An engine port on the network is the same protocol as a wire port (its
// programmed state, its records, its trace under facility "wire"); its
// schedule runs on the network's time. Losses are traced under "vnet".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace fwmsim {

enum class Jitter { None, Uniform, Normal, Exponential };

// One direction of a virtual link.
struct LinkDirection {
  int64_t delayNs = 0;
  Jitter jitter = Jitter::None;
  // Uniform: added in [0, jitterNs); normal: standard deviation around the
  // delay (the total never below 0); exponential: mean of what is added.
  int64_t jitterNs = 0;
  int64_t extraNs = 0;                               // one-way extra delay (asymmetry)
  double loss = 0;                                   // probability that a frame is lost
  std::vector<std::pair<int64_t, int64_t>> outages;  // [from, to), true ns
};

struct LinkSpec {
  LinkDirection there, back;  // from the first node to the second, and back
  int64_t stampStepNs = 0;
};

// A reference grandmaster: true time, its own announce fields; it sends
// Announce and Sync (one- or two-step) at its intervals and answers
// Delay_Req. Ethernet framing to the primary group unless `ipv4`.
struct GrandmasterSpec {
  uint64_t identity = 0x001B19FFFE000001;
  uint16_t portNumber = 1;
  uint8_t domain = 0, priority1 = 128, priority2 = 128, clockClass = 6, clockAccuracy = 0x21;
  uint16_t variance = 0x4E5D;
  uint8_t timeSource = 0x20;
  int16_t utcOffset = 37;
  int8_t logAnnounce = 0, logSync = -4, logDelayResp = -4;
  bool twoStep = true, ipv4 = false;
};

struct LinkCounters {
  uint64_t sent = 0, delivered = 0, lost = 0, outage = 0;
};

class VirtualNet {
 public:
  // Starts at true time `startNs`.
  VirtualNet(uint64_t seed, int64_t startNs);
  ~VirtualNet();
  VirtualNet(const VirtualNet &) = delete;
  VirtualNet &operator=(const VirtualNet &) = delete;

  using Node = size_t;
  // The engine's (unit, port) on this network, served as its programmed state says.
  Node addEnginePort(uint32_t unit, uint32_t port);
  Node addGrandmaster(const GrandmasterSpec &gm);
  // Joins two nodes that have no link yet; false otherwise.
  bool connect(Node a, Node b, const LinkSpec &shape);

  // Runs everything due up to and including `trueNs`; time then stands there.
  void runUntil(int64_t trueNs);
  int64_t now() const;
  // What left `from` on its link so far.
  LinkCounters counters(Node from) const;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// True time of the board's virtual clock, in nanoseconds since the epoch.
int64_t boardTrueNanos();

}  // namespace fwmsim
