// The engine through the NP entries on an adapter unit: what is written is
// read back per unit and port, through the adapter's local read buffers too.
// (Announce fields, statistics and delays pass straight through; their values
// are checked end to end by the service's query and announce tests.)
#include <cstring>

#include "fwmclk/driver.h"
#include "fwmsim/engine.hpp"
#include "np_timeline.hpp"

namespace {

using ::testing::ElementsAre;

class Engine : public nptest::NpBoard {
 protected:
  void SetUp() override {
    nptest::NpBoard::SetUp();
    clk_1588_driver_init(&g_fnNpClkDriver[0]);
    clk_1588_driver_init(&g_fnNpClkDriver[1]);
  }
};

template <class T>
bool same(const T &a, const T &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(Engine, WordsWrittenAreReadBackPerUnitAndPort) {
  ClkNpPortEnInfo info{};
  info.fwdTarget = CLK_NP_FWD_TARGET_NONE;
  const int32_t set[] = {CLK_NP_1588_SetPtpState(0, 3, 7),
                         CLK_NP_1588_SetEncapType(0, 3, 2, 4),
                         CLK_NP_1588_SetEncapFlagField(0, 3, 0x208),
                         CLK_NP_1588_SetEncapDomainNumber(0, 3, 44),
                         CLK_NP_1588_SetPktTxEn(0, 3, 1, 1),
                         CLK_NP_1588_SetPortEn(0, 3, 1, &info),
                         CLK_NP_1588_SetPtpState(1, 3, 2)};  // another unit, same port
  EXPECT_THAT(set, ::testing::Each(0));
  uint32_t v[7] = {};
  ClkNpPtpCtrlRec ctrl{{3, 0}};
  const int32_t got[] = {CLK_NP_1588_GetPtpState(0, 3, &v[0]),       CLK_NP_1588_GetEncapType(0, 3, &v[1]),
                         CLK_NP_1588_GetEncapFlagField(0, 3, &v[2]), CLK_NP_1588_GetEncapDomainNumber(0, 3, &v[3]),
                         CLK_NP_1588_GetPktTxEn(0, 3, 1, &v[4]),     CLK_NP_1588_GetPortEn(0, 3, &v[5]),
                         CLK_NP_1588_GetPtpState(1, 3, &v[6]),       CLK_NP_1588_GetPtpCtrl(0, 31, &ctrl)};
  EXPECT_THAT(got, ::testing::Each(0));
  EXPECT_THAT(v, ElementsAre(7u, 4u, 0x208u, 44u, 1u, 1u, 2u));
  EXPECT_EQ(ctrl.word[1], 2u) << "the destination board programmed with the encapsulation";
}

TEST_F(Engine, IdentitiesAndAddressesAreKeptPerTypeAndPacketType) {
  const ClkNpPortIdentity tx{{1, 2, 3}}, rx0{{4, 5, 6}}, rx1{{7, 8, 9}};
  const uint8_t mac[6] = {0x01, 0x1B, 0x19, 0, 0, 0};
  const int32_t set[] = {CLK_NP_1588_SetEncapSportIdentityTx(0, 5, &tx),
                         CLK_NP_1588_SetEncapSportIdentityRx(0, 5, 0, &rx0),
                         CLK_NP_1588_SetEncapSportIdentityRx(0, 5, 1, &rx1),
                         CLK_NP_1588_SetEncapDa(0, 5, 2, mac),
                         CLK_NP_1588_SetEncapDip(0, 5, 3, 0xE0000181u),
                         CLK_NP_1588_SetEncapUdpSport(0, 5, 65536 + 319),
                         CLK_NP_1588_SetPktInterval(0, 5, 1, 12),
                         CLK_NP_1588_SetAnnounceTimeout(0, 5, 3, 1)};
  EXPECT_THAT(set, ::testing::Each(0));
  ClkNpPortIdentity got[3] = {};
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityTx(0, 5, &got[0]), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityRx(0, 5, 1, &got[1]), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityRx(0, 5, 0, &got[2]), 0);
  EXPECT_TRUE(same(got[0], tx) && same(got[1], rx1) && same(got[2], rx0));
  const auto port = fwmsim::engine().port(0, 5);
  EXPECT_EQ(port.da[2], (fwmsim::Mac{0x01, 0x1B, 0x19, 0, 0, 0}));
  EXPECT_EQ(port.da[1], fwmsim::Mac{});
  EXPECT_THAT((std::array<uint32_t, 5>{port.dip[3], port.udpSport, port.interval[1], port.annTimeoutMultiple,
                                       port.annTimeoutInterval}),
              ElementsAre(0xE0000181u, 319u, 12u, 3u, 1u));
}

}  // namespace
