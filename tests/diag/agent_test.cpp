// The log agent's lifecycle: adoption, the start-up task's waits and retries
// on the board clock, master address updates and release.
#include <cstring>
#include <thread>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Agent : public fwmtest::BoardTest {
 protected:
  // Calls of the agent task, without the log path's own traffic.
  static std::vector<std::string> taskCalls() {
    std::vector<std::string> out;
    for (const auto &e : fwmsim::recorder().events())
      if (e.thread != "host" && e.text.rfind("IM_Agent_AddPara", 0) != 0 &&
          e.text.rfind("IM_Agent_ObjCreate", 0) != 0 && e.text.rfind("IM_Agent_Send", 0) != 0)
        out.push_back(e.text);
    return out;
  }
};

TEST_F(Agent, AdoptsTheProcessAgentWithoutATask) {
  fwmsim::agent().existingHandle = 0x77;
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentInit(), 0u);
  EXPECT_EQ(g_clkSrvImAgentHandle, 0x77u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentIsInitOk(), 1u);
  EXPECT_THAT(fwmsim::recorder().texts("orin"), IsEmpty());
  FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "at once");
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("MSG at once"));
}

TEST_F(Agent, StartupTaskWaitsForAddressesAndRetriesOnTheBoardClock) {
  // Memory order of the address bytes: 0A 00 00 01.
  const uint8_t selfBytes[4] = {0x0A, 0x00, 0x00, 0x01};
  std::memcpy(&fwmsim::board().selfIp.address, selfBytes, 4);
  fwmsim::board().selfIp.unknownQueries = 1;
  fwmsim::board().selfIp.failedQueries = 1;
  fwmsim::board().masterIp.unknownQueries = 1;
  fwmsim::agent().initFailures = 1;
  std::thread(fwmtest::dirtyStack).join();  // the task thread may inherit this stack

  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentInit(), 0u);
  EXPECT_NE(g_clkSrvImAgentTaskId, 0u);
  // t=2 s: own address unknown; t=7: query fails; t=12: known, agent refused;
  // t=14: agent created; t=16: master unknown; t=18: master set.
  fwmsim::clock().advance(13999);
  EXPECT_EQ(g_clkSrvImAgentHandle, 0u);
  fwmsim::clock().advance(1);
  EXPECT_EQ(g_clkSrvImAgentHandle, 0x00A6E001u);
  EXPECT_EQ(fwmsim::agent().mainBoardIp(), 0u);
  fwmsim::clock().advance(4000);

  EXPECT_THAT(taskCalls(),
              ElementsAre("sleep(2)", "DEVM_GetSelfBoardIp(&)", "sleep(5)", "DEVM_GetSelfBoardIp(&)", "sleep(5)",
                          "DEVM_GetSelfBoardIp(&)", "IM_Agent_Init(&)", "sleep(2)", "DEVM_GetSelfBoardIp(&)",
                          "IM_Agent_Init(&)", "sleep(2)", "DEVM_GetMasterBoardIp(&)", "sleep(2)",
                          "DEVM_GetMasterBoardIp(&)", "IM_Agent_SetMainBoardIP(0xA6E001, 0xFE00000A)"));
  EXPECT_EQ(fwmsim::agent().mainBoardIp(), 0xFE00000Au);

  auto rec = fwmsim::agent().lastInitRecord();
  ASSERT_EQ(rec.size(), sizeof(ClkImAgentInitPara));
  // Every byte, the reserved ones zero although the task's stack was dirty.
  ClkImAgentInitPara want;
  std::memset(&want, 0, sizeof want);
  std::strcpy(want.name, "srv clk log");
  want.memAlloc = &FWM_SRV_ORCH_CLK_ImAgentMemAlloc;
  want.memFree = &FWM_SRV_ORCH_CLK_ImAgentMemFree;
  want.logTrace = &FWM_SRV_ORCH_CLK_ImAgentLogTrace;
  want.getSysTime = &FWM_SRV_ORCH_CLK_ImAgentGetSysTime;
  want.value64 = 1000;
  const uint8_t ip[4] = {0x01, 0x00, 0x00, 0x0A};
  std::memcpy(&want.selfIp, ip, 4);
  EXPECT_EQ(rec, std::vector<uint8_t>(reinterpret_cast<uint8_t *>(&want), reinterpret_cast<uint8_t *>(&want + 1)));
}

TEST_F(Agent, EachUpdateRequestSetsTheMasterAddressOnce) {
  fwmtest::adoptAgent(0x55);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp(), 0u);
  uint32_t first = g_clkSrvImAgentUpdateMasterIpTaskId;
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateMasterIp(), 0u);
  EXPECT_NE(g_clkSrvImAgentUpdateMasterIpTaskId, first);
  fwmsim::clock().settle();
  EXPECT_THAT(fwmsim::recorder().texts("agent"),
              ElementsAre("IM_Agent_GetHandle()", "IM_Agent_SetMainBoardIP(0x55, 0xFE00000A)",
                          "IM_Agent_SetMainBoardIP(0x55, 0xFE00000A)"));
  // A failure is returned, not retried.
  fwmsim::faults().inject("IM_Agent_SetMainBoardIP", 9);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentSetMasterIp(), 9u);
  EXPECT_EQ(fwmsim::recorder().texts("agent").size(), 4u);
}

// A task that cannot be created: its result returned, no handle; release
// calls the agent only when there is one.
TEST_F(Agent, TaskFailureAndReleaseOnlyWhenThereIsAnAgent) {
  fwmsim::faults().inject("ORIN_TaskCreate", 0x30);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentInit(), 0x30u);
  EXPECT_EQ(g_clkSrvImAgentHandle, 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUnInit(), 0u);
  EXPECT_THAT(fwmsim::recorder().texts("agent"), ElementsAre("IM_Agent_GetHandle()"));  // none to release

  fwmtest::adoptAgent(0x66);
  fwmsim::faults().inject("IM_Agent_UnInit", 3);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUnInit(), 3u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentIsInitOk(), 1u);

  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUnInit(), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentIsInitOk(), 0u);
  FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "after release");
  EXPECT_THAT(fwmsim::agent().delivered(), IsEmpty());
}

}  // namespace
