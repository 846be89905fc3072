// The negotiation channel on the simulated board: the framework's hooks and
// records, the worker's start-up and queue, one-shot timers, and announce
// acknowledgements received by the peer byte for byte.
#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/negoinfo.h"
#include "fwmsim/channel.hpp"
#include "testkit.hpp"

// Records are built with designated initializers; the fields left out are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

using fwmtest::agentLines;
using fwmtest::callsSince;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr uint32_t kMemHandle = 0xFFFFFFFFu;
constexpr uint8_t kMemPtNo = 0xFF;
const std::string kWorker = "CLK_FWM_BKF";
const std::string kTaskOk = "MSG [FWM_SRV_BKF] CreateBkfTask success.";
const std::string kInvalid = "ERROR [FWM_SRV_BKF] BkfInitComm invalid parameter!";

// Blocks held from the channel's memory handle and partition.
size_t channelBlocks() { return fwmsim::memory().outstanding(kMemHandle, kMemPtNo); }

// Calls to the channel's platform (and test handlers) made on `thread` since `mark`.
std::vector<std::string> callsOn(const std::string &thread, size_t mark) {
  static const std::set<std::string> kFacilities = {"mesh", "que", "bkf", "nego", "quay", "orin", "test"};
  std::vector<std::string> out;
  auto events = fwmsim::recorder().events();
  for (size_t i = mark; i < events.size(); ++i) {
    if (events[i].thread == thread && kFacilities.count(events[i].facility) != 0) out.push_back(events[i].text);
  }
  return out;
}

// The last recorded event whose call text starts with `prefix`.
fwmsim::Event lastEvent(const std::string &prefix) {
  auto events = fwmsim::recorder().events();
  for (auto it = events.rbegin(); it != events.rend(); ++it) {
    if (it->text.rfind(prefix, 0) == 0) return *it;
  }
  ADD_FAILURE() << "no call " << prefix;
  return {};
}

const std::string kMsgSize = std::to_string(sizeof(ClkBkfQueMsg));

// Expected calls with "{fd}", "{q}" and "{m}" standing for the worker's epoll,
// its queue and the size of a queued message.
std::vector<std::string> withIds(std::vector<std::string> calls, const std::string &fd, uint32_t queue) {
  for (auto &s : calls)
    for (const auto &[key, value] :
         {std::pair<std::string, std::string>{"{fd}", fd}, {"{q}", std::to_string(queue)}, {"{m}", kMsgSize}})
      for (size_t at = s.find(key); at != std::string::npos; at = s.find(key, at + value.size()))
        s.replace(at, key.size(), value);
  return calls;
}

// Names a parameterised case after its row, in test names and listings.
constexpr auto kByName = [](const auto &info) { return std::string(info.param.name); };
template <class T>
requires requires(const T &c) { c.name; }
void PrintTo(const T &c, std::ostream *os) { *os << c.name; }

std::string hexArg(const void *p) { return fwmsim::arg(fwmsim::Hex{reinterpret_cast<uintptr_t>(p)}); }

ClkBkfHandle handles() {
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  return h;
}

// A board with the log agent ready and the negotiation peer listening.
class ChannelTest : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    fwmsim::setPeerPort(peer.port());
  }

  void startWorker() {
    FWM_SRV_CLK_CreateBkfTask();
    fwmsim::clock().settle();
  }

  fwmsim::Peer peer;
};

// The worker is running and the channel is ready; accounting starts here.
class WorkerTest : public ChannelTest {
 protected:
  void SetUp() override {
    ChannelTest::SetUp();
    startWorker();
    ASSERT_NE(handles().client, 0u);
    fd = g_clkBkfEpollFd;
    queue = g_ClkBkfQueueProcID;
    blocks = channelBlocks();
    lineMark = fwmtest::agentLines().size();
    mark = fwmsim::recorder().mark();
  }

  // Log lines delivered since SetUp.
  std::vector<std::string> newLines() const {
    auto all = fwmtest::agentLines();
    return {all.begin() + static_cast<std::ptrdiff_t>(lineMark), all.end()};
  }

  // Expected calls on this worker's epoll and queue.
  std::vector<std::string> ids(std::vector<std::string> calls) const {
    return withIds(std::move(calls), std::to_string(fd), queue);
  }

  int32_t fd = -1;
  uint32_t queue = 0;
  size_t blocks = 0;
  size_t lineMark = 0;
  size_t mark = 0;
};

