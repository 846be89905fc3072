// The PI servo against sequences worked out by hand, the TE figures of series
// whose MTIE and TDEV are known exactly, and the class verdicts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>
#include <string>

#include "fwmtools/timing/report.hpp"
#include "fwmtools/timing/servo.hpp"

using namespace fwmtools::timing;

TEST(TimingServo, GainsFollowStampsAndSyncInterval) {
  struct Row {
    bool sw;
    double fixedKp, fixedKi, kpScale, kiScale, interval, kp, ki;
  } rows[] = {{false, 0, 0, 0, 0, 1, 0.7, 0.3},
              {true, 0, 0, 0, 0, 1, 0.1, 0.001},
              {false, 0, 0, 0, 0, 0.0625, 0.7 * std::pow(0.0625, -0.3), 0.3 * std::pow(0.0625, 0.4)},
              {true, 0, 0, 0, 0, 0.0625, 0.1 * std::pow(0.0625, -0.3), 0.001 * std::pow(0.0625, 0.4)},
              {false, 0, 0, 0, 0, 4, 0.7 / 4, 0.3 / 4},  // capped at norm max / interval
              {false, 5, 3, 0, 0, 1, 1, 2},              // fixed gains, capped at 1 and 2 per interval
              {false, 1, 0.5, 0, 0, 1, 1, 0.5},
              {false, 0.5, 1, 0, 0, 2, 0.5, 1},
              {false, 0, 0, 0.5, 0.2, 1, 0.5, 0.2},  // scales of its own, only both together
              {false, 0, 0, 0.5, 0, 1, 0.7, 0.3},
              {false, 0, 0, 0, 0.2, 1, 0.7, 0.3}};
  for (const Row &r : rows) {
    const PiServo servo(
        {.softwareStamps = r.sw, .kp = r.fixedKp, .ki = r.fixedKi, .kpScale = r.kpScale, .kiScale = r.kiScale},
        r.interval);
    EXPECT_DOUBLE_EQ(servo.kp(), r.kp) << r.interval;
    EXPECT_DOUBLE_EQ(servo.ki(), r.ki) << r.interval;
  }
  EXPECT_THROW(PiServo(ServoConfig{}, 0), std::invalid_argument);
}

// A clock with a frequency error steered by the servo once per Sync interval:
// the states it goes through (U J L H), the steps it takes, where it ends.
TEST(TimingServo, SequencesOfAClockItSteers) {
  struct Row {
    const char *name;
    bool sw;
    double stepThresholdNs, maxFreqPpb, errPpb, offsetNs;
    int jumpAt;              // a phase jump of 5 us before this sample
    int quietFrom, quietTo;  // no samples in between, only idle()
    std::string states;
    double stepsNs, finalFreqPpb, finalBoundNs;
    int holdover = 3;
  } rows[] = {
      {"first step", false, 0, 9e8, 100000, 0, -1, -1, -1, "UJ" + std::string(38, 'L'), -100000, -100000, 1},
      {"under first step", false, 0, 9e8, 0, 10000, -1, -1, -1, "U" + std::string(59, 'L'), 0, 0, 1},
      {"software waits 16 s", true, 0, 9e8, 100000, 0, -1, -1, -1, std::string(16, 'U') + "JL", -1600000, -99991, 50},
      {"steps again beyond 1 us", false, 1000, 9e8, 100000, 0, 20, -1, -1,
       "UJ" + std::string(18, 'L') + "UUJ" + std::string(19, 'L'), -105000, -100000, 1},
      {"5 us kept without threshold", false, 0, 9e8, 100000, 0, 20, -1, -1, "UJ" + std::string(58, 'L'), -100000,
       -100000, 1},
      {"holdover after 3 intervals", false, 0, 9e8, 100000, 0, -1, 30, 34,
       "UJ" + std::string(30, 'L') + "HH" + std::string(26, 'L'), -100000, -100000, 1},
      {"no holdover with 0", false, 0, 9e8, 100000, 0, -1, 30, 34, "UJ" + std::string(58, 'L'), -100000, -100000, 1, 0},
      {"frequency clamped", false, 0, 50000, 100000, 0, -1, -1, -1, "UJLL", -100000, -50000, 2e5},
  };
  for (const Row &r : rows) {
    PiServo servo({.softwareStamps = r.sw,
                   .stepThresholdNs = r.stepThresholdNs,
                   .maxFrequencyPpb = r.maxFreqPpb,
                   .holdoverIntervals = r.holdover},
                  1);
    double phase = r.offsetNs, steps = 0;
    ServoOutput o{};
    std::string states;
    for (int k = 0; k < static_cast<int>(r.states.size()); ++k) {
      if (k == r.jumpAt) phase += 5000;
      const int64_t local = int64_t{1000000000} * (k + 1000) + std::llround(phase);
      const bool quiet = k >= r.quietFrom && k < r.quietTo;
      o = quiet ? servo.idle(local) : servo.sample(std::llround(phase), local);
      states += "UJLH"[static_cast<int>(o.state)];
      phase += static_cast<double>(o.stepNs) + r.errPpb + o.freqPpb;
      steps += static_cast<double>(o.stepNs);
    }
    EXPECT_EQ(states, r.states) << r.name;
    EXPECT_NEAR(steps, r.stepsNs, 3) << r.name;
    EXPECT_NEAR(o.freqPpb, r.finalFreqPpb, 1) << r.name;  // 1 ns offsets leave < 1 ppb
    EXPECT_LT(std::fabs(phase), r.finalBoundNs) << r.name;
  }
}

