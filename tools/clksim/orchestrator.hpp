// The orchestrator that acts on the negotiation peer's decision: it programs,
// through the card's own operations only, each PTP port's state and, on the
// MASTER ports, the announce the engine sends, and it derives the clock
// class the card announces from its servo's state, which the card's own data
// set carries too. Only what changed is programmed again, so a decision
// repeated costs no call.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "boundary.hpp"
#include "fwmclk/fwmclk.h"
#include "fwmtools/bmca.hpp"
#include "fwmtools/timing/servo.hpp"
#include "own_clock.hpp"

namespace clksim {

// Header flag bits of the time properties (leap61 .. frequencyTraceable):
// all a master port's announce carries over from the announce it follows.
inline constexpr uint16_t kTimePropertyFlags = 0x003F;
inline constexpr uint16_t kFlagPtpTimescale = 0x0008;
// What a card that is its own grandmaster announces of its time: PTP
// timescale, the offset as of 2017 (not marked valid), an internal oscillator.
inline constexpr uint32_t kOwnUtcOffset = 37;
inline constexpr uint32_t kOwnTimeSource = 0xA0;
// The domain a card that follows nobody works in, by profile.
inline constexpr uint32_t kDefaultDomain = 0, kTelecomDomain = 24;
// The interface index the orchestrator programs on a boundary port: the
// acknowledgements of what the port hears carry it back.
inline uint32_t boundaryIfIndex(const BoundaryPort &p) { return p.port; }

class Orchestrator {
 public:
  using Table = std::function<std::optional<ClkSrvOrchIntf>()>;
  using Note = std::function<void(std::string)>;
  using UnitPort = std::pair<uint32_t, uint32_t>;

  Orchestrator(const BoundarySetup &setup, OwnClock &own, Table table, Note note);

  // Programs what the decision changes at true time `nowNs`. The SLAVE port
  // it picked, for the servo to follow; none when the card is its own
  // grandmaster.
  std::optional<UnitPort> act(const fwmtools::bmca::Decision &d, int64_t nowNs);
  // A servo on `unit` changed state; only the slave engine's servo counts.
  void servoState(uint32_t unit, fwmtools::timing::ServoState s, int64_t nowNs);
  // Called every servo period: the holdover budget runs out on its own.
  void tick(int64_t nowNs);
  // A scenario step configured `unit`:`port` with `cfg`. Where that undoes
  // what the orchestrator programmed there, a note names the step, the port
  // and both states, and the next decision programs the port again.
  void stepConfigured(uint32_t unit, uint32_t port, const ClkPtpPortCfg &cfg, const std::string &step);

 private:
  struct Programmed {
    std::optional<ClkPtpPortCfg> cfg;
    std::optional<ClkPtpAnnPkt> ann;
    bool master = false;
  };
  // The class the servo's state calls for; true when the announced one is new.
  bool reclass(int64_t nowNs);
  ClkPtpPortCfg configOf(const fwmtools::bmca::PortDecision &pd) const;
  ClkPtpAnnPkt announce() const;
  void programAnnounce(size_t i);
  void programConfig(size_t i, const ClkPtpPortCfg &cfg, const fwmtools::bmca::PortDecision &pd);
  std::string where(size_t i) const;
  // The operation table, or a note that there is none yet.
  std::optional<ClkSrvOrchIntf> table(const std::string &what);

  const BoundarySetup &setup_;
  OwnClock &own_;
  Table table_;
  Note note_;
  std::optional<fwmtools::bmca::Decision> decision_;
  std::vector<Programmed> ports_;
  std::optional<UnitPort> slave_;
  std::optional<uint32_t> followedUnit_;  // the slave's, or the last one's while the card leads
  std::map<uint32_t, fwmtools::timing::ServoState> states_;
};

}  // namespace clksim
