#include "own_clock.hpp"

#include <fmt/format.h>

namespace clksim {

OwnClock::OwnClock(const BoundarySetup &setup)
    : setup_(setup),
      identity_(setup.self.identity),
      ownClass_(setup.classes.freeRun),
      announced_(setup.classes.freeRun) {}

fwmtools::bmca::LocalClock OwnClock::dataSet() const {
  fwmtools::bmca::LocalClock c = setup_.self;
  c.identity = identity_;
  c.clockClass = ownClass_;
  return c;
}

void OwnClock::identify(uint64_t identity) {
  uint64_t none = 0;
  identity_.compare_exchange_strong(none, identity);
}

std::optional<std::string> OwnClock::reclass(std::optional<uint8_t> lockedTo, int64_t nowNs) {
  const auto &plan = setup_.classes;
  if (lockedTo) lockedEver_ = true, holdSinceNs_.reset();
  if (!lockedTo && lockedEver_ && !holdSinceNs_) holdSinceNs_ = nowNs;
  uint8_t c = plan.freeRun;
  std::string why = "free-running";
  if (lockedTo) {
    c = *lockedTo, why = "locked to the grandmaster";
  } else if (holdSinceNs_) {
    const double heldS = static_cast<double>(nowNs - *holdSinceNs_) / 1e9;
    const bool within = heldS <= plan.holdoverBudgetS;
    c = within ? plan.holdover : plan.outOfHoldover;
    why = fmt::format("{:.1f} s in holdover, {} its budget of {} s", heldS, within ? "within" : "past",
                      plan.holdoverBudgetS);
  }
  ownClass_ = lockedTo ? setup_.self.clockClass : c;
  if (c == announced_) return std::nullopt;
  const std::string change = fmt::format("clock class {} -> {}: {}", announced_, c, why);
  announced_ = c;
  return change;
}

}  // namespace clksim
