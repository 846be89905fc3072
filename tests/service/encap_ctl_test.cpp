// Encapsulation, receive and transmit control per packet type, and the source
// port identities.
#include <cstring>
#include <string>
#include <vector>

#include "service_fixture.hpp"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;
constexpr uint32_t kBoard = 2;

ClkPtpPktEncap encapRequest(uint32_t type) {
  ClkPtpPktEncap e{};
  e.encapType = type;
  e.vlanPriority = 5;
  e.vlanId = 100;
  e.dscp = 46;
  std::memcpy(e.destMac, "\x01\x1B\x19\x00\x00\x00", 6);
  std::memcpy(e.srcMac, "\x00\x11\x22\x33\x44\x55", 6);
  e.destIp = 0xE0000181u;  // 224.0.1.129 = 3758096769
  e.srcIp = 0x0A000001u;   // 10.0.0.1 = 167772161
  return e;
}

// The encapsulation (which the adapter programs with the destination port
// and board), addresses for NP types 3, 0 and 1, DSCP; then by type the tag
// and the source-address control.
std::string encapCalls(uint32_t type, const char *tail) {
  return "set_encap_type(1, 5, " + std::to_string(type) +
         "); set_ptp_control(1, 5, 32, 5, 0); set_ptp_control(1, 5, 31, 2, 0); "
         "set_encap_da(1, 5, 3, 01:1B:19:00:00:00); set_encap_sa(1, 5, 3, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 3, 3758096769); set_encap_sip(1, 5, 3, 167772161); "
         "set_encap_da(1, 5, 0, 01:1B:19:00:00:00); set_encap_sa(1, 5, 0, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 0, 3758096769); set_encap_sip(1, 5, 0, 167772161); "
         "set_encap_da(1, 5, 1, 01:1B:19:00:00:00); set_encap_sa(1, 5, 1, 00:11:22:33:44:55); "
         "set_encap_dip(1, 5, 1, 3758096769); set_encap_sip(1, 5, 1, 167772161); set_encap_dscp(1, 5, 46)" +
         tail;
}
constexpr char kTag[] = "; set_encap_vlan(1, 5, 0x8100A064)";
constexpr char kSrcIp[] = "; set_ptp_control(1, 5, 26, 167772161, 0)";

using Encap = fwmtest::ServiceTest;

// The type decides tag and source-address control; the tag word keeps only the
// low 3 bits of the priority and the low 12 of the id.
TEST_F(Encap, TypeDecidesTagAndSourceAddressControl) {
  const struct {
    uint32_t type, priority, vlanId;
    std::string tail;
  } cases[] = {{0, 5, 100, ""},
               {1, 5, 100, kTag},
               {2, 5, 100, kSrcIp},
               {3, 5, 100, std::string(kTag) + kSrcIp},
               {4, 5, 100, ""},
               {1, 9, 0x1064, "; set_encap_vlan(1, 5, 0x81002064)"},
               {1, 7, 4095, "; set_encap_vlan(1, 5, 0x8100EFFF)"},
               {1, 8, 0, "; set_encap_vlan(1, 5, 0x81000000)"}};
  for (const auto &c : cases) {
    mark();
    ClkPtpPktEncap e = encapRequest(c.type);
    e.vlanPriority = c.priority;
    e.vlanId = c.vlanId;
    EXPECT_EQ(orch->setPtpPktEncap(kUnit, kPort, kBoard, &e), 0u) << c.type;
    EXPECT_EQ(calls(), encapCalls(c.type, c.tail.c_str()));
    EXPECT_THAT(lines(), IsEmpty()) << c.type;
  }
}

// A rejected encapsulation fails one call; the other thirteen and the tag still run.
TEST_F(Encap, FailuresAreOredAndNothingStops) {
  fwmsim::faults().inject("oda_1588_set_encap_dip", 1, 1, 1);  // NP type 0's destination address
  fwmsim::faults().inject("oda_1588_set_encap_vlan", 2);
  ClkPtpPktEncap e = encapRequest(1);
  EXPECT_EQ(orch->setPtpPktEncap(kUnit, kPort, kBoard, &e), 0xFFFFFFFFu);  // 1 | -2
  EXPECT_EQ(calls(), encapCalls(1, kTag));
  EXPECT_THAT(lines(), ElementsAre("ERROR [FWM_SRV_CLK] SetPtpPktEncapData failed, Ret=1",
                                   "ERROR [FWM_SRV_CLK] SetPtpEncapVlan failed, Ret=4294967294",
                                   "ERROR [FWM_SRV_CLK] SetPtpPktEncap failed, Ret=4294967295"));
}

