// The library's hot paths for callgrind to count, on a trivial engine driver
// (the oda_ functions below take the place of the simulated engine's, so only
// the library's own instructions count). Each measured loop is a window of its
// own: statistics are zeroed, collected for the loop alone and dumped under
// the window's name, so warm-up calls (which bind the PLT and fill the port
// list) are never counted. report.sh divides each window's total by its
// number of calls; every loop has the same shape, so subtracting two windows
// leaves exactly what one path adds over the other.
//
//   np <calls>            SetPtpCtrl three ways (engine driver, adapter slot, NP entry)
//                         and SetEncapDaSel two ways (adapter slot, NP entry), MSG off
//   tick <ticks> <ports>  announce ticks over <ports> enabled ports, no alarm pending
//   portcfg <calls>       SetPtpPortCfg of one enabled SLAVE port on a Mira board, MSG off
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/oda.h"
#include "fwmsim/board.hpp"
#include "fwmsim/recorder.hpp"

// The trivial engine driver: every call succeeds and reads back zeros.
extern "C" {
__attribute__((noipa)) uint32_t oda_1588_set_ptp_control(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_encap_da_sel(uint32_t, uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_ptp_state(uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_encap_domain_number(uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_encap_sport_identity_rx(uint32_t, uint32_t, uint32_t, const uint32_t *) {
  return 0;
}
__attribute__((noipa)) uint32_t oda_1588_set_pkt_tx_en(uint32_t, uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_announce_timeout(uint32_t, uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_1588_set_port_en(uint32_t, uint32_t, uint32_t) { return 0; }
__attribute__((noipa)) uint32_t oda_port_set_control(uint32_t, uint32_t, void *) { return 0; }
// The board query on the port configuration's path answers at once, as well.
__attribute__((noipa)) uint32_t FWM_Srv_Get_ChipType(void) { return 40; }
__attribute__((noipa)) uint32_t oda_1588_get_announce_alarm(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t *alarm) {
  *alarm = 0;
  return 0;
}
}

namespace {

// Runs `body` `calls` times as the window `name`.
template <class F>
void window(const char *name, long calls, F body) {
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  for (long i = 0; i < calls; ++i) body();
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT(name);
}

// A board whose agent is ready, whose units 0..7 have the adapter, with MSG off.
void quietBoard() {
  fwmsim::resetBoard();
  fwmsim::recorder().setEnabled(false);
  g_clkSrvImAgentHandle = 0x00A6E0F0u;
  for (NpClkDriverFuncs &unit : g_fnNpClkDriver) clk_1588_driver_init(&unit);
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_MSG] = 0;
}

uint32_t gSink = 0;  // keeps every result alive

int np(long calls) {
  quietBoard();
  gSink = oda_1588_set_ptp_control(0, 3, 7, 1, 0) + oda_1588_set_encap_da_sel(0, 3, 1, 1);
  gSink += static_cast<uint32_t>(clk_1588_set_ptp_control(0, 3, 7, 1) + clk_1588_set_encap_da_sel(0, 3, 1, 1));
  gSink += static_cast<uint32_t>(CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1) + CLK_NP_1588_SetEncapDaSel(0, 3, 1, 1));
  window("direct", calls, [] { gSink += oda_1588_set_ptp_control(0, 3, 7, 1, 0); });
  window("adapter", calls, [] { gSink += static_cast<uint32_t>(clk_1588_set_ptp_control(0, 3, 7, 1)); });
  window("np", calls, [] { gSink += static_cast<uint32_t>(CLK_NP_1588_SetPtpCtrl(0, 3, 7, 1)); });
  window("adapter-noline", calls, [] { gSink += static_cast<uint32_t>(clk_1588_set_encap_da_sel(0, 3, 1, 1)); });
  window("np-noline", calls, [] { gSink += static_cast<uint32_t>(CLK_NP_1588_SetEncapDaSel(0, 3, 1, 1)); });
  return static_cast<int>(gSink);
}

int tick(long ticks, uint32_t ports) {
  quietBoard();
  g_fwmClkBkfHandle.client = 1;  // the channel is ready
  g_ptpWaitBkfHelloMsgCnt = 4;   // and has been for long enough
  FWM_SRV_CLK_InitLocal();
  for (uint32_t i = 0; i < ports; ++i) {
    ClkPtpPortCfg cfg{};
    cfg.enable = 1;
    (void)FWM_SRV_CLK_SavePtpPortCfg(i % 8, i / 8, &cfg);
  }
  FWM_SRV_AnnTimerOutProc();
  window("tick", ticks, [] { FWM_SRV_AnnTimerOutProc(); });
  return 0;
}

int portCfg(long calls) {
  quietBoard();
  g_FwmSrvBkfThreadId = 1;  // the worker exists
  g_clkAnndetectTmr = 1;    // and the announce timer runs
  static ClkPtpPortCfg cfg{};
  cfg.enable = 1;
  cfg.portState = 9;
  cfg.ctrlType1Value = 1;
  gSink = FWM_SRV_CLK_SetPtpPortCfg(0, 3, 0xFFFFFFFFu, &cfg);
  window("portcfg", calls, [] { gSink |= FWM_SRV_CLK_SetPtpPortCfg(0, 3, 0xFFFFFFFFu, &cfg); });
  // The NP entries that configuration makes, with the same arguments and in
  // the same order, called one after the other (report.sh checks that both
  // windows call the same entries equally often).
  window("portcfg-np", calls, [] {
    static ClkNpPortIdentity id{};
    static ClkNpPortEnInfo info{};
    info.fwdUnit = 0;
    info.fwdPort = 3;
    info.fwdTarget = 0xFFFFFFFFu;
    int32_t r = CLK_NP_1588_SetPtpState(0, 3, 9);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 0, 0);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 1, 1);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 18, 1);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 8, 3);
    r |= CLK_NP_1588_SetEncapSportIdentityRx(0, 3, 1, &id);
    r |= CLK_NP_1588_SetPktTxEn(0, 3, 4, 1);
    r |= CLK_NP_1588_SetEncapDomainNumber(0, 3, 0);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 2, 0);
    r |= CLK_NP_1588_SetAnnounceTimeout(0, 3, 0, 0);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 6, 1);
    r |= CLK_NP_1588_SetPtpCtrl(0, 3, 33, 0);
    r |= CLK_NP_1588_SetPortEn(0, 3, 1, &info);
    gSink |= static_cast<uint32_t>(r);
  });
  return static_cast<int>(gSink);
}

}  // namespace

int main(int argc, char **argv) {
  const std::string mode = argc > 2 ? argv[1] : "";
  const long n = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 0;
  if (mode == "np" && argc == 3) return np(n);
  if (mode == "tick" && argc == 4) return tick(n, static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)));
  if (mode == "portcfg" && argc == 3) return portCfg(n);
  std::fprintf(stderr, "usage: %s np <calls> | tick <ticks> <ports> | portcfg <calls>\n", argv[0]);
  return 2;
}
