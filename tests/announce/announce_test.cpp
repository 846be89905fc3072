// The PTP port list (one node per unit and port, newest first, its announce
// state kept across saves) and announce supervision on a simulated Mira board:
// the 500 ms tick, the channel-readiness wait, the per-port state machine and
// the acknowledgements the negotiation peer receives over the loopback socket.
#include <atomic>
#include <cstring>
#include <thread>
#include <tuple>

#include "fwmclk/fwmclk.h"
#include "fwmsim/channel.hpp"
#include "fwmsim/engine/engine.hpp"
#include "testkit.hpp"

// Records are built with designated initializers; the fields left out are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

// (unit, port) of every node, walking from the head.
std::vector<std::pair<uint32_t, uint32_t>> walk() {
  std::vector<std::pair<uint32_t, uint32_t>> out;
  auto *head = reinterpret_cast<ClkPtpPortNode *>(&g_ClkLocalData);
  for (ClkPtpPortNode *n = g_ClkLocalData.next; n != head; n = n->next) out.emplace_back(n->unit, n->port);
  return out;
}

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class PortList : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_DEBUG] = 1;
    FWM_SRV_CLK_InitLocal();
  }
  static ClkPtpPortNode *save(uint32_t unit, uint32_t port, uint32_t enable, uint32_t ifIndex = 0, uint32_t state = 0) {
    ClkPtpPortCfg cfg{.enable = enable, .portState = state, .ifIndex = ifIndex};
    return FWM_SRV_CLK_SavePtpPortCfg(unit, port, &cfg);
  }
};

TEST_F(PortList, NewestPortComesFirst) {
  save(0, 5, 1);
  save(1, 5, 1);
  save(0, 5, 0);
  EXPECT_THAT(walk(), ElementsAre(std::pair{1u, 5u}, std::pair{0u, 5u}));
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("MSG [FWM_SRV] PtpAddPort success unit=0 port=5.",
                                                 "MSG [FWM_SRV] PtpAddPort success unit=1 port=5."));
  // The back links lead the other way round.
  auto *head = reinterpret_cast<ClkPtpPortNode *>(&g_ClkLocalData);
  EXPECT_EQ(g_ClkLocalData.prev->unit, 0u);
  EXPECT_EQ(g_ClkLocalData.prev->next, head);
  EXPECT_EQ(g_ClkLocalData.next->prev, head);
}

// Saving, adding or initialising again keeps the node and its announce state.
TEST_F(PortList, AnExistingPortKeepsItsNodeSilently) {
  ClkPtpPortNode *n = save(0, 5, 1, 77, 9);
  n->annState = CLK_ANN_STATE_PRESENT;
  size_t lines = fwmtest::agentLines().size();
  uint64_t allocs = fwmsim::memory().allocations();
  EXPECT_EQ(save(0, 5, 0, 78, 0x80000003u), n);
  EXPECT_EQ(FWM_SRV_CLK_PtpAddPort(0, 5), n);
  EXPECT_EQ(fwmtest::agentLines().size(), lines);
  EXPECT_EQ(fwmsim::memory().allocations(), allocs);
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 4), nullptr);
  EXPECT_THAT(std::vector<uint32_t>({n->ifIndex, n->enable, n->portState, n->annState}),
              ElementsAre(78u, 0u, 0x80000003u, CLK_ANN_STATE_PRESENT));
  FWM_SRV_CLK_InitLocal();
  EXPECT_EQ(walk().size(), 1u);
  EXPECT_EQ(g_clkCreateListCnt, 1u);
}

TEST_F(PortList, OnlyEnableOneCountsAsEnabled) {
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 0u);
  save(0, 1, 2);
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 0u);
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("DEBUG [FWM_SRV] IsExistPtpPortEnable False.",
                                                 "MSG [FWM_SRV] PtpAddPort success unit=0 port=1.",
                                                 "DEBUG [FWM_SRV] IsExistPtpPortEnable False."));
  // Stopping the announce timer while none runs does nothing and answers 0.
  EXPECT_EQ(FWM_SRV_CLK_PtpAnnTimerDestroy(), 0u);
  save(0, 2, 1);
  EXPECT_EQ(FWM_SRV_CLK_IsExistPtpPortEnable(), 1u);
  EXPECT_EQ(FWM_SRV_CLK_PtpAnnTimerDestroy(), 1u);  // a port still wants it
  EXPECT_THAT(fwmsim::recorder().texts("orin"), ::testing::Not(::testing::Contains(::testing::HasSubstr("Stop"))));
}

