// The soak run: a Mira card with 384 enabled ports (8 units x 48) follows
// announce changes, one every few seconds on a rotating port, for a virtual
// day. After every virtual hour it prints the memory the board lends the
// library (blocks outstanding), the process's resident size, and how many
// changes were made and acknowledged at the negotiation peer.
// Usage: soak [hours] (default 24). Exit 1 when a change was not acknowledged
// exactly once, board memory grew after the first hour, or the process grew by
// more than 8 MB after the second.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fwmsim/board.hpp"
#include "fwmsim/recorder.hpp"
#include "loader.hpp"
#include "runner.hpp"

namespace {

constexpr int kUnits = 8, kPorts = 48;
constexpr int kChangeEverySeconds = 3;
constexpr long kRssSlackKb = 8192;

// The negotiation peer for the whole run: the library's client keeps the
// address it was given at start-up, so one socket serves every chunk, read
// after each step so that its receive buffer never overflows.
struct Counter : clksim::TraceObserver {
  fwmtools::UdpSocket peer;
  size_t received = 0;
  void begin(const clksim::Scenario &) override { fwmsim::recorder().setEnabled(false); }
  void record(const clksim::TraceRecord &r) override {
    if (r.kind != clksim::TraceKind::StepEnd) return;
    while (peer.receive(std::chrono::milliseconds(0))) ++received;
  }
};

long residentKb() {
  long pages = 0, resident = 0;
  if (std::FILE *f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * 4;
}

int run(const std::string &yaml, bool fresh, Counter &c) {
  auto loaded = clksim::loadScenario(yaml, "soak");
  if (auto *e = std::get_if<clksim::LoadError>(&loaded)) {
    std::fprintf(stderr, "%s\n", e->text().c_str());
    std::exit(2);
  }
  clksim::RunOptions opt;
  opt.freshBoard = fresh;
  opt.peer = fwmtools::Endpoint{"127.0.0.1", c.peer.localPort()};
  clksim::Runner r(std::get<clksim::Scenario>(loaded), opt);
  r.addObserver(&c);
  return r.run();
}

}  // namespace

int main(int argc, char **argv) {
  const int hours = argc > 1 ? std::atoi(argv[1]) : 24;
  Counter acks;
  if (!acks.peer.bind({"127.0.0.1", 0})) return 2;
  std::string setup = fmt::format("board: {{chipType: 40, engines: {}}}\nsteps:\n  - notify: startup\n", kUnits);
  for (int u = 0; u < kUnits; ++u)
    for (int p = 0; p < kPorts; ++p)
      setup += fmt::format(
          "  - set_ptp_port_cfg: {{unit: {}, port: {}, enable: 1, portState: 9, domainNumber: 24, "
          "annTimeoutMultiple: 3, ifIndex: {}}}\n",
          u, p, u * kPorts + p + 1);
  setup += "  - advance: 3s\n";  // the announce supervision is running before the first change
  if (run(setup, true, acks) != 0) return 1;
  std::printf("hour  changes  acknowledged  blocks  rss_kb\n");
  size_t changes = 0, firstBlocks = 0;
  long firstRss = 0, settledRss = 0;
  int status = 0;
  for (int h = 1; h <= hours; ++h) {
    std::string steps = "board: {}\nsteps:\n";
    for (int s = 0; s < 3600 / kChangeEverySeconds; ++s, ++changes) {
      const int unit = static_cast<int>(changes % kUnits), port = static_cast<int>(changes / kUnits % kPorts);
      steps += fmt::format(
          "  - announce_received: {{unit: {0}, port: {1}, grandmasterIdentity: 001b19.fffe.{2:06x}, clockClass: 6, "
          "domainNumber: 24}}\n  - advance: {3}s\n",
          unit, port, changes & 0xFFFFFF, kChangeEverySeconds);
    }
    if (run(steps, false, acks) != 0) status = 1;
    const size_t blocks = fwmsim::memory().outstanding();
    const long rss = residentKb();
    if (h == 1) firstBlocks = blocks, firstRss = rss;
    // The first two hours fill the allocator's caches; after that the process holds what it held.
    if (h <= 2) settledRss = std::max(settledRss, rss);
    std::printf("%4d  %7zu  %12zu  %6zu  %6ld\n", h, changes, acks.received, blocks, rss);
    std::fflush(stdout);
    if (blocks != firstBlocks || rss > settledRss + kRssSlackKb) status = 1;
  }
  if (acks.received != changes) status = 1;  // the engine's change alarm latches: one acknowledgement per change
  std::printf("%s: %zu changes, %zu acknowledged; blocks %zu -> %zu; rss %ld -> %ld kB\n", status ? "FAIL" : "ok",
              changes, acks.received, firstBlocks, fwmsim::memory().outstanding(), firstRss, residentKb());
  return status;
}
