#include "fwmtools/timing/te.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <numbers>
#include <numeric>
#include <stdexcept>

namespace fwmtools::timing {
namespace {

// Samples in tau, or 0 when tau is no whole multiple of dt.
size_t samplesIn(double tauS, double dtS) {
  const double n = std::round(tauS / dtS);
  return n >= 1 && std::fabs(n * dtS - tauS) <= 1e-9 * tauS ? static_cast<size_t>(n) : 0;
}

}  // namespace

std::vector<double> observationIntervals(double dtS, double spanS, int minSpans) {
  std::vector<double> taus;
  for (double decade = kMaskTauMinS; decade <= kMaskTauMaxS; decade *= 10) {
    for (double m : {1.0, 2.0, 5.0}) {
      const double tau = decade * m;
      if (tau <= kMaskTauMaxS && tau * minSpans <= spanS + 1e-9 && samplesIn(tau, dtS) > 0) taus.push_back(tau);
    }
  }
  return taus;
}

std::vector<double> lowPass(std::span<const double> x, double dtS, double cornerHz) {
  std::vector<double> y(x.size());
  const double alpha = 1 - std::exp(-2 * std::numbers::pi * cornerHz * dtS);
  double state = x.empty() ? 0 : x[0];
  for (size_t i = 0; i < x.size(); ++i) y[i] = state += alpha * (x[i] - state);
  return y;
}

std::vector<CurvePoint> mtie(std::span<const double> x, double dtS, std::span<const double> tausS) {
  std::vector<CurvePoint> out;
  for (double tau : tausS) {
    const size_t n = samplesIn(tau, dtS);
    if (n == 0 || n >= x.size()) continue;
    // Sliding window of n + 1 samples; the deques keep candidate maxima and minima.
    std::deque<size_t> hi, lo;
    double worst = 0;
    for (size_t i = 0; i < x.size(); ++i) {
      while (!hi.empty() && x[hi.back()] <= x[i]) hi.pop_back();
      while (!lo.empty() && x[lo.back()] >= x[i]) lo.pop_back();
      hi.push_back(i);
      lo.push_back(i);
      if (hi.front() + n < i) hi.pop_front();
      if (lo.front() + n < i) lo.pop_front();
      if (i >= n) worst = std::max(worst, x[hi.front()] - x[lo.front()]);
    }
    out.push_back({tau, worst});
  }
  return out;
}

std::vector<CurvePoint> tdev(std::span<const double> x, double dtS, std::span<const double> tausS) {
  std::vector<long double> sum(x.size() + 1, 0);
  for (size_t i = 0; i < x.size(); ++i) sum[i + 1] = sum[i] + x[i];
  std::vector<CurvePoint> out;
  for (double tau : tausS) {
    const size_t n = samplesIn(tau, dtS);
    if (n == 0 || 3 * n > x.size()) continue;
    const size_t terms = x.size() - 3 * n + 1;
    long double acc = 0;
    for (size_t j = 0; j < terms; ++j) {
      // The sum over n of second differences x[i+2n] - 2 x[i+n] + x[i], i = j .. j+n-1.
      const long double d = sum[j + 3 * n] - 3 * sum[j + 2 * n] + 3 * sum[j + n] - sum[j];
      acc += d * d;
    }
    const auto nn = static_cast<long double>(n);
    out.push_back({tau, static_cast<double>(std::sqrt(acc / (6 * nn * nn * static_cast<long double>(terms))))});
  }
  return out;
}

std::optional<double> lockTime(const TeSeries &series, double thresholdNs) {
  size_t k = series.teNs.size();
  while (k > 0 && std::fabs(series.teNs[k - 1]) < thresholdNs) --k;
  if (k == series.teNs.size()) return std::nullopt;
  return series.t0S + static_cast<double>(k) * series.dtS;
}

std::array<TeVerdict, 3> judge(double maxAbsTeNs, double cteNs, std::span<const CurvePoint> mtiePoints,
                               std::span<const CurvePoint> tdevPoints) {
  auto within = [](std::span<const CurvePoint> curve, double limit) {
    return std::all_of(curve.begin(), curve.end(), [&](const CurvePoint &p) {
      return p.tauS < kMaskTauMinS || p.tauS > kMaskTauMaxS || p.ns <= limit;
    });
  };
  std::array<TeVerdict, 3> out{};
  for (size_t i = 0; i < kTeClasses.size(); ++i) {
    const TeClass &c = kTeClasses[i];
    out[i] = {c.name, maxAbsTeNs <= c.maxTeNs, std::fabs(cteNs) <= c.cteNs, within(mtiePoints, c.mtieNs),
              within(tdevPoints, c.tdevNs)};
  }
  return out;
}

TeResult analyse(const TeSeries &series, const TeOptions &options) {
  const size_t count = series.teNs.size();
  if (!(series.dtS > 0)) throw std::invalid_argument("time error: the sample interval must be positive");
  if (count < 2) throw std::invalid_argument("time error: at least two samples are needed");
  if (!(options.settleS >= 0)) throw std::invalid_argument("time error: the settling time must not be negative");
  const auto first = static_cast<size_t>(std::ceil(options.settleS / series.dtS - 1e-9));
  if (first + 2 > count) throw std::invalid_argument("time error: the settling time leaves fewer than two samples");

  TeResult r{};
  r.lockTimeS = lockTime(series, options.lockThresholdNs);
  r.windowStartS = series.t0S + static_cast<double>(first) * series.dtS;
  r.windowEndS = series.t0S + static_cast<double>(count - 1) * series.dtS;
  const std::span<const double> window = std::span(series.teNs).subspan(first);
  r.maxAbsTeNs = 0;
  for (double te : window) r.maxAbsTeNs = std::max(r.maxAbsTeNs, std::fabs(te));
  r.cteNs = std::accumulate(window.begin(), window.end(), 0.0) / static_cast<double>(window.size());

  // The filter runs over the whole series so that the window starts with it settled.
  const std::vector<double> filtered = lowPass(series.teNs, series.dtS, options.lowPassHz);
  const std::span<const double> dteL = std::span(filtered).subspan(first);
  const double span = r.windowEndS - r.windowStartS;
  r.mtie = mtie(dteL, series.dtS, observationIntervals(series.dtS, span, 1));
  r.tdev = tdev(dteL, series.dtS, observationIntervals(series.dtS, span, 3));
  r.verdicts = judge(r.maxAbsTeNs, r.cteNs, r.mtie, r.tdev);
  r.bestClass = "none";
  for (const TeVerdict &v : r.verdicts) {
    if (v.met()) r.bestClass = std::string(1, v.name);
  }
  return r;
}

}  // namespace fwmtools::timing
