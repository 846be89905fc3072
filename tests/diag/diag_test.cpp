// The log agent: adoption, the start-up task's waits and retries on the board
// clock, master address updates and release; the diagnostic log's delivery and
// its failure reports; registration with the debug framework and the
// time-stamped debug print.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <thread>
#include <tuple>

#include "fwmclk/fwmclk.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmclk/platform/securec.h"
#include "testkit.hpp"

// Records are built with designated initializers; the fields left out are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Names a parameterised case after its row in test listings.
template <class T>
requires requires(const T &c) { c.name; }
void PrintTo(const T &c, std::ostream *os) { *os << c.name; }

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
  // clang-format off
  auto want = ClkImAgentInitPara{.name = "srv clk log", .memAlloc = &FWM_SRV_ORCH_CLK_ImAgentMemAlloc,
      .memFree = &FWM_SRV_ORCH_CLK_ImAgentMemFree, .logTrace = &FWM_SRV_ORCH_CLK_ImAgentLogTrace,
      .getSysTime = &FWM_SRV_ORCH_CLK_ImAgentGetSysTime, .value64 = 1000};
  // clang-format on
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
// calls the agent only when there is one; after it nothing is logged.
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
  const size_t mark = fwmsim::recorder().mark();  // without an agent every level is dropped silently
  for (uint32_t level = 0; level <= 6; ++level) EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(level, "x"), 0);
  EXPECT_THAT(fwmtest::callsSince(mark, "agent"), IsEmpty());
}

constexpr uint32_t kHandle = 0x00A6E0F0u;

class DiagLog : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmsim::agent().existingHandle = kHandle;  // the process's agent, adopted without a task
    ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentInit(), 0u);
    ASSERT_THAT(fwmsim::recorder().texts("orin"), IsEmpty());
    mark_ = fwmsim::recorder().mark();
  }
  std::vector<std::string> agentCalls() const { return fwmtest::callsSince(mark_, "agent"); }
  size_t mark_ = 0;
};

// Only switched-on levels are delivered, each with its name; the text fills
// the whole zeroed buffer of its parameter.
TEST_F(DiagLog, DeliversOnlySwitchedOnLevelsWithTheirNames) {
  const std::pair<uint32_t, const char *> levels[] = {{0, nullptr}, {1, nullptr},          {2, "MSG"},
                                                      {3, "ERROR"}, {4, "SYSBOOT"},        {5, "PROCINIT"},
                                                      {6, nullptr}, {0xFFFFFFFFu, nullptr}};
  for (const auto &[level, name] : levels) {
    mark_ = fwmsim::recorder().mark();
    EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(level, "port %u up", 7u), name == nullptr ? 1 : 0) << level;
    std::vector<std::string> want;
    if (name != nullptr)
      want = {"IM_Agent_ObjCreate(9, 0x9AF107F, &, 0xA6E0F0)", "IM_Agent_AddPara(&, 25, 7, \"CLK_FWM\", 0xA6E0F0)",
              "IM_Agent_AddPara(&, 25, " + std::to_string(std::strlen(name)) + ", \"" + name + "\", 0xA6E0F0)",
              "IM_Agent_AddPara(&, 25, 512, \"port 7 up\", 0xA6E0F0)", "IM_Agent_Send(&, 0xA6E0F0)"};
    EXPECT_EQ(agentCalls(), want) << level;
    EXPECT_EQ(fwmsim::agent().liveObjects(), 0u);
    if (name == nullptr) continue;
    auto events = fwmsim::recorder().events();
    auto text = std::find_if(events.rbegin(), events.rend(), [](auto &e) { return e.bytes.size() == 512; });
    ASSERT_NE(text, events.rend());
    EXPECT_EQ(std::string(text->bytes.begin(), text->bytes.end()), "port 7 up" + std::string(503, '\0'));
  }
  void *kept = nullptr;  // the count the checks above rely on sees an object nobody freed
  ASSERT_EQ(IM_Agent_ObjCreate(9, 0x9AF107F, &kept, kHandle), 0u);
  EXPECT_EQ(fwmsim::agent().liveObjects(), 1u);
  EXPECT_EQ(IM_Agent_ObjFree(kept, kHandle), 0u);
}