// A node that cannot be allocated is retried by the next save; nodes come from
// the channel's partition; clearing, even an empty list, frees every node.
TEST_F(PortList, NodesAreRetriedAfterAFailureAndClearedWithTheirState) {
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(save(0, 1, 1), nullptr);
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_EQ(FWM_SRV_CLK_ClearPortList(), 0);
  EXPECT_THAT(fwmtest::agentLines(),
              ElementsAre("ERROR [FWM_SRV] PtpAddPort Malloc failed.", "MSG [FWM_SRV] ClearPortList End."));
  save(0, 1, 1)->annState = CLK_ANN_STATE_LOST;
  save(0, 2, 1);
  save(3, 4, 0);
  ASSERT_EQ(fwmsim::memory().outstanding(FWM_SRV_BKF_GetMemHdl(), FWM_SRV_BKF_GetMemPtNo()), 3u);
  EXPECT_EQ(FWM_SRV_CLK_ClearPortList(), 0);
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_EQ(fwmtest::agentLines().back(), "MSG [FWM_SRV] ClearPortList End.");
  EXPECT_EQ(save(0, 1, 1)->annState, CLK_ANN_STATE_NONE);
}

constexpr uint32_t kTick = 500;

class Supervision : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmsim::board().chipType = 40;
    fwmsim::board().feNum = 2;
    fwmsim::setPeerPort(peer.port());
    fwmtest::adoptAgent();
    ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
    orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
  }

  void configure(uint32_t unit, uint32_t port, uint32_t enable, uint32_t ifIndex) {
    ClkPtpPortCfg cfg{.enable = enable, .portState = 9, .ifIndex = ifIndex};
    (void)orch->setPtpPortCfg(unit, port, 0xFFFFFFFFu, &cfg);
    fwmsim::clock().settle();
  }

  // Brings the channel up and lets the four waiting ticks pass.
  void readyAndWaited() {
    ClkBkfHandle h;
    FWM_SRV_CLK_GetBkfHdl(&h);
    ASSERT_NE(h.client, 0u) << "the worker has not brought the channel up";
    fwmsim::clock().advance(4 * kTick);
  }

  size_t mark() const { return fwmsim::recorder().mark(); }
  // The arguments of every alarm read since `m`.
  static std::vector<std::string> alarmReads(size_t m) {
    const std::string read = "oda_1588_get_announce_alarm";
    std::vector<std::string> out;
    for (auto &c : fwmtest::callsSince(m, "oda"))
      if (c.rfind(read, 0) == 0) out.push_back(c.substr(read.size()));
    return out;
  }

  fwmsim::Peer peer;
  const ClkSrvOrchIntf *orch = nullptr;
};

// The received announce of the story's grandmaster.
ClkNpAnnFields grandmaster() {
  // clang-format off
  return {.currentUtcOffset = 37, .grandmasterIdentityHigh = 0x001B19FFu, .grandmasterIdentityLow = 0xFE000001u,
      .clockClass = 6, .clockAccuracy = 0x21, .offsetScaledLogVariance = 0x4E5D, .grandmasterPriority1 = 128,
      .grandmasterPriority2 = 127, .stepsRemoved = 1, .timeSource = 0x20, .domainNumber = 24, .flagField = 0x0208,
      .logMessageInterval = 0xFE, .sourceClockIdentityHigh = 0x001B19FFu, .sourceClockIdentityLow = 0xFE000002u,
      .sourcePortNumber = 0x10003};
  // clang-format on
}