// Every byte of the record a call was handed but the leading name pointer,
// which is returned (the framework's own may point at the caller's stack).
template <class T>
const char *expectRecord(const char *call, const T &want) {
  auto got = lastEvent(call).bytes;
  EXPECT_EQ(got.size(), sizeof want) << call;
  if (got.size() != sizeof want) return "";
  EXPECT_TRUE(
      std::equal(got.begin() + sizeof(void *), got.end(), reinterpret_cast<const uint8_t *>(&want) + sizeof(void *)))
      << call;
  const char *name = nullptr;
  std::memcpy(&name, got.data(), sizeof name);
  return name;
}

TEST_F(ChannelTest, MemoryAndLogHooksAndRefusedInitComm) {
  size_t mark = fwmsim::recorder().mark();
  void *block = FWM_SRV_BkfMalloc(99, 40);
  ASSERT_NE(block, nullptr);
  FWM_SRV_BkfFree(99, nullptr);
  FWM_SRV_BkfFree(99, block);
  // The host may assign the channel's memory; the hooks follow.
  g_clkMemHandle = 0x1234;
  g_clkMemPtNo = 9;
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(FWM_SRV_BkfMalloc(0, 8), nullptr);
  FWM_SRV_BkfFree(0, FWM_SRV_BkfMalloc(0, 8));
  EXPECT_THAT(callsSince(mark, "orin"),
              ElementsAre("ORIN_MemAlloc(0xFFFFFFFF, 255, 40)", "ORIN_MemFree(0xFF, &)", "ORIN_MemAlloc(0x1234, 9, 8)",
                          "ORIN_MemAlloc(0x1234, 9, 8)", "ORIN_MemFree(0x9, &)"));
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);

  FWM_SRV_BkfRecordLog(7, "peer 3 up");
  EXPECT_EQ(FWM_SRV_BkfSysLogPrintf(3, "%s %d", "dropped", 5), 0);
  EXPECT_EQ(FWM_SRV_BkfSysLogPrintf(0, nullptr), 0);

  // Framework initialisation refuses a missing record, a missing slot and an occupied one.
  uintptr_t taken = 0x77;
  ClkBkfInitCommParam nullSlot{nullptr, "fwm_clk", 3};
  ClkBkfInitCommParam occupied{&taken, "fwm_clk", 3};
  mark = fwmsim::recorder().mark();
  for (ClkBkfInitCommParam *p : {static_cast<ClkBkfInitCommParam *>(nullptr), &nullSlot, &occupied})
    FWM_SRV_CLK_BkfInitComm(p);
  EXPECT_EQ(taken, 0x77u);
  EXPECT_THAT(callsSince(mark, "bkf"), IsEmpty());
  EXPECT_THAT(agentLines(), ElementsAre("MSG [FWM_SRV_BKF] peer 3 up", kInvalid, kInvalid, kInvalid));
}

TEST_F(ChannelTest, FrameworkRecordCarriesTheHooks) {
  uintptr_t slot = 0;
  ClkBkfInitCommParam param{&slot, "fwm_clk", 42};
  FWM_SRV_CLK_BkfInitComm(&param);
  EXPECT_EQ(slot, fwmsim::kCommHandle);
  EXPECT_EQ(fwmsim::framework().componentName(), "fwm_clk");

  // Static storage, so that the padding compares as zero too.
  // clang-format off
  static const ClkBkfCommInitRec kExpected{.opt04 = 1, .handles = &g_fwmClkBkfHandle, .memAlloc = FWM_SRV_BkfMalloc,
      .memFree = FWM_SRV_BkfFree, .opt18 = 2048, .opt1C = 1, .recordLog = FWM_SRV_BkfRecordLog, .opt24 = 4,
      .epollFd = 42, .timerStartOnce = FWM_SRV_BKF_TimerStartOnce, .timerStartLoop = FWM_SRV_BKF_TimerStartLoop,
      .timerStop = FWM_SRV_BKF_TimerStop, .opt3C = 1, .opt4C = 64, .sysLogPrintf = FWM_SRV_BkfSysLogPrintf,
      .opt64 = 4, .sliceKeyCmp = CLOCK_NegoinfoiSliceKeyCmp, .sliceKeyGetStr = CLOCK_NegoinfoiSliceKeyGetStr,
      .sliceKeyCodec = CLOCK_NegoinfoiSliceKeyCodec};
  // clang-format on
  expectRecord("BKF_CommInit(", kExpected);
}

