// Posting to the worker's queue, reading, dispatching by type and releasing:
// every message's two channel blocks come back, whatever happens to it.
#include <array>
#include <cstring>
#include <tuple>

#include "channel_fixture.hpp"

namespace {

using chantest::callsOn;
using chantest::channelBlocks;
using chantest::kWorker;
using chantest::WorkerTest;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::string kMsgSize = std::to_string(sizeof(ClkBkfQueMsg));

// A dispatch-table handler that records what it was given.
struct Handled {
  std::vector<uint8_t> data;
  uint32_t length;
  std::string thread;
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

  std::vector<std::string> readCalls(std::vector<std::string> dispatch) const {
    std::vector<std::string> calls = {"FWM_QUE_AsyRead(" + queueArg() + ", &, 1)", "dm_opers(0)"};
    calls.insert(calls.end(), dispatch.begin(), dispatch.end());
    calls.insert(calls.end(), {"dm_opers(1)", "ORIN_MemFree(0xFF, &)", "ORIN_MemFree(0xFF, &)", waitCall()});
    return calls;
  }

  static constexpr uint32_t kPayloadLen = 5;
  const std::array<uint8_t, kPayloadLen> payload{1, 2, 3, 4, 5};
};

struct DispatchCase {
  const char *name;
  uint32_t type;
  uint32_t handlerResult;
  bool dropRow1;  // the table's handler of type 1 missing
  bool handled;
  std::vector<std::string> lines;
};

// Names the case in test listings.
void PrintTo(const DispatchCase &c, std::ostream *os) { *os << c.name; }

const DispatchCase kDispatch[] = {
    {"Handled", CLK_BKF_QUE_MSG_SEND_ACK, 0, false, true, {}},
    {"HandlerFails", CLK_BKF_QUE_MSG_SEND_ACK, 5, false, true, {"ERROR [FWM_SRV_BKF] msg proc fail, ret=5."}},
    {"MissingHandler", CLK_BKF_QUE_MSG_SEND_ACK, 0, true, false, {}},
    {"EndOfTable", CLK_BKF_QUE_MSG_END, 0, false, false, {}},
    {"UnknownType", 7, 0, false, false, {}},
};

class Dispatch : public QueueTest, public testing::WithParamInterface<DispatchCase> {};

TEST_P(Dispatch, MessageIsDispatchedOnTheWorkerAndReleased) {
  const DispatchCase &c = GetParam();
  gHandlerResult = c.handlerResult;
  if (c.dropRow1) g_clkBkfQueMsgDispatchTbl[CLK_BKF_QUE_MSG_SEND_ACK].proc = nullptr;

  EXPECT_EQ(FWM_SRV_BKF_QueProcWrite(c.type, payload.data(), kPayloadLen), 0u);
  fwmsim::clock().settle();

  EXPECT_THAT(callsOn("host", mark),
              ElementsAre("ORIN_MemAlloc(0xFFFFFFFF, 255, 5)", "ORIN_MemAlloc(0xFFFFFFFF, 255, " + kMsgSize + ")",
                          "FWM_QUE_AsyWrite(" + queueArg() + ", &, 1)"));
  std::vector<std::string> dispatch;
  if (c.handled) dispatch.push_back("handler(5)");
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(readCalls(dispatch)));
  if (c.handled) {
    ASSERT_EQ(gHandled.size(), 1u);
    EXPECT_THAT(gHandled[0].data, ElementsAreArray(payload));
    EXPECT_EQ(gHandled[0].length, 5u);
    EXPECT_EQ(gHandled[0].thread, kWorker);
  } else {
    EXPECT_THAT(gHandled, IsEmpty());
  }
  EXPECT_THAT(newLines(), ElementsAreArray(c.lines));
  EXPECT_EQ(channelBlocks(), blocks);
}

INSTANTIATE_TEST_SUITE_P(Channel, Dispatch, testing::ValuesIn(kDispatch),
                         [](const testing::TestParamInfo<DispatchCase> &i) { return std::string(i.param.name); });

struct RefusedCase {
  const char *name;
  bool nullData;
  uint32_t length;
  int failAlloc;                   // 0: memory holds
  const char *faultFn;             // the queue refusing
  std::vector<std::string> calls;  // "{fd}" stands for the message's size here
  std::vector<std::string> lines;
};

// Names the case in test listings.
void PrintTo(const RefusedCase &c, std::ostream *os) { *os << c.name; }