// The acknowledgement as the peer must receive it: 4 zero bytes, then the
// announce information record with the message image in host byte order.
std::vector<uint8_t> expectedAck(uint32_t ifIndex, const ClkNpAnnFields &f) {
  std::vector<uint8_t> m(100, 0);
  // (offset in the record, which starts after the 4 zero bytes; width; value)
  // clang-format off
  const std::initializer_list<std::tuple<size_t, int, int64_t>> fields = {
      {0, 4, ifIndex}, {4, 4, 96}, {9, 1, 11}, {11, 1, 2}, {12, 2, 64}, {14, 1, f.domainNumber},
      {16, 1, f.flagField >> 8}, {17, 1, f.flagField & 0xFF}, {40, 4, f.sourceClockIdentityLow},
      {44, 4, f.sourceClockIdentityHigh}, {48, 2, f.sourcePortNumber}, {52, 1, 5}, {53, 1, f.logMessageInterval},
      {66, 2, f.currentUtcOffset}, {69, 1, f.grandmasterPriority1}, {70, 1, f.clockClass}, {71, 1, f.clockAccuracy},
      {72, 2, f.offsetScaledLogVariance}, {74, 1, f.grandmasterPriority2}, {80, 4, f.grandmasterIdentityLow},
      {84, 4, f.grandmasterIdentityHigh}, {88, 2, f.stepsRemoved}, {90, 1, f.timeSource}};
  // clang-format on
  for (const auto &[at, width, v] : fields)
    for (int i = 0; i < width; ++i) m[4 + at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
  return m;
}

TEST_F(Supervision, AnnouncesReachThePeerAtTheRightTicks) {
  configure(0, 3, 1, 0x1003);
  configure(1, 7, 1, 0x2007);
  ASSERT_NE(g_clkAnndetectTmr, 0u);
  size_t m = mark();
  readyAndWaited();  // four ready ticks poll nothing
  EXPECT_THAT(alarmReads(m), IsEmpty());

  // Tick 5: both ports polled, newest first; the change on (0, 3) is sent.
  fwmsim::engine().setRxAnnounce(0, 3, grandmaster());
  fwmsim::engine().setAnnounceAlarm(0, 3, 0, true);
  m = mark();
  fwmsim::clock().advance(kTick);
  EXPECT_THAT(alarmReads(m), ElementsAre("(1, 7, 0, 1, &)", "(1, 7, 1, 1, &)", "(0, 3, 0, 1, &)", "(0, 3, 1, 1, &)"));
  EXPECT_THAT(fwmtest::callsSince(m, "oda"), Contains("oda_1588_get_announce_field_rx(0, 3, 0, &, &)"));
  auto ack = peer.receive();
  ASSERT_TRUE(ack.has_value());
  EXPECT_EQ(*ack, expectedAck(0x1003, grandmaster()));
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 3)->annState, CLK_ANN_STATE_PRESENT);
  EXPECT_THAT(fwmtest::agentLines(), Contains("MSG [FWM_SRV_BKF] Mira_PtpAnnAlmProc annState=1."));

  // No alarm: nothing more is sent.
  fwmsim::engine().setAnnounceAlarm(0, 3, 0, false);
  fwmsim::clock().advance(kTick);
  EXPECT_FALSE(peer.pending());

  // A timeout alone is first only noted, then sent as a record of zero fields.
  fwmsim::engine().setAnnounceAlarm(0, 3, 1, true);
  fwmsim::clock().advance(kTick);
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 3)->annState, CLK_ANN_STATE_LOST);
  EXPECT_THAT(fwmtest::agentLines(), Contains("MSG [FWM_SRV_BKF] Mira_GetAnnounceState Timeout."));
  fwmsim::engine().announceTimedOut(0, 3);  // the read cleared the first window; a second one passes
  fwmsim::clock().advance(kTick);
  ack = peer.receive();
  ASSERT_TRUE(ack.has_value());
  EXPECT_EQ(*ack, expectedAck(0x1003, ClkNpAnnFields{}));
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 3)->annState, CLK_ANN_STATE_LOST);

  // A port switched off is no longer polled; the timer runs while (1, 7) is on.
  fwmsim::engine().setAnnounceAlarm(0, 3, 1, false);
  configure(0, 3, 0, 0x1003);
  EXPECT_NE(g_clkAnndetectTmr, 0u);
  m = mark();
  fwmsim::clock().advance(kTick);
  EXPECT_THAT(alarmReads(m), ElementsAre("(1, 7, 0, 1, &)", "(1, 7, 1, 1, &)"));

  // The last enabled port goes: the timer stops.
  configure(1, 7, 0, 0x2007);
  EXPECT_EQ(g_clkAnndetectTmr, 0u);
  EXPECT_EQ(fwmsim::clock().runningTimers(), 0u);
  EXPECT_THAT(fwmtest::agentLines(), Contains("MSG [FWM_SRV_BKF] PtpAnnTimerDestroy End."));
  m = mark();
  fwmsim::clock().advance(4 * kTick);
  EXPECT_THAT(alarmReads(m), IsEmpty());
  EXPECT_THAT(fwmsim::registry().printed(), IsEmpty());  // no step of the story reported a failure
}