// Receive control per orchestrator type with receive enable on and both checks
// switched off (2 and 7 both mean off).
constexpr char kTx34[] = "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4); set_pkt_tx_en(1, 5, 3, 1)";

using RxTxCtl = fwmtest::ServiceTest;

TEST_F(RxTxCtl, ReceiveControlForEveryPacketType) {
  const char *const golden[] = {
      "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 0, 0); set_ptp_control(1, 5, 16, 0, 0)",
      "set_pkt_rx_en(1, 5, 1, 1); set_ptp_control(1, 5, 9, 0, 0); set_ptp_control(1, 5, 14, 0, 0)",
      "set_pkt_rx_en(1, 5, 3, 1); set_ptp_control(1, 5, 15, 0, 0)",
      "set_pkt_rx_en(1, 5, 5, 1)",
      "set_pkt_rx_en(1, 5, 4, 1); set_ptp_control(1, 5, 14, 0, 0)",
      "",
      "",
      ""};
  for (uint32_t pktType = 1; pktType <= 8; ++pktType) {
    mark();
    ClkPtpRxCtl rx{pktType, 1, {}, 7, 2};  // 2 and 7 both mean off
    EXPECT_EQ(orch->setPtpRxCtl(kUnit, kPort, &rx), 0u) << pktType;
    EXPECT_EQ(calls(), golden[pktType - 1]);
    EXPECT_THAT(lines(), IsEmpty()) << pktType;
  }
}

TEST_F(RxTxCtl, TransmitControlForEveryPacketType) {
  const char *const golden[] = {"set_pkt_interval(1, 5, 0, 4); set_pkt_tx_en(1, 5, 0, 1)",
                                "set_pkt_interval(1, 5, 1, 4); set_pkt_tx_en(1, 5, 1, 1)",
                                kTx34,
                                kTx34,
                                "set_pkt_tx_en(1, 5, 4, 1)",
                                "set_pkt_tx_en(1, 5, 4, 1)",
                                "set_pkt_tx_en(1, 5, 7, 1)",
                                "set_pkt_tx_en(1, 5, 2, 1)"};
  for (uint32_t pktType = 1; pktType <= 8; ++pktType) {
    mark();
    ClkPtpTxCtl tx{pktType, 1, 0xFFFFFFFFu, 4};
    EXPECT_EQ(orch->setPtpTxCtl(kUnit, kPort, &tx), 0u) << pktType;
    EXPECT_EQ(calls(), golden[pktType - 1]);
    EXPECT_THAT(lines(), IsEmpty()) << pktType;
  }
}

// Refusals and failures. Receive control refuses an invalid type at the first
// setting asked for (nothing asked, nothing checked: even an invalid type
// passes) and stops at the first failure. Transmit control makes both interval
// calls and then leaves the enable alone; an interval the adapter does not
// know is refused before the engine.
struct CtlFailure {
  uint32_t (*call)(const ClkSrvOrchIntf *);
  const char *fault;  // fails once with 1
  uint32_t ret;
  const char *calls;
  std::vector<std::string> lines;
};

