#include "fwmtools/timing/servo.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace fwmtools::timing {
namespace {

// The first frequency estimate waits this long (0.016 / ki, at most 1000 s),
// stretched by a little margin so that an estimate exactly on time counts.
constexpr double kFreqEstMargin = 0.001;
constexpr double kFreqEstMaxS = 1000.0;
constexpr double kFixedKpNormMax = 1.0, kFixedKiNormMax = 2.0;

}  // namespace

const char *servoStateName(ServoState state) {
  switch (state) {
    case ServoState::Unlocked:
      return "unlocked";
    case ServoState::Jump:
      return "jump";
    case ServoState::Locked:
      return "locked";
    case ServoState::Holdover:
      return "holdover";
  }
  return "?";
}

PiServo::PiServo(const ServoConfig &config, double syncIntervalS, double currentFreqPpb)
    : cfg_(config), drift_(-currentFreqPpb), lastFreq_(-currentFreqPpb) {
  if (cfg_.kp != 0 && cfg_.ki != 0) {
    cfg_.kpScale = cfg_.kp;
    cfg_.kiScale = cfg_.ki;
    cfg_.kpExponent = cfg_.kiExponent = 0;
    cfg_.kpNormMax = kFixedKpNormMax;
    cfg_.kiNormMax = kFixedKiNormMax;
  } else if (cfg_.kpScale == 0 || cfg_.kiScale == 0) {
    cfg_.kpScale = cfg_.softwareStamps ? 0.1 : 0.7;
    cfg_.kiScale = cfg_.softwareStamps ? 0.001 : 0.3;
  }
  setSyncInterval(syncIntervalS);
}

void PiServo::setSyncInterval(double seconds) {
  if (!(seconds > 0)) throw std::invalid_argument("servo: the sync interval must be positive");
  interval_ = seconds;
  kp_ = std::min(cfg_.kpScale * std::pow(seconds, cfg_.kpExponent), cfg_.kpNormMax / seconds);
  ki_ = std::min(cfg_.kiScale * std::pow(seconds, cfg_.kiExponent), cfg_.kiNormMax / seconds);
}

double PiServo::clampFreq(double ppb) const {
  return std::max(-cfg_.maxFrequencyPpb, std::min(cfg_.maxFrequencyPpb, ppb));
}

ServoOutput PiServo::sample(int64_t offsetNs, int64_t localNs, double weight) {
  const double absOffset = std::fabs(static_cast<double>(offsetNs));
  const bool beyondStep = cfg_.stepThresholdNs > 0 && cfg_.stepThresholdNs < absOffset;
  double ppb = lastFreq_;
  int64_t step = 0;
  lastSampleNs_ = localNs;
  if (count_ == 0) {
    offset_[0] = offsetNs;
    local_[0] = localNs;
    state_ = ServoState::Unlocked;
    count_ = 1;
  } else if (count_ == 1) {
    offset_[1] = offsetNs;
    local_[1] = localNs;
    const double waitS = std::min(0.016 / ki_, kFreqEstMaxS);
    const double spanS = static_cast<double>(local_[1] - local_[0]) / 1e9 * (1 + kFreqEstMargin);
    if (local_[0] >= local_[1]) {
      count_ = 0;  // out of order: start over from this one
      state_ = ServoState::Unlocked;
    } else if (spanS < waitS) {
      state_ = ServoState::Unlocked;
    } else {
      drift_ +=
          (1e9 - drift_) * static_cast<double>(offset_[1] - offset_[0]) / static_cast<double>(local_[1] - local_[0]);
      drift_ = clampFreq(drift_);
      const bool firstStep = firstUpdate_ && cfg_.firstStepThresholdNs > 0 && cfg_.firstStepThresholdNs < absOffset;
      state_ = firstStep || beyondStep ? ServoState::Jump : ServoState::Locked;
      step = state_ == ServoState::Jump ? -offsetNs : 0;
      firstUpdate_ = false;
      ppb = drift_;
      count_ = 2;
    }
  } else if (beyondStep) {
    // Too far off to steer: estimate the frequency again, then step.
    state_ = ServoState::Unlocked;
    count_ = 0;
  } else {
    const double kiTerm = ki_ * static_cast<double>(offsetNs) * weight;
    ppb = kp_ * static_cast<double>(offsetNs) * weight + drift_ + kiTerm;
    // The integral only grows while the output is not clamped.
    if (ppb == clampFreq(ppb)) drift_ += kiTerm;
    ppb = clampFreq(ppb);
    state_ = ServoState::Locked;
  }
  lastFreq_ = ppb;
  return output(step);
}

ServoOutput PiServo::idle(int64_t localNs) {
  const double quietS = static_cast<double>(localNs - lastSampleNs_) / 1e9;
  if (state_ == ServoState::Locked && cfg_.holdoverIntervals > 0 &&
      quietS >= (cfg_.holdoverIntervals - 0.5) * interval_) {
    state_ = ServoState::Holdover;
  }
  return output(0);
}

int64_t MovingMedian::add(int64_t sample) {
  samples_.push_back(sample);
  if (samples_.size() > length_) samples_.pop_front();
  std::vector<int64_t> v(samples_.begin(), samples_.end());
  const size_t mid = v.size() / 2;
  std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(mid), v.end());
  if (v.size() % 2 != 0) return v[mid];
  const int64_t upper = v[mid];
  const int64_t lower = *std::max_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(mid));
  return lower + (upper - lower) / 2;
}

}  // namespace fwmtools::timing