// The whole sequence run directly, over a dirtied stack, to examine the
// records of the channel and the client; the client is created only once.
TEST_F(ChannelTest, ChannelAndClientRecords) {
  fwmtest::dirtyStack();
  FWM_SRV_CLK_BkfInit();
  ASSERT_NE(handles().client, 0u);

  EXPECT_EQ(fwmsim::framework().initRecord().epollFd, -1);  // no worker, no epoll yet
  static const ClkBkfChInitRec kCh{.opt04 = 1};
  EXPECT_STREQ(expectRecord("BKF_MeshCliChInit(", kCh), "fwm_clk_ntfy");
  EXPECT_THAT(fwmsim::framework().channels(), ElementsAre("fwm_clk_ntfy"));
  static ClkNtfyCliInitRec cli{.opt08 = 1, .channel = fwmsim::kChannelHandle, .comm = fwmsim::kCommHandle};
  const fwmsim::UrlArea url{0x7F000001u, 39011u, "fwm_ntfy"};
  std::memcpy(cli.url, &url, sizeof url);
  EXPECT_STREQ(expectRecord("CLOCK_NegoinfoiNtfyCliInit(", cli), "fwm_ntfy");
  EXPECT_THAT(agentLines(), ElementsAre("MSG [FWM_SRV_BKF] BkfInit success."));

  ClkBkfHandle before = handles();
  size_t mark = fwmsim::recorder().mark();
  EXPECT_EQ(FWM_SRV_CLK_BkfNtfyCliInit(), 0u);
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), testing::Not(testing::Contains(testing::HasSubstr("Negoinfoi"))));
  EXPECT_EQ(handles().client, before.client);
  EXPECT_EQ(agentLines().back(), kInvalid);
}

TEST_F(ChannelTest, TeardownReleasesClientFrameworkAndBuilder) {
  FWM_SRV_CLK_BkfInit();
  ClkBkfHandle before = handles();
  size_t mark = fwmsim::recorder().mark();
  size_t lines = agentLines().size();
  EXPECT_EQ(channelBlocks(), 1u);  // the framework's channel, lent through the hook
  FWM_SRV_CLK_BkfUnInit();
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), ElementsAre("CLOCK_NegoinfoiNtfyCliUninit(0xC11E0001)",
                                                               "BKF_CommUninit(0xB0C0001)", "ORIN_MemFree(0xFF, &)"));
  EXPECT_EQ(channelBlocks(), 0u);
  const ClkBkfHandle after = handles();
  EXPECT_THAT(std::vector<uintptr_t>({after.comm, after.builder, after.channel, after.client}),
              ElementsAre(0u, 0u, before.channel, before.client));
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
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(withIds(c.calls, fd, g_ClkBkfQueueProcID)));
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
  EXPECT_TRUE(created.empty() || fwmsim::epollOpen(created.back()) == c.loops);
  EXPECT_TRUE(g_ClkBkfQueueProcID == 0 || fwmsim::queueInfo(g_ClkBkfQueueProcID).has_value() == c.loops);
  ASSERT_EQ(fwmsim::tasks().size(), 1u);
  EXPECT_EQ(fwmsim::tasks()[0].id, g_FwmSrvBkfThreadId);
  EXPECT_EQ(channelBlocks(), (c.words & kChannel) != 0 ? 1u : 0u);
  if ((c.words & kComm) != 0) {  // the framework waits on the worker's epoll
    EXPECT_EQ(fwmsim::framework().initRecord().epollFd, created.back());
  }

  // A second create does nothing, whatever the first left.
  mark = fwmsim::recorder().mark();
  const size_t lineCount = agentLines().size();
  startWorker();
  EXPECT_THAT(fwmsim::recorder().textsSince(mark), IsEmpty());
  EXPECT_EQ(agentLines().size(), lineCount);
}

INSTANTIATE_TEST_SUITE_P(Channel, WorkerStart, testing::ValuesIn(kCases), kByName);

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

// A dispatch-table handler that records what it was given.
struct Handled {
  std::vector<uint8_t> data;
  uint32_t length;
  std::string thread;
  bool operator==(const Handled &) const = default;
};
std::vector<Handled> gHandled;
uint32_t gHandlerResult = 0;

