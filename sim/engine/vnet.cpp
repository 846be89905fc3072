// The virtual network: one event queue in true nanoseconds, run on the
// caller's thread. Frames in flight and the nodes' next due work are its
// events; a node's work is asked for only when it said it would be due.
#include "fwmsim/engine/vnet.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <random>

#include "fwmptp/announce.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/recorder.hpp"
#include "port.hpp"

namespace fwmsim {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr size_t kNone = std::numeric_limits<size_t>::max();

fwmptp::Timestamp stampOf(int64_t ns) {
  return {static_cast<uint64_t>(ns / kNsPerSecond), static_cast<uint32_t>(ns % kNsPerSecond)};
}

int64_t truncated(int64_t ns, int64_t step) { return step > 0 ? ns - ns % step : ns; }

// Spreads a small seed over the generator's state space (splitmix64).
uint64_t mixed(uint64_t x) {
  x += 0x9E3779B97F4A7C15u;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
  return x ^ (x >> 31);
}

// One direction of a link: its impairments, its own draws, what it carried.
struct Direction {
  LinkDirection shape;
  std::mt19937_64 rng;
  LinkCounters count;
  int64_t lastArrival = std::numeric_limits<int64_t>::min();

  double unit() { return static_cast<double>(rng() >> 11) * 0x1.0p-53; }  // [0, 1)
  int64_t variation() {
    const double w = static_cast<double>(shape.jitterNs);
    switch (shape.jitter) {
      case Jitter::Uniform:
        return static_cast<int64_t>(unit() * w);
      case Jitter::Normal: {  // Box-Muller, one of the pair
        const double r = std::sqrt(-2.0 * std::log(1.0 - unit()));
        return std::llround(w * r * std::cos(2.0 * std::numbers::pi * unit()));
      }
      case Jitter::Exponential:
        return std::llround(-w * std::log(1.0 - unit()));
      case Jitter::None:
        break;
    }
    return 0;
  }
  bool inOutage(int64_t t) const {
    return std::any_of(shape.outages.begin(), shape.outages.end(),
                       [t](const auto &o) { return t >= o.first && t < o.second; });
  }
};

}  // namespace

struct VirtualNet::Impl {
  struct Node {
    virtual ~Node() = default;
    virtual std::string name() const = 0;
    virtual void receive(std::span<const uint8_t> frame, int64_t stampNs) = 0;
    virtual int64_t wake(int64_t now) = 0;  // does what is due; returns when next
    virtual void stampStep(int64_t) {}
    size_t link = kNone, side = 0;
  };
  struct Joined {
    size_t ends[2];
    Direction dir[2];
    int64_t step;
  };
  struct Event {
    int64_t at;
    uint64_t order;
    size_t node;
    bool frame;
    int64_t stampNs;
    std::vector<uint8_t> bytes;
    bool operator>(const Event &o) const { return at != o.at ? at > o.at : order > o.order; }
  };

  uint64_t seed;
  int64_t now;
  uint64_t order = 0;
  std::vector<Event> queue;  // a min-heap on (at, order)
  std::vector<std::unique_ptr<Node>> nodes;
  std::vector<Joined> links;
  WireCounters counters;

  void push(Event e) {
    e.order = order++;
    queue.push_back(std::move(e));
    std::push_heap(queue.begin(), queue.end(), std::greater<>{});
  }
  void wakeAt(size_t node, int64_t at) { push({at, 0, node, false, 0, {}}); }

  Transport::Sent transmit(size_t from, std::span<const uint8_t> frame, bool wantStamp);
  size_t add(std::unique_ptr<Node> n) {
    nodes.push_back(std::move(n));
    wakeAt(nodes.size() - 1, now);
    return nodes.size() - 1;
  }
};

Transport::Sent VirtualNet::Impl::transmit(size_t from, std::span<const uint8_t> frame, bool wantStamp) {
  const Node &n = *nodes[from];
  if (n.link == kNone) return {false, ENOTCONN, std::nullopt};
  Joined &l = links[n.link];
  Direction &d = l.dir[n.side];
  ++d.count.sent;
  Transport::Sent sent{true, 0, wantStamp ? Stamp(stampOf(truncated(now, l.step))) : std::nullopt};
  const bool outage = d.inOutage(now);
  if (outage || (d.shape.loss > 0 && d.unit() < d.shape.loss)) {
    ++(outage ? d.count.outage : d.count.lost);
    if (recorder().enabled())
      recorder().add("vnet", strf("%s lost a frame sent at %s%s", n.name().c_str(), timeText(stampOf(now)).c_str(),
                                  outage ? ", in an outage" : ""));
    return sent;
  }
  int64_t at = std::max(now, now + d.shape.delayNs + d.shape.extraNs + d.variation());
  at = std::max(at, d.lastArrival);  // no overtaking
  d.lastArrival = at;
  push({at, 0, l.ends[1 - n.side], true, truncated(at, l.step), {frame.begin(), frame.end()}});
  return sent;
}

