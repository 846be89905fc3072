// Installation of the driver tables by chip type and engine count.
#include <cstring>
#include <string>
#include <vector>

#include "fwmclk/driver.h"
#include "fwmclk/service.h"
#include "np/slots.hpp"
#include "np_timeline.hpp"

namespace {

using fwmclk::np::kSlotCount;

// Slot k of a table as an untyped pointer, for comparisons.
const void *slotOf(const NpClkDriverFuncs &t, size_t k) {
  const void *p = nullptr;
  std::memcpy(&p, reinterpret_cast<const char *>(&t) + k * sizeof p, sizeof p);
  return p;
}

size_t filledSlots(const NpClkDriverFuncs &t) {
  size_t n = 0;
  for (size_t k = 0; k < kSlotCount; ++k) n += slotOf(t, k) != nullptr ? 1u : 0u;
  return n;
}

class Install : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    fwmtest::BoardTest::SetUp();
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
  }
};

TEST_F(Install, AdapterOnlyForChipTypes31_33_40_42AndNeverBeyondUnitSeven) {
  const std::pair<uint32_t, bool> cases[] = {{30, false}, {31, true},  {32, false}, {33, true},         {34, false},
                                             {35, false}, {38, false}, {39, false}, {40, true},         {41, false},
                                             {42, true},  {43, false}, {0, false},  {0xFFFFFFFF, false}};
  g_fwmClkFeNum = 3;
  for (const auto &[chipType, adapter] : cases) {
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    fwmsim::board().chipType = chipType;
    const size_t mark = fwmsim::recorder().mark();
    FWM_SRV_1588_DriverInit();
    EXPECT_EQ(fwmtest::callsSince(mark, "devm"), std::vector<std::string>(3, "FWM_Srv_Get_ChipType()"));
    for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit)
      EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), adapter && unit < 3 ? 45u : 0u) << chipType << " " << unit;
  }
  EXPECT_THAT(fwmtest::callsSince(0, "oda"), ::testing::IsEmpty());
  fwmsim::board().chipType = 31;  // never beyond unit seven
  for (uint32_t feNum : {8u, 9u, 200u, 255u}) {
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    g_fwmClkFeNum = static_cast<uint8_t>(feNum);
    FWM_SRV_1588_DriverInit();
    for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit) EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), 45u);
  }
}

TEST_F(Install, NoEnginesQueriesNothingAndEveryEntryFindsEmptySlots) {
  fwmtest::adoptAgent();
  (void)FWM_SRV_CLK_InitDbg();
  g_fwmClkFeNum = 0;
  const size_t mark = fwmsim::recorder().mark();
  FWM_SRV_1588_DriverInit();
  EXPECT_THAT(fwmtest::callsSince(mark, "devm"), ::testing::IsEmpty());
  nptest::Timeline t;
  EXPECT_EQ(CLK_NP_1588_SetEncapDaSel(7, 1, 1, 0), CLK_NP_ERR_NO_FUNC);
  EXPECT_THAT(t.lines(), ::testing::ElementsAre(nptest::report("FFFFFFF0", 7, 1, "NP_1588_SetEncapDaSel")));
}

TEST(AdapterTable, FillsSlotsZeroToFortyFourAndLeavesTheRest) {
  // Slots beyond 44 keep what they held: prove it with a marker.
  NpClkDriverFuncs t;
  std::memset(&t, 0, sizeof t);
  t.reserved45 = +[](uint32_t) { return 45; };
  t.ptpGetChannelTs = +[](uint32_t, uint32_t, void *) { return 64; };
  clk_1588_driver_init(&t);
  // Which adapter operation each slot holds shows in the engine-driver call
  // every entry makes on the adapter (np_entries_test); here the extent.
  EXPECT_EQ(slotOf(t, 0), reinterpret_cast<const void *>(&clk_1588_init));
  for (size_t k = 1; k < fwmclk::np::kAdapterSlots; ++k) EXPECT_NE(slotOf(t, k), nullptr) << "slot " << k;
  for (size_t k = fwmclk::np::kAdapterSlots; k < kSlotCount; ++k) {
    const bool marked = k == 45 || k == 64;
    EXPECT_EQ(slotOf(t, k) != nullptr, marked) << "slot " << k;
  }
  EXPECT_EQ(t.reserved45(0), 45);
  EXPECT_EQ(clk_1588_init(), 0);
}

}  // namespace
