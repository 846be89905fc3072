// The built-in peer as a boundary clock's negotiation peer: it weighs every
// acknowledgement it receives and tells each decision that differs from the
// one before, as a record of its own and to whoever acts on it.
#include <fmt/format.h>

#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "orchestrator.hpp"
#include "runner.hpp"

namespace clksim {

namespace {

// Each key of the decision's object as a field: a list of ports reads
// "1 SLAVE (S1), 2 MASTER (M3)", a word as itself.
std::vector<FieldValue> decisionFields(const fwmtools::bmca::Decision &d) {
  std::vector<FieldValue> f;
  const nlohmann::json j = fwmtools::decisionJson(d);
  for (const auto &[name, v] : j.items()) {
    std::string text;
    if (v.is_string()) {
      text = v.get<std::string>();
    } else if (v.is_array()) {
      for (const auto &p : v)
        text += fmt::format("{}{} {} ({})", text.empty() ? "" : ", ", p["port"].get<int>(),
                            p["state"].get<std::string>(), p["reason"].get<std::string>());
    } else {
      text = v.dump();
    }
    f.push_back({name, std::move(text), v.dump()});
  }
  return f;
}

}  // namespace

void Runner::setUpNegotiator() {
  const BoundarySetup &b = sc_.board.time.boundary;
  if (!b.present) return;
  std::vector<fwmtools::PeerPort> ports;
  for (size_t i = 0; i < b.ports.size(); ++i)
    ports.push_back({static_cast<uint16_t>(i + 1), b.ports[i].localPriority, b.ports[i].masterOnly});
  std::lock_guard lk(mu_);
  negotiator_.emplace(b.profile, own_->dataSet(), std::move(ports));
  // What the orchestrator programs: a step configuring a port may route it elsewhere.
  for (const auto &p : b.ports) routePort(boundaryIfIndex(p), p.unit, p.port);
  if (!peerRouted_) {
    note("the boundary's decisions need the built-in negotiation peer; this run has none");
    return;
  }
  // The card on its own, before it heard anything (once it knows who it is).
  if (auto d = redecide()) tellDecision(*d, fwmsim::clock().nowMs());
}

void Runner::routePort(uint32_t ifIndex, uint32_t unit, uint32_t port) {
  ports_[ifIndex] = {unit, port};
  if (!negotiator_) return;
  const auto &ports = sc_.board.time.boundary.ports;
  for (size_t i = 0; i < ports.size(); ++i)
    if (ports[i].unit == unit && ports[i].port == port) negotiator_->route(ifIndex, static_cast<uint16_t>(i + 1));
}

void Runner::decideOn(const fwmtools::Ack &ack, uint64_t timeMs) {
  if (!negotiator_ || !negotiator_->hear(ack)) return;
  if (!own_->knowsIdentity()) {
    const BoundaryPort &first = sc_.board.time.boundary.ports.front();
    const auto w = fwmsim::engine().port(first.unit, first.port).identityTx;
    own_->identify(uint64_t{w[0]} << 32 | w[1]);
  }
  if (auto d = redecide()) tellDecision(*d, timeMs);
}

// The card as its orchestrator left it: a class changed since the peer last
// weighed it is news. Nothing before the card knows who it is.
std::optional<fwmtools::bmca::Decision> Runner::redecide() {
  if (!own_->knowsIdentity()) return std::nullopt;
  negotiator_->setSelf(own_->dataSet());
  return negotiator_->changed();
}

void Runner::tellDecision(const fwmtools::bmca::Decision &d, uint64_t timeMs) {
  TraceRecord r;
  r.kind = TraceKind::Decision;
  r.layer = Layer::Channel;
  r.thread = "peer";
  r.timeMs = timeMs;
  r.text = "decision: " + fwmtools::decisionText(d);
  r.fields = decisionFields(d);
  emit(std::move(r));
  undelivered_.push_back(d);
}

void Runner::deliverDecisions() {
  // Acting may change the card's class, and so the next decision: until none
  // is left, but a few rounds at most, so that a class that keeps flipping
  // the decision cannot hold the run here; the rest goes at the next call.
  constexpr int kRounds = 4;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<fwmtools::bmca::Decision> due;
    {
      std::lock_guard lk(mu_);
      if (negotiator_ && peerRouted_)
        if (auto d = redecide()) tellDecision(*d, fwmsim::clock().nowMs());
      due.swap(undelivered_);
    }
    if (due.empty()) return;
    // The orchestrator acts first, so that a hook sees the card as programmed.
    for (const auto &d : due) {
      if (keeper_) keeper_->decided(d);
      if (onDecision_) onDecision_(d);
    }
  }
}

}  // namespace clksim