TEST_F(DiagLog, LongestLineFitsLongerOneIsSentAsLeftAndSwitchesAreHonoured) {
  std::string fits(511, 'x');
  std::string tooLong(600, 'y');
  FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "%s", fits.c_str());
  FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "%s", tooLong.c_str());
  // The host's switches are honoured.
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_MSG] = 0;
  g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_DEBUG] = 1;
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "m"), 1);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_DEBUG, "d"), 0);
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("ERROR " + fits, "ERROR ", "DEBUG d"));
}

// A failing agent: what is called, what the debug channel says when it is on.
struct AgentFailure {
  const char *name;
  const char *fn;
  int skip;  // good calls before the failing one
  uint32_t code;
  std::vector<std::string> calls;  // "": where the report goes
  const char *debugLine;
};

class DiagFailure : public DiagLog, public ::testing::WithParamInterface<AgentFailure> {};

// Silent with the debug switch off; with it on, one report on the debug channel.
TEST_P(DiagFailure, ReportsOnTheDebugChannelAndFreesOnlyUnsentObjects) {
  const AgentFailure &f = GetParam();
  for (uint32_t on : {0u, 1u}) {
    ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(FWM_CLK_LOG_ERROR, on), 0u);
    mark_ = fwmsim::recorder().mark();
    fwmsim::faults().inject(f.fn, f.code, 1, f.skip);
    EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "lost"), 0) << on;  // the free's or report's 0
    std::vector<std::string> expected;
    for (const std::string &c : f.calls)
      if (!c.empty() || on != 0)
        expected.push_back(c.empty() ? "IM_Agent_Debug(0x0, 0x9AFBC001, \"NULL\", 0x9AFBC001, \"%s\", \"" +
                                           std::string(f.debugLine) + "\")"
                                     : c);
    EXPECT_EQ(agentCalls(), expected) << on;
    EXPECT_THAT(fwmsim::agent().delivered(), IsEmpty());
    EXPECT_EQ(fwmsim::agent().liveObjects(), 0u);
  }
}

const char *kCreate = "IM_Agent_ObjCreate(9, 0x9AF107F, &, 0xA6E0F0)";
const char *kTag = "IM_Agent_AddPara(&, 25, 7, \"CLK_FWM\", 0xA6E0F0)";
const char *kLevel = "IM_Agent_AddPara(&, 25, 5, \"ERROR\", 0xA6E0F0)";
const char *kText = "IM_Agent_AddPara(&, 25, 512, \"lost\", 0xA6E0F0)";
const char *kFree = "IM_Agent_ObjFree(&, 0xA6E0F0)";
const char *kSend = "IM_Agent_Send(&, 0xA6E0F0)";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Agent, DiagFailure, ::testing::Values(
    AgentFailure{"Create", "IM_Agent_ObjCreate", 0, 5, {kCreate, ""}, "Create object failed, return 0x5."},
    AgentFailure{"Tag", "IM_Agent_AddPara", 0, 6, {kCreate, kTag, "", kFree}, "Add Para info failed, return 0x6."},
    AgentFailure{"LevelName", "IM_Agent_AddPara", 1, 0x1A, {kCreate, kTag, kLevel, "", kFree}, "Add Para info failed, return 0x1a."},
    AgentFailure{"Text", "IM_Agent_AddPara", 2, 6, {kCreate, kTag, kLevel, kText, "", kFree}, "Add Para info failed, return 0x6."},
    AgentFailure{"Send", "IM_Agent_Send", 0, 7, {kCreate, kTag, kLevel, kText, kSend, ""}, "Send msg failed, return 0x7."}),
    [](const auto &tp) { return std::string(tp.param.name); });
// clang-format on

