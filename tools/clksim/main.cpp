// clksim: a line card on the desk. Loads libfwmclk.so onto the simulated
// board, plays a scenario (the host's events, the orchestrator's requests,
// the engine's announces and failures, the passing of time) and shows what
// the library did, layer by layer, down to the engine driver and out to the
// negotiation peer.
#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>

#include "builtin.hpp"
#include "fwmsim/engine/wire.hpp"
#include "fwmtools/cli.hpp"
#include "fwmtools/timing/report.hpp"
#include "loader.hpp"
#include "outputs.hpp"
#include "runner.hpp"

namespace {

struct Options {
  std::string file;
  std::string builtin;
  bool list = false;
  std::string dump;
  bool dumpSet = false;
  bool check = false;
  std::string format = "text";
  std::string colour = "auto";
  std::string timeline;
  std::string pcap;
  std::string report;
  std::string only;
  std::string peer;
  bool realtime = false;
  bool verbose = false;
  std::vector<std::string> live;
};

constexpr int kExitBadScenario = fwmtools::kExitRefused;

// The page is written once the run is over; a run whose engines could not be
// judged (too short to settle) leaves no page behind.
std::string writeReport(std::ofstream &file, const std::string &path, const clksim::Scenario &sc,
                        const std::vector<fwmtools::timing::EngineTe> &engines) {
  if (engines.empty()) {
    file.close();
    std::remove(path.c_str());
    return fmt::format("--report {}: no engine's time error could be judged in this run", path);
  }
  fwmtools::timing::writeHtmlReport(file, fmt::format("Time error: {}", sc.name.empty() ? sc.source : sc.name),
                                    engines);
  file.close();
  return file ? "" : fmt::format("--report {}: writing the file failed", path);
}

}  // namespace

