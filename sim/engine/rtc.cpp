// The engines' real-time clocks over true time, and the driver slots that
// steer them.
#include "fwmsim/engine/rtc.hpp"

#include <time.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <numbers>
#include <random>

#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {

constexpr int64_t kNsPerMs = 1'000'000;

int64_t machineNanos() {
  timespec t{};
  ::clock_gettime(CLOCK_REALTIME, &t);
  return int64_t{t.tv_sec} * kRtcNsPerSecond + t.tv_nsec;
}

std::mutex g_sourceMu;
std::function<int64_t()> g_source;

std::function<int64_t()> installedSource() {
  std::lock_guard lk(g_sourceMu);
  return g_source;
}

// A stretch of the clock's life with one rate: its reading at the true
// instant it starts, in whole nanoseconds and a fraction.
struct Segment {
  int64_t atTrue = 0;
  int64_t whole = 0;
  double fraction = 0;  // [0, 1)
  double ratePpb = 0;   // the reading advances by 1 + ratePpb / 1e9 per true ns

  int64_t at(int64_t t) const {
    const int64_t dt = t - atTrue;
    return whole + dt + static_cast<int64_t>(std::floor(fraction + drift(dt)));
  }
  // The same clock re-anchored at `t`: what it reads there, exactly.
  Segment movedTo(int64_t t) const {
    const int64_t dt = t - atTrue;
    const double x = fraction + drift(dt);
    const double wholeNs = std::floor(x);
    return {t, whole + dt + static_cast<int64_t>(wholeNs), x - wholeNs, ratePpb};
  }
  // In parts per billion, so that whole rates over whole intervals give whole
  // nanoseconds without rounding.
  double drift(int64_t dt) const { return static_cast<double>(dt) * ratePpb / 1e9; }
};

struct UnitClock {
  ClockModel model;
  std::mt19937_64 rng;
  int64_t t0 = 0;
  Segment now, before;  // `before` ends where `now` starts: for stamps a little older
  double wanderPpm = 0, stepPpm = 0, adjustPpb = 0;
  int64_t nextWander = INT64_MAX;
  size_t nextStep = 0;

  void rerate() { now.ratePpb = (model.ppm + wanderPpm + stepPpm) * 1000 + adjustPpb; }
  // A new segment from true instant `t` (never before the current one).
  void anchor(int64_t t) {
    before = now;
    now = now.movedTo(std::max(t, now.atTrue));
  }
  // One normal draw (Box-Muller), the same for one seed everywhere the
  // generator is the standard's.
  double normal() {
    constexpr double kUnit = 0x1p-53;
    const double u1 = static_cast<double>((rng() >> 11) + 1) * kUnit;
    const double u2 = static_cast<double>(rng() >> 11) * kUnit;
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2);
  }
  int64_t stepDue() const { return nextStep < model.steps.size() ? t0 + model.steps[nextStep].atNs : INT64_MAX; }
  // Applies the model's own events due by true instant `t`, each at its instant.
  void advance(int64_t t) {
    for (;;) {
      const int64_t step = stepDue();
      const int64_t due = std::min(step, nextWander);
      if (due > t) return;
      anchor(due);
      if (due == step) {
        const ClockStep &s = model.steps[nextStep++];
        now.whole += s.phaseNs;
        stepPpm += s.ppm;
      } else {
        wanderPpm += model.wanderPpmPerSqrtS * std::sqrt(static_cast<double>(model.wanderStepNs) * 1e-9) * normal();
        nextWander += model.wanderStepNs;
      }
      rerate();
    }
  }
  int64_t read(int64_t t) {
    advance(t);
    return (t >= now.atTrue ? now : before).at(t);
  }
};

std::mutex g_mu;
std::array<std::optional<UnitClock>, kOdaUnits> g_units;

UnitClock makeClock(const ClockModel &model, uint64_t seed, int64_t at) {
  UnitClock c;
  c.model = model;
  std::stable_sort(c.model.steps.begin(), c.model.steps.end(),
                   [](const ClockStep &a, const ClockStep &b) { return a.atNs < b.atNs; });
  c.rng.seed(seed);
  c.t0 = at;
  c.now = {at, at + model.offsetNs, 0, 0};
  c.before = c.now;
  if (model.wanderPpmPerSqrtS != 0 && model.wanderStepNs > 0) c.nextWander = at + model.wanderStepNs;
  c.rerate();
  return c;
}

// The unit's clock for a steer at `at`, made exact first when it has none.
template <class F>
void steer(uint32_t unit, int64_t at, F &&apply) {
  if (unit >= kOdaUnits) return;
  std::lock_guard lk(g_mu);
  auto &c = g_units[unit];
  if (!c) c = makeClock({}, 0, at);
  c->advance(at);
  c->anchor(at);
  apply(*c);
  c->rerate();
}

[[maybe_unused]] const bool kResetWithBoard = onBoardReset([] { clearClockModels(); });

std::string nanosText(int64_t ns) {
  char buf[48];
  (void)std::snprintf(buf, sizeof buf, "%" PRId64 ".%09" PRId64, ns / kRtcNsPerSecond, ns % kRtcNsPerSecond);
  return buf;
}

void note(uint32_t unit, const std::string &what) {
  if (recorder().enabled()) recorder().add("rtc", "unit " + std::to_string(unit) + ": " + what);
}

}  // namespace

