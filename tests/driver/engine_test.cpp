// The simulated engine through the NP entries on an adapter unit: what is
// written is read back, and what the network side sets is what the reads see.
#include <cstring>

#include "fwmclk/driver.h"
#include "fwmsim/engine.hpp"
#include "np_timeline.hpp"

namespace {

class Engine : public nptest::NpBoard {
 protected:
  void SetUp() override {
    nptest::NpBoard::SetUp();
    clk_1588_driver_init(&g_fnNpClkDriver[0]);
    clk_1588_driver_init(&g_fnNpClkDriver[1]);
  }
};

TEST_F(Engine, WordsWrittenAreReadBackPerUnitAndPort) {
  ASSERT_EQ(CLK_NP_1588_SetPtpState(0, 3, 7), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapType(0, 3, 2, 4), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapFlagField(0, 3, 0x208), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapDomainNumber(0, 3, 44), 0);
  ASSERT_EQ(CLK_NP_1588_SetPktTxEn(0, 3, 1, 1), 0);
  ClkNpPortEnInfo info{};
  info.fwdTarget = CLK_NP_FWD_TARGET_NONE;
  ASSERT_EQ(CLK_NP_1588_SetPortEn(0, 3, 1, &info), 0);
  ASSERT_EQ(CLK_NP_1588_SetPtpState(1, 3, 2), 0);  // another unit, same port

  uint32_t state = 0, encap = 0, flag = 0, domain = 0, txEn = 0, portEn = 0, other = 0;
  EXPECT_EQ(CLK_NP_1588_GetPtpState(0, 3, &state), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapType(0, 3, &encap), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapFlagField(0, 3, &flag), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapDomainNumber(0, 3, &domain), 0);
  EXPECT_EQ(CLK_NP_1588_GetPktTxEn(0, 3, 1, &txEn), 0);
  EXPECT_EQ(CLK_NP_1588_GetPortEn(0, 3, &portEn), 0);
  EXPECT_EQ(CLK_NP_1588_GetPtpState(1, 3, &other), 0);
  EXPECT_EQ(state, 7u);
  EXPECT_EQ(encap, 4u);
  EXPECT_EQ(flag, 0x208u);
  EXPECT_EQ(domain, 44u);
  EXPECT_EQ(txEn, 1u);
  EXPECT_EQ(portEn, 1u);
  EXPECT_EQ(other, 2u);

  ClkNpPtpCtrlRec ctrl{{3, 0}};
  EXPECT_EQ(CLK_NP_1588_GetPtpCtrl(0, 31, &ctrl), 0);
  EXPECT_EQ(ctrl.word[1], 2u) << "the destination board programmed with the encapsulation";
}

TEST_F(Engine, IdentitiesAndAddressesAreKeptPerTypeAndPacketType) {
  const ClkNpPortIdentity tx{{1, 2, 3}}, rx0{{4, 5, 6}}, rx1{{7, 8, 9}};
  ASSERT_EQ(CLK_NP_1588_SetEncapSportIdentityTx(0, 5, &tx), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapSportIdentityRx(0, 5, 0, &rx0), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapSportIdentityRx(0, 5, 1, &rx1), 0);
  ClkNpPortIdentity got{};
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityTx(0, 5, &got), 0);
  EXPECT_EQ(std::memcmp(&got, &tx, sizeof got), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityRx(0, 5, 1, &got), 0);
  EXPECT_EQ(std::memcmp(&got, &rx1, sizeof got), 0);
  EXPECT_EQ(CLK_NP_1588_GetEncapSportIdentityRx(0, 5, 0, &got), 0);
  EXPECT_EQ(std::memcmp(&got, &rx0, sizeof got), 0);

  const uint8_t mac[6] = {0x01, 0x1B, 0x19, 0, 0, 0};
  ASSERT_EQ(CLK_NP_1588_SetEncapDa(0, 5, 2, mac), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapDip(0, 5, 3, 0xE0000181u), 0);
  ASSERT_EQ(CLK_NP_1588_SetEncapUdpSport(0, 5, 65536 + 319), 0);
  ASSERT_EQ(CLK_NP_1588_SetPktInterval(0, 5, 1, 12), 0);
  ASSERT_EQ(CLK_NP_1588_SetAnnounceTimeout(0, 5, 3, 1), 0);
  const auto port = fwmsim::engine().port(0, 5);
  EXPECT_EQ(port.da[2], (fwmsim::Mac{0x01, 0x1B, 0x19, 0, 0, 0}));
  EXPECT_EQ(port.da[1], fwmsim::Mac{});
  EXPECT_EQ(port.dip[3], 0xE0000181u);
  EXPECT_EQ(port.udpSport, 319u);
  EXPECT_EQ(port.interval[1], 12u);
  EXPECT_EQ(port.annTimeoutMultiple, 3u);
  EXPECT_EQ(port.annTimeoutInterval, 1u);
}