int main(int argc, char **argv) {
  Options opt;
  CLI::App app{
      "clksim: the clock service on a simulated line card.\n"
      "With no scenario it tells the built-in story (" +
      std::string(clksim::kDefaultScenario) +
      ").\nEvery output is written as the run goes and nothing is kept: a virtual day needs no more memory than a "
      "second."};
  app.add_option("scenario", opt.file, "scenario file (YAML) to run");
  app.add_option("-s,--builtin", opt.builtin, "run the built-in scenario NAME (see --list-scenarios)");
  app.add_flag("--list-scenarios", opt.list, "list the built-in scenarios and exit");
  app.add_option("--dump-scenario", opt.dump, "print a built-in scenario as YAML (default: the story) and exit")
      ->expected(0, 1);
  app.add_flag("--check", opt.check, "check the scenario and exit");
  app.add_option("-f,--format", opt.format, "text for people, jsonl for machines (one event a line)")
      ->check(CLI::IsMember({"text", "jsonl"}))
      ->capture_default_str();
  app.add_option("--colour,--color", opt.colour, "colour the text trace: auto (on a terminal), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  app.add_option("--only", opt.only,
                 "show only the records of these kinds, comma-separated (e.g. servo_state,te_judged); the summary "
                 "and the other outputs stay whole");
  app.add_option("--timeline", opt.timeline, "write a Chrome/Perfetto trace (JSON) of the run to FILE, as it goes");
  app.add_option("--pcap", opt.pcap, "write each acknowledgement as an IEEE 1588 announce to a pcap FILE");
  app.add_option("--report", opt.report,
                 "write the engines' time error against the truth as an HTML page to FILE (TE over time, MTIE and "
                 "TDEV against the class masks, verdicts); the scenario must keep time (board.clocks or network)");
  app.add_option("--peer", opt.peer, "send acknowledgements to the negotiation peer at HOST:PORT (e.g. clkpeer)");
  app.add_flag("--realtime", opt.realtime, "run on real threads and the wall clock instead of virtual time");
  app.add_option("--live", opt.live,
                 "attach engine port UNIT:PORT to network interface IFACE (UNIT:PORT=IFACE, repeatable); runs on "
                 "the wall clock and needs CAP_NET_RAW (root, or inside unshare -rn)")
      ->allow_extra_args(false);
  app.add_flag("-v,--verbose", opt.verbose, "also show the log agent's object calls");
  app.set_version_flag("--version", "clksim " FWMCLK_VERSION " (" FWMCLK_SONAME ")");
  app.footer(fwmtools::exitCodeHelp(fwmtools::Tool::Clksim));
  if (auto rc = fwmtools::parseCommandLine(app, argc, argv)) return *rc;
  opt.dumpSet = app.count("--dump-scenario") > 0;

  if (opt.list) {
    for (const auto &s : clksim::builtinScenarios()) {
      auto r = clksim::loadScenario(s.yaml, "builtin:" + std::string(s.name));
      std::string desc = std::holds_alternative<clksim::Scenario>(r) ? std::get<clksim::Scenario>(r).description : "";
      fmt::print("{:<20} {}{}\n", s.name, desc, s.name == clksim::kDefaultScenario ? " (default)" : "");
    }
    return 0;
  }
  if (opt.dumpSet) {
    std::string name = opt.dump.empty() ? std::string(clksim::kDefaultScenario) : opt.dump;
    const auto *s = clksim::findBuiltin(name);
    if (!s) {
      fmt::print(stderr, "clksim: no built-in scenario '{}' (see --list-scenarios)\n", name);
      return kExitBadScenario;
    }
    fmt::print("{}", s->yaml);
    return 0;
  }
  if (!opt.file.empty() && !opt.builtin.empty()) {
    fmt::print(stderr, "clksim: give a scenario file or --builtin, not both\n");
    return kExitBadScenario;
  }

  clksim::LoadResult loaded;
  if (!opt.file.empty()) {
    loaded = clksim::loadScenarioFile(opt.file);
  } else {
    std::string name = opt.builtin.empty() ? std::string(clksim::kDefaultScenario) : opt.builtin;
    const auto *s = clksim::findBuiltin(name);
    if (!s) {
      fmt::print(stderr, "clksim: no built-in scenario '{}' (see --list-scenarios)\n", name);
      return kExitBadScenario;
    }
    loaded = clksim::loadScenario(s->yaml, "builtin:" + name);
  }
  if (auto *err = std::get_if<clksim::LoadError>(&loaded)) {
    fmt::print(stderr, "{}\n", err->text());
    return kExitBadScenario;
  }
  const clksim::Scenario &sc = std::get<clksim::Scenario>(loaded);
  if (opt.check) {
    fmt::print("{}: {} steps, good\n", sc.source, sc.steps.size());
    return 0;
  }

  if (!opt.report.empty() && !clksim::keepsTime(sc.board.time)) {
    fmt::print(stderr, "clksim: --report {}: {} has no clocks and no network: no engine's time error to report\n",
               opt.report, sc.source);
    return kExitBadScenario;
  }

  clksim::RunOptions run;
  run.wirePorts = sc.board.wirePorts;
  for (const auto &text : opt.live) {
    auto w = clksim::parseWirePort(text);
    if (!w) {
      fmt::print(stderr, "clksim: --live {}: expected UNIT:PORT=IFACE with unit 0..7, e.g. 0:3=veth0\n", text);
      return kExitBadScenario;
    }
    run.wirePorts.push_back(*w);
  }
  // Every interface is checked before anything runs.
  for (const auto &w : run.wirePorts) {
    if (auto bad = fwmsim::Wire::checkInterface(w.iface)) {
      fmt::print(stderr, "clksim: wire port {}:{}={}: {}\n", w.unit, w.port, w.iface, *bad);
      return kExitBadScenario;
    }
  }
  run.realtime = opt.realtime || !run.wirePorts.empty();
  if (auto why = clksim::servoWithoutLink(sc.board.time, run.wirePorts, run.realtime)) {
    fmt::print(stderr, "clksim: {}\n", *why);
    return kExitBadScenario;
  }
  if (!opt.peer.empty()) {
    run.peer = fwmtools::parseEndpoint(opt.peer);
    if (!run.peer) {
      fmt::print(stderr, "clksim: --peer {}: expected HOST:PORT, e.g. 127.0.0.1:39011\n", opt.peer);
      return kExitBadScenario;
    }
    // The line card's negotiation client talks over the loopback interface only.
    if (run.peer->host != "127.0.0.1" && run.peer->host != "localhost") {
      fmt::print(stderr, "clksim: --peer {}: the negotiation client reaches 127.0.0.1 only\n", opt.peer);
      return kExitBadScenario;
    }
  }

  bool colour = opt.colour == "always" || (opt.colour == "auto" && ::isatty(STDOUT_FILENO));
  std::vector<std::unique_ptr<clksim::TraceObserver>> outputs;
  outputs.push_back(opt.format == "jsonl" ? clksim::makeJsonlRenderer(stdout)
                                          : clksim::makeTextRenderer(stdout, {colour, opt.verbose}));
  // Every file is created before anything runs: a run is not made to be lost.
  std::string err;
  if (!opt.only.empty()) outputs.back() = clksim::onlyKinds(std::move(outputs.back()), opt.only, &err);
  if (!err.empty()) {
    fmt::print(stderr, "clksim: {}\n", err);
    return kExitBadScenario;
  }
  if (!opt.timeline.empty()) outputs.push_back(clksim::makeTimelineWriter(opt.timeline, &err));
  if (err.empty() && !opt.pcap.empty()) outputs.push_back(clksim::makePcapWriter(opt.pcap, &err));
  std::ofstream report;
  if (err.empty() && !opt.report.empty()) {
    report.open(opt.report);
    if (!report) err = fmt::format("--report {}: cannot create the file", opt.report);
  }
  if (!err.empty()) {
    fmt::print(stderr, "clksim: {}\n", err);
    return fwmtools::kExitOutput;
  }
  clksim::SummaryObserver summary;

  clksim::Runner runner(sc, run);
  for (auto &o : outputs) runner.addObserver(o.get());
  runner.addObserver(&summary);
  int rc = runner.run();
  summary.summary().realtime = run.realtime;
  if (opt.format == "jsonl")
    clksim::printJsonlSummary(stdout, summary.summary());
  else
    clksim::printTextSummary(stdout, summary.summary(), colour);
  for (const auto &o : outputs) err = err.empty() ? o->error() : err;
  if (err.empty() && report.is_open()) err = writeReport(report, opt.report, sc, runner.timeErrors());
  if (err.empty() && (std::fflush(stdout) != 0 || std::ferror(stdout))) err = "writing the standard output failed";
  if (!err.empty()) {
    fmt::print(stderr, "clksim: {}\n", err);
    return fwmtools::kExitOutput;
  }
  return rc == 0 ? fwmtools::kExitOk : fwmtools::kExitStepFailed;
}
