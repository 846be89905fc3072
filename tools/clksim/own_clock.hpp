// The card's own default data set, one for both sides of a boundary card:
// the negotiation peer weighs it as the card's own candidate, the
// orchestrator announces it while the card leads. Its clock class is decided
// here, from the servo's state, so that the card never competes with a class
// other than the one it announces.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "boundary.hpp"
#include "fwmtools/bmca.hpp"

namespace clksim {

class OwnClock {
 public:
  explicit OwnClock(const BoundarySetup &setup);

  // The data set the card competes with as of now. Read on the peer's
  // thread as well, hence the atomics.
  fwmtools::bmca::LocalClock dataSet() const;
  bool knowsIdentity() const { return identity_ != 0; }
  // The card is who the scenario says, or, not said, who its first port
  // says it is when it first sends: the first identity told stays.
  void identify(uint64_t identity);

  // The class the master ports announce: locked, the grandmaster's; after
  // losing lock (or the parent), holdover within the budget, then out of it;
  // never locked, free-running. The card's own candidate carries the same,
  // except while locked: it follows a better clock then and competes with
  // its configured class.
  uint8_t announced() const { return announced_; }
  // Locked to a grandmaster of class `lockedTo` (none: not locked) at true
  // time `nowNs`; the change of the announced class and why, if it changed.
  std::optional<std::string> reclass(std::optional<uint8_t> lockedTo, int64_t nowNs);

 private:
  const BoundarySetup &setup_;
  std::atomic<uint64_t> identity_;
  std::atomic<uint8_t> ownClass_;
  uint8_t announced_;
  bool lockedEver_ = false;
  std::optional<int64_t> holdSinceNs_;
};

}  // namespace clksim
