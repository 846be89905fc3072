// The engines' real-time clocks, each a model over true time, and the three
// driver slots through which the library steers them.
//
// True time is nanoseconds since the epoch: the board's virtual clock (its
// wall base plus nowMs) in virtual mode, CLOCK_REALTIME in real mode, or
// whatever source a virtual network installs (setTrueTimeSource), which may
// run between the board's milliseconds.
//
// A unit's clock reads, at true instant t since its model was set at T0:
//   reading(t) = T0 + offset + (t - T0) + the integral of f over [T0, t]
//                + every phase step that fell due,
// where f = (ppm + wander + frequency steps) * 1e-6 + adjustPpb * 1e-9. The
// wander is a random walk of the frequency: every `wanderStepNs` of true time
// it moves by a normal draw of sigma * sqrt(step in seconds) ppm, from the
// unit's own seeded generator, so one seed gives one run. The reading is kept
// as integer nanoseconds plus a fraction, re-anchored only at the model's own
// events, so how often it is read changes nothing; between steers it never
// goes backwards. A unit with no model reads true time itself.
//
// Every time the engine stamps or writes (t1..t4, the time-stamp record, the
// origin times of its Sync, Follow_Up, Delay_Resp and Pdelay messages) is its
// clock's reading at the event's true instant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "fwmclk/np.h"

namespace fwmsim {

// ---- true time ----
int64_t trueNanos();
// An empty function restores the default source.
void setTrueTimeSource(std::function<int64_t()> source);

// ---- the model ----
struct ClockStep {
  int64_t atNs = 0;     // true nanoseconds after the model was set
  double ppm = 0;       // added to the frequency error from then on
  int64_t phaseNs = 0;  // added to the reading at that instant
};

struct ClockModel {
  int64_t offsetNs = 0;  // reading minus true time when the model is set
  double ppm = 0;        // frequency error: positive runs fast
  double wanderPpmPerSqrtS = 0;
  int64_t wanderStepNs = 1'000'000'000;
  std::vector<ClockStep> steps;
};

// Sets unit's model at true instant `atTrueNs` (now when not given); the
// steering state starts from zero.
void setClockModel(uint32_t unit, const ClockModel &model, uint64_t seed, std::optional<int64_t> atTrueNs = {});
bool hasClockModel(uint32_t unit);
// The unit's reading at a true instant; true time itself without a model.
int64_t readNs(uint32_t unit, int64_t trueNs);
// Reading minus true time, now.
int64_t timeError(uint32_t unit);
// The current fractional frequency (model and steering), 0 without a model.
double clockRate(uint32_t unit);
// Drops every model (on board reset too): all units read true time again.
void clearClockModels();

// ---- steering (true instant `atTrueNs`; a unit without a model gets an
// exact one first, so a steer always takes) ----
void setClockTime(uint32_t unit, int64_t readingNs, int64_t atTrueNs);
void stepClock(uint32_t unit, int64_t phaseNs, int64_t atTrueNs);
void adjustClockFrequency(uint32_t unit, double ppb, int64_t atTrueNs);

// ---- the driver slots, as the library reaches them ----
// Slot 56, ptpSetRtcTime(unit, value1, value2, value3): sets the clock to
//   seconds = value1 (bits 47..32, only its low 16 bits) : value2 (bits
//   31..0), nanoseconds = value3 (below 10^9, else CLK_NP_ERR_PARAM).
// Slot 57, ptpSetRtcNsAdjust(unit, value, adjust): `adjust` points to an
//   RtcAdjust, a signed 64-bit amount in two words; value kRtcAdjustPhase
//   steps the reading by that many nanoseconds, kRtcAdjustFrequency sets the
//   frequency adjustment to amount / kRtcFreqScale ppb (|ppb| at most
//   kRtcMaxAdjPpb), replacing the last one. Another value, or an amount out
//   of range: CLK_NP_ERR_PARAM and nothing changes.
// Slot 64, ptpGetChannelTs(unit, channel, ts): reads the clock now into the
//   RtcTime at `ts`; channel kRtcChannelClock is the only one.
// A null record is CLK_NP_ERR_NULL_PTR. Each call is recorded under facility
// "rtc", and what it did after it. They are the board's own, not imports of
// the library, so fault injection does not reach them.
inline constexpr uint32_t kRtcAdjustPhase = 0, kRtcAdjustFrequency = 1;
inline constexpr int64_t kRtcFreqScale = 65536;  // 2^-16 ppb per unit
inline constexpr double kRtcMaxAdjPpb = 1e6;     // 1000 ppm
inline constexpr uint32_t kRtcChannelClock = 0;
inline constexpr uint32_t kRtcNsPerSecond = 1'000'000'000;

struct RtcAdjust {
  int32_t high;  // bits 63..32 of the signed amount
  uint32_t low;  // bits 31..0
};
struct RtcTime {
  uint32_t secondsHigh;  // seconds bits 47..32 in the low 16 bits
  uint32_t secondsLow;
  uint32_t nanoseconds;
};
static_assert(sizeof(RtcAdjust) == 8 && alignof(RtcAdjust) == 4, "RtcAdjust is two 32-bit words");
static_assert(sizeof(RtcTime) == 12 && alignof(RtcTime) == 4, "RtcTime is three 32-bit words");

inline int64_t amountOf(const RtcAdjust &a) {
  return static_cast<int64_t>(uint64_t{static_cast<uint32_t>(a.high)} << 32 | a.low);
}
inline RtcAdjust adjustOf(int64_t amount) {
  return {static_cast<int32_t>(static_cast<uint64_t>(amount) >> 32), static_cast<uint32_t>(amount)};
}
inline RtcTime rtcTimeOf(int64_t ns) {
  const auto s = static_cast<uint64_t>(ns / kRtcNsPerSecond);
  return {static_cast<uint32_t>(s >> 32) & 0xFFFFu, static_cast<uint32_t>(s),
          static_cast<uint32_t>(ns % kRtcNsPerSecond)};
}

int32_t rtcSetTime(uint32_t unit, uint32_t value1, uint32_t value2, uint32_t value3);
int32_t rtcNsAdjust(uint32_t unit, uint32_t value, void *adjust);
int32_t rtcGetChannelTs(uint32_t unit, uint32_t channel, void *ts);

// Puts the three slots into the driver table of every unit the board has;
// called once the library's start-up has filled its tables (the tables are
// read-only afterwards).
void installEngineClockSlots(NpClkDriverFuncs *tables, size_t units = CLK_NP_UNIT_NUM);

}  // namespace fwmsim
