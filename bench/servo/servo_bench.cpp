// The servo scenario's engine locked to its grandmaster for one virtual hour
// at 16 Syncs/s, run by clksim's runner with every output off: the servo
// reads and steers through the library 16 times a second. Reported as a
// multiple of real time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "builtin.hpp"
#include "fwmsim/recorder.hpp"
#include "loader.hpp"
#include "runner.hpp"

namespace {

// Keeps only the verdict; the recorder is off.
struct Quiet : clksim::TraceObserver {
  bool classC = false;
  void begin(const clksim::Scenario &) override { fwmsim::recorder().setEnabled(false); }
  void record(const clksim::TraceRecord &r) override {
    if (r.text.starts_with("time error of unit 0:") && r.text.ends_with("class met: C")) classC = true;
  }
};

void ServoHour(benchmark::State &state) {
  std::string yaml(clksim::findBuiltin("servo")->yaml);
  yaml = yaml.substr(0, yaml.find("  - advance:")) + "  - advance: 60min\n";
  const auto loaded = clksim::loadScenario(yaml, "servo-hour");
  if (!std::holds_alternative<clksim::Scenario>(loaded)) {
    state.SkipWithError("the servo scenario does not load");
    return;
  }
  for (auto _ : state) {
    const auto began = std::chrono::steady_clock::now();
    Quiet quiet;
    clksim::Runner r(std::get<clksim::Scenario>(loaded), {});
    r.addObserver(&quiet);
    r.run();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    state.counters["x_real_time"] = 3600.0 / seconds;
    state.counters["class_c"] = quiet.classC ? 1 : 0;
  }
}
BENCHMARK(ServoHour)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
