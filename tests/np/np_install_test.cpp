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

struct Case {
  friend void PrintTo(const Case &c, std::ostream *os) { *os << "chip type " << c.chipType; }
  uint32_t chipType;
  bool adapter;
};

class Install : public fwmtest::BoardTest, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    fwmtest::BoardTest::SetUp();
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
  }
};

TEST_P(Install, AdapterOnlyForChipTypes31_33_40_42) {
  fwmsim::board().chipType = GetParam().chipType;
  g_fwmClkFeNum = 3;
  const size_t mark = fwmsim::recorder().mark();
  FWM_SRV_1588_DriverInit();
  EXPECT_EQ(fwmtest::callsSince(mark, "devm"), std::vector<std::string>(3, "FWM_Srv_Get_ChipType()"));
  for (uint32_t unit = 0; unit < CLK_NP_UNIT_NUM; ++unit) {
    const bool filled = GetParam().adapter && unit < 3;
    EXPECT_EQ(filledSlots(g_fnNpClkDriver[unit]), filled ? 45u : 0u) << unit;
  }
  EXPECT_THAT(fwmtest::callsSince(mark, "oda"), ::testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(ChipTypes, Install,
                         ::testing::Values(Case{30, false}, Case{31, true}, Case{32, false}, Case{33, true},
                                           Case{34, false}, Case{35, false}, Case{38, false}, Case{39, false},
                                           Case{40, true}, Case{41, false}, Case{42, true}, Case{43, false},
                                           Case{0, false}, Case{0xFFFFFFFF, false}));

class InstallCount : public Install {};

TEST_F(InstallCount, NoEnginesQueriesNothingAndEveryEntryFindsEmptySlots) {
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

TEST_F(InstallCount, NeverBeyondUnitSeven) {
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
  const void *expected[] = {
      reinterpret_cast<const void *>(&clk_1588_init),
      reinterpret_cast<const void *>(&clk_1588_set_ssm_rx_enable),
      reinterpret_cast<const void *>(&clk_1588_set_ptp_control),
      reinterpret_cast<const void *>(&clk_1588_get_ptp_control),
      reinterpret_cast<const void *>(&clk_1588_set_ptp_state),
      reinterpret_cast<const void *>(&clk_1588_get_ptp_state),
      reinterpret_cast<const void *>(&clk_1588_set_encap_type),
      reinterpret_cast<const void *>(&clk_1588_get_encap_type),
      reinterpret_cast<const void *>(&clk_1588_set_encap_da_sel),
      reinterpret_cast<const void *>(&clk_1588_set_encap_dip_sel),
      reinterpret_cast<const void *>(&clk_1588_set_encap_flagfield_sel),
      reinterpret_cast<const void *>(&clk_1588_set_encap_flagfield),
      reinterpret_cast<const void *>(&clk_1588_get_encap_flagfield),
      reinterpret_cast<const void *>(&clk_1588_set_encap_domain_number),
      reinterpret_cast<const void *>(&clk_1588_get_encap_domain_number),
      reinterpret_cast<const void *>(&clk_1588_set_encap_sport_identity_tx),
      reinterpret_cast<const void *>(&clk_1588_get_encap_sport_identity_tx),
      reinterpret_cast<const void *>(&clk_1588_set_encap_sport_identity_rx),
      reinterpret_cast<const void *>(&clk_1588_get_encap_sport_identity_rx),
      reinterpret_cast<const void *>(&clk_1588_set_encap_da),
      reinterpret_cast<const void *>(&clk_1588_set_encap_sa),
      reinterpret_cast<const void *>(&clk_1588_set_encap_dip),
      reinterpret_cast<const void *>(&clk_1588_set_encap_sip),
      reinterpret_cast<const void *>(&clk_1588_set_encap_dscp),
      reinterpret_cast<const void *>(&clk_1588_set_encap_vlan),
      reinterpret_cast<const void *>(&clk_1588_set_encap_udp_sport),
      reinterpret_cast<const void *>(&clk_1588_set_encap_ipheader),
      reinterpret_cast<const void *>(&clk_1588_set_pkt_tx_en),
      reinterpret_cast<const void *>(&clk_1588_get_pkt_tx_en),
      reinterpret_cast<const void *>(&clk_1588_set_pkt_rx_en),
      reinterpret_cast<const void *>(&clk_1588_set_pkt_interval),
      reinterpret_cast<const void *>(&clk_1588_get_pkt_stat_alarm),
      reinterpret_cast<const void *>(&clk_1588_get_pkt_stat),
      reinterpret_cast<const void *>(&clk_1588_set_announce_timeout),
      reinterpret_cast<const void *>(&clk_1588_get_announce_alarm),
      reinterpret_cast<const void *>(&clk_1588_set_announce_alarm),
      reinterpret_cast<const void *>(&clk_1588_set_announce_field_tx),
      reinterpret_cast<const void *>(&clk_1588_get_announce_field_tx),
      reinterpret_cast<const void *>(&clk_1588_get_announce_field_rx),
      reinterpret_cast<const void *>(&clk_1588_set_port_en),
      reinterpret_cast<const void *>(&clk_1588_get_port_en),
      reinterpret_cast<const void *>(&clk_1588_get_time_stamp),
      reinterpret_cast<const void *>(&clk_1588_get_ssm_stat),
      reinterpret_cast<const void *>(&clk_1588_get_dfx_t2_sub_t1),
      reinterpret_cast<const void *>(&clk_1588_get_dfx_t4_sub_t3),
  };
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