TEST_F(Supervision, ANotReadyTickRestartsTheWait) {
  configure(0, 3, 1, 1);
  fwmsim::clock().advance(3 * kTick);
  EXPECT_EQ(g_ptpWaitBkfHelloMsgCnt, 3u);
  // The channel drops for one tick (the client word cleared, as after a teardown).
  std::atomic_ref<uintptr_t> client(g_fwmClkBkfHandle.client);
  const uintptr_t saved = client.exchange(0);
  size_t m = mark();
  fwmsim::clock().advance(kTick);
  EXPECT_EQ(g_ptpWaitBkfHelloMsgCnt, 0u);
  EXPECT_EQ(fwmtest::agentLines().back(), "MSG [FWM_SRV_BKF] Bkf is not ready!");
  client.store(saved);
  fwmsim::clock().advance(4 * kTick);
  EXPECT_THAT(alarmReads(m), IsEmpty());
  fwmsim::clock().advance(kTick);
  EXPECT_EQ(alarmReads(m).size(), 2u);
}

// A refused timer start is retried by the next enabling configuration; only
// enable 1 is polled; starting again, or switching one port off while another
// is on, keeps the timer; a restarted timer polls at its first tick.
TEST_F(Supervision, OnlyEnableOneIsPolledAndTheTimerRunsWhileOneIs) {
  fwmsim::faults().inject("ORIN_ReltmrCbkStart", 6);
  configure(0, 3, 2, 1);
  configure(0, 4, 1, 1);
  EXPECT_EQ(g_clkAnndetectTmr, 0u);
  EXPECT_THAT(fwmtest::agentLines(), Contains("ERROR [FWM_SRV_BKF] ORIN_ReltmrCbkStart failed, Ret=6"));
  configure(0, 4, 1, 1);
  EXPECT_THAT(
      fwmsim::recorder().texts("orin"),
      Contains("ORIN_ReltmrCbkStart(&, " + fwmsim::arg(fwmsim::Hex{FWM_SRV_BKF_GetMemHdl()}) + ", 500, 0, 0x0, 1, &)"));
  readyAndWaited();
  size_t m = mark();
  fwmsim::clock().advance(kTick);
  EXPECT_THAT(alarmReads(m), ElementsAre("(0, 4, 0, 1, &)", "(0, 4, 1, 1, &)"));
  const uint32_t timer = g_clkAnndetectTmr;
  const size_t lines = fwmtest::agentLines().size();
  FWM_SRV_CLK_PtpAnnTimerEntry();
  EXPECT_EQ(fwmtest::agentLines().size(), lines);
  configure(0, 5, 1, 1);
  configure(0, 5, 0, 1);
  EXPECT_EQ(g_clkAnndetectTmr, timer);
  EXPECT_TRUE(fwmsim::clock().timerRunning(timer));
  configure(0, 4, 0, 1);
  ASSERT_EQ(g_clkAnndetectTmr, 0u);
  configure(0, 4, 1, 1);
  m = mark();
  fwmsim::clock().advance(kTick);
  EXPECT_EQ(alarmReads(m).size(), 2u);
}

TEST_F(Supervision, ChangeWithoutGrandmasterIdentityCountsAsLostAndATeardownDropsIt) {
  configure(0, 3, 1, 1);
  readyAndWaited();
  // The announce clear's read hands flag words 0..9 set, the supervision's none.
  ASSERT_EQ(orch->setPtpAnnClr(0, 3), 0u);
  EXPECT_THAT(fwmsim::engine().port(0, 3).rxReadFlags.flag, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0));
  ClkNpAnnFields f = grandmaster();
  f.grandmasterIdentityHigh = f.grandmasterIdentityLow = 0;
  fwmsim::engine().setRxAnnounce(0, 3, f);
  fwmsim::engine().setAnnounceAlarm(0, 3, 0, true);
  fwmsim::engine().setAnnounceAlarm(0, 3, 1, true);  // change and timeout: read and sent
  fwmsim::clock().advance(kTick);
  auto ack = peer.receive();
  ASSERT_TRUE(ack.has_value());
  EXPECT_EQ(*ack, expectedAck(1, f));
  EXPECT_THAT(fwmsim::engine().port(0, 3).rxReadFlags.flag, ::testing::Each(0u));
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 3)->annState, CLK_ANN_STATE_LOST);
  EXPECT_THAT(fwmtest::agentLines(), Contains("MSG [FWM_SRV_BKF] Mira_PtpAnnAlmProc annState=3."));

  // After a teardown acknowledgements are dropped, not encoded.
  FWM_SRV_CLK_BkfUnInit();
  fwmsim::engine().setAnnounceAlarm(0, 3, 0, true);
  fwmsim::clock().advance(kTick);
  EXPECT_FALSE(peer.pending());
  EXPECT_THAT(fwmtest::agentLines(), Contains("ERROR [FWM_SRV_BKF] SendAckMsgProc fail, ret=1."));
}

