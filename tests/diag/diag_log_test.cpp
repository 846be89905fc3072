// The diagnostic log's delivery to the agent and its failure reports.
#include <array>
#include <cstring>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kHandle = 0x00A6E0F0u;

class DiagLog : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent(kHandle);
    mark_ = fwmsim::recorder().mark();
  }
  std::vector<std::string> agentCalls() const { return fwmtest::callsSince(mark_, "agent"); }
  size_t mark_ = 0;
};

struct LevelCase {
  friend void PrintTo(const LevelCase &c, std::ostream *os) { *os << c.level; }
  uint32_t level;
  int32_t result;
  const char *name;  // nullptr: dropped
};

class DiagLevel : public DiagLog, public ::testing::WithParamInterface<LevelCase> {};

TEST_P(DiagLevel, DeliversOnlySwitchedOnLevelsWithTheirNames) {
  const LevelCase &c = GetParam();
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(c.level, "port %u up", 7u), c.result);
  if (c.name == nullptr) {
    EXPECT_THAT(agentCalls(), IsEmpty());
    return;
  }
  const std::string n = c.name;
  EXPECT_THAT(
      agentCalls(),
      ElementsAre("IM_Agent_ObjCreate(9, 0x9AF107F, &, 0xA6E0F0)", "IM_Agent_AddPara(&, 25, 7, \"CLK_FWM\", 0xA6E0F0)",
                  "IM_Agent_AddPara(&, 25, " + std::to_string(n.size()) + ", \"" + n + "\", 0xA6E0F0)",
                  "IM_Agent_AddPara(&, 25, 512, \"port 7 up\", 0xA6E0F0)", "IM_Agent_Send(&, 0xA6E0F0)"));
  EXPECT_EQ(fwmsim::agent().liveObjects(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Levels, DiagLevel,
                         ::testing::Values(LevelCase{0, 1, nullptr}, LevelCase{1, 1, nullptr}, LevelCase{2, 0, "MSG"},
                                           LevelCase{3, 0, "ERROR"}, LevelCase{4, 0, "SYSBOOT"},
                                           LevelCase{5, 0, "PROCINIT"}, LevelCase{6, 1, nullptr},
                                           LevelCase{0xFFFFFFFFu, 1, nullptr}));

TEST_F(DiagLog, TextFillsTheWholeZeroedBuffer) {
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_MSG, "ab"), 0);
  auto events = fwmsim::recorder().events();
  auto last = std::find_if(events.rbegin(), events.rend(),
                           [](const fwmsim::Event &e) { return e.text.rfind("IM_Agent_AddPara", 0) == 0; });
  ASSERT_NE(last, events.rend());
  std::vector<uint8_t> want(512, 0);  // the third parameter
  want[0] = 'a';
  want[1] = 'b';
  EXPECT_EQ(last->bytes, want);
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

TEST(DiagLogNotReady, DropsEveryLevelSilently) {
  fwmsim::resetBoard();
  for (uint32_t level = 0; level <= 6; ++level) EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentDiagLog(level, "x"), 0);
  EXPECT_THAT(fwmsim::recorder().texts("agent"), IsEmpty());
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentIsInitOk(), 0u);
}

// A failing agent: what is called, what the debug channel says when it is on.
struct AgentFailure {
  const char *name;
  const char *fn;
  int skip;  // good calls before the failing one
  uint32_t code;
  std::vector<std::string> calls;
  const char *debugLine;
  std::vector<std::string> after;  // calls after the report
  friend void PrintTo(const AgentFailure &f, std::ostream *os) { *os << f.name; }
};

class DiagFailure : public DiagLog, public ::testing::WithParamInterface<AgentFailure> {};