int64_t trueNanos() {
  if (auto source = installedSource()) return source();
  if (clock().mode() == Clock::Mode::Real) return machineNanos();
  // wallSeconds() is the epoch base plus whole seconds of board time: read
  // it within one board second to recover the base.
  for (;;) {
    const uint64_t ms = clock().nowMs();
    const int64_t wall = clock().wallSeconds();
    if (clock().nowMs() / 1000 != ms / 1000) continue;
    const int64_t base = wall - static_cast<int64_t>(ms / 1000);
    return base * kRtcNsPerSecond + static_cast<int64_t>(ms) * kNsPerMs;
  }
}

void setTrueTimeSource(std::function<int64_t()> source) {
  std::lock_guard lk(g_sourceMu);
  g_source = std::move(source);
}

void setClockModel(uint32_t unit, const ClockModel &model, uint64_t seed, std::optional<int64_t> atTrueNs) {
  if (unit >= kOdaUnits) return;
  const int64_t at = atTrueNs ? *atTrueNs : trueNanos();
  std::lock_guard lk(g_mu);
  g_units[unit] = makeClock(model, seed, at);
}

bool hasClockModel(uint32_t unit) {
  std::lock_guard lk(g_mu);
  return unit < kOdaUnits && g_units[unit].has_value();
}

int64_t readNs(uint32_t unit, int64_t trueNs) {
  std::lock_guard lk(g_mu);
  if (unit >= kOdaUnits || !g_units[unit]) return trueNs;
  return g_units[unit]->read(trueNs);
}

int64_t timeError(uint32_t unit) {
  const int64_t t = trueNanos();
  return readNs(unit, t) - t;
}

double clockRate(uint32_t unit) {
  std::lock_guard lk(g_mu);
  return unit < kOdaUnits && g_units[unit] ? g_units[unit]->now.ratePpb * 1e-9 : 0.0;
}

void clearClockModels() {
  std::lock_guard lk(g_mu);
  for (auto &c : g_units) c.reset();
}

void setClockTime(uint32_t unit, int64_t readingNs, int64_t atTrueNs) {
  steer(unit, atTrueNs, [&](UnitClock &c) {
    c.now.whole = readingNs;
    c.now.fraction = 0;
  });
}

void stepClock(uint32_t unit, int64_t phaseNs, int64_t atTrueNs) {
  steer(unit, atTrueNs, [&](UnitClock &c) { c.now.whole += phaseNs; });
}

void adjustClockFrequency(uint32_t unit, double ppb, int64_t atTrueNs) {
  steer(unit, atTrueNs, [&](UnitClock &c) { c.adjustPpb = ppb; });
}

int32_t rtcSetTime(uint32_t unit, uint32_t value1, uint32_t value2, uint32_t value3) {
  record("rtc", "ptpSetRtcTime", unit, value1, value2, value3);
  const uint64_t seconds = uint64_t{value1 & 0xFFFFu} << 32 | value2;
  if (unit >= kOdaUnits || value3 >= kRtcNsPerSecond || seconds > INT64_MAX / kRtcNsPerSecond) return CLK_NP_ERR_PARAM;
  const int64_t reading = static_cast<int64_t>(seconds) * kRtcNsPerSecond + value3;
  setClockTime(unit, reading, trueNanos());
  note(unit, "time set to " + nanosText(reading));
  return CLK_NP_OK;
}

int32_t rtcNsAdjust(uint32_t unit, uint32_t value, void *adjust) {
  record("rtc", "ptpSetRtcNsAdjust", unit, value, Ptr{adjust});
  if (adjust == nullptr) return CLK_NP_ERR_NULL_PTR;
  RtcAdjust a{};
  std::memcpy(&a, adjust, sizeof a);
  const int64_t amount = amountOf(a);
  if (unit >= kOdaUnits) return CLK_NP_ERR_PARAM;
  if (value == kRtcAdjustPhase) {
    stepClock(unit, amount, trueNanos());
    note(unit, "phase step " + std::to_string(amount) + " ns");
    return CLK_NP_OK;
  }
  const double ppb = static_cast<double>(amount) / static_cast<double>(kRtcFreqScale);
  if (value != kRtcAdjustFrequency || std::fabs(ppb) > kRtcMaxAdjPpb) return CLK_NP_ERR_PARAM;
  adjustClockFrequency(unit, ppb, trueNanos());
  char buf[64];
  (void)std::snprintf(buf, sizeof buf, "frequency adjustment %.3f ppb", ppb);
  note(unit, buf);
  return CLK_NP_OK;
}

int32_t rtcGetChannelTs(uint32_t unit, uint32_t channel, void *ts) {
  record("rtc", "ptpGetChannelTs", unit, channel, Ptr{ts});
  if (ts == nullptr) return CLK_NP_ERR_NULL_PTR;
  if (unit >= kOdaUnits || channel != kRtcChannelClock) return CLK_NP_ERR_PARAM;
  const RtcTime t = rtcTimeOf(std::max<int64_t>(readNs(unit, trueNanos()), 0));
  std::memcpy(ts, &t, sizeof t);
  return CLK_NP_OK;
}

void installEngineClockSlots(NpClkDriverFuncs *tables, size_t units) {
  for (size_t u = 0; u < std::min<size_t>({units, board().feNum, CLK_NP_UNIT_NUM}); ++u) {
    tables[u].ptpSetRtcTime = rtcSetTime;
    tables[u].ptpSetRtcNsAdjust = rtcNsAdjust;
    tables[u].ptpGetChannelTs = rtcGetChannelTs;
  }
}

}  // namespace fwmsim
