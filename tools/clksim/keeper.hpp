// Keeps the engines' time: the clocks, the network in virtual time (or the
// wire on the wall clock), the servos of the simulated orchestrator, and the
// time error of each engine against the truth.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fwmtools/bmca.hpp"
#include "fwmtools/timing/report.hpp"
#include "fwmtools/timing/servo.hpp"
#include "orchestrator.hpp"
#include "scenario.hpp"
#include "timekeeping.hpp"
#include "trace.hpp"

namespace clksim {

// Why a servo cannot run, if one cannot: in virtual time it follows the
// network, on the wall clock (`live`) a wire port.
std::optional<std::string> servoWithoutLink(const TimeKeeping &tk, const std::vector<WirePort> &wire, bool live);

class Timekeeper {
 public:
  // What the keeper tells the run: a note, or a record of a kind of its own
  // with its values.
  using Say = std::function<void(TraceKind, std::string text, std::vector<FieldValue> fields)>;
  // Sets the clock models and, in virtual time, makes the network, whose time
  // becomes the true time. Live, the true time is the machine's clock and
  // the servos follow what the wire ports measure.
  // A boundary card's orchestrator keeps the class of `own`.
  Timekeeper(const TimeKeeping &setup, bool live, Say say, OwnClock *own = nullptr);
  ~Timekeeper();  // the default true time again
  Timekeeper(const Timekeeper &) = delete;
  Timekeeper &operator=(const Timekeeper &) = delete;

  // Moves true time on by `ms` in servo periods, serving the servos and
  // sampling the time error at the end of each. Live, it sleeps until each
  // period's end.
  void advance(uint64_t ms);
  // Called after each period's servos were served: where the run's other
  // orchestrator work may call the library too.
  std::function<void()> betweenSamples;
  // Judges each engine's time error and tells the run; the series and the
  // verdicts of the engines it could judge are for the report.
  std::vector<fwmtools::timing::EngineTe> finish();

  // The negotiation peer decided (a card set up as a boundary clock only):
  // the orchestrator programs the ports, the servo on the SLAVE port's
  // engine follows that port, and the servos of the card's other engines
  // follow that engine.
  void decided(const fwmtools::bmca::Decision &d);
  // Retargets the servo of `unit` to the master heard on `port`; false when
  // the unit has no servo.
  bool follow(uint32_t unit, uint32_t port);
  // A scenario step configured a port: see Orchestrator::stepConfigured.
  void stepConfigured(uint32_t unit, uint32_t port, const ClkPtpPortCfg &cfg, const std::string &step) {
    if (orch_) orch_->stepConfigured(unit, port, cfg, step);
  }

  // Where the next servo period ends, from the one that just ended: the
  // period after it, or, when `nowNs` is past that already (a live run that
  // slept late), the first period end after `nowNs`. `missed` counts the
  // period ends passed over.
  struct NextPeriod {
    int64_t atNs;
    int64_t missed;
  };
  static NextPeriod nextPeriod(int64_t endedNs, int64_t periodNs, int64_t nowNs);
  // The offset of one engine's clock from another's, each read in turn
  // (reference, local, reference): local minus the midpoint of the two
  // reference readings, from the narrowest of kCrossTries brackets (in
  // virtual time the first: the clocks stand still while read). On the wall
  // clock a thread can lose the processor between two reads; that widens
  // its bracket, not the offset. Nothing when a read fails or no bracket is
  // within kCrossWidestNs.
  using ClockRead = std::function<std::optional<int64_t>()>;
  static constexpr int kCrossTries = 4;
  static constexpr int64_t kCrossWidestNs = 1'000'000;
  static std::optional<int64_t> crossOffset(const ClockRead &reference, const ClockRead &local);
  // Mean, RMS and max|TE| of a stretch of TE samples (ns); nothing when empty.
  static std::optional<std::string> stretchFigures(std::span<const double> te);

 private:
  struct Servo {
    Servo(const ServoSetup *of, fwmtools::timing::PiServo servo) : setup(of), pi(servo) {}
    const ServoSetup *setup;
    fwmtools::timing::PiServo pi;
    fwmtools::timing::ServoState state = fwmtools::timing::ServoState::Unlocked;
    std::optional<int64_t> t4SubT3;
    fwmtools::timing::MovingMedian delays;  // mean path delays, one per Delay_Resp
    std::optional<int64_t> pathDelayNs;     // their median
    double freqPpb = 0;
    // Entering holdover: true time, TE and the clock's residual rate then.
    int64_t holdNs = 0, holdTeNs = 0;
    double holdRate = 0;
    std::optional<int64_t> offsetNs = std::nullopt;  // the sample the servo last steered by
    uint32_t port = 0;                               // the port whose master it follows
  };
  void note(std::string text) { say_(TraceKind::Note, std::move(text), {}); }
  // One sample per engine, kept `missed` + 1 times: a live run woken late
  // keeps its series on the period grid.
  void sampleTe(int64_t missed);
  void tellState(const Servo &s, fwmtools::timing::ServoState to, const std::string &how);
  void tellAdjust(const Servo &s, const fwmtools::timing::ServoOutput &out);
  int64_t now() const;
  void moveTo(int64_t trueNs);
  void serve(Servo &s);
  void steer(Servo &s, const fwmtools::timing::ServoOutput &out, int64_t localNs);

  const TimeKeeping &setup_;
  Say say_;
  std::unique_ptr<fwmsim::VirtualNet> net_;  // in virtual time only
  int64_t startNs_ = 0, nextSampleNs_ = 0;
  uint64_t startMs_ = 0;
  std::vector<Servo> servos_;
  std::map<uint32_t, std::vector<double>> te_;  // per unit, one sample per period
  std::unique_ptr<Orchestrator> orch_;          // a boundary clock only
  std::optional<uint32_t> reference_;           // the SLAVE port's engine, once decided
};

}  // namespace clksim