// Silent with the debug switch off; with it on, one report on the debug channel.
TEST_P(DiagFailure, ReportsOnTheDebugChannelAndFreesOnlyUnsentObjects) {
  const AgentFailure &f = GetParam();
  for (uint32_t on : {0u, 1u}) {
    ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(FWM_CLK_LOG_ERROR, on), 0u);
    mark_ = fwmsim::recorder().mark();
    fwmsim::faults().inject(f.fn, f.code, 1, f.skip);
    (void)FWM_SRV_ORCH_CLK_ImAgentDiagLog(FWM_CLK_LOG_ERROR, "lost");
    std::vector<std::string> expected = f.calls;
    if (on != 0)
      expected.push_back(std::string("IM_Agent_Debug(0x0, 0x9AFBC001, \"NULL\", 0x9AFBC001, \"%s\", \"") + f.debugLine +
                         "\")");
    expected.insert(expected.end(), f.after.begin(), f.after.end());
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
    AgentFailure{"Create", "IM_Agent_ObjCreate", 0, 5, {kCreate}, "Create object failed, return 0x5.", {}},
    AgentFailure{"Tag", "IM_Agent_AddPara", 0, 6, {kCreate, kTag}, "Add Para info failed, return 0x6.", {kFree}},
    AgentFailure{"LevelName", "IM_Agent_AddPara", 1, 0x1A, {kCreate, kTag, kLevel}, "Add Para info failed, return 0x1a.", {kFree}},
    AgentFailure{"Text", "IM_Agent_AddPara", 2, 6, {kCreate, kTag, kLevel, kText}, "Add Para info failed, return 0x6.", {kFree}},
    AgentFailure{"Send", "IM_Agent_Send", 0, 7, {kCreate, kTag, kLevel, kText, kSend}, "Send msg failed, return 0x7.", {}}),
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
  struct {
    uint32_t level, value, result;
  } cases[] = {{5, 1, 0}, {0, 1, 0}, {5, 0, 0}, {6, 1, 1}, {5, 2, 1}, {0xFFFFFFFFu, 0, 1}};
  for (const auto &c : cases) {
    uint32_t before[6];
    std::memcpy(before, g_clkSrvImAgentDebugSwitch, sizeof before);
    EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentUpdateDebugSwitch(c.level, c.value), c.result) << c.level << "/" << c.value;
    if (c.result == 0) {
      EXPECT_EQ(g_clkSrvImAgentDebugSwitch[c.level], c.value);
    } else {
      EXPECT_EQ(std::memcmp(before, g_clkSrvImAgentDebugSwitch, sizeof before), 0);
    }
  }
}

TEST(AgentCallbacks, MemoryGoesThroughTheServiceHandleOnlyWhenThereIsOne) {
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
  EXPECT_EQ(fwmsim::memory().outstanding(0x101, 7), 1u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentMemFree(p), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentMemFree(nullptr), 0u);
  EXPECT_THAT(fwmsim::recorder().texts("orin"), ElementsAre("ORIN_MemAlloc(0x101, 7, 24)", "ORIN_MemFree(0x101, &)"));
  EXPECT_EQ(fwmsim::memory().outstanding(), 0u);
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentLogTrace("anything %d", 1), 0u);
}

using Fields = std::array<uint32_t, 8>;
Fields fields(const ClkImAgentSysTime &t) {
  return {t.year, t.month, t.day, t.hour, t.minute, t.second, t.week, t.millisecond};
}

TEST(AgentCallbacks, SystemTimeIsCopiedFieldByField) {
  fwmsim::resetBoard();
  EXPECT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(nullptr), 1u);
  fwmsim::clock().advance(3723250);  // 1 h 2 min 3.25 s after 08:00:00
  ClkImAgentSysTime t;
  std::memset(&t, 0xAA, sizeof t);
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(&t), 0u);
  EXPECT_EQ(fields(t), (Fields{2026, 11, 22, 9, 2, 3, 0, 250}));
  // A failing clock leaves every field zero.
  fwmsim::faults().inject("ORIN_SystimeGet", 1);
  std::memset(&t, 0xAA, sizeof t);
  ASSERT_EQ(FWM_SRV_ORCH_CLK_ImAgentGetSysTime(&t), 0u);
  EXPECT_EQ(fields(t), Fields{});
}

}  // namespace
