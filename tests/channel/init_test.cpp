// Starting the worker on the simulated board: the calls it makes on its own
// thread, its log lines and the handle words it leaves, for success and for
// each step that can fail.
#include <algorithm>

#include "channel_fixture.hpp"

namespace {

using chantest::callsOn;
using chantest::ChannelTest;
using chantest::handles;
using chantest::kTaskOk;
using chantest::kWorker;
using fwmtest::agentLines;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const char kCreate[] = "MESH_EpollCreate()";
const char kQueNew[] = "FWM_QUE_CreateNew(\"CLK_Q_BKF\", 6, 2048, 4)";
const char kQueReg[] = "FWM_QUE_EpollReg({q}, {fd}, &)";
const char kCommInit[] = "BKF_CommInit(&)";
const char kChInit[] = "BKF_MeshCliChInit(0xB0C0001, &)";
const char kChState[] = "ORIN_MemAlloc(0xFFFFFFFF, 255, 32)";  // the framework, through the hook
const char kUrlSet[] = "BKF_UrlMeshSet(&, 0x7F000001, 39011, \"fwm_ntfy\")";
const char kCliInit[] = "CLOCK_NegoinfoiNtfyCliInit(&)";
const char kConnect[] = "CLOCK_NegoinfoiNtfyCliConnect(0xC11E0001)";
const char kConnectNone[] = "CLOCK_NegoinfoiNtfyCliConnect(0x0)";
const char kMonInit[] = "QUAY_InitDeadloopMonitor()";
const char kMonReg[] = "regDeadloopMon(self, 200, 250, 300, 400)";
const char kWait[] = "MESH_EpollWait({fd}, &, 32, -1)";

const char kQueOk[] = "MSG [FWM_SRV_BKF] CreateEpollQue success.";
const char kInitOk[] = "MSG [FWM_SRV_BKF] BkfInit success.";

enum Words : unsigned { kComm = 1, kBuilder = 2, kChannel = 4, kClient = 8, kAll = 15 };

struct StartCase {
  const char *name;
  const char *faultFn;  // null: nothing fails
  uint32_t code;
  std::vector<std::string> calls;  // on the worker
  std::vector<std::string> lines;  // the worker's
  unsigned words;                  // handle words left set
  bool loops;                      // the worker reached its event loop
};

// Names the case in test listings.
void PrintTo(const StartCase &c, std::ostream *os) { *os << c.name; }

// clang-format off
const StartCase kCases[] = {
    {"Success", nullptr, 0, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kChState, kUrlSet, kCliInit, kConnect, kMonInit, kMonReg, kWait}, {kQueOk, kInitOk}, kAll, true},
    {"EpollCreateFails", "MESH_EpollCreate", 0xFFFFFFFFu, {kCreate}, {"ERROR [FWM_SRV_BKF] Create clk epoll failed!"}, 0, false},
    {"QueueCreateFails", "FWM_QUE_CreateNew", 0, {kCreate, kQueNew, "MESH_Close({fd})"}, {"ERROR [FWM_SRV_BKF] Create epoll que failed!", "ERROR [FWM_SRV_BKF] CreateEpollQue failed, ret=1"}, 0, false},
    {"QueueRegistrationFails", "FWM_QUE_EpollReg", 9, {kCreate, kQueNew, kQueReg, "FWM_QUE_Destory({q})", "MESH_Close({fd})"}, {"ERROR [FWM_SRV_BKF] Create epoll reg failed!, ret=9", "ERROR [FWM_SRV_BKF] CreateEpollQue failed, ret=9"}, 0, false},
    {"FrameworkFails", "BKF_CommInit", 0, {kCreate, kQueNew, kQueReg, kCommInit, kMonInit, kMonReg, kWait}, {kQueOk, "ERROR [FWM_SRV_BKF] BkfInitComm fail!", "ERROR [FWM_SRV_BKF] BkfCommonInit fail!"}, kBuilder, true},
    {"ChannelFails", "BKF_MeshCliChInit", 0, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kMonInit, kMonReg, kWait}, {kQueOk, "ERROR [FWM_SRV_BKF] BkfNftyInit null pointer", "ERROR [FWM_SRV_BKF] BkfNftyInit fail!"}, kBuilder | kComm, true},
    {"AddressFails", "BKF_UrlMeshSet", 5, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kChState, kUrlSet, kConnectNone, kMonInit, kMonReg, kWait}, {kQueOk, "ERROR [FWM_SRV_BKF] BKF_UrlMeshSet ret=5", kInitOk}, kBuilder | kComm | kChannel, true},
    {"ClientFails", "CLOCK_NegoinfoiNtfyCliInit", 0, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kChState, kUrlSet, kCliInit, kConnectNone, kMonInit, kMonReg, kWait}, {kQueOk, kInitOk}, kBuilder | kComm | kChannel, true},
    {"MonitorSetupFails", "QUAY_InitDeadloopMonitor", 3, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kChState, kUrlSet, kCliInit, kConnect, kMonInit, kMonReg, kWait}, {kQueOk, kInitOk, "ERROR [FWM_SRV_CLK] Init Deadloop monitor failed ret=3"}, kAll, true},
    {"MonitorRegistrationFails", "regDeadloopMon", 4, {kCreate, kQueNew, kQueReg, kCommInit, kChInit, kChState, kUrlSet, kCliInit, kConnect, kMonInit, kMonReg, kWait}, {kQueOk, kInitOk, "ERROR [FWM_SRV_CLK] Register Deadloop monitor failed, ret=4"}, kAll, true},
};
// clang-format on

