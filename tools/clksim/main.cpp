// clksim: a line card on the desk. Loads libfwmclk.so onto the simulated
// board, drives it as the host process would, and prints what the library did
// to the platform as it happens.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/recorder.hpp"

namespace {

struct Options {
  uint32_t chipType = 40;
  uint32_t engines = 2;
  bool coldAgent = false;
  bool verbose = false;
};

// The agent's object plumbing is noise next to the lines it carries.
bool plumbing(const fwmsim::Event &e) {
  return e.facility == "agent" && (e.text.rfind("IM_Agent_ObjCreate", 0) == 0 ||
                                   e.text.rfind("IM_Agent_AddPara", 0) == 0 || e.text.rfind("IM_Agent_Send", 0) == 0);
}

void print(const fwmsim::Event &e, bool verbose) {
  if (!verbose && plumbing(e)) return;
  std::string text = e.text;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  std::printf("%7.3f  %-28s %-6s %s\n", static_cast<double>(e.vtimeMs) / 1000.0, e.thread.c_str(), e.facility.c_str(),
              text.c_str());
}

void banner(const char *what) { std::printf("\n== %s\n", what); }

}  // namespace

int main(int argc, char **argv) {
  Options opt;
  CLI::App app{"clksim: the clock service on a simulated line card"};
  app.add_option("--chip-type", opt.chipType, "chip type of the forwarding engines (40 = Mira family)");
  app.add_option("--engines", opt.engines, "number of forwarding engines on the board");
  app.add_flag("--cold-agent", opt.coldAgent,
               "the process has no log agent yet: the library brings one up from its own task");
  app.add_flag("-v,--verbose", opt.verbose, "also show the log agent's object calls");
  CLI11_PARSE(app, argc, argv);

  fwmsim::resetBoard();
  fwmsim::board().chipType = opt.chipType;
  fwmsim::board().feNum = opt.engines;
  if (!opt.coldAgent) fwmsim::agent().existingHandle = 0x00A6E0F0u;
  // Start-up progress is worth seeing on the desk.
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  fwmsim::recorder().setSink([&](const fwmsim::Event &e) { print(e, opt.verbose); });

  std::printf("board: chip type %u, %u engines, chassis %u slot %u\n", opt.chipType, opt.engines,
              fwmsim::board().chassisId, fwmsim::board().slotId);

  banner("event 1: start-up");
  int32_t ret = FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP);
  fwmsim::clock().settle();
  std::printf("         -> FWM_Srv_Clk_Notify(1) = %d\n", ret);
  if (opt.coldAgent) {
    banner("20 s pass while the agent comes up");
    fwmsim::clock().advance(20000);
  }

  banner("event 3: master board address");
  ret = FWM_Srv_Clk_Notify(FWM_CLK_EVENT_MASTER_IP);
  fwmsim::clock().settle();
  std::printf("         -> FWM_Srv_Clk_Notify(3) = %d\n", ret);

  fwmsim::recorder().setSink(nullptr);
  std::printf("\n%zu platform calls, %zu log lines delivered, %zu debug lines, virtual time %.3f s\n",
              fwmsim::recorder().events().size(), fwmsim::agent().delivered().size(),
              fwmsim::registry().printed().size(), static_cast<double>(fwmsim::clock().nowMs()) / 1000.0);
  return 0;
}