TEST_F(Engine, AnnounceFieldsTransmittedAndReceived) {
  ClkNpAnnFlags flags{};
  for (auto &f : flags.flag) f = 1;
  ClkNpAnnFields tx{};
  tx.currentUtcOffset = 37;
  tx.clockClass = 248;
  tx.stepsRemoved = 2;
  ASSERT_EQ(CLK_NP_1588_SetAnnounceFieldTx(0, 3, &flags, &tx), 0);
  ClkNpAnnFields back{};
  EXPECT_EQ(CLK_NP_1588_GetAnnounceFieldTx(0, 3, &flags, &back), 0);
  EXPECT_EQ(std::memcmp(&back, &tx, sizeof back), 0);

  ClkNpAnnFields rx{};
  rx.domainNumber = 24;
  rx.flagField = 0x0208;
  rx.sourcePortNumber = 9;
  fwmsim::engine().setRxAnnounce(0, 3, rx);
  fwmsim::engine().setAnnounceAlarm(0, 3, fwmsim::kOdaAlarmChange, true);
  uint32_t change = 0, timeout = 0;
  EXPECT_EQ(CLK_NP_1588_GetAnnounceAlarm(0, 3, 0, 1, &change), 0);
  EXPECT_EQ(CLK_NP_1588_GetAnnounceAlarm(0, 3, 1, 1, &timeout), 0);
  EXPECT_EQ(change, 1u);
  EXPECT_EQ(timeout, 0u);

  ClkNpAnnFlags none{};
  ClkNpAnnFields got{};
  EXPECT_EQ(CLK_NP_1588_GetAnnounceFieldRx(0, 3, 0, &none, &got), 0);
  EXPECT_EQ(std::memcmp(&got, &rx, sizeof got), 0);
  EXPECT_EQ(CLK_NP_1588_GetAnnounceFieldRx(0, 3, 1, &none, &got), 0);  // read-clear
  EXPECT_EQ(CLK_NP_1588_GetAnnounceFieldRx(0, 3, 0, &none, &got), 0);
  EXPECT_EQ(got.sourcePortNumber, 0u);
}

TEST_F(Engine, StatisticsDelaysAndTimestampsComeFromTheNetworkSide) {
  ClkNpPktStat stat{};
  stat.word[5] = 100;
  fwmsim::engine().setPktStat(0, 3, stat);
  ClkNpDfxDelay d{{1, 2, 3, 4, 5, 6}};
  fwmsim::engine().setDfxT2SubT1(0, 3, d);
  fwmsim::engine().setDfxT4SubT3(0, 3, d);
  ClkNpTimestamps ts{};
  ts.word[15] = 0xFEEDu;
  fwmsim::engine().setTimestamps(0, 3, ts);
  fwmsim::engine().setPktStatAlarm(0, 3, 2, 1);

  ClkNpPktStat gotStat{};
  EXPECT_EQ(CLK_NP_1588_GetPktstat(0, 3, 1, &gotStat), 0);
  EXPECT_EQ(gotStat.word[5], 100u);
  EXPECT_EQ(CLK_NP_1588_GetPktstat(0, 3, 0, &gotStat), 0);
  EXPECT_EQ(gotStat.word[5], 0u) << "cleared by the first read";
  ClkNpDfxDelay got21{}, got43{};
  EXPECT_EQ(CLK_NP_1588_GetDfxT2SubT1(0, 3, 0, &got21), 0);
  EXPECT_EQ(CLK_NP_1588_GetDfxT4SubT3(0, 3, 0, &got43), 0);
  EXPECT_EQ(std::memcmp(&got21, &d, sizeof d), 0);
  EXPECT_EQ(std::memcmp(&got43, &d, sizeof d), 0);
  ClkNpTimestamps gotTs{};
  EXPECT_EQ(CLK_NP_1588_GetTimestamp(0, 3, &gotTs), 0);
  EXPECT_EQ(gotTs.word[15], 0xFEEDu);
  uint32_t alarm = 0;
  EXPECT_EQ(CLK_NP_1588_GetPktstatAlarm(0, 3, 2, 0, &alarm), 0);
  EXPECT_EQ(alarm, 1u);
}

}  // namespace
