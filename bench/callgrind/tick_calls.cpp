// Runs a fixed number of announce ticks over a given number of enabled ports,
// for callgrind.sh to count: "quiet" (no alarm pending) or "changed" (every
// port raises a change alarm, so each tick reads and posts once per port).
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/recorder.hpp"

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s quiet|changed <ticks> <ports>\n", argv[0]);
    return 2;
  }
  const bool changed = std::strcmp(argv[1], "changed") == 0;
  const long ticks = std::strtol(argv[2], nullptr, 10);
  const auto ports = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10));
  fwmsim::resetBoard();
  fwmsim::board().feNum = 8;
  (void)FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP);
  FWM_SRV_CLK_CreateBkfTask();
  fwmsim::clock().settle();
  g_ptpWaitBkfHelloMsgCnt = 4;
  fwmsim::recorder().setEnabled(false);
  FWM_SRV_CLK_InitLocal();
  ClkNpAnnFields fields{};
  fields.grandmasterIdentityLow = 1;
  fields.sourceClockIdentityLow = 1;
  for (uint32_t i = 0; i < ports; ++i) {
    ClkPtpPortCfg cfg{};
    cfg.enable = 1;
    (void)FWM_SRV_CLK_SavePtpPortCfg(i % 8, i / 8, &cfg);
    fwmsim::engine().setRxAnnounce(i % 8, i / 8, fields);
    fwmsim::engine().setAnnounceAlarm(i % 8, i / 8, 0, changed);
  }
  // A warm-up tick binds every PLT slot; nothing before the measured ticks counts.
  FWM_SRV_AnnTimerOutProc();
  fwmsim::clock().settle();
  CALLGRIND_ZERO_STATS;
  for (long i = 0; i < ticks; ++i) {
    FWM_SRV_AnnTimerOutProc();
    fwmsim::clock().settle();
  }
  std::printf("%s ticks=%ld ports=%u\n", argv[1], ticks, ports);
  return 0;
}
