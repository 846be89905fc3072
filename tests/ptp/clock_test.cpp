// The engine's clock: readings of each model at true instants to the
// nanosecond, seeded wander, the three steering slots reached through the
// library's entries, and the asymmetry and clock a slave port measures with.
#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fwmclk/np.h"
#include "fwmclk/platform/oda.h"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "fwmsim/engine/rtc.hpp"
#include "fwmsim/engine/wire.hpp"
#include "testkit.hpp"

namespace {

using fwmsim::ClockModel;
constexpr int64_t kS = 1'000'000'000, kT0 = 1'795'334'400 * kS;

class EngineClock : public fwmtest::BoardTest {};

ClockModel model(int64_t offsetNs, double ppm, std::vector<fwmsim::ClockStep> steps = {}, double wander = 0) {
  return {.offsetNs = offsetNs, .ppm = ppm, .wanderPpmPerSqrtS = wander, .steps = std::move(steps)};
}

TEST_F(EngineClock, ModelsReadExactlyAtTrueInstants) {
  struct Case {
    const char *name;
    ClockModel model;
    std::vector<std::pair<int64_t, int64_t>> reads;  // true ns after start, reading minus start
  } cases[] = {
      {"exact", model(0, 0), {{0, 0}, {7 * kS + 3, 7 * kS + 3}}},
      {"1 ms ahead", model(1'000'000, 0), {{0, 1'000'000}, {5 * kS, 5 * kS + 1'000'000}}},
      {"+100 ppm, one hour", model(0, 100), {{10 * kS, 10 * kS + 1'000'000}, {3600 * kS, 3600 * kS + 360'000'000}}},
      {"-12.5 ppm, behind", model(-40, -12.5), {{kS, kS - 12'540}, {2 * kS + 1, 2 * kS - 25'040}}},
      {"1 ppb: fractions carried",
       model(0, 0.001),
       {{kS / 2, kS / 2}, {3 * kS / 2, 3 * kS / 2 + 1}, {3 * kS + 1, 3 * kS + 4}}},
      {"phase step",
       model(0, 0, {{2 * kS, 0, 250}}),
       {{2 * kS - 1, 2 * kS - 1}, {2 * kS, 2 * kS + 250}, {3 * kS, 3 * kS + 250}}},
      {"frequency steps",
       model(0, 0, {{4 * kS, -50, 0}, {2 * kS, 50, 0}}),
       {{2 * kS, 2 * kS}, {4 * kS, 4 * kS + 100'000}, {5 * kS, 5 * kS + 100'000}}},
  };
  for (const auto &c : cases) {
    fwmsim::setClockModel(1, c.model, 1, kT0);
    std::vector<int64_t> inOrder, alone;
    for (const auto &[at, want] : c.reads) {
      inOrder.push_back(fwmsim::readNs(1, kT0 + at) - kT0);
      EXPECT_EQ(inOrder.back(), want) << c.name << " at " << at;
    }
    for (const auto &[at, want] : c.reads) {  // how often it is read changes nothing
      fwmsim::setClockModel(1, c.model, 1, kT0);
      alone.push_back(fwmsim::readNs(1, kT0 + at) - kT0);
    }
    EXPECT_EQ(alone, inOrder) << c.name;
    fwmsim::setClockModel(1, c.model, 1, kT0);
    for (const auto &[at, want] : c.reads) (void)fwmsim::readNs(1, kT0 + at);
    // A stamp older than the clock's last event still reads as it did.
    EXPECT_EQ(fwmsim::readNs(1, kT0 + c.reads.front().first) - kT0, c.reads.front().second) << c.name;
  }
  EXPECT_EQ(fwmsim::readNs(0, 42), 42);  // no model: true time
  fwmsim::resetBoard();
  EXPECT_FALSE(fwmsim::hasClockModel(1));
}

TEST_F(EngineClock, WanderIsSeeded) {
  auto run = [](uint64_t seed) {
    fwmsim::setClockModel(2, model(0, 10, {}, 0.01), seed, kT0);
    std::vector<int64_t> r;
    for (int64_t s = 0; s <= 100; ++s) r.push_back(fwmsim::readNs(2, kT0 + s * kS + s) - kT0);
    return r;
  };
  const auto a = run(7), b = run(7), c = run(8);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  for (size_t i = 1; i < a.size(); ++i) EXPECT_GT(a[i], a[i - 1]);
  // A random walk of 0.01 ppm per root second strays from 10 ppm, but not far in 100 s.
  EXPECT_NE(fwmsim::clockRate(2), 10e-6);
  EXPECT_NEAR(fwmsim::clockRate(2), 10e-6, 0.5e-6);
  // The draws themselves: one run of seed 7, to a nanosecond (libm may round the last bit otherwise).
  EXPECT_NEAR(static_cast<double>(a[100] - 100 * kS - 100), 1009021, 1.0);
  EXPECT_NEAR(static_cast<double>(a[50] - 50 * kS - 50), 502719, 1.0);
}

TEST_F(EngineClock, SteeredThroughTheLibrarysEntries) {
  fwmsim::installEngineClockSlots(g_fnNpClkDriver);
  const int64_t t0 = fwmsim::trueNanos();
  auto now = [] {
    fwmsim::RtcTime t{};
    EXPECT_EQ(CLK_NP_1588_PtpGetChannelTs(0, fwmsim::kRtcChannelClock, &t), CLK_NP_OK);
    return std::array{t.secondsHigh, t.secondsLow, t.nanoseconds};
  };
  EXPECT_EQ(now(), (std::array<uint32_t, 3>{0, static_cast<uint32_t>(t0 / kS), static_cast<uint32_t>(t0 % kS)}));
  EXPECT_EQ(CLK_NP_1588_PtpSetRtcTime(0, 0x10001, 5, 500), CLK_NP_OK);
  fwmsim::clock().advance(1000);
  EXPECT_EQ(now(), (std::array<uint32_t, 3>{1, 6, 500}));
  auto adjust = [](uint32_t what, int64_t amount) {
    fwmsim::RtcAdjust a = fwmsim::adjustOf(amount);
    return CLK_NP_1588_PtpSetRtcNsAdjust(0, what, &a);
  };
  EXPECT_EQ(adjust(fwmsim::kRtcAdjustPhase, -1500), CLK_NP_OK);
  EXPECT_EQ(now(), (std::array<uint32_t, 3>{1, 5, 999'999'000}));
  EXPECT_EQ(adjust(fwmsim::kRtcAdjustFrequency, -100 * fwmsim::kRtcFreqScale), CLK_NP_OK);
  fwmsim::clock().advance(10'000);
  EXPECT_EQ(now(), (std::array<uint32_t, 3>{1, 15, 999'998'000}));
  EXPECT_EQ(fwmsim::timeError(0), (int64_t{1} << 32) * kS + 15 * kS + 999'998'000 - fwmsim::trueNanos());
  // Refused: each changes nothing.
  fwmsim::RtcTime t{};
  EXPECT_EQ(CLK_NP_1588_PtpSetRtcTime(0, 0, 0, 1'000'000'000), CLK_NP_ERR_PARAM);
  EXPECT_EQ(adjust(2, 1), CLK_NP_ERR_PARAM);
  EXPECT_EQ(adjust(fwmsim::kRtcAdjustFrequency, 1'000'001 * fwmsim::kRtcFreqScale), CLK_NP_ERR_PARAM);
  EXPECT_EQ(CLK_NP_1588_PtpGetChannelTs(0, 1, &t), CLK_NP_ERR_PARAM);
  EXPECT_EQ(fwmsim::rtcNsAdjust(0, 0, nullptr), CLK_NP_ERR_NULL_PTR);
  EXPECT_EQ(fwmsim::rtcGetChannelTs(0, 0, nullptr), CLK_NP_ERR_NULL_PTR);
  EXPECT_EQ(fwmsim::rtcSetTime(8, 0, 0, 0), CLK_NP_ERR_PARAM);
  EXPECT_EQ(CLK_NP_1588_PtpSetRtcTime(0, 0xFFFF, 0, 0), CLK_NP_ERR_PARAM);  // past 2^63 ns
  fwmsim::stepClock(8, 1, 0);                                               // units the engine lacks: nothing happens
  fwmsim::setClockModel(8, ClockModel{}, 1);
  EXPECT_EQ(CLK_NP_1588_PtpGetChannelTs(2, 0, &t), CLK_NP_ERR_NO_FUNC);  // a unit the board lacks
  EXPECT_EQ(now(), (std::array<uint32_t, 3>{1, 15, 999'998'000}));
  fwmsim::setTrueTimeSource([] { return int64_t{5}; });  // a virtual network's clock
  EXPECT_EQ(fwmsim::trueNanos(), 5);
  fwmsim::setTrueTimeSource({});
  EXPECT_EQ(fwmsim::trueNanos(), t0 + 11 * kS);
  const auto trace = fwmsim::recorder().texts("rtc");
  EXPECT_EQ(
      std::vector(trace.begin() + 1, trace.begin() + 8),
      (std::vector<std::string>{"ptpSetRtcTime(0, 65537, 5, 500)", "unit 0: time set to 4294967301.000000500",
                                "ptpGetChannelTs(0, 0, &)", "ptpSetRtcNsAdjust(0, 0, &)", "unit 0: phase step -1500 ns",
                                "ptpGetChannelTs(0, 0, &)", "ptpSetRtcNsAdjust(0, 1, &)"}));
  EXPECT_EQ(trace[8], "unit 0: frequency adjustment -100.000 ppb");
}

// A one-step Sync heard by a SLAVE port: t2 on the engine's clock, t2 - t1
// less the programmed asymmetry (type 4 as is, type 5 negative, the last holds).
TEST_F(EngineClock, SlaveMeasuresOnItsClockLessTheAsymmetry) {
  struct Case {
    std::vector<std::pair<uint32_t, uint32_t>> asym;  // control type, value
    int64_t offsetNs;
    uint32_t t2Ns;
    int64_t t2SubT1;
  } cases[] = {
      {{}, 0, 5000, 5000},
      {{{4, 300}}, 0, 5000, 4700},
      {{{5, 300}}, 0, 5000, 5300},
      {{{5, 300}, {4, 20}}, 0, 5000, 4980},
      {{{4, 20}, {5, 7}}, 1'000'000, 1'005'000, 1'005'007},
  };
  uint32_t port = 0;
  for (const auto &c : cases) {
    ++port;
    fwmsim::engine().with(0, port, [](fwmsim::OdaPort &p) {
      p.portEnable = 1;
      p.state = 9;
      p.rxEnable[fwmsim::kOdaPktSync] = 1;
    });
    for (auto [type, value] : c.asym) ASSERT_EQ(oda_1588_set_ptp_control(0, port, type, value, 0), 0u);
    EXPECT_EQ(oda_1588_get_ptp_state(0, port, nullptr), 8u);  // the engine refuses a null record itself
    if (c.offsetNs != 0) fwmsim::setClockModel(0, model(c.offsetNs, 0), 1, 0);
    fwmptp::EventMessage m{fwmptp::kMsgSync, 0, 0, 0, 0, {1, 1}, 9, 0, {100, 0}, {}};
    const auto frame = fwmptp::buildFrame(fwmptp::encodeEvent(m).view(), fwmptp::FrameLayout{});
    fwmsim::wire().deliver(0, port, frame, timespec{100, 5000});
    const auto p = fwmsim::engine().port(0, port);
    EXPECT_EQ(fwmsim::lastDelay(p.t2SubT1.word), c.t2SubT1) << port;
    EXPECT_EQ(fwmsim::timeAt(p.timestamps.word, fwmsim::ts::kT2), (fwmsim::EngineTime{100, c.t2Ns})) << port;
  }
}

}  // namespace