// The path delay filter: the middle of the last `length` samples (of two, the lower mean).
TEST(TimingServo, PathDelayIsTheMedianOfTheLastSamples) {
  MovingMedian m(4), ten;
  const std::pair<int64_t, int64_t> rows[] = {{100, 100},  {300, 200}, {200, 200}, {-50, 150},
                                              {9000, 250}, {400, 300}, {401, 400}, {-7, 400}};
  for (const auto &[in, want] : rows) EXPECT_EQ(m.add(in), want) << in;
  m.reset();
  EXPECT_EQ(m.add(-3), -3);
  for (int i = 0; i < 9; ++i) ten.add(3000 + i % 3);
  EXPECT_EQ(ten.add(50'000), 3001);  // one late Delay_Resp moves it by little
}

TEST(TimingTe, MtieAndTdevOfKnownSeries) {
  struct Row {
    const char *name;
    double dt;
    std::vector<double> x, taus;
    std::vector<CurvePoint> mtie, tdev;
  };
  auto series = [](size_t n, auto f) {
    std::vector<double> x(n);
    for (size_t i = 0; i < n; ++i) x[i] = f(static_cast<double>(i));
    return x;
  };
  const double a = 10, s23 = std::sqrt(2.0 / 3);
  const Row rows[] = {
      {"constant", 1, series(30, [](double) { return 7.0; }), {1, 5}, {{1, 0}, {5, 0}}, {{1, 0}, {5, 0}}},
      {"ramp",
       1,
       series(30, [](double i) { return 2 * i; }),
       {1, 2, 5, 10},
       {{1, 2}, {2, 4}, {5, 10}, {10, 20}},
       {{1, 0}, {2, 0}, {5, 0}, {10, 0}}},
      {"falling", 1, series(30, [](double i) { return -2 * i; }), {5}, {{5, 10}}, {{5, 0}}},
      // Second differences of i^2 are 2 n^2, so TDEV is n^2 sqrt(2/3); MTIE is the last window's rise.
      {"quadratic",
       1,
       series(30, [](double i) { return i * i; }),
       {1, 3},
       {{1, 57}, {3, 165}},
       {{1, s23}, {3, 9 * s23}}},
      // Sampled at 0, a, 0, -a: MTIE a and 2a, TDEV a / sqrt(3) and a sqrt(2/3).
      {"sine",
       1,
       series(40, [&](double i) { return a * std::sin(i * std::numbers::pi / 2); }),
       {1, 2},
       {{1, a}, {2, 2 * a}},
       {{1, a / std::sqrt(3.0)}, {2, a * s23}}},
      // Intervals that are no whole multiple of the sample interval, or too long, are left out.
      {"skips", 2, series(9, [](double i) { return i; }), {1, 2, 3, 8, 18}, {{2, 1}, {8, 4}}, {{2, 0}}},
  };
  for (const Row &r : rows) {
    const auto m = mtie(r.x, r.dt, r.taus), t = tdev(r.x, r.dt, r.taus);
    ASSERT_EQ(m.size(), r.mtie.size()) << r.name;
    ASSERT_EQ(t.size(), r.tdev.size()) << r.name;
    for (size_t i = 0; i < m.size(); ++i) {
      EXPECT_EQ(m[i].tauS, r.mtie[i].tauS) << r.name;
      EXPECT_NEAR(m[i].ns, r.mtie[i].ns, 1e-9) << r.name << " mtie " << m[i].tauS;
    }
    for (size_t i = 0; i < t.size(); ++i) {
      EXPECT_EQ(t[i].tauS, r.tdev[i].tauS) << r.name;
      EXPECT_NEAR(t[i].ns, r.tdev[i].ns, 1e-9) << r.name << " tdev " << t[i].tauS;
    }
  }
  EXPECT_EQ(observationIntervals(0.0625, 999.9, 1), (std::vector<double>{1, 2, 5, 10, 20, 50, 100, 200, 500}));
  EXPECT_EQ(observationIntervals(2, 3000, 3), (std::vector<double>{2, 10, 20, 50, 100, 200, 500, 1000}));
  const auto y = lowPass(std::vector<double>{4, 5, 5}, 0.5, 0.1);
  const double alpha = 1 - std::exp(-2 * std::numbers::pi * 0.1 * 0.5);
  EXPECT_EQ(y, (std::vector<double>{4, 4 + alpha, 4 + alpha + alpha * (1 - alpha)}));
}

TEST(TimingTe, ClassVerdicts) {
  struct Row {
    double maxTe, cte, mtieTau, mtie, tdevTau, tdev;
    const char *met;
  } rows[] = {{30, 10, 1, 10, 1000, 2, "ABC"}, {30.5, 0, 1, 0, 1, 0, "AB"}, {70, 20, 1, 10.5, 1, 0, "AB"},
              {0, -10.5, 1, 0, 1, 0, "AB"},    {0, 0, 1, 0, 1, 2.5, "AB"},  {70.5, 0, 1, 0, 1, 0, "A"},
              {0, 20.5, 1, 0, 1, 0, "A"},      {100.5, 0, 1, 0, 1, 0, ""},  {0, -50.5, 1, 0, 1, 0, ""},
              {0, 0, 1000, 40.5, 1, 0, ""},    {0, 0, 1, 0, 1, 4.5, ""},    {0, 0, 0.5, 99, 2000, 99, "ABC"}};
  for (const Row &r : rows) {
    const CurvePoint m[] = {{r.mtieTau, r.mtie}}, t[] = {{r.tdevTau, r.tdev}};
    std::string met;
    for (const TeVerdict &v : judge(r.maxTe, r.cte, m, t)) met += v.met() ? std::string(1, v.name) : "";
    EXPECT_EQ(met, r.met) << r.maxTe << " " << r.cte << " " << r.mtie << " " << r.tdev;
  }
}

TEST(TimingTe, AnalysisOverTheWindow) {
  TeSeries s{10, 1, {500, 200, 50, -30, 20, 10, 10, 10, 10, 10}};
  TeOptions options{.settleS = 3};
  TeResult r = analyse(s, options);
  EXPECT_EQ(r.lockTimeS, 12);
  EXPECT_EQ(r.windowStartS, 13);
  EXPECT_EQ(r.windowEndS, 19);
  EXPECT_EQ(r.maxAbsTeNs, 30);
  EXPECT_NEAR(r.cteNs, 40.0 / 7, 1e-12);
  ASSERT_EQ(r.mtie.size(), 3u);    // 1, 2, 5 s
  EXPECT_EQ(r.tdev.size(), 2u);    // 1, 2 s
  EXPECT_EQ(r.bestClass, "none");  // the filtered TE still falls from 500 ns
  s.teNs.back() = 100;
  options.settleS = 0;
  r = analyse(s, options);
  EXPECT_FALSE(r.lockTimeS);
  EXPECT_EQ(r.windowStartS, 10);
  s.teNs.assign(2000, 5);
  r = analyse(s, options);
  EXPECT_EQ(r.lockTimeS, 10);
  EXPECT_EQ(r.bestClass, "C");

  EXPECT_NO_THROW(analyse(TeSeries{0, 1, {1, 2}}, TeOptions{}));
  options.settleS = 3;
  EXPECT_NO_THROW(analyse(TeSeries{0, 1, std::vector<double>(5, 1)}, options));
  struct Bad {
    double dt, settle;
    size_t n;
    const char *error;
  } bad[] = {{0, 0, 5, "time error: the sample interval must be positive"},
             {1, 0, 1, "time error: at least two samples are needed"},
             {1, -1, 5, "time error: the settling time must not be negative"},
             {1, 3.5, 5, "time error: the settling time leaves fewer than two samples"}};
  for (const Bad &b : bad) {
    options.settleS = b.settle;
    try {
      analyse(TeSeries{0, b.dt, std::vector<double>(b.n, 1)}, options);
      ADD_FAILURE() << b.error;
    } catch (const std::invalid_argument &e) {
      EXPECT_STREQ(e.what(), b.error);
    }
  }
}

TEST(TimingReport, EscapesAndKeepsPeaks) {
  EngineTe e{"a</script><b>&", {0, 0.5, std::vector<double>(20000, 1)}, {}};
  e.series.teNs[12345] = -900;
  e.series.teNs[19999] = 700;
  TeOptions options{.settleS = 5000};  // the plot shows the window only
  e.result = analyse(e.series, options);
  std::ostringstream out;
  writeHtmlReport(out, "TE <run> & \"x\"", std::span(&e, 1));
  const std::string page = out.str();
  EXPECT_NE(page.find("<title>TE &lt;run&gt; &amp; &quot;x&quot;</title>"), std::string::npos);
  EXPECT_NE(page.find("<tr><td>a&lt;/script&gt;&lt;b&gt;&amp;<td>5000.0 – 9999.5<td>never<td>900.00<td>0.98"),
            std::string::npos);
  EXPECT_NE(page.find(R"("name":"a<\/script><b>&")"), std::string::npos);
  EXPECT_NE(page.find("[6172.5,-900.0]"), std::string::npos);
  EXPECT_NE(page.find("[9999.5,700.0]"), std::string::npos);
  const size_t data = page.find("\"te\":[");
  const size_t points =
      static_cast<size_t>(std::count(page.begin() + static_cast<std::ptrdiff_t>(data),
                                     page.begin() + static_cast<std::ptrdiff_t>(page.find("]]", data)), '['));
  EXPECT_EQ(points, 1 + kReportMaxPoints);  // the array, then a minimum and a maximum per bucket of 5
}
