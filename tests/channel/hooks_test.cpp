// The channel's parts that need no worker: hooks lent to the framework,
// accessors, the records handed to the framework and the client library, the
// invalid-parameter paths and teardown. All on the test's own thread.
#include <cstring>

#include "channel_fixture.hpp"
#include "fwmclk/platform/negoinfo.h"

namespace {

using chantest::channelBlocks;
using chantest::ChannelTest;
using fwmtest::agentLines;
using fwmtest::callsSince;
using testing::ElementsAre;
using testing::IsEmpty;

// Every byte of the record a call was handed but the leading name pointer,
// which is returned (the framework's own may point at the caller's stack).
template <class T>
const char *expectRecord(const char *call, const T &want) {
  auto got = chantest::lastEvent(call).bytes;
  EXPECT_EQ(got.size(), sizeof want) << call;
  if (got.size() != sizeof want) return "";
  EXPECT_TRUE(
      std::equal(got.begin() + sizeof(void *), got.end(), reinterpret_cast<const uint8_t *>(&want) + sizeof(void *)))
      << call;
  const char *name = nullptr;
  std::memcpy(&name, got.data(), sizeof name);
  return name;
}

TEST_F(ChannelTest, HandlesAreZeroBeforeInitialisation) {
  ClkBkfHandle h;
  std::memset(&h, 0xA5, sizeof h);
  FWM_SRV_CLK_GetBkfHdl(&h);
  EXPECT_EQ(h.comm | h.builder | h.channel | h.client, 0u);
  EXPECT_EQ(g_clkBkfEpollFd, -1);
  EXPECT_EQ(g_FwmSrvBkfThreadId, 0u);
  EXPECT_EQ(g_ClkBkfQueueProcID, 0u);
  EXPECT_EQ(FWM_SRV_BKF_GetMemHdl(), 0xFFFFFFFFu);
  EXPECT_EQ(FWM_SRV_BKF_GetMemPtNo(), 0xFF);
}

TEST_F(ChannelTest, MemoryAndLogHooksAndRefusedInitComm) {
  size_t mark = fwmsim::recorder().mark();
  void *block = FWM_SRV_BkfMalloc(99, 40);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(channelBlocks(), 1u);
  FWM_SRV_BkfFree(99, nullptr);
  FWM_SRV_BkfFree(99, block);
  EXPECT_THAT(callsSince(mark, "orin"), ElementsAre("ORIN_MemAlloc(0xFFFFFFFF, 255, 40)", "ORIN_MemFree(0xFF, &)"));
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);

  // The host may assign the channel's memory; the hooks follow.
  g_clkMemHandle = 0x1234;
  g_clkMemPtNo = 9;
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(FWM_SRV_BkfMalloc(0, 8), nullptr);
  block = FWM_SRV_BkfMalloc(0, 8);
  FWM_SRV_BkfFree(0, block);
  EXPECT_THAT(callsSince(mark + 2, "orin"),
              ElementsAre("ORIN_MemAlloc(0x1234, 9, 8)", "ORIN_MemAlloc(0x1234, 9, 8)", "ORIN_MemFree(0x9, &)"));
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);

  FWM_SRV_BkfRecordLog(7, "peer 3 up");
  EXPECT_EQ(FWM_SRV_BkfSysLogPrintf(3, "%s %d", "dropped", 5), 0);
  EXPECT_EQ(FWM_SRV_BkfSysLogPrintf(0, nullptr), 0);

  // Framework initialisation refuses a missing record, a missing slot and an occupied one.
  uintptr_t taken = 0x77;
  ClkBkfInitCommParam nullSlot{nullptr, "fwm_clk", 3};
  ClkBkfInitCommParam occupied{&taken, "fwm_clk", 3};
  mark = fwmsim::recorder().mark();
  for (ClkBkfInitCommParam *p : {static_cast<ClkBkfInitCommParam *>(nullptr), &nullSlot, &occupied}) {
    FWM_SRV_CLK_BkfInitComm(p);
  }
  EXPECT_EQ(taken, 0x77u);
  EXPECT_THAT(callsSince(mark, "bkf"), IsEmpty());
  EXPECT_THAT(agentLines(),
              ElementsAre("MSG [FWM_SRV_BKF] peer 3 up", "ERROR [FWM_SRV_BKF] BkfInitComm invalid parameter!",
                          "ERROR [FWM_SRV_BKF] BkfInitComm invalid parameter!",
                          "ERROR [FWM_SRV_BKF] BkfInitComm invalid parameter!"));
}