uint32_t recordingHandler(void *data, uint32_t length) {
  const auto *b = static_cast<const uint8_t *>(data);
  gHandled.push_back({{b, b + length}, length, fwmsim::threadName()});
  fwmsim::record("test", "handler", length);
  return gHandlerResult;
}

class QueueTest : public WorkerTest {
 protected:
  void SetUp() override {
    WorkerTest::SetUp();
    gHandled.clear();
    gHandlerResult = 0;
    g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_SEND_ACK].proc = recordingHandler;
    // The end row closes the table: a handler put there is never called.
    g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_END].proc = recordingHandler;
  }
  void TearDown() override {
    WorkerTest::TearDown();
    g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_SEND_ACK].proc = FWM_SRV_BKF_ProcQueSendAckMsg;
    g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_END].proc = nullptr;
  }

  static constexpr uint32_t kPayloadLen = 5;
  const std::array<uint8_t, kPayloadLen> payload{1, 2, 3, 4, 5};
};

// One message posted to the worker's queue ("{m}": the message's size). A
// refused post answers 1 and reaches no worker; every block comes back.
struct PostCase {
  const char *name;
  uint32_t type;
  bool nullData;
  uint32_t length;
  int failAlloc;        // 0: memory holds
  const char *faultFn;  // the queue refusing a write or handing an empty read
  uint32_t handlerResult;
  bool dropRow1;  // the table's handler of type 1 missing
  std::vector<std::string> host, worker;
  std::vector<std::string> lines;
};

const char kAlloc5[] = "ORIN_MemAlloc(0xFFFFFFFF, 255, 5)";
const char kAllocMsg[] = "ORIN_MemAlloc(0xFFFFFFFF, 255, {m})";
const char kWrite[] = "FWM_QUE_AsyWrite({q}, &, 1)";
const char kRead[] = "FWM_QUE_AsyRead({q}, &, 1)";
const char kFree[] = "ORIN_MemFree(0xFF, &)";
const std::vector<std::string> kPosted = {kAlloc5, kAllocMsg, kWrite};
const std::vector<std::string> kUnhandled = {kRead, "dm_opers(0)", "dm_opers(1)", kFree, kFree, kWait};
const std::vector<std::string> kHandled = {kRead, "dm_opers(0)", "handler(5)", "dm_opers(1)", kFree, kFree, kWait};
constexpr uint32_t kAck = CLK_BKF_QUE_MSG_SEND_ACK;

// clang-format off
const PostCase kPosts[] = {
    {"Handled", kAck, false, 5, 0, nullptr, 0, false, kPosted, kHandled, {}},
    {"HandlerFails", kAck, false, 5, 0, nullptr, 5, false, kPosted, kHandled, {"ERROR [FWM_SRV_BKF] msg proc fail, ret=5."}},
    {"MissingHandler", kAck, false, 5, 0, nullptr, 0, true, kPosted, kUnhandled, {}},
    {"EndOfTable", CLK_BKF_QUE_MSG_END, false, 5, 0, nullptr, 0, false, kPosted, kUnhandled, {}},
    {"UnknownType", 7, false, 5, 0, nullptr, 0, false, kPosted, kUnhandled, {}},
    {"EmptyReadThenMessage", kAck, false, 5, 0, "FWM_QUE_AsyRead", 0, false, kPosted, {kRead, kWait, kRead, "dm_opers(0)", "handler(5)", "dm_opers(1)", kFree, kFree, kWait}, {"ERROR [FWM_SRV_BKF] Read epoll que failed, readCnt=0."}},
    {"NullData", kAck, true, 5, 0, nullptr, 0, false, {}, {}, {}},
    {"ZeroLength", kAck, false, 0, 0, nullptr, 0, false, {}, {}, {}},
    {"NoMemoryForCopy", kAck, false, 5, 1, nullptr, 0, false, {kAlloc5}, {}, {}},
    {"NoMemoryForMessage", kAck, false, 5, 2, nullptr, 0, false, {kAlloc5, kAllocMsg, kFree}, {}, {}},
    {"QueueRefuses", kAck, false, 5, 0, "FWM_QUE_AsyWrite", 0, false, {kAlloc5, kAllocMsg, kWrite, kFree, kFree}, {}, {"ERROR [FWM_SRV_BKF] QueProcWrite fail, msgtype=1, writeCnt=0."}},
};
// clang-format on

class Post : public QueueTest, public testing::WithParamInterface<PostCase> {};

