// A PI clock servo that behaves as ptp4l's default one, so that a simulated
// card can be judged beside ptp4l on equal terms, plus a holdover state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

namespace fwmtools::timing {

// Every constant a scenario may set; the values given are ptp4l's defaults.
// A scale of 0 takes the stamp kind's own: 0.7 / 0.3 for hardware stamps,
// 0.1 / 0.001 for software stamps. kp and ki both non-zero fix the gains
// whatever the sync interval (capped at 1 and 2 times the Sync rate).
struct ServoConfig {
  bool softwareStamps = false;
  double kp = 0, ki = 0;
  double kpScale = 0, kpExponent = -0.3, kpNormMax = 0.7;
  double kiScale = 0, kiExponent = 0.4, kiNormMax = 0.3;
  double firstStepThresholdNs = 20000;  // 0: the first correction never steps
  double stepThresholdNs = 0;           // 0: no step after the first correction
  double maxFrequencyPpb = 900000000;
  int holdoverIntervals = 3;  // Sync intervals without a sample before holdover; 0: never
};

enum class ServoState { Unlocked, Jump, Locked, Holdover };
const char *servoStateName(ServoState state);

// What the clock is to do. freqPpb is the clock's whole frequency adjustment
// (positive: faster), to be set as it is; stepNs, non-zero only in Jump, is
// added to the clock's time.
struct ServoOutput {
  ServoState state;
  double freqPpb;
  int64_t stepNs;
};

class PiServo {
 public:
  // currentFreqPpb: the adjustment the clock runs with now, the servo's start.
  PiServo(const ServoConfig &config, double syncIntervalS, double currentFreqPpb = 0);

  // The gains follow the Sync interval, as ptp4l's do whenever it changes.
  void setSyncInterval(double seconds);

  // offsetNs: the local clock minus the reference; localNs: the local time of
  // the measurement. weight scales the correction (1 for every sample in ptp4l).
  ServoOutput sample(int64_t offsetNs, int64_t localNs, double weight = 1.0);

  // Called as time passes without samples: from the holdoverIntervals-th
  // missed Sync on (half an interval early, for jitter) the servo holds the
  // last frequency until a sample comes again.
  ServoOutput idle(int64_t localNs);

  // Forget the frequency estimate; the next samples start over (not the first step).
  void reset() { count_ = 0; }

  double kp() const { return kp_; }
  double ki() const { return ki_; }
  ServoState state() const { return state_; }

 private:
  ServoOutput output(int64_t stepNs) const { return {state_, -lastFreq_, stepNs}; }
  double clampFreq(double ppb) const;

  ServoConfig cfg_;
  double interval_ = 1;
  double kp_ = 0, ki_ = 0;
  double drift_, lastFreq_;
  int64_t offset_[2] = {0, 0}, local_[2] = {0, 0};
  int64_t lastSampleNs_ = 0;
  int count_ = 0;
  bool firstUpdate_ = true;
  ServoState state_ = ServoState::Unlocked;
};

// ptp4l's default path delay filter (delay_filter moving_median,
// delay_filter_length 10): each new sample gives the median of the last
// `length`, the mean of the middle two when they are even in number. One
// Delay_Resp stamped late moves it by little, where taken alone it would move
// every offset the servo steers by until the next.
class MovingMedian {
 public:
  explicit MovingMedian(size_t length = 10) : length_(length) {}
  int64_t add(int64_t sample);
  void reset() { samples_.clear(); }

 private:
  size_t length_;
  std::deque<int64_t> samples_;
};

}  // namespace fwmtools::timing