TEST_F(ChannelTest, FrameworkRecordCarriesTheHooks) {
  uintptr_t slot = 0;
  ClkBkfInitCommParam param{&slot, "fwm_clk", 42};
  FWM_SRV_CLK_BkfInitComm(&param);
  EXPECT_EQ(slot, fwmsim::kCommHandle);
  EXPECT_EQ(fwmsim::framework().componentName(), "fwm_clk");

  ClkBkfCommInitRec expected;
  std::memset(&expected, 0, sizeof expected);
  expected.opt04 = 1;
  expected.handles = &g_fwmClkBkfHandle;
  expected.memAlloc = FWM_SRV_BkfMalloc;
  expected.memFree = FWM_SRV_BkfFree;
  expected.opt18 = 2048;
  expected.opt1C = 1;
  expected.recordLog = FWM_SRV_BkfRecordLog;
  expected.opt24 = 4;
  expected.epollFd = 42;
  expected.timerStartOnce = FWM_SRV_BKF_TimerStartOnce;
  expected.timerStartLoop = FWM_SRV_BKF_TimerStartLoop;
  expected.timerStop = FWM_SRV_BKF_TimerStop;
  expected.opt3C = 1;
  expected.opt4C = 64;
  expected.sysLogPrintf = FWM_SRV_BkfSysLogPrintf;
  expected.opt64 = 4;
  expected.sliceKeyCmp = CLOCK_NegoinfoiSliceKeyCmp;
  expected.sliceKeyGetStr = CLOCK_NegoinfoiSliceKeyGetStr;
  expected.sliceKeyCodec = CLOCK_NegoinfoiSliceKeyCodec;
  expectRecord("BKF_CommInit(", expected);
}

// The whole sequence run directly, over a dirtied stack, to examine the
// records of the channel and the client; the client is created only once.
TEST_F(ChannelTest, ChannelAndClientRecords) {
  fwmtest::dirtyStack();
  FWM_SRV_CLK_BkfInit();
  ASSERT_NE(chantest::handles().client, 0u);

  ClkBkfChInitRec ch;
  std::memset(&ch, 0, sizeof ch);
  ch.opt04 = 1;
  EXPECT_STREQ(expectRecord("BKF_MeshCliChInit(", ch), "fwm_clk_ntfy");
  ClkNtfyCliInitRec cli;
  std::memset(&cli, 0, sizeof cli);
  cli.opt08 = 1;
  cli.channel = fwmsim::kChannelHandle;
  cli.comm = fwmsim::kCommHandle;
  const fwmsim::UrlArea url{0x7F000001u, 39011u, "fwm_ntfy"};
  std::memcpy(cli.url, &url, sizeof url);
  EXPECT_STREQ(expectRecord("CLOCK_NegoinfoiNtfyCliInit(", cli), "fwm_ntfy");
  EXPECT_THAT(agentLines(), ElementsAre("MSG [FWM_SRV_BKF] BkfInit success."));

  ClkBkfHandle before = chantest::handles();
  size_t mark = fwmsim::recorder().mark();
  EXPECT_EQ(FWM_SRV_CLK_BkfNtfyCliInit(), 0u);
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), testing::Not(testing::Contains(testing::HasSubstr("Negoinfoi"))));
  EXPECT_EQ(chantest::handles().client, before.client);
  EXPECT_EQ(agentLines().back(), "ERROR [FWM_SRV_BKF] BkfInitComm invalid parameter!");
}

TEST_F(ChannelTest, TeardownReleasesClientFrameworkAndBuilder) {
  FWM_SRV_CLK_BkfInit();
  ClkBkfHandle before = chantest::handles();
  size_t mark = fwmsim::recorder().mark();
  size_t lines = agentLines().size();
  EXPECT_EQ(channelBlocks(), 1u);  // the framework's channel, lent through the hook
  FWM_SRV_CLK_BkfUnInit();
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), ElementsAre("CLOCK_NegoinfoiNtfyCliUninit(0xC11E0001)",
                                                               "BKF_CommUninit(0xB0C0001)", "ORIN_MemFree(0xFF, &)"));
  EXPECT_EQ(channelBlocks(), 0u);
  ClkBkfHandle after = chantest::handles();
  EXPECT_EQ(after.comm, 0u);
  EXPECT_EQ(after.builder, 0u);
  EXPECT_EQ(after.channel, before.channel);
  EXPECT_EQ(after.client, before.client);
  EXPECT_FALSE(fwmsim::framework().up());
  EXPECT_EQ(agentLines().size(), lines);
}

TEST_F(ChannelTest, TeardownPassesResultsBack) {
  FWM_SRV_CLK_BkfInit();
  fwmsim::faults().inject("CLOCK_NegoinfoiNtfyCliUninit", 3);
  fwmsim::faults().inject("BKF_CommUninit", 4);
  EXPECT_EQ(FWM_SRV_CLK_BkfNtfyCliUninit(), 3u);
  EXPECT_EQ(FWM_SRV_CLK_BkfUninitComm(&g_fwmClkBkfHandle.comm), 4u);
  EXPECT_EQ(g_fwmClkBkfHandle.comm, 0u);
}

}  // namespace