TEST_F(DiagLog, DebugChannelGates) {
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(6, "x"), 1);
  for (uint32_t level = 0; level < 6; ++level) EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(level, "x"), 0);
  EXPECT_THAT(fwmsim::agent().debugLines(), IsEmpty());  // every level switched off at load
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(3, 1), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(3, nullptr), 0);
  std::string tooLong(600, 'z');
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(3, "%s", tooLong.c_str()), -1);
  EXPECT_THAT(agentCalls(), IsEmpty());
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(3, "n=%d", 4), 0);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(3, "%s", ""), 0);  // empty, yet sent
  EXPECT_THAT(fwmsim::agent().debugLines(), ElementsAre("n=4", ""));
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentUnInit(), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDebugLog(3, "x"), 1);
}

TEST(DebugSwitch, AcceptsLevelsUpToFiveAndValuesUpToOne) {
  // (level, value, result)
  for (auto [level, value, result] : std::initializer_list<std::array<uint32_t, 3>>{
           {5, 1, 0}, {0, 1, 0}, {5, 0, 0}, {6, 1, 1}, {5, 2, 1}, {0xFFFFFFFFu, 0, 1}}) {
    std::array<uint32_t, 6> want;
    std::memcpy(want.data(), g_clkSrvImAgentDebugSwitch, sizeof want);
    if (result == 0) want[level] = value;  // and nothing else changes
    EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(level, value), result) << level << "/" << value;
    EXPECT_EQ(std::memcmp(want.data(), g_clkSrvImAgentDebugSwitch, sizeof want), 0) << level << "/" << value;
  }
}

// Memory goes through the service's handle only when there is one.
TEST(AgentCallbacks, MemoryLogTraceAndSystemTime) {
  fwmsim::resetBoard();
  for (uint32_t none : {0xFFFFFFFFu, 0xFFu}) {
    g_fwmSrvClkHandle = none;
    EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentMemAlloc(16), nullptr);
  }
  EXPECT_THAT(fwmsim::recorder().texts("orin"), IsEmpty());
  g_fwmSrvClkHandle = 0x101;
  g_fwmClkMemPtNo = 7;
  void *p = FWM_SRV_ORCH_CLK_ImAgentMemAlloc(24);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentMemFree(p), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentMemFree(nullptr), 0u);
  EXPECT_THAT(fwmsim::recorder().texts("orin"), ElementsAre("ORIN_MemAlloc(0x101, 7, 24)", "ORIN_MemFree(0x101, &)"));
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentLogTrace("anything %d", 1), 0u);

  // Bounded formatting refuses what it cannot bound; system calls get every argument word.
  const auto format = [](char *dest, size_t max, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const int n = vsprintf_s(dest, max, fmt, ap);
    va_end(ap);
    return n;
  };
  char four[4];
  EXPECT_EQ((std::array{format(nullptr, 4, "x"), format(four, 4, "%d", 1234), format(four, 4, "%d", 123)}),
            (std::array{-1, -1, 3}));
  EXPECT_EQ(::syscall(SYS_write, ::open("/dev/null", O_WRONLY), "abc", 3L, 0L, 0L, 0L), 3);

  // The system time, field by field; a failing clock leaves every field zero.
  using Fields = std::array<uint32_t, 8>;
  const auto fields = [](const ClkImAgentSysTime &t) {
    return Fields{t.year, t.month, t.day, t.hour, t.minute, t.second, t.week, t.millisecond};
  };

  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(nullptr), 1u);
  fwmsim::clock().advance(3723250);  // 1 h 2 min 3.25 s after 08:00:00
  ClkImAgentSysTime t;
  std::memset(&t, 0xAA, sizeof t);
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(&t), 0u);
  EXPECT_EQ(fields(t), (Fields{2026, 11, 22, 9, 2, 3, 0, 250}));
  fwmsim::faults().inject("ORIN_SystimeGet", 1);
  std::memset(&t, 0xAA, sizeof t);
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(&t), 0u);
  EXPECT_EQ(fields(t), Fields{});
}

class DebugPrint : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  }
};

struct Registration {
  const char *name;
  void (*arrange)();
  const char *line;  // the line after "Start register CLK FWM_SRV_CLK..."
  bool registered;
};

class DebugRegistration : public DebugPrint, public ::testing::WithParamInterface<Registration> {};