namespace {

using Impl = VirtualNet::Impl;

// An engine port's link on the network: stamps and schedule in network time.
class VirtualLink final : public Transport {
 public:
  VirtualLink(Impl &net, size_t node) : Transport("vnet"), net_(net), node_(node) {}
  Sent send(std::span<const uint8_t> frame, bool wantStamp) override { return net_.transmit(node_, frame, wantStamp); }
  std::chrono::nanoseconds now() const override { return std::chrono::nanoseconds(net_.now); }
  fwmptp::Timestamp trueNow() const override { return stampOf(net_.now); }
  void stampInHardware(bool on) { hardware_ = on; }

 private:
  Impl &net_;
  size_t node_;
};

class EnginePort final : public Impl::Node {
 public:
  EnginePort(Impl &net, uint32_t unit, uint32_t port)
      : link_(new VirtualLink(net, net.nodes.size())),
        port_(unit, port, std::unique_ptr<Transport>(link_), net.counters) {}
  std::string name() const override { return strf("%u/%u", port_.unit, port_.port); }
  void receive(std::span<const uint8_t> frame, int64_t stampNs) override {
    port_.rx.handle(frame, stampOf(stampNs), link_->hardwareStamps());
  }
  int64_t wake(int64_t now) override {
    const Programmed g = programmed(port_.unit, port_.port);
    const WireTime t{now};
    return port_.rx.supervise(g, t, port_.tx.service(g, t)).count();
  }
  // A stamp step is a hardware stamper's.
  void stampStep(int64_t step) override { link_->stampInHardware(step > 0); }

 private:
  VirtualLink *link_;  // owned by port_
  WirePort port_;
};

// The network above a slave port: true time, its own announce fields.
class Grandmaster final : public Impl::Node {
 public:
  Grandmaster(Impl &net, const GrandmasterSpec &shape) : net_(net), spec_(shape), self_(net.nodes.size()) {
    for (size_t i = 0; i < 6; ++i)  // the identity's EUI-48 bytes
      mac_[i] = static_cast<uint8_t>(shape.identity >> (i < 3 ? 56 - 8 * i : 40 - 8 * i));
    nextAnnounce_ = nextSync_ = net.now;
  }
  std::string name() const override {
    return "gm " + fwmptp::clockIdentityText(spec_.identity) + "-" + std::to_string(spec_.portNumber);
  }
  int64_t wake(int64_t now) override {
    if (now >= nextAnnounce_) {
      announce();
      nextAnnounce_ += intervalOf(spec_.logAnnounce).count();
    }
    if (now >= nextSync_) {
      sync();
      nextSync_ += intervalOf(spec_.logSync).count();
    }
    return std::min(nextAnnounce_, nextSync_);
  }
  void receive(std::span<const uint8_t> frame, int64_t stampNs) override {
    const auto parsed = fwmptp::parseFrame(frame);
    if (!parsed) return;
    const auto m = fwmptp::decodeEvent(parsed->payload, spec_.domain);
    if (!m || m->messageType != fwmptp::kMsgDelayReq) return;
    auto r = event(fwmptp::kMsgDelayResp, m->sequenceId, spec_.logDelayResp);
    r.correctionField = m->correctionField;
    r.timestamp = stampOf(stampNs);
    r.requesting = m->source;
    send(fwmptp::encodeEvent(r).view(), false);
  }

 private:
  fwmptp::EventMessage event(uint8_t type, uint16_t seq, int8_t log) const {
    fwmptp::EventMessage m;
    m.messageType = type;
    m.domainNumber = spec_.domain;
    m.source = {spec_.identity, spec_.portNumber};
    m.sequenceId = seq;
    m.logMessageInterval = log;
    return m;
  }
  Stamp send(std::span<const uint8_t> msg, bool wantStamp) {
    fwmptp::FrameLayout layout;
    layout.ipv4 = spec_.ipv4;
    layout.dstMac = spec_.ipv4 ? kIpv4GroupMac : fwmptp::kPrimaryMac;
    layout.srcMac = mac_;
    layout.dstIp = fwmptp::kPrimaryGroup;
    layout.srcIp = 0x0A000001;
    layout.udpPort = (msg[0] & 0x0F) < 8 ? fwmptp::kEventPort : fwmptp::kGeneralPort;
    layout.ipId = ipId_++;
    return net_.transmit(self_, fwmptp::buildFrame(msg, layout), wantStamp).stamp;
  }
  void announce() {
    fwmptp::Announce a;
    a.messageType = fwmptp::kMsgAnnounce;
    a.versionPtp = fwmptp::kVersion;
    a.messageLength = fwmptp::kAnnounceSize;
    a.domainNumber = spec_.domain;
    a.flagField = spec_.twoStep ? fwmptp::kFlagTwoStep : 0;
    a.sourceClockIdentity = a.grandmasterIdentity = spec_.identity;
    a.sourcePortNumber = spec_.portNumber;
    a.sequenceId = announceSeq_++;
    a.controlField = fwmptp::kControlAnnounce;
    a.logMessageInterval = spec_.logAnnounce;
    a.currentUtcOffset = spec_.utcOffset;
    a.grandmasterPriority1 = spec_.priority1;
    a.clockClass = spec_.clockClass;
    a.clockAccuracy = spec_.clockAccuracy;
    a.offsetScaledLogVariance = spec_.variance;
    a.grandmasterPriority2 = spec_.priority2;
    a.timeSource = spec_.timeSource;
    send(fwmptp::encodeAnnounce(a), false);
  }
  void sync() {
    auto m = event(fwmptp::kMsgSync, syncSeq_++, spec_.logSync);
    if (spec_.twoStep) m.flagField |= fwmptp::kFlagTwoStep;
    m.timestamp = stampOf(net_.now);  // a one-step origin time: exact, the instant it leaves
    const Stamp t1 = send(fwmptp::encodeEvent(m).view(), spec_.twoStep);
    if (!spec_.twoStep || !t1) return;
    auto f = event(fwmptp::kMsgFollowUp, m.sequenceId, spec_.logSync);
    f.timestamp = *t1;
    send(fwmptp::encodeEvent(f).view(), false);
  }

