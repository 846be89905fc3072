// The built-in peer as a boundary clock's negotiation peer: it weighs every
// acknowledgement it receives and tells each decision that differs from the
// one before, as a record of its own and to whoever acts on it.
#include <fmt/format.h>

#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
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
  negotiator_.emplace(b.profile, b.self, std::move(ports));
  if (!peerRouted_) {
    note("the boundary's decisions need the built-in negotiation peer; this run has none");
    return;
  }
  // The card on its own, before it heard anything (once it knows who it is).
  if (b.self.identity != 0) tellDecision(*negotiator_->changed(), fwmsim::clock().nowMs());
}

void Runner::routeBoundaryPort(uint32_t ifIndex, uint32_t unit, uint32_t port) {
  if (!negotiator_) return;
  const auto &ports = sc_.board.time.boundary.ports;
  for (size_t i = 0; i < ports.size(); ++i)
    if (ports[i].unit == unit && ports[i].port == port) negotiator_->route(ifIndex, static_cast<uint16_t>(i + 1));
}

void Runner::decideOn(const fwmtools::Ack &ack, uint64_t timeMs) {
  if (!negotiator_ || !negotiator_->hear(ack)) return;
  if (negotiator_->self().identity == 0) {
    // Not given: the card is who its first port says it is when it sends.
    const BoundaryPort &first = sc_.board.time.boundary.ports.front();
    const auto w = fwmsim::engine().port(first.unit, first.port).identityTx;
    auto self = negotiator_->self();
    self.identity = uint64_t{w[0]} << 32 | w[1];
    negotiator_->setSelf(self);
  }
  if (auto d = negotiator_->changed()) tellDecision(*d, timeMs);
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
  std::vector<fwmtools::bmca::Decision> due;
  {
    std::lock_guard lk(mu_);
    due.swap(undelivered_);
  }
  // The orchestrator acts first, so that a hook sees the card as programmed.
  for (const auto &d : due) {
    if (keeper_) keeper_->decided(d);
    if (onDecision_) onDecision_(d);
  }
}

}  // namespace clksim