// clang-format off
const RefusedCase kRefused[] = {
    {"NullData", true, 5, 0, nullptr, {}, {}},
    {"ZeroLength", false, 0, 0, nullptr, {}, {}},
    {"NoMemoryForCopy", false, 5, 1, nullptr, {"ORIN_MemAlloc(0xFFFFFFFF, 255, 5)"}, {}},
    {"NoMemoryForMessage", false, 5, 2, nullptr, {"ORIN_MemAlloc(0xFFFFFFFF, 255, 5)", "ORIN_MemAlloc(0xFFFFFFFF, 255, {fd})", "ORIN_MemFree(0xFF, &)"}, {}},
    {"QueueRefuses", false, 5, 0, "FWM_QUE_AsyWrite", {"ORIN_MemAlloc(0xFFFFFFFF, 255, 5)", "ORIN_MemAlloc(0xFFFFFFFF, 255, {fd})", "FWM_QUE_AsyWrite({q}, &, 1)", "ORIN_MemFree(0xFF, &)", "ORIN_MemFree(0xFF, &)"}, {"ERROR [FWM_SRV_BKF] QueProcWrite fail, msgtype=1, writeCnt=0."}},
};
// clang-format on

class Refused : public QueueTest, public testing::WithParamInterface<RefusedCase> {};

TEST_P(Refused, NothingStaysAllocated) {
  const RefusedCase &c = GetParam();
  if (c.failAlloc != 0) fwmsim::memory().failAllocation(c.failAlloc);
  if (c.faultFn != nullptr) fwmsim::faults().inject(c.faultFn, 0);
  EXPECT_EQ(FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_SEND_ACK, c.nullData ? nullptr : payload.data(), c.length), 1u);
  fwmsim::clock().settle();

  EXPECT_THAT(callsOn("host", mark), ElementsAreArray(chantest::withIds(c.calls, kMsgSize, queue)));
  EXPECT_THAT(callsOn(kWorker, mark), IsEmpty());
  EXPECT_THAT(newLines(), ElementsAreArray(c.lines));
  EXPECT_THAT(gHandled, IsEmpty());
  EXPECT_EQ(channelBlocks(), blocks);
}

INSTANTIATE_TEST_SUITE_P(Channel, Refused, testing::ValuesIn(kRefused),
                         [](const testing::TestParamInfo<RefusedCase> &i) { return std::string(i.param.name); });

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

TEST_F(QueueTest, EmptyReadIsLoggedAndTheMessageStillArrives) {
  fwmsim::faults().inject("FWM_QUE_AsyRead", 0);
  ASSERT_EQ(FWM_SRV_BKF_QueProcWrite(CLK_BKF_QUE_MSG_SEND_ACK, payload.data(), kPayloadLen), 0u);
  fwmsim::clock().settle();
  std::vector<std::string> calls = {"FWM_QUE_AsyRead(" + queueArg() + ", &, 1)", waitCall()};
  auto rest = readCalls({"handler(5)"});
  calls.insert(calls.end(), rest.begin(), rest.end());
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAreArray(calls));
  EXPECT_THAT(newLines(), ElementsAre("ERROR [FWM_SRV_BKF] Read epoll que failed, readCnt=0."));
  EXPECT_EQ(gHandled.size(), 1u);
  EXPECT_EQ(channelBlocks(), blocks);
}

// Records delivered by the event layer for other sources.
// (context, events, data, thread)
using Delivery = std::tuple<uintptr_t, uint32_t, uint32_t, std::string>;
std::vector<Delivery> gDelivered;

uint32_t sourceHandler(uintptr_t context, uint32_t events, uint32_t data) {
  gDelivered.emplace_back(context, events, data, fwmsim::threadName());
  return 1;  // not examined
}

TEST_F(QueueTest, EventRecordsWithoutHandlerAreSkipped) {
  gDelivered.clear();
  fwmsim::injectEvents(fd, {{0x11, sourceHandler, 0x21, 1}, {0x12, nullptr, 0x22, 2}, {0x13, sourceHandler, 0x23, 3}});
  fwmsim::clock().settle();
  EXPECT_THAT(gDelivered,
              ElementsAre(std::make_tuple(1u, 0x11u, 0x21u, kWorker), std::make_tuple(3u, 0x13u, 0x23u, kWorker)));
  EXPECT_THAT(callsOn(kWorker, mark), ElementsAre(waitCall()));
}

}  // namespace
