// The framework's one-shot timers: started and stopped by the framework on
// the worker, expiring on the board clock in the timer context, and run (or
// dropped) back on the worker.
#include "channel_fixture.hpp"

namespace {

using chantest::callsOn;
using chantest::channelBlocks;
using chantest::hexArg;
using chantest::kWorker;
using chantest::WorkerTest;
using testing::ElementsAre;
using testing::IsEmpty;

struct Fired {
  uintptr_t param;
  std::string thread;
};
std::vector<Fired> gFired;

void onTimer(uintptr_t param) {
  gFired.push_back({param, fwmsim::threadName()});
  fwmsim::record("test", "onTimer", fwmsim::Hex{param});
}

const char kStarted[] = "DEBUG [FWM_SRV_BKF] BKF_TimerStartLoop success.";
const char kStopped[] = "DEBUG [FWM_SRV_BKF] BKF_TimerStop success.";
const char kEnd[] = "DEBUG [FWM_SRV_BKF] ProcQueueNegoiTimer End.";
const char kStopFailed[] = "ERROR [FWM_SRV_BKF] BKF_TimerStop failed.";

class TimerTest : public WorkerTest {
 protected:
  void SetUp() override {
    WorkerTest::SetUp();
    gFired.clear();
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_DEBUG] = 1;  // the timer lines are DEBUG
  }
  fwmsim::Framework &fw = fwmsim::framework();
};

TEST_F(TimerTest, OneShotRunsItsCallbackOnceOnTheWorker) {
  void *timer = fw.startTimerOnce(onTimer, 100, 0x77);
  ASSERT_NE(timer, nullptr);
  EXPECT_THAT(callsOn(kWorker, mark),
              ElementsAre("ORIN_MemAlloc(0xFFFFFFFF, 255, " + std::to_string(sizeof(ClkBkfTimer)) + ")",
                          "ORIN_ReltmrCbkStart(&, 0xFFFFFFFF, 100, 0, " + hexArg(timer) + ", 0, &)", waitCall()));
  EXPECT_EQ(channelBlocks(), blocks + 1);

  fwmsim::clock().advance(99);
  EXPECT_THAT(gFired, IsEmpty());
  size_t expiry = fwmsim::recorder().mark();
  fwmsim::clock().advance(1);
  ASSERT_EQ(gFired.size(), 1u);
  EXPECT_EQ(gFired[0].param, 0x77u);
  EXPECT_EQ(gFired[0].thread, kWorker);
  const std::string payload = std::to_string(sizeof(ClkBkfTimerQueMsg));
  EXPECT_THAT(callsOn("reltmr", expiry),
              ElementsAre("ORIN_MemAlloc(0xFFFFFFFF, 255, " + payload + ")",
                          "ORIN_MemAlloc(0xFFFFFFFF, 255, " + std::to_string(sizeof(ClkBkfQueMsg)) + ")",
                          "FWM_QUE_AsyWrite(" + queueArg() + ", &, 1)"));
  EXPECT_THAT(callsOn(kWorker, expiry), ElementsAre("FWM_QUE_AsyRead(" + queueArg() + ", &, 1)", "dm_opers(0)",
                                                    "onTimer(0x77)", "ORIN_MemFree(0xFF, &)", "dm_opers(1)",
                                                    "ORIN_MemFree(0xFF, &)", "ORIN_MemFree(0xFF, &)", waitCall()));
  EXPECT_THAT(newLines(), ElementsAre(kStarted, kEnd));
  EXPECT_EQ(channelBlocks(), blocks);

  fwmsim::clock().advance(1000);
  EXPECT_EQ(gFired.size(), 1u);
}

// A stopped timer is released silently when its platform timer expires; a
// null callback is still released; expiry follows each timer's own delay; a
// stop with a released handle writes nothing.
TEST_F(TimerTest, StoppedNullAndOrderedTimers) {
  void *a = fw.startTimerOnce(onTimer, 30, 0xA);
  void *b = fw.startTimerOnce(onTimer, 10, 0xB);
  void *c = fw.startTimerOnce(onTimer, 20, 0xC);
  ASSERT_TRUE(a != nullptr && b != nullptr && c != nullptr && fw.startTimerOnce(nullptr, 20, 3) != nullptr);
  fw.stopTimer(c);
  EXPECT_EQ(fwmsim::clock().runningTimers(), 4u);  // the platform timer still runs
  fwmsim::clock().advance(30);
  ASSERT_EQ(gFired.size(), 2u);
  EXPECT_EQ(gFired[0].param, 0xBu);
  EXPECT_EQ(gFired[1].param, 0xAu);
  fw.stopTimer(b);  // the record is gone; nothing may be written into it
  EXPECT_THAT(newLines(), ElementsAre(kStarted, kStarted, kStarted, kStarted, kStopped, kEnd, kEnd, kEnd));
  EXPECT_EQ(channelBlocks(), blocks);
}

// A stop without a framework or without a timer is refused; the timer runs on.
TEST_F(TimerTest, StopRefusedLogsAndLeavesTheTimerRunning) {
  void *a = fw.startTimerOnce(onTimer, 10, 5);
  void *b = fw.startTimerOnce(onTimer, 10, 6);
  fw.stopTimer(0, a);
  fw.stopTimer(1, nullptr);
  fwmsim::clock().advance(10);
  EXPECT_EQ(gFired.size(), 2u);
  EXPECT_THAT(newLines(), ElementsAre(kStarted, kStarted, kStopFailed, kStopFailed, kEnd, kEnd));
  EXPECT_NE(b, nullptr);
}

// Refused starts: the platform timer refused (the record released), no memory
// for the record, and any periodic start.
TEST_F(TimerTest, RefusedStartsLeaveNothing) {
  fwmsim::faults().inject("ORIN_ReltmrCbkStart", 7);
  EXPECT_EQ(fw.startTimerOnce(onTimer, 10, 6), nullptr);
  EXPECT_THAT(newLines(), ElementsAre("ERROR [FWM_SRV_BKF] BKF_TimerStartLoop failed, Ret=7"));
  EXPECT_EQ(channelBlocks(), blocks);
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(fw.startTimerOnce(onTimer, 10, 6), nullptr);
  EXPECT_EQ(newLines().size(), 1u);
  const size_t loop = fwmsim::recorder().mark();
  EXPECT_EQ(fw.startTimerLoop(onTimer, 10, 6), nullptr);
  EXPECT_THAT(callsOn(kWorker, loop), ElementsAre(waitCall()));
  EXPECT_EQ(fwmsim::clock().runningTimers(), 0u);
}

TEST_F(TimerTest, LostExpiryKeepsTheRecord) {
  auto *timer = static_cast<ClkBkfTimer *>(fw.startTimerOnce(onTimer, 10, 8));
  fwmsim::memory().failAllocation(1);
  fwmsim::clock().advance(10);
  EXPECT_THAT(gFired, IsEmpty());
  EXPECT_THAT(newLines(), ElementsAre(kStarted, "ERROR [FWM_SRV_BKF] QueProcWrite failed, ret=1, timerName=" +
                                                    std::to_string(timer->platformTimer) + "."));
  EXPECT_EQ(channelBlocks(), blocks + 1);
}

}  // namespace
