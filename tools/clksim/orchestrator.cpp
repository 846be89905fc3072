#include "orchestrator.hpp"

#include <fmt/format.h>

#include <cstring>

#include "fwmptp/announce.hpp"
#include "values.hpp"

namespace clksim {

namespace {

using fwmtools::bmca::State;
using fwmtools::timing::ServoState;

// The IEEE 1588 port state numbers the port configuration carries.
uint32_t stateCode(State s) {
  switch (s) {
    case State::Master:
      return 6;
    case State::Passive:
      return 7;
    case State::Slave:
      return 9;
  }
  return 0;
}

template <class Rec>
bool same(const std::optional<Rec> &had, const Rec &now) {
  return had && std::memcmp(&*had, &now, sizeof now) == 0;
}

// What the card would announce of itself as its own grandmaster.
fwmptp::Announce ownAnnounce(const fwmtools::bmca::LocalClock &self) {
  fwmptp::Announce a;
  a.flagField = kFlagPtpTimescale;
  a.currentUtcOffset = kOwnUtcOffset;
  a.grandmasterPriority1 = self.priority1;
  a.grandmasterPriority2 = self.priority2;
  a.clockAccuracy = self.clockAccuracy;
  a.offsetScaledLogVariance = self.variance;
  a.grandmasterIdentity = self.identity;
  a.timeSource = kOwnTimeSource;
  return a;
}

// "MASTER (6)", as a step names a port state.
std::string stateText(uint32_t code) {
  const auto name = nameOf(kPortStates, code);
  return name.empty() ? std::to_string(code) : fmt::format("{} ({})", name, code);
}

// As the run prints a request's result.
std::string resultOf(uint32_t ret) { return ret == 0 ? "0" : fmt::format("{} ({:#x})", ret, ret); }

}  // namespace

Orchestrator::Orchestrator(const BoundarySetup &setup, OwnClock &own, Table table, Note note)
    : setup_(setup), own_(own), table_(std::move(table)), note_(std::move(note)), ports_(setup.ports.size()) {}

std::string Orchestrator::where(size_t i) const {
  return fmt::format("{}:{} (port {})", setup_.ports[i].unit, setup_.ports[i].port, i + 1);
}

std::optional<ClkSrvOrchIntf> Orchestrator::table(const std::string &what) {
  auto t = table_();
  if (!t) note_("orchestrator: no operation table registered yet, " + what + " not programmed");
  return t;
}

std::optional<Orchestrator::UnitPort> Orchestrator::act(const fwmtools::bmca::Decision &d, int64_t nowNs) {
  decision_ = d;
  slave_.reset();
  for (const auto &pd : d.ports)
    if (pd.state == State::Slave && pd.number >= 1 && pd.number <= setup_.ports.size())
      slave_ = UnitPort{setup_.ports[pd.number - 1].unit, setup_.ports[pd.number - 1].port};
  if (slave_) followedUnit_ = slave_->first;
  reclass(nowNs);
  for (const auto &pd : d.ports) {
    if (pd.number < 1 || pd.number > setup_.ports.size()) {
      note_(fmt::format("orchestrator: the decision names port {}, the card has ports 1 to {}", pd.number,
                        setup_.ports.size()));
      continue;
    }
    const size_t i = pd.number - 1;
    ports_[i].master = pd.state == State::Master;
    // A port about to become MASTER gets its announce first, so that it
    // never sends what it announced before.
    if (ports_[i].master) programAnnounce(i);
    programConfig(i, configOf(pd), pd);
  }
  return slave_;
}

void Orchestrator::servoState(uint32_t unit, ServoState s, int64_t nowNs) {
  states_[unit] = s;
  if (followedUnit_ == unit) tick(nowNs);
}

void Orchestrator::tick(int64_t nowNs) {
  if (!reclass(nowNs)) return;
  for (size_t i = 0; i < ports_.size(); ++i)
    if (ports_[i].master) programAnnounce(i);
}

void Orchestrator::stepConfigured(uint32_t unit, uint32_t port, const ClkPtpPortCfg &cfg, const std::string &step) {
  for (size_t i = 0; i < ports_.size(); ++i) {
    auto &had = ports_[i].cfg;
    if (setup_.ports[i].unit != unit || setup_.ports[i].port != port || !had || same(had, cfg)) continue;
    note_(
        fmt::format("orchestrator: {} set {} {} over the orchestrator's {}: its next decision programs the port again",
                    step, where(i), stateText(cfg.portState), stateText(had->portState)));
    had.reset();
  }
}

// Locked: to the SLAVE port's grandmaster, by the servo of its engine.
bool Orchestrator::reclass(int64_t nowNs) {
  const auto state = slave_ ? states_.find(slave_->first) : states_.end();
  const bool locked = state != states_.end() && state->second == ServoState::Locked && decision_ && !decision_->local &&
                      decision_->best;
  const auto change = own_.reclass(locked ? std::optional(decision_->best->clockClass) : std::nullopt, nowNs);
  if (change) note_("orchestrator: " + *change);
  return change.has_value();
}

ClkPtpPortCfg Orchestrator::configOf(const fwmtools::bmca::PortDecision &pd) const {
  const auto &port = setup_.ports[pd.number - 1];
  ClkPtpPortCfg cfg{};
  cfg.enable = 1;
  cfg.portState = stateCode(pd.state);
  cfg.domainNumber = decision_->best                                      ? decision_->best->domainNumber
                     : setup_.domain                                      ? *setup_.domain
                     : setup_.profile == fwmtools::bmca::Profile::Telecom ? kTelecomDomain
                                                                          : kDefaultDomain;
  cfg.annTimeoutMultiple = 3;
  cfg.ifIndex = boundaryIfIndex(port);
  // The SLAVE port takes its time from the parent's port only.
  if (pd.state == State::Slave) {
    const auto &from = decision_->parent.sender;
    cfg.rxSrcPortIdentity[0] = static_cast<uint32_t>(from.clock >> 32);
    cfg.rxSrcPortIdentity[1] = static_cast<uint32_t>(from.clock);
    cfg.rxSrcPortIdentity[2] = from.port;
  }
  return cfg;
}

// The parent's grandmaster and time properties, or the card's own data set
// when it leads; the class from the servo's state either way.
ClkPtpAnnPkt Orchestrator::announce() const {
  const auto &d = *decision_;
  const fwmptp::Announce from = !d.local && d.best ? *d.best : ownAnnounce(own_.dataSet());
  ClkPtpAnnPkt a{};
  a.flagField = from.flagField & kTimePropertyFlags;
  a.currentUtcOffset = static_cast<uint32_t>(static_cast<int32_t>(from.currentUtcOffset));
  a.grandmasterPriority1 = from.grandmasterPriority1;
  a.grandmasterPriority2 = from.grandmasterPriority2;
  a.clockAccuracy = from.clockAccuracy;
  a.offsetScaledLogVariance = from.offsetScaledLogVariance;
  a.grandmasterIdentityHigh = static_cast<uint32_t>(from.grandmasterIdentity >> 32);
  a.grandmasterIdentityLow = static_cast<uint32_t>(from.grandmasterIdentity);
  a.timeSource = from.timeSource;
  a.clockClass = own_.announced();
  a.stepsRemoved = d.announcedStepsRemoved;
  return a;
}

void Orchestrator::programAnnounce(size_t i) {
  if (!decision_) return;
  auto &p = ports_[i];
  ClkPtpAnnPkt a = announce();
  if (same(p.ann, a)) return;
  const auto &port = setup_.ports[i];
  const std::string what =
      fmt::format("{} announce GM {} class {} steps {}", where(i),
                  fwmptp::clockIdentityText(uint64_t{a.grandmasterIdentityHigh} << 32 | a.grandmasterIdentityLow),
                  a.clockClass, a.stepsRemoved);
  const auto t = table(what);
  if (!t) return;
  const ClkPtpAnnPkt sent = a;
  const uint32_t ret = t->setPtpPortPkt(port.unit, port.port, &a);
  note_(fmt::format("orchestrator: {}: set_ptp_port_pkt = {}", what, resultOf(ret)));
  // A failed write is made again when anything next asks for it.
  if (ret == 0)
    p.ann = sent;
  else
    p.ann.reset();
}

void Orchestrator::programConfig(size_t i, const ClkPtpPortCfg &cfg, const fwmtools::bmca::PortDecision &pd) {
  auto &p = ports_[i];
  if (same(p.cfg, cfg)) return;
  const std::string what =
      fmt::format("{} {} ({})", where(i), fwmtools::bmca::stateName(pd.state), fwmtools::bmca::reasonName(pd.reason));
  const auto t = table(what);
  if (!t) return;
  ClkPtpPortCfg rec = cfg;  // the operation writes into the record
  const uint32_t ret = t->setPtpPortCfg(setup_.ports[i].unit, setup_.ports[i].port, 0xFFFFFFFFu, &rec);
  note_(fmt::format("orchestrator: {}: set_ptp_port_cfg = {}", what, resultOf(ret)));
  if (ret == 0)
    p.cfg = cfg;
  else
    p.cfg.reset();
}

}  // namespace clksim