TEST_P(DebugRegistration, RegistersOrSaysWhyNot) {
  const Registration &r = GetParam();
  r.arrange();
  (void)FWM_SRV_CLK_InitDbg();
  EXPECT_THAT(fwmtest::agentLines(), ElementsAre("INFO Start register CLK FWM_SRV_CLK...", r.line));
  EXPECT_EQ(g_clkFwmSrvDbgId != 0xFFFFFFFFu, r.registered);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Framework, DebugRegistration, ::testing::Values(
    Registration{"Success", [] {}, "INFO clk FWM_SRV_CLK registered success", true},
    Registration{"LookupFails", [] { fwmsim::faults().inject("COMP_GetVTable", 12); }, "ERROR get frm debug funvtabl failed, ret=12", false},
    Registration{"NoTable", [] { fwmsim::registry().debugTable = false; }, "ERROR null pointer g_clkFwmSrvDbgFunVtbl", false},
    Registration{"NoModuleReg", [] { fwmsim::registry().moduleRegEntry = false; }, "ERROR null pointer g_clkFwmSrvDbgFunVtbl->moduleReg", false},
    Registration{"ModuleRegRefuses", [] { fwmsim::registry().moduleRegResult = 1; }, "ERROR null pointer g_clkFwmSrvDbgFunVtbl->moduleReg", false}),
    [](const auto &tp) { return std::string(tp.param.name); });
// clang-format on

// Each line carries the id, its level and the local time; one of more than
// 255 characters is dropped whole; a level above four goes to the diagnostic
// log instead. Before registration nothing is printed anywhere.
TEST_F(DebugPrint, LinesCarryIdLevelAndLocalTime) {
  FWM_SRV_CLK_PrintDbg(2, "[CLK_NP] GetTimestamp, null pointer");  // nothing goes before registration
  EXPECT_THAT(fwmtest::agentLines(), IsEmpty());
  (void)FWM_SRV_CLK_InitDbg();
  std::string fits(255, 'a');
  std::string tooLong(256, 'b');
  FWM_SRV_CLK_PrintDbg(2, "%s", fits.c_str());
  EXPECT_EQ(FWM_SRV_CLK_PrintDbg(2, "%s", tooLong.c_str()), 0);
  fwmsim::clock().advance(7 * 3600 * 1000 + 9000);  // 15:00:09
  FWM_SRV_CLK_PrintDbg(2, "[CLK_NP] %s, null pointer", "GetTimestamp");
  FWM_SRV_CLK_PrintDbg(4, "four");
  EXPECT_THAT(fwmsim::recorder().texts("debug").back(), ::testing::StartsWith("print(17, 4, \"%s %s\r\n\")"));
  FWM_SRV_CLK_PrintDbg(5, "five");
  EXPECT_EQ(fwmtest::agentLines().back(), "MSG Debugging level greater than 4");
  std::vector<std::tuple<uint32_t, uint32_t, std::string>> got;
  for (const auto &l : fwmsim::registry().printed()) got.emplace_back(l.id, l.level, l.text);
  EXPECT_THAT(got, ElementsAre(std::make_tuple(17u, 2u, "2026-11-22 08:00:00 " + fits + "\r\n"),
                               std::make_tuple(17u, 2u, "2026-11-22 15:00:09 [CLK_NP] GetTimestamp, null pointer\r\n"),
                               std::make_tuple(17u, 4u, "2026-11-22 15:00:09 four\r\n")));
}

// Without a print entry lines are dropped silently; a second registration
// leaves the framework alone.
TEST_F(DebugPrint, MissingPrintEntryAndSecondRegistration) {
  fwmsim::registry().printEntry = false;
  (void)FWM_SRV_CLK_InitDbg();
  FWM_SRV_CLK_PrintDbg(2, "x");
  size_t mark = fwmsim::recorder().mark();
  (void)FWM_SRV_CLK_InitDbg();
  EXPECT_THAT(fwmtest::callsSince(mark, "comp"), IsEmpty());
  EXPECT_THAT(fwmsim::recorder().texts("debug"), ElementsAre("moduleReg(\"FWM_SRV_CLK\", &)"));
  EXPECT_EQ(fwmtest::agentLines().back(), "INFO clk FWM_SRV_CLK has been registered, g_clkFwmSrvDbgId=17");
}

}  // namespace