  Impl &net_;
  GrandmasterSpec spec_;
  size_t self_;
  fwmptp::MacAddr mac_{};
  int64_t nextAnnounce_ = 0, nextSync_ = 0;
  uint16_t announceSeq_ = 0, syncSeq_ = 0, ipId_ = 0;
};

}  // namespace

VirtualNet::VirtualNet(uint64_t seed, int64_t startNs) : impl_(new Impl) {
  impl_->seed = seed;
  impl_->now = startNs;
}

VirtualNet::~VirtualNet() = default;

VirtualNet::Node VirtualNet::addEnginePort(uint32_t unit, uint32_t port) {
  return impl_->add(std::make_unique<EnginePort>(*impl_, unit, port));
}

VirtualNet::Node VirtualNet::addGrandmaster(const GrandmasterSpec &gm) {
  return impl_->add(std::make_unique<Grandmaster>(*impl_, gm));
}

bool VirtualNet::connect(Node a, Node b, const LinkSpec &shape) {
  Impl &n = *impl_;
  if (a == b || a >= n.nodes.size() || b >= n.nodes.size() || n.nodes[a]->link != kNone || n.nodes[b]->link != kNone)
    return false;
  Impl::Joined l{{a, b}, {}, shape.stampStepNs};
  l.dir[0].shape = shape.there;
  l.dir[1].shape = shape.back;
  for (size_t i = 0; i < 2; ++i) l.dir[i].rng.seed(mixed(n.seed ^ mixed(2 * n.links.size() + i)));
  n.nodes[a]->link = n.nodes[b]->link = n.links.size();
  n.nodes[a]->side = 0;
  n.nodes[b]->side = 1;
  n.links.push_back(std::move(l));
  for (size_t end : {a, b}) n.nodes[end]->stampStep(shape.stampStepNs);
  return true;
}

void VirtualNet::runUntil(int64_t trueNs) {
  Impl &n = *impl_;
  while (!n.queue.empty() && n.queue.front().at <= trueNs) {
    std::pop_heap(n.queue.begin(), n.queue.end(), std::greater<>{});
    Impl::Event e = std::move(n.queue.back());
    n.queue.pop_back();
    n.now = e.at;
    Impl::Node &node = *n.nodes[e.node];
    if (e.frame) {
      Direction &d = n.links[node.link].dir[1 - node.side];
      ++d.count.delivered;
      node.receive(e.bytes, e.stampNs);
    } else {
      // A node that asks for the present or the past again would spin the
      // network at one instant for ever: a fault of the node, said and stopped.
      const int64_t next = node.wake(n.now);
      if (next <= n.now) {
        std::fprintf(stderr, "fwmsim: virtual network: %s asked to wake at %lld ns, not after %lld ns\n",
                     node.name().c_str(), static_cast<long long>(next), static_cast<long long>(n.now));
        std::abort();
      }
      n.wakeAt(e.node, next);
    }
  }
  n.now = std::max(n.now, trueNs);
}

int64_t VirtualNet::now() const { return impl_->now; }

LinkCounters VirtualNet::counters(Node from) const {
  const Impl &n = *impl_;
  if (from >= n.nodes.size() || n.nodes[from]->link == kNone) return {};
  return n.links[n.nodes[from]->link].dir[n.nodes[from]->side].count;
}

int64_t boardTrueNanos() {
  const uint64_t ms = clock().nowMs();
  if (clock().mode() == Clock::Mode::Real) {
    timespec t{};
    ::clock_gettime(CLOCK_REALTIME, &t);
    return t.tv_sec * kNsPerSecond + t.tv_nsec;
  }
  return (clock().wallSeconds() - static_cast<int64_t>(ms / 1000)) * kNsPerSecond +
         static_cast<int64_t>(ms) * 1'000'000;
}

}  // namespace fwmsim
