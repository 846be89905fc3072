// What a scenario says about keeping time: each engine's clock, the virtual
// network its ports are joined by, the servos that steer the engines, and how
// their time error is judged. Absent (no network) the run is as before.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "boundary.hpp"
#include "fwmsim/engine/rtc.hpp"
#include "fwmsim/engine/vnet.hpp"
#include "fwmtools/timing/servo.hpp"

namespace clksim {

struct EngineClock {
  uint32_t unit = 0;
  fwmsim::ClockModel model;
  uint64_t seed = 1;
};

struct NetGrandmaster {
  std::string name;
  fwmsim::GrandmasterSpec shape;
};

// A link's ends are engine ports ("0:3") or grandmaster names.
struct NetLink {
  std::string from, to;
  fwmsim::LinkSpec shape;
};

struct NetworkSetup {
  bool present = false;
  uint64_t seed = 1;
  std::vector<NetGrandmaster> grandmasters;
  std::vector<NetLink> links;
};

struct ServoSetup {
  uint32_t unit = 0, port = 0;
  fwmtools::timing::ServoConfig config;
};

struct TeSetup {
  int64_t sampleNs = 62'500'000;  // the servo's period too: one Sync at 16/s
  double settleS = 60;
  double lockThresholdNs = 100;
};

struct TimeKeeping {
  std::vector<EngineClock> clocks;
  NetworkSetup network;
  std::vector<ServoSetup> servos;
  TeSetup te;
  BoundarySetup boundary;  // absent: the card follows the scenario's steps only
};

inline bool keepsTime(const TimeKeeping &t) { return t.network.present || !t.clocks.empty(); }

}  // namespace clksim
