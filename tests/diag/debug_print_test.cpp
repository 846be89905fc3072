// Registration with the debug framework and the time-stamped debug print.
#include <tuple>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DebugPrint : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    g_clkSrvImAgentDiagSwitch[FWM_CLK_LOG_INFO] = 1;
  }
};

struct Registration {
  friend void PrintTo(const Registration &r, std::ostream *os) { *os << r.name; }
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

TEST_F(DebugPrint, SecondRegistrationLeavesTheFrameworkAlone) {
  (void)FWM_SRV_CLK_InitDbg();
  size_t mark = fwmsim::recorder().mark();
  (void)FWM_SRV_CLK_InitDbg();
  EXPECT_THAT(fwmtest::callsSince(mark, "comp"), IsEmpty());
  EXPECT_THAT(fwmtest::callsSince(mark, "debug"), IsEmpty());
  EXPECT_EQ(fwmtest::agentLines().back(), "INFO clk FWM_SRV_CLK has been registered, g_clkFwmSrvDbgId=17");
}

TEST_F(DebugPrint, NothingReachesTheFrameworkBeforeRegistration) {
  FWM_SRV_CLK_PrintDbg(2, "[CLK_NP] GetTimestamp, null pointer");
  EXPECT_THAT(fwmsim::registry().printed(), IsEmpty());
  EXPECT_THAT(fwmtest::agentLines(), IsEmpty());
}

// Each line carries the id, its level and the local time; one of more than
// 255 characters is dropped whole; a level above four goes to the diagnostic
// log instead.
TEST_F(DebugPrint, LinesCarryIdLevelAndLocalTime) {
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

TEST_F(DebugPrint, MissingPrintEntryIsSilent) {
  fwmsim::registry().printEntry = false;
  (void)FWM_SRV_CLK_InitDbg();
  ASSERT_NE(g_clkFwmSrvDbgId, 0xFFFFFFFFu);
  FWM_SRV_CLK_PrintDbg(2, "x");
  EXPECT_THAT(fwmsim::recorder().texts("debug"), ElementsAre("moduleReg(\"FWM_SRV_CLK\", &)"));
}

}  // namespace