TEST_P(Post, CallsLinesAndEveryBlockBack) {
  const PostCase &c = GetParam();
  gHandlerResult = c.handlerResult;
  if (c.dropRow1) g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_SEND_ACK].proc = nullptr;
  if (c.failAlloc != 0) fwmsim::memory().failAllocation(c.failAlloc);
  if (c.faultFn != nullptr) fwmsim::faults().inject(c.faultFn, 0);
  EXPECT_EQ(FWM_SRV_BKF_QueProcWrite(c.type, c.nullData ? nullptr : payload.data(), c.length),
            c.worker.empty() ? 1u : 0u);
  fwmsim::clock().settle();

  EXPECT_THAT(callsOn("host", mark), ElementsAreArray(ids(c.host)));
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(ids(c.worker)));
  const auto handled = static_cast<size_t>(std::count(c.worker.begin(), c.worker.end(), "handler(5)"));
  EXPECT_EQ(gHandled, std::vector<Handled>(handled, Handled{{1, 2, 3, 4, 5}, 5, kWorker}));
  EXPECT_THAT(newLines(), ElementsAreArray(c.lines));
  EXPECT_EQ(channelBlocks(), blocks);
}

INSTANTIATE_TEST_SUITE_P(Channel, Post, testing::ValuesIn(kPosts), kByName);

TEST_F(QueueTest, FullQueueRefusesAndTheWorkerDrainsTheRest) {
  {
    fwmsim::WorkerHold hold(fd);
    for (uint32_t i = 0; i < 2048; ++i) ASSERT_EQ(FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_END, &i, sizeof i), 0u);
    EXPECT_EQ(FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_END, payload.data(), kPayloadLen), 1u);
    EXPECT_EQ(fwmsim::queueInfo(queue)->entries, 2048u);
    EXPECT_EQ(channelBlocks(), blocks + size_t{2} * 2048);
  }
  fwmsim::clock().settle();
  EXPECT_EQ(fwmsim::queueInfo(queue)->entries, 0u);
  EXPECT_EQ(channelBlocks(), blocks);
  EXPECT_THAT(newLines(), ElementsAre("ERROR [FWM_SRV_BKF] QueProcWrite fail, msgtype=2, writeCnt=0."));
}

// A handler of another source, recording what it is handed.
uint32_t sourceHandler(uintptr_t context, uint32_t events, uint32_t data) {
  fwmsim::record("test", "source", context, fwmsim::Hex{events}, fwmsim::Hex{data});
  return 1;  // not examined
}

TEST_F(QueueTest, EventRecordsWithoutHandlerAreSkipped) {
  fwmsim::injectEvents(fd, {{0x11, sourceHandler, 0x21, 1}, {0x12, nullptr, 0x22, 2}, {0x13, sourceHandler, 0x23, 3}});
  fwmsim::clock().settle();
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(ids({"source(1, 0x11, 0x21)", "source(3, 0x13, 0x23)", kWait})));
}

std::vector<uintptr_t> gFired;  // the parameters the callbacks ran with

void onTimer(uintptr_t param) {
  gFired.push_back(param);
  fwmsim::record("test", "onTimer", fwmsim::Hex{param});
}

const char kStarted[] = "DEBUG [FWM_SRV_BKF] BKF_TimerStartLoop success.";
const char kStopped[] = "DEBUG [FWM_SRV_BKF] BKF_TimerStop success.";
const char kEnd[] = "DEBUG [FWM_SRV_BKF] ProcQueueNegoiTimer End.";
const char kStopFailed[] = "ERROR [FWM_SRV_BKF] BKF_TimerStop failed.";
const char kStartFailed[] = "ERROR [FWM_SRV_BKF] BKF_TimerStartLoop failed, Ret=7";

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
  EXPECT_THAT(
      callsOn(kWorker, mark),
      ElementsAreArray(ids({"ORIN_MemAlloc(0xFFFFFFFF, 255, " + std::to_string(sizeof(ClkBkfTimer)) + ")",
                            "ORIN_ReltmrCbkStart(&, 0xFFFFFFFF, 100, 0, " + hexArg(timer) + ", 0, &)", kWait})));
  EXPECT_EQ(channelBlocks(), blocks + 1);

  fwmsim::clock().advance(99);
  EXPECT_THAT(gFired, IsEmpty());
  size_t expiry = fwmsim::recorder().mark();
  fwmsim::clock().advance(1);  // runs on the worker
  const std::string payload = "ORIN_MemAlloc(0xFFFFFFFF, 255, " + std::to_string(sizeof(ClkBkfTimerQueMsg)) + ")";
  EXPECT_THAT(callsOn("reltmr", expiry), ElementsAreArray(ids({payload, kAllocMsg, kWrite})));
  EXPECT_THAT(
      callsOn(kWorker, expiry),
      ElementsAreArray(ids({kRead, "dm_opers(0)", "onTimer(0x77)", kFree, "dm_opers(1)", kFree, kFree, kWait})));
  EXPECT_THAT(newLines(), ElementsAre(kStarted, kEnd));
  EXPECT_EQ(channelBlocks(), blocks);

  fwmsim::clock().advance(1000);
  EXPECT_EQ(gFired.size(), 1u);
}