TEST_F(Supervision, EitherIdentityMissingCountsAsLost) {
  struct {
    uint32_t gmHigh, gmLow, srcHigh, srcLow;
    uint8_t state;
  } cases[] = {{0, 1, 0, 1, CLK_ANN_STATE_PRESENT}, {1, 0, 0, 0, CLK_ANN_STATE_LOST}, {0, 0, 1, 0, CLK_ANN_STATE_LOST}};
  for (const auto &c : cases) {
    ClkAnnInfo info{};
    // clang-format off
    ClkNpAnnFields f{.grandmasterIdentityHigh = c.gmHigh, .grandmasterIdentityLow = c.gmLow,
        .sourceClockIdentityHigh = c.srcHigh, .sourceClockIdentityLow = c.srcLow};
    // clang-format on
    FWM_SRV_Mira_GetAnnSendData(7, &f, &info);
    EXPECT_EQ(FWM_SRV_Mira_SaveAnnState(&info), c.state) << c.gmHigh << c.gmLow << c.srcHigh << c.srcLow;
  }
  // The state word of one port's two alarm reads: change in bit 0, timeout in bit 1.
  fwmsim::engine().setAnnounceAlarm(0, 3, 1, true);
  uint32_t state = 5;
  EXPECT_EQ(FWM_SRV_Mira_GetAnnounceState(0, 3, &state), 0u);
  EXPECT_EQ(state, 2u);
}

// A failing alarm read is reported three times and counts as no alarm.
TEST_F(Supervision, AlarmReadFailureIsReportedByTheEntryAndByTheSupervision) {
  configure(0, 3, 1, 1);
  (void)FWM_SRV_CLK_InitDbg();
  readyAndWaited();
  for (int read : {0, 1}) {
    fwmsim::faults().inject("oda_1588_get_announce_alarm", 2, 1, read);
    fwmsim::clock().advance(kTick);
  }
  EXPECT_EQ(FWM_SRV_CLK_PtpFindPort(0, 3)->annState, CLK_ANN_STATE_NONE);
  EXPECT_FALSE(peer.pending());
  // A change whose fields cannot be read: reported by the adapter, the entry and the supervision.
  fwmsim::engine().setAnnounceAlarm(0, 3, 0, true);
  fwmsim::faults().inject("oda_1588_get_announce_field_rx", 2);
  fwmsim::clock().advance(kTick);
  std::vector<std::string> reports;  // without the time
  for (auto &t : fwmsim::registry().printedTexts()) reports.push_back(t.substr(20));
  const std::string r = "Fe module error. (ErrCode=0xFFFFFFFE, Slot=1/3, Unit=0, Port=3, Reason=Failed to ";
  const std::string alarm = "NP_1588_GetAnnounceAlarm", rx = "NP_1588_GetAnnounceFieldRx.)\r\n";
  EXPECT_THAT(reports, ElementsAre(r + "[1588]get announce alarm.)\r\n", r + alarm + ".)\r\n",
                                   r + alarm + " ANNOUNCE_CHANGE.)\r\n", r + "[1588]get announce alarm.)\r\n",
                                   r + alarm + ".)\r\n", r + alarm + " ANNOUNCE_TIMEOUT.)\r\n",
                                   r + "[1588]get announce field rx.)\r\n", r + rx, r + rx));
}

// Configuration on one thread while ticks run on another and the worker
// sends: the port list's publication rules under ThreadSanitizer.
TEST_F(Supervision, ConfigurationAndTicksRaceCleanly) {
  configure(0, 1, 1, 1);
  readyAndWaited();
  for (uint32_t p = 0; p < 8; ++p) {
    fwmsim::engine().setRxAnnounce(p % 2, p, grandmaster());
    fwmsim::engine().setAnnounceAlarm(p % 2, p, 0, true);
  }
  std::thread ticker([] {
    fwmsim::setThreadName("ticker");
    for (int i = 0; i < 200; ++i) FWM_SRV_AnnTimerOutProc();
  });
  for (uint32_t round = 0; round < 20; ++round)
    for (uint32_t p = 0; p < 8; ++p) {
      ClkPtpPortCfg cfg{.enable = (round + p) % 2, .ifIndex = p};
      (void)orch->setPtpPortCfg(p % 2, p, 0xFFFFFFFFu, &cfg);
    }
  ticker.join();
  fwmsim::clock().settle();
  EXPECT_EQ(walk().size(), 9u);
}

}  // namespace
