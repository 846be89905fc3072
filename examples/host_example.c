/* A host in C that plays the clock orchestrator: it starts the service, keeps
 * the operation table the service registered, and drives all fifteen
 * operations through it, checking every result. Exits non-zero on a mismatch. */
#include <stdio.h>
#include <string.h>

#include "fwmclk/fwmclk.h"
#include "fwmsim/c_api.h"

static int g_failures;

static void expect(int ok, const char *what) {
  if (!ok) {
    ++g_failures;
    fprintf(stderr, "host_example: FAILED: %s\n", what);
  }
}

static size_t engineCalls(void) { return fwmsim_call_count("oda"); }

static void configurePort(const ClkSrvOrchIntf *orch) {
  ClkPtpGlbCfg glb = {3};
  expect(orch->setPtpGlbCfg(&glb) == 0, "global setting succeeds");

  ClkPtpPortCfg cfg;
  memset(&cfg, 0, sizeof cfg);
  cfg.enable = 1;
  cfg.portState = 9u | FWM_CLK_PORT_STATE_FLAG; /* SLAVE, state flag set */
  cfg.domainNumber = 24;
  cfg.ctrlType1Value = 1;
  cfg.annTimeoutMultiple = 3;
  cfg.rxSrcPortIdentity[0] = 0x00112233u;
  cfg.ifIndex = 77;
  expect(orch->setPtpPortCfg(0, 3, 0xFFFFFFFFu, &cfg) == 0, "port configuration succeeds");
  expect(cfg.portState == 9u, "the state flag is cleared in the request");

  ClkPtpPortAsym asym = {-100};
  expect(orch->setPtpPortAsym(0, 3, &asym) == 0, "negative asymmetry succeeds");
  expect(orch->setPtpPortAsym(9, 3, &asym) == (uint32_t)CLK_NP_ERR_UNIT, "unit 9 is refused by the NP layer");

  ClkSsmPortCfg ssm = {{0, 0}, 1};
  expect(orch->setSsmPortCfg(0, 3, &ssm) == 0, "SSM receive succeeds");
}

static void encapsulateAndControl(const ClkSrvOrchIntf *orch) {
  ClkPtpPktEncap encap;
  memset(&encap, 0, sizeof encap);
  encap.encapType = 3;
  encap.vlanPriority = 5;
  encap.vlanId = 100;
  encap.srcIp = 0x0A000001u;
  size_t before = engineCalls();
  expect(orch->setPtpPktEncap(0, 3, 2, &encap) == 0, "encapsulation succeeds");
  /* type 3: encapsulation (3 engine calls), 12 addresses, DSCP, tag, source IP */
  expect(engineCalls() - before == 18, "encapsulation makes 18 engine calls");

  ClkPtpRxCtl rx;
  memset(&rx, 0, sizeof rx);
  rx.pktType = 6;
  rx.rxEnable = 1;
  before = engineCalls();
  expect(orch->setPtpRxCtl(0, 3, &rx) == 0, "receive enable of type 6 is accepted");
  expect(engineCalls() == before, "receive enable of type 6 writes nothing");
  rx.pktType = 9;
  expect(orch->setPtpRxCtl(0, 3, &rx) == 1, "packet type 9 is refused");

  ClkPtpTxCtl tx = {3, 1, 0, 4};
  expect(orch->setPtpTxCtl(0, 3, &tx) == 0, "transmit control of type 3 succeeds");
  tx.pktType = 0;
  expect(orch->setPtpTxCtl(0, 3, &tx) == 1, "packet type 0 is refused");

  ClkPtpRxSrcPortId rxId = {4, {1, 2, 3}};
  expect(orch->setPtpRxSrcPortId(0, 3, &rxId) == 0, "receive source port identity succeeds");
  ClkPtpTxSrcPortId txId = {{4, 5, 6}};
  expect(orch->setPtpTxSrcPortId(0, 3, &txId) == 0, "transmit source port identity succeeds");

  before = engineCalls();
  expect(orch->setPtpRxCtl(0, 3, NULL) == 1, "a null request is refused");
  expect(engineCalls() == before, "a null request reaches no engine");
}

static void announce(const ClkSrvOrchIntf *orch) {
  ClkPtpAnnPkt ann;
  memset(&ann, 0, sizeof ann);
  ann.flagField = 0x0008;
  ann.currentUtcOffset = 37;
  ann.clockClass = 248;
  ann.stepsRemoved = 1;
  expect(orch->setPtpPortPkt(0, 3, &ann) == 0, "announce programming succeeds");
  expect(orch->setPtpAnnClr(0, 3) == 0, "announce clear succeeds");

  fwmsim_inject_fault("oda_1588_set_announce_alarm", 1, 1);
  expect(orch->setPtpAnnClr(0, 3) == (uint32_t)CLK_NP_ERR_FAIL, "a failing engine shows in the result");
}

static void query(const ClkSrvOrchIntf *orch) {
  ClkPtpTimestamp ts;
  memset(&ts, 0, sizeof ts);
  ts.words[0] = 0xCAFEF00Du;
  expect(orch->getPtpTimestamp(0, 3, &ts) == 0, "timestamps are read");
  expect(ts.words[0] == 0xCAFEF00Du, "reply word 0 is the caller's");

  ClkPtpDfxDelay delay;
  expect(orch->getPtpT2SubT1(0, 3, 0, &delay) == 0, "t2-t1 is read");
  expect(orch->getPtpT4SubT3(0, 3, 0, &delay) == 0, "t4-t3 is read");
  expect(orch->getPtpT2SubT1(0, 3, 0, NULL) == 1, "a null reply is refused after the read");

  ClkPtpPktStat stat;
  expect(orch->getPtpPktStat(0, 3, 0, &stat) == 0, "statistics are read");
  expect(orch->getPtpPktStat(0, 3, 1, NULL) == 0, "read-clear needs no reply");
}

int main(void) {
  if (FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP) != 0) {
    fprintf(stderr, "host_example: start-up failed\n");
    return 1;
  }
  const ClkSrvOrchIntf *orch = (const ClkSrvOrchIntf *)fwmsim_registered_orch_table();
  if (orch == NULL) {
    fprintf(stderr, "host_example: no operation table was registered\n");
    return 1;
  }
  configurePort(orch);
  encapsulateAndControl(orch);
  announce(orch);
  query(orch);
  fwmsim_settle();
  if (g_failures != 0) return 1;
  printf("host_example: all operations behaved\n");
  return 0;
}
