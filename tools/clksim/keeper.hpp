// Keeps the engines' time in a run with a virtual network: the clocks, the
// network in virtual time, the servos of the simulated orchestrator, and the
// time error of each engine against the truth.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fwmtools/timing/report.hpp"
#include "fwmtools/timing/servo.hpp"
#include "timekeeping.hpp"
#include "trace.hpp"

namespace clksim {

class Timekeeper {
 public:
  // What the keeper tells the run: a note, or a record of a kind of its own
  // with its values.
  using Say = std::function<void(TraceKind, std::string text, std::vector<FieldValue> fields)>;
  // Sets the clock models and makes the network, whose time becomes the true time.
  Timekeeper(const TimeKeeping &setup, Say say);
  ~Timekeeper();  // the default true time again
  Timekeeper(const Timekeeper &) = delete;
  Timekeeper &operator=(const Timekeeper &) = delete;

  // Moves the board and the network on by `ms` in servo periods, serving the
  // servos and sampling the time error at the end of each.
  void advance(uint64_t ms);
  // Judges each engine's time error and tells the run; the series and the
  // verdicts of the engines it could judge are for the report.
  std::vector<fwmtools::timing::EngineTe> finish();

 private:
  struct Servo {
    const ServoSetup *setup;
    fwmtools::timing::PiServo pi;
    fwmtools::timing::ServoState state = fwmtools::timing::ServoState::Unlocked;
    std::optional<int64_t> t4SubT3;
    double freqPpb = 0;
    // Entering holdover: true time, TE and the clock's residual rate then.
    int64_t holdNs = 0, holdTeNs = 0;
    double holdRate = 0;
    std::optional<int64_t> offsetNs = std::nullopt;  // the sample the servo last steered by
  };
  void note(std::string text) { say_(TraceKind::Note, std::move(text), {}); }
  void sampleTe();
  void tellState(const Servo &s, fwmtools::timing::ServoState to, const std::string &how);
  void tellAdjust(const Servo &s, const fwmtools::timing::ServoOutput &out);
  void serve(Servo &s);
  void steer(Servo &s, const fwmtools::timing::ServoOutput &out, int64_t localNs);

  const TimeKeeping &setup_;
  Say say_;
  std::unique_ptr<fwmsim::VirtualNet> net_;
  int64_t startNs_ = 0, nextSampleNs_ = 0;
  uint64_t startMs_ = 0;
  std::vector<Servo> servos_;
  std::map<uint32_t, std::vector<double>> te_;  // per unit, one sample per period
};

}  // namespace clksim