// A stopped timer is released silently when its platform timer expires; a
// null callback is still released; expiry follows each timer's own delay; a
// stop with a released handle writes nothing while other timers live; a stop
// without a framework or without a timer is refused and the timer runs on.
TEST_F(TimerTest, StoppedRefusedNullAndOrderedTimers) {
  void *a = fw.startTimerOnce(onTimer, 30, 0xA);
  void *b = fw.startTimerOnce(onTimer, 10, 0xB);
  void *c = fw.startTimerOnce(onTimer, 20, 0xC);
  ASSERT_TRUE(a != nullptr && b != nullptr && c != nullptr && fw.startTimerOnce(nullptr, 20, 3) != nullptr);
  fw.stopTimer(0, a);
  fw.stopTimer(1, nullptr);
  fwmsim::clock().advance(10);
  fw.stopTimer(b);  // the record is gone; nothing may be written into it
  fw.stopTimer(c);
  EXPECT_EQ(fwmsim::clock().runningTimers(), 3u);  // c's platform timer still runs
  fwmsim::clock().advance(20);
  EXPECT_THAT(gFired, ElementsAre(0xBu, 0xAu));
  EXPECT_THAT(newLines(), ElementsAre(kStarted, kStarted, kStarted, kStarted, kStopFailed, kStopFailed, kEnd, kStopped,
                                      kEnd, kEnd));
  EXPECT_EQ(channelBlocks(), blocks);
}

// Refused starts: the platform timer refused (the record released), no memory
// for the record, and any periodic start. An expiry that cannot be queued is
// lost and its record kept.
TEST_F(TimerTest, RefusedStartsLeaveNothingAndALostExpiryKeepsTheRecord) {
  fwmsim::faults().inject("ORIN_ReltmrCbkStart", 7);
  EXPECT_EQ(fw.startTimerOnce(onTimer, 10, 6), nullptr);
  EXPECT_THAT(newLines(), ElementsAre(kStartFailed));
  EXPECT_EQ(channelBlocks(), blocks);
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(fw.startTimerOnce(onTimer, 10, 6), nullptr);
  EXPECT_EQ(newLines().size(), 1u);
  const size_t loop = fwmsim::recorder().mark();
  EXPECT_EQ(fw.startTimerLoop(onTimer, 10, 6), nullptr);
  EXPECT_THAT(callsOn(kWorker, loop), ElementsAreArray(ids({kWait})));
  EXPECT_EQ(fwmsim::clock().runningTimers(), 0u);

  auto *timer = static_cast<ClkBkfTimer *>(fw.startTimerOnce(onTimer, 10, 8));
  fwmsim::memory().failAllocation(1);
  fwmsim::clock().advance(10);
  EXPECT_THAT(gFired, IsEmpty());
  EXPECT_EQ(timer->periodic, 0u);  // a one-shot record
  EXPECT_THAT(newLines(), ElementsAre(kStartFailed, kStarted,
                                      "ERROR [FWM_SRV_BKF] QueProcWrite failed, ret=1, timerName=" +
                                          std::to_string(timer->platformTimer) + "."));
  EXPECT_EQ(channelBlocks(), blocks + 1);
}

ClkAnnInfo annInfo(uint32_t ifIndex, uint32_t pktLen, uint8_t seed) {
  ClkAnnInfo info;
  info.ifIndex = ifIndex;
  info.pktLen = pktLen;
  for (size_t i = 0; i < sizeof info.annPkt; ++i) info.annPkt[i] = static_cast<uint8_t>(seed + i * 7);
  return info;
}

