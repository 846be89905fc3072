// tereport: writes a TE report of two simulated engines, each steered by the
// PI servo from noisy offsets: one with hardware stamps, one with software
// stamps. Seeded, so every run writes the same page; it shows what the report
// looks like and gives the browser check a page to open.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <vector>

#include "fwmtools/timing/report.hpp"
#include "fwmtools/timing/servo.hpp"

namespace {

using namespace fwmtools::timing;

struct Engine {
  const char *name;
  bool softwareStamps;
  double freqErrorPpb, initialOffsetNs, noiseNs;
};

constexpr double kRate = 16, kDurationS = 1300, kSettleS = 300;
constexpr Engine kEngines[] = {{"engine0 (hardware stamps)", false, 50000, 1e6, 8},
                               {"engine1 (software stamps)", true, -30000, 2e5, 2000}};

EngineTe run(const Engine &e, uint64_t seed) {
  std::mt19937_64 rng(seed);
  // The engine's output, not libstdc++'s distributions, so that any build draws the same numbers.
  auto noise = [&] { return (static_cast<double>(rng() >> 11) * 0x1p-53 * 2 - 1) * e.noiseNs; };
  ServoConfig cfg;
  cfg.softwareStamps = e.softwareStamps;
  PiServo servo(cfg, 1 / kRate);
  EngineTe out{e.name, {0, 1 / kRate, {}}, {}};
  double phase = e.initialOffsetNs, adjPpb = 0;
  const auto steps = static_cast<size_t>(kDurationS * kRate);
  for (size_t k = 0; k < steps; ++k) {
    const double t = static_cast<double>(k) / kRate;
    out.series.teNs.push_back(phase);
    const ServoOutput o = servo.sample(std::llround(phase + noise()), std::llround(t * 1e9 + phase));
    phase += static_cast<double>(o.stepNs);
    adjPpb = o.freqPpb;
    phase += (e.freqErrorPpb + adjPpb) / kRate;
  }
  TeOptions options;
  options.settleS = kSettleS;
  out.result = analyse(out.series, options);
  return out;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: tereport OUT.html\n");
    return 2;
  }
  std::vector<EngineTe> engines;
  for (const Engine &e : kEngines) engines.push_back(run(e, 24 + engines.size()));
  std::ofstream file(argv[1]);
  writeHtmlReport(file, "Time error: two engines, PI servo, 16 Syncs/s", engines);
  file.close();
  if (!file) {
    std::fprintf(stderr, "tereport: cannot write %s\n", argv[1]);
    return 1;
  }
  for (const EngineTe &e : engines) std::printf("%s: %s\n", e.name.c_str(), e.result.bestClass.c_str());
  return 0;
}
