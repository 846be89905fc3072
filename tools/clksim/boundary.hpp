// What a scenario says about the card as a boundary clock: the profile its
// negotiation peer decides by, the card's own default data set, and how each
// of its PTP ports weighs what it hears. The peer decides from the announces
// the card forwards; the orchestrator acts on the decision through the
// card's own operations (port states, the master ports' announce fields, the
// clock class from the servo's state).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "fwmtools/bmca.hpp"

namespace clksim {

// One PTP port of the card: an engine port, numbered in the card's port
// identity by its place in the list (1, 2, ...).
struct BoundaryPort {
  uint32_t unit = 0, port = 0;
  uint8_t localPriority = 128;
  bool masterOnly = false;
};

// The clock classes the card announces from its servo's state (G.8275.1's
// for a boundary clock): locked, the grandmaster's own; in holdover within
// its budget, then out of it; free-running.
struct ClassPlan {
  uint8_t holdover = 135, outOfHoldover = 165, freeRun = 248;
  double holdoverBudgetS = 300;
};

struct BoundarySetup {
  bool present = false;
  fwmtools::bmca::Profile profile = fwmtools::bmca::Profile::Default;
  fwmtools::bmca::LocalClock self;  // identity 0: taken from the card's first port
  std::vector<BoundaryPort> ports;
  ClassPlan classes;
  std::optional<uint8_t> domain;  // the ports' while the card leads; none: the profile's
};

}  // namespace clksim
