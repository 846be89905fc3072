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

TEST_F(Install, AdapterOnlyForChipTypes31_33_40_42) {
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

TEST_F(Install, NeverBeyondUnitSeven) {
  for (uint32_t feNum : {8u, 9u, 200u, 255u}) {
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    g_fwmClkFeNum = static_cast<uint8_t>(feNum);
    FWM_SRV_1588_DriverInit();
    for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit) EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), 45u);
  }
}

TEST(AdapterTable, FillsSlotsZeroToFortyFourAndLeavesTheRest) {
  // Slots beyond 44 keep what they held: prove it with a marker.
  NpClkDriverFuncs t;
  std::memset(&t, 0, sizeof t);
  t.reserved45 = +[](uint32_t) { return 45; };
  t.ptpGetChannelTs = +[](uint32_t, uint32_t, void *) { return 64; };
  clk_1588_driver_init(&t);
#define F(fn) reinterpret_cast<const void *>(&clk_1588_##fn)
  // clang-format off
  const void *expected[] = {
      F(init), F(set_ssm_rx_enable), F(set_ptp_control), F(get_ptp_control), F(set_ptp_state), F(get_ptp_state),
      F(set_encap_type), F(get_encap_type), F(set_encap_da_sel), F(set_encap_dip_sel), F(set_encap_flagfield_sel),
      F(set_encap_flagfield), F(get_encap_flagfield), F(set_encap_domain_number), F(get_encap_domain_number),
      F(set_encap_sport_identity_tx), F(get_encap_sport_identity_tx), F(set_encap_sport_identity_rx),
      F(get_encap_sport_identity_rx), F(set_encap_da), F(set_encap_sa), F(set_encap_dip), F(set_encap_sip),
      F(set_encap_dscp), F(set_encap_vlan), F(set_encap_udp_sport), F(set_encap_ipheader), F(set_pkt_tx_en),
      F(get_pkt_tx_en), F(set_pkt_rx_en), F(set_pkt_interval), F(get_pkt_stat_alarm), F(get_pkt_stat),
      F(set_announce_timeout), F(get_announce_alarm), F(set_announce_alarm), F(set_announce_field_tx),
      F(get_announce_field_tx), F(get_announce_field_rx), F(set_port_en), F(get_port_en), F(get_time_stamp),
      F(get_ssm_stat), F(get_dfx_t2_sub_t1), F(get_dfx_t4_sub_t3)};
  // clang-format on
#undef F
  static_assert(std::size(expected) == fwmclk::np::kAdapterSlots);
  for (size_t k = 0; k < std::size(expected); ++k) EXPECT_EQ(slotOf(t, k), expected[k]) << "slot " << k;
  for (size_t k = fwmclk::np::kAdapterSlots; k < kSlotCount; ++k) {
    const bool marked = k == 45 || k == 64;
    EXPECT_EQ(slotOf(t, k) != nullptr, marked) << "slot " << k;
  }
  EXPECT_EQ(t.reserved45(0), 45);
  EXPECT_EQ(clk_1588_init(), 0);
}

}  // namespace
