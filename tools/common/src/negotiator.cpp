#include "fwmtools/negotiator.hpp"

#include <fmt/format.h>

#include <tuple>

#include "fwmtools/ack_text.hpp"

namespace fwmtools {

bool isLoss(const Announce &a) { return a.grandmasterIdentity == 0 || a.sourceClockIdentity == 0; }

Negotiator::Negotiator(bmca::Profile profile, bmca::LocalClock self, std::vector<PeerPort> ports)
    : profile_(profile), self_(self) {
  for (const auto &p : ports) views_.push_back({p.number, std::nullopt, p.localPriority, p.masterOnly});
}

void Negotiator::route(uint32_t ifIndex, uint16_t number) { routes_[ifIndex] = number; }

bool Negotiator::hear(const Ack &ack) {
  auto r = routes_.find(ack.ifIndex);
  if (r == routes_.end()) return false;
  for (auto &v : views_)
    if (v.number == r->second) {
      v.heard = isLoss(ack.announce) ? std::nullopt : std::optional(ack.announce);
      return true;
    }
  return false;
}

bmca::Decision Negotiator::decide() const { return bmca::decide(profile_, self_, views_); }

std::optional<bmca::Decision> Negotiator::changed() {
  bmca::Decision d = decide();
  if (last_ && sameDecision(*last_, d)) return std::nullopt;
  last_ = d;
  return d;
}

bool sameDecision(const bmca::Decision &a, const bmca::Decision &b) {
  auto key = [](const bmca::Decision &d) {
    const auto &p = d.parent;
    return std::tuple(d.local, p.priority1, p.clockClass, p.clockAccuracy, p.variance, p.priority2, p.grandmaster,
                      p.stepsRemoved, p.sender, p.receiver, d.best, d.announcedStepsRemoved);
  };
  if (a.ports.size() != b.ports.size() || key(a) != key(b)) return false;
  for (size_t i = 0; i < a.ports.size(); ++i)
    if (a.ports[i].number != b.ports[i].number || a.ports[i].state != b.ports[i].state ||
        a.ports[i].reason != b.ports[i].reason)
      return false;
  return true;
}

std::string decisionText(const bmca::Decision &d) {
  std::string s;
  for (const auto &p : d.ports)
    s += fmt::format("{}{} {} ({})", s.empty() ? "" : ", ", p.number, bmca::stateName(p.state),
                     bmca::reasonName(p.reason));
  if (d.ports.empty()) s = "no ports";
  const auto &p = d.parent;
  const std::string quality =
      fmt::format("{} class {} priority1 {}", clockIdentityText(p.grandmaster), p.clockClass, p.priority1);
  if (d.local) return s + "; grandmaster: the card itself, " + quality;
  return s + fmt::format("; parent {} on port {}, grandmaster {}, stepsRemoved {} (announced {})",
                         portIdentityText(p.sender.clock, p.sender.port), p.receiver.port, quality, p.stepsRemoved,
                         d.announcedStepsRemoved);
}

nlohmann::json decisionJson(const bmca::Decision &d) {
  nlohmann::json ports = nlohmann::json::array();
  for (const auto &p : d.ports)
    ports.push_back({{"port", p.number}, {"state", bmca::stateName(p.state)}, {"reason", bmca::reasonName(p.reason)}});
  const auto &p = d.parent;
  nlohmann::json j = {{"ports", ports},
                      {"local", d.local},
                      {"grandmaster", clockIdentityText(p.grandmaster)},
                      {"clockClass", p.clockClass},
                      {"priority1", p.priority1},
                      {"priority2", p.priority2},
                      {"stepsRemoved", p.stepsRemoved},
                      {"announcedStepsRemoved", d.announcedStepsRemoved}};
  if (!d.local) {
    j["parent"] = portIdentityText(p.sender.clock, p.sender.port);
    j["parentPort"] = p.receiver.port;
  }
  return j;
}

}  // namespace fwmtools