// What the peer must receive: a zero root header, then the record unchanged.
std::vector<uint8_t> wire(const ClkAnnInfo &info) {
  std::vector<uint8_t> out(4 + sizeof info, 0);
  std::memcpy(out.data() + 4, &info, sizeof info);
  return out;
}

std::string sendLine(uint32_t ifIndex, uint32_t ret) {
  return "MSG [FWM_SRV_BKF] CliMsgSend ifIndex=" + std::to_string(ifIndex) + " msgLen=100 ret=" + std::to_string(ret) +
         ".";
}

class AckTest : public WorkerTest {};

class AckBytes : public AckTest, public testing::WithParamInterface<std::pair<uint32_t, uint32_t>> {};

// A hundred bytes whatever pktLen says; the caller's record may go once queued.
TEST_P(AckBytes, RecordOnTheWire) {
  auto [ifIndex, pktLen] = GetParam();
  ClkAnnInfo info = annInfo(ifIndex, pktLen, static_cast<uint8_t>(ifIndex));
  const ClkAnnInfo sent = info;
  EXPECT_EQ(FWM_SRV_BKF_SendAckMsg(&info), 0u);
  std::memset(&info, 0xEE, sizeof info);
  fwmsim::clock().settle();

  EXPECT_THAT(callsOn(kWorker, mark), testing::Contains("CLOCK_NegoinfoiNtfyCliMsgSend(0xC11E0001, &, 100)"));
  auto got = peer.receive();  // the bytes handed to the send, as the peer reads them
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ(*got, wire(sent));
  EXPECT_FALSE(peer.pending());
  EXPECT_THAT(newLines(), ElementsAre(sendLine(ifIndex, 0)));
  EXPECT_EQ(channelBlocks(), blocks);
  // The builder's record names the announce packet as the last field added.
  EXPECT_EQ(reinterpret_cast<const ClkBkfSimpoBuilder *>(handles().builder)->fieldIndex, 2u);
}

INSTANTIATE_TEST_SUITE_P(Channel, AckBytes,
                         testing::ValuesIn(std::vector<std::pair<uint32_t, uint32_t>>{
                             {5, 96}, {0, 0}, {0xFFFFFFFFu, 0x12345678u}, {17, 88}}));

// A refused post still answers 0; a failed send logs three lines; the next one goes.
TEST_F(AckTest, RefusedPostAndFailedSendAreLoggedAndTheNextStillGoes) {
  ClkAnnInfo first = annInfo(1, 96, 1), second = annInfo(2, 96, 2), refused = annInfo(3, 96, 3);
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(FWM_SRV_BKF_SendAckMsg(&refused), 0u);
  fwmsim::faults().inject("CLOCK_NegoinfoiNtfyCliMsgSend", 42);
  FWM_SRV_BKF_SendAckMsg(&first);
  FWM_SRV_BKF_SendAckMsg(&second);
  fwmsim::clock().settle();
  EXPECT_THAT(newLines(), ElementsAre("ERROR [FWM_SRV_BKF] QueProcWrite failed, ret=1.", sendLine(1, 42),
                                      "ERROR [FWM_SRV_BKF] SendAckMsgProc fail, ret=42.",
                                      "ERROR [FWM_SRV_BKF] msg proc fail, ret=1.", sendLine(2, 0)));
  auto got = peer.receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_THAT(*got, ElementsAreArray(wire(second)));
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(channelBlocks(), blocks);
}

TEST_F(AckTest, RecordsFromAnotherThreadArriveInOrder) {
  constexpr uint32_t kCount = 200;
  std::thread poster([] {
    for (uint32_t i = 0; i < kCount; ++i) {
      ClkAnnInfo info = annInfo(i, 96, static_cast<uint8_t>(i));
      FWM_SRV_BKF_SendAckMsg(&info);
    }
  });
  poster.join();
  fwmsim::clock().settle();
  for (uint32_t i = 0; i < kCount; ++i) {
    auto got = peer.receive();
    ASSERT_TRUE(got.has_value()) << i;
    ASSERT_THAT(*got, ElementsAreArray(wire(annInfo(i, 96, static_cast<uint8_t>(i)))));
  }
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(channelBlocks(), blocks);
  EXPECT_THAT(fwmtest::agentLines(), testing::Not(testing::Contains(testing::StartsWith("ERROR"))));
}

}  // namespace
