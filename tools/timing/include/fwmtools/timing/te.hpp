// Time error (a clock minus true time) judged as a boundary clock is:
// lock time, max|TE| and constant TE over a window, and the wander of the
// low-passed TE (dTE_L) as MTIE and TDEV against the class masks.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fwmtools::timing {

// TE in ns, sampled every dtS seconds of true time from t0S on.
struct TeSeries {
  double t0S = 0, dtS = 1;
  std::vector<double> teNs;
};

struct TeOptions {
  double lockThresholdNs = 100;  // locked once |TE| stays below this
  double settleS = 0;            // the judged window starts this long after the series
  double lowPassHz = 0.1;        // dTE_L's corner
};

struct CurvePoint {
  double tauS, ns;
};

// Limits per class: max|TE|, |cTE|, and the dTE_L MTIE and TDEV masks, flat
// over observation intervals of 1 s to 1000 s.
struct TeClass {
  char name;
  double maxTeNs, cteNs, mtieNs, tdevNs;
};
inline constexpr std::array<TeClass, 3> kTeClasses{{{'A', 100, 50, 40, 4}, {'B', 70, 20, 40, 4}, {'C', 30, 10, 10, 2}}};
inline constexpr double kMaskTauMinS = 1, kMaskTauMaxS = 1000;

struct TeVerdict {
  char name;
  bool maxTe, cte, mtie, tdev;
  bool met() const { return maxTe && cte && mtie && tdev; }
};

struct TeResult {
  std::optional<double> lockTimeS;  // none: never settled under the threshold
  double windowStartS, windowEndS;
  double maxAbsTeNs, cteNs;
  std::vector<CurvePoint> mtie, tdev;
  std::array<TeVerdict, 3> verdicts;
  std::string bestClass;  // the tightest class met, or "none"
};

// The observation intervals evaluated: 1, 2, 5, 10, ... s that are whole
// multiples of dtS and fit the window (TDEV needs three of them).
std::vector<double> observationIntervals(double dtS, double spanS, int minSpans);

// First-order low-pass, started at the first sample so that it has no start-up step.
std::vector<double> lowPass(std::span<const double> x, double dtS, double cornerHz);

// Exact MTIE and TDEV of x (sampled every dtS) at each tau.
std::vector<CurvePoint> mtie(std::span<const double> x, double dtS, std::span<const double> tausS);
std::vector<CurvePoint> tdev(std::span<const double> x, double dtS, std::span<const double> tausS);

std::optional<double> lockTime(const TeSeries &series, double thresholdNs);

std::array<TeVerdict, 3> judge(double maxAbsTeNs, double cteNs, std::span<const CurvePoint> mtie,
                               std::span<const CurvePoint> tdev);

// Throws std::invalid_argument on a series it cannot judge.
TeResult analyse(const TeSeries &series, const TeOptions &options);

}  // namespace fwmtools::timing