class WorkerStart : public ChannelTest, public testing::WithParamInterface<StartCase> {};

TEST_P(WorkerStart, CallsLinesAndHandles) {
  const StartCase &c = GetParam();
  if (c.faultFn != nullptr) fwmsim::faults().inject(c.faultFn, c.code);
  size_t mark = fwmsim::recorder().mark();
  startWorker();

  auto created = fwmsim::epollsCreated();
  const std::string fd = created.empty() ? "none" : std::to_string(created.back());
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(chantest::withIds(c.calls, fd, g_ClkBkfQueueProcID)));
  EXPECT_THAT(callsOn("host", mark), ElementsAre("FwmEpollTaskCreate(\"CLK_FWM_BKF\", &, &, 0)"));

  // The creator's line may land anywhere among the worker's.
  auto lines = agentLines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kTaskOk), 1);
  lines.erase(std::remove(lines.begin(), lines.end(), kTaskOk), lines.end());
  EXPECT_THAT(lines, ElementsAreArray(c.lines));

  ClkBkfHandle h = handles();
  EXPECT_EQ(h.comm, (c.words & kComm) != 0 ? fwmsim::kCommHandle : 0u);
  EXPECT_EQ(h.builder != 0, (c.words & kBuilder) != 0);
  EXPECT_EQ(h.channel, (c.words & kChannel) != 0 ? fwmsim::kChannelHandle : 0u);
  EXPECT_EQ(h.client, (c.words & kClient) != 0 ? fwmsim::kFirstClientHandle : 0u);
  EXPECT_EQ(g_clkBkfEpollFd, c.loops ? created.back() : -1);
  if (!created.empty()) {
    EXPECT_EQ(fwmsim::epollOpen(created.back()), c.loops);
  }
  if (g_ClkBkfQueueProcID != 0) {
    EXPECT_EQ(fwmsim::queueInfo(g_ClkBkfQueueProcID).has_value(), c.loops);
  }
  EXPECT_NE(g_FwmSrvBkfThreadId, 0u);
  EXPECT_EQ(chantest::channelBlocks(), (c.words & kChannel) != 0 ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Channel, WorkerStart, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<StartCase> &i) { return std::string(i.param.name); });

TEST_F(ChannelTest, WorkerQueueIsRegisteredOnItsEpollAndCreatedOnce) {
  startWorker();
  auto info = fwmsim::queueInfo(g_ClkBkfQueueProcID);
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->name, "CLK_Q_BKF");
  EXPECT_EQ(info->epollFd, g_clkBkfEpollFd);
  EXPECT_EQ(fwmsim::framework().initRecord().epollFd, g_clkBkfEpollFd);
  EXPECT_THAT(fwmsim::framework().channels(), ElementsAre("fwm_clk_ntfy"));
  ASSERT_EQ(fwmsim::tasks().size(), 1u);
  EXPECT_EQ(fwmsim::tasks()[0].name, kWorker);
  EXPECT_EQ(fwmsim::tasks()[0].id, g_FwmSrvBkfThreadId);
  // A second create does nothing.
  size_t mark = fwmsim::recorder().mark();
  size_t lines = agentLines().size();
  FWM_SRV_CLK_CreateBkfTask();
  fwmsim::clock().settle();
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), IsEmpty());
  EXPECT_EQ(agentLines().size(), lines);
}

TEST_F(ChannelTest, FailedTaskCreationIsRetriedByTheNextCall) {
  fwmsim::faults().inject("FwmEpollTaskCreate", 6);
  startWorker();
  EXPECT_EQ(g_FwmSrvBkfThreadId, 0u);
  EXPECT_THAT(fwmsim::tasks(), IsEmpty());
  EXPECT_THAT(agentLines(), ElementsAre("ERROR [FWM_SRV_BKF] CreateBkfTask fail, ret=6"));
  startWorker();
  EXPECT_NE(handles().client, 0u);
  EXPECT_THAT(agentLines(), testing::Contains(kTaskOk));
}

}  // namespace