// clang-format off
#define RX(...) [](const ClkSrvOrchIntf *o) { ClkPtpRxCtl c{__VA_ARGS__}; return o->setPtpRxCtl(kUnit, kPort, &c); }
#define TX(...) [](const ClkSrvOrchIntf *o) { ClkPtpTxCtl c{__VA_ARGS__}; return o->setPtpTxCtl(kUnit, kPort, &c); }
const CtlFailure kCtlFailures[] = {
    {RX(0, 1, {}, 1, 1), nullptr, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {RX(9, 1, {}, 1, 1), nullptr, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {RX(0, 0, {}, 0, 1), nullptr, 1, "", {"ERROR SetSrcPortIdCheck, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {RX(9, 0, {}, 2, 0), nullptr, 1, "", {"ERROR SetDomainCheck, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetDomainCheck failed, Ret=1"}},
    {RX(9, 0, {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu}, 0, 0), nullptr, 0, "", {}},
    {RX(1, 1, {}, 1, 1), "oda_1588_set_ptp_control", 1, "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 1, 0)", {"ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {TX(0, 1, 0, 4), nullptr, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 0", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {TX(9, 1, 0, 4), nullptr, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 9", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {TX(3, 1, 0, 4), "oda_1588_set_pkt_interval", 1, "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4)", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {TX(3, 1, 0, 4), "oda_1588_set_pkt_tx_en", 1, kTx34, {"ERROR [SetPtpTxCtl] SetPktTxEn failed, ret = 1"}},
    {TX(1, 1, 0, 21), nullptr, 0xFFFFFFFCu, "", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 4294967292"}},
};
// clang-format on
#undef RX
#undef TX

TEST_F(RxTxCtl, RefusalsAndFailures) {
  for (const CtlFailure &c : kCtlFailures) {
    mark();
    fwmsim::faults().clear();
    if (c.fault != nullptr) fwmsim::faults().inject(c.fault, 1);
    const size_t row = static_cast<size_t>(&c - kCtlFailures);
    EXPECT_EQ(c.call(orch), c.ret) << row;
    EXPECT_EQ(calls(), c.calls) << row;
    EXPECT_EQ(lines(), c.lines) << row;
  }
}

// Each per-type step names itself when it refuses a type.
struct InvalidLineCase {
  uint32_t (*step)(uint32_t, uint32_t, uint32_t, uint32_t);
  const char *line;
};

const InvalidLineCase kInvalidLines[] = {
    {FWM_SRV_CLK_SetPktRxEn, "ERROR SetPktRxEn, Invaild pkt type: 12"},
    {FWM_SRV_CLK_SetPktTxEn, "ERROR [SetPktTxEn] Invaild pkt type: 12"},
    {FWM_SRV_CLK_SetPktInterval, "ERROR [SetPktInterval] Invaild pkt type: 12"},
    {FWM_SRV_CLK_SetSrcPortIdCheck, "ERROR SetSrcPortIdCheck, Invaild pkt type: 12"},
    {FWM_SRV_CLK_SetDomainCheck, "ERROR SetDomainCheck, Invaild pkt type: 12"},
};

TEST_F(RxTxCtl, EveryStepRefusesAnInvalidTypeWithItsOwnLine) {
  for (const InvalidLineCase &c : kInvalidLines) {
    mark();
    EXPECT_EQ(c.step(kUnit, kPort, 12, 1), 1u);
    EXPECT_THAT(engine(), IsEmpty());
    EXPECT_THAT(lines(), ElementsAre(c.line));
  }
}

using SrcPortId = fwmtest::ServiceTest;

TEST_F(SrcPortId, ReceiveIdentityTypeIsZeroOnlyForPacketType4AndTransmitIdentity) {
  for (uint32_t pktType : {4u, 1u, 2u, 0u}) {
    mark();
    ClkPtpRxSrcPortId id{pktType, {0x01020304u, 0x05060708u, 0x090A0B0Cu}};
    EXPECT_EQ(orch->setPtpRxSrcPortId(kUnit, kPort, &id), 0u);
    EXPECT_THAT(engine(), ElementsAre("oda_1588_set_encap_sport_identity_rx(1, 5, " +
                                      std::string(pktType == 4 ? "0" : "1") + ", [16909060, 84281096, 151653132])"));
  }
  mark();
  fwmsim::faults().inject("oda_1588_set_encap_sport_identity_rx", 1);
  ClkPtpRxSrcPortId id{1, {1, 2, 3}};
  EXPECT_EQ(orch->setPtpRxSrcPortId(kUnit, kPort, &id), 1u);
  EXPECT_THAT(lines(), ElementsAre("ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 1"));

  mark();  // the transmit identity has no packet type
  ClkPtpTxSrcPortId tx{{0x01020304u, 0x05060708u, 0x090A0B0Cu}};
  EXPECT_EQ(orch->setPtpTxSrcPortId(kUnit, kPort, &tx), 0u);
  EXPECT_THAT(engine(), ElementsAre("oda_1588_set_encap_sport_identity_tx(1, 5, [16909060, 84281096, 151653132])"));
  mark();
  fwmsim::faults().inject("oda_1588_set_encap_sport_identity_tx", 1);
  EXPECT_EQ(orch->setPtpTxSrcPortId(kUnit, kPort, &tx), 1u);
  EXPECT_THAT(lines(), ElementsAre("ERROR [SetPtpTxSrcPortId] SetEncapSportIdentityTx failed, ret = 1"));
}

}  // namespace
