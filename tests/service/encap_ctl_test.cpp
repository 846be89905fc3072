// Encapsulation, receive and transmit control per packet type, and the source
// port identities.
#include <cstring>
#include <string>
#include <vector>

#include "service_fixture.hpp"

namespace {

using fwmtest::Step;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;
constexpr uint32_t kBoard = 2;

uint32_t setEncap(const ClkSrvOrchIntf *o, uint32_t type, uint32_t priority, uint32_t vlanId) {
  ClkPtpPktEncap e{};
  e.encapType = type;
  e.vlanPriority = priority;
  e.vlanId = vlanId;
  e.dscp = 46;
  std::memcpy(e.destMac, "\x01\x1B\x19\x00\x00\x00", 6);
  std::memcpy(e.srcMac, "\x00\x11\x22\x33\x44\x55", 6);
  e.destIp = 0xE0000181u;  // 224.0.1.129 = 3758096769
  e.srcIp = 0x0A000001u;   // 10.0.0.1 = 167772161
  return o->setPtpPktEncap(kUnit, kPort, kBoard, &e);
}

// The encapsulation (which the adapter programs with the destination port
// and board), addresses for NP types 3, 0 and 1, DSCP; then by type the tag
// and the source-address control.
std::string encapCalls(uint32_t type, const std::string &tail) {
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
const std::string kTag = "; set_encap_vlan(1, 5, 0x8100A064)";
const std::string kSrcIp = "; set_ptp_control(1, 5, 26, 167772161, 0)";
constexpr char kTx34[] = "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4); set_pkt_tx_en(1, 5, 3, 1)";
constexpr char kIds[] = "[16909060, 84281096, 151653132]";

// The type decides tag and source-address control; the tag word keeps only the
// low 3 bits of the priority and the low 12 of the id; a rejected encapsulation
// fails one call, the other thirteen and the tag still run. Receive control
// runs per orchestrator type with receive enable on and both checks off (2 and
// 7 both mean off): it refuses an invalid type at the first setting asked for
// (nothing asked, nothing checked: even an invalid type passes) and stops at
// the first failure. Transmit control makes both interval calls and then leaves
// the enable alone; an interval the adapter does not know is refused before
// the engine. Each per-type step names itself when it refuses a type. The
// receive identity's type is 0 only for packet type 4.
// clang-format off
#define ENC(t, p, v) [](auto o) { return setEncap(o, t, p, v); }
#define RX(...) [](auto o) { ClkPtpRxCtl c{__VA_ARGS__}; return o->setPtpRxCtl(kUnit, kPort, &c); }
#define TX(...) [](auto o) { ClkPtpTxCtl c{__VA_ARGS__}; return o->setPtpTxCtl(kUnit, kPort, &c); }
#define DIRECT(fn) [](auto) { return FWM_SRV_CLK_##fn(kUnit, kPort, 12, 1); }
#define RXID(t) [](auto o) { ClkPtpRxSrcPortId id{t, {0x01020304u, 0x05060708u, 0x090A0B0Cu}}; return o->setPtpRxSrcPortId(kUnit, kPort, &id); }
#define TXID [](auto o) { ClkPtpTxSrcPortId id{{0x01020304u, 0x05060708u, 0x090A0B0Cu}}; return o->setPtpTxSrcPortId(kUnit, kPort, &id); }
const Step kSteps[] = {
    {"Encap0", ENC(0, 5, 100), {}, 0, encapCalls(0, ""), {}},
    {"Encap1", ENC(1, 5, 100), {}, 0, encapCalls(1, kTag), {}},
    {"Encap2", ENC(2, 5, 100), {}, 0, encapCalls(2, kSrcIp), {}},
    {"Encap3", ENC(3, 5, 100), {}, 0, encapCalls(3, kTag + kSrcIp), {}},
    {"Encap4", ENC(4, 5, 100), {}, 0, encapCalls(4, ""), {}},
    {"TagPriority9", ENC(1, 9, 0x1064), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x81002064)"), {}},
    {"TagPriority7", ENC(1, 7, 4095), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x8100EFFF)"), {}},
    {"TagPriority8", ENC(1, 8, 0), {}, 0, encapCalls(1, "; set_encap_vlan(1, 5, 0x81000000)"), {}},
    {"EncapFails", ENC(1, 5, 100), {{"oda_1588_set_encap_dip", 1, 1}, {"oda_1588_set_encap_vlan", 2}}, 0xFFFFFFFFu, encapCalls(1, kTag),
     {"ERROR [FWM_SRV_CLK] SetPtpPktEncapData failed, Ret=1", "ERROR [FWM_SRV_CLK] SetPtpEncapVlan failed, Ret=4294967294", "ERROR [FWM_SRV_CLK] SetPtpPktEncap failed, Ret=4294967295"}},
    {"Rx1", RX(1, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 0, 0); set_ptp_control(1, 5, 16, 0, 0)", {}},
    {"Rx2", RX(2, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 1, 1); set_ptp_control(1, 5, 9, 0, 0); set_ptp_control(1, 5, 14, 0, 0)", {}},
    {"Rx3", RX(3, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 3, 1); set_ptp_control(1, 5, 15, 0, 0)", {}},
    {"Rx4", RX(4, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 5, 1)", {}},
    {"Rx5", RX(5, 1, {}, 7, 2), {}, 0, "set_pkt_rx_en(1, 5, 4, 1); set_ptp_control(1, 5, 14, 0, 0)", {}},
    {"Rx6", RX(6, 1, {}, 7, 2), {}, 0, "", {}},
    {"Rx7", RX(7, 1, {}, 7, 2), {}, 0, "", {}},
    {"Rx8", RX(8, 1, {}, 7, 2), {}, 0, "", {}},
    {"Tx1", TX(1, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_interval(1, 5, 0, 4); set_pkt_tx_en(1, 5, 0, 1)", {}},
    {"Tx2", TX(2, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_interval(1, 5, 1, 4); set_pkt_tx_en(1, 5, 1, 1)", {}},
    {"Tx3", TX(3, 1, 0xFFFFFFFFu, 4), {}, 0, kTx34, {}},
    {"Tx4", TX(4, 1, 0xFFFFFFFFu, 4), {}, 0, kTx34, {}},
    {"Tx5", TX(5, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 4, 1)", {}},
    {"Tx6", TX(6, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 4, 1)", {}},
    {"Tx7", TX(7, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 7, 1)", {}},
    {"Tx8", TX(8, 1, 0xFFFFFFFFu, 4), {}, 0, "set_pkt_tx_en(1, 5, 2, 1)", {}},
    {"Rx0Enable", RX(0, 1, {}, 1, 1), {}, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {"Rx9Enable", RX(9, 1, {}, 1, 1), {}, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetPktRxEn failed, Ret=1"}},
    {"Rx0Identity", RX(0, 0, {}, 0, 1), {}, 1, "", {"ERROR SetSrcPortIdCheck, Invaild pkt type: 0", "ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {"Rx9Domain", RX(9, 0, {}, 2, 0), {}, 1, "", {"ERROR SetDomainCheck, Invaild pkt type: 9", "ERROR [FWM_SRV_CLK] SetDomainCheck failed, Ret=1"}},
    {"Rx9Nothing", RX(9, 0, {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu}, 0, 0), {}, 0, "", {}},
    {"RxFails", RX(1, 1, {}, 1, 1), {{"oda_1588_set_ptp_control", 1}}, 1, "set_pkt_rx_en(1, 5, 0, 1); set_ptp_control(1, 5, 10, 1, 0)", {"ERROR [FWM_SRV_CLK] SetSrcPortIdCheck failed, Ret=1"}},
    {"Tx0", TX(0, 1, 0, 4), {}, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 0", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"Tx9", TX(9, 1, 0, 4), {}, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 9", "ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"TxIntervalFails", TX(3, 1, 0, 4), {{"oda_1588_set_pkt_interval", 1}}, 1, "set_pkt_interval(1, 5, 3, 4); set_pkt_interval(1, 5, 4, 4)", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 1"}},
    {"TxEnableFails", TX(3, 1, 0, 4), {{"oda_1588_set_pkt_tx_en", 1}}, 1, kTx34, {"ERROR [SetPtpTxCtl] SetPktTxEn failed, ret = 1"}},
    {"TxInterval21", TX(1, 1, 0, 21), {}, 0xFFFFFFFCu, "", {"ERROR [SetPtpTxCtl] SetPktInterval failed, ret = 4294967292"}},
    {"RxEn12", DIRECT(SetPktRxEn), {}, 1, "", {"ERROR SetPktRxEn, Invaild pkt type: 12"}},
    {"TxEn12", DIRECT(SetPktTxEn), {}, 1, "", {"ERROR [SetPktTxEn] Invaild pkt type: 12"}},
    {"Interval12", DIRECT(SetPktInterval), {}, 1, "", {"ERROR [SetPktInterval] Invaild pkt type: 12"}},
    {"IdCheck12", DIRECT(SetSrcPortIdCheck), {}, 1, "", {"ERROR SetSrcPortIdCheck, Invaild pkt type: 12"}},
    {"Domain12", DIRECT(SetDomainCheck), {}, 1, "", {"ERROR SetDomainCheck, Invaild pkt type: 12"}},
    {"RxId4", RXID(4), {}, 0, "set_encap_sport_identity_rx(1, 5, 0, " + std::string(kIds) + ")", {}},
    {"RxId1", RXID(1), {}, 0, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {}},
    {"RxId2", RXID(2), {}, 0, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {}},
    {"RxId0", RXID(0), {}, 0, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {}},
    {"RxIdFails", RXID(1), {{"oda_1588_set_encap_sport_identity_rx", 1}}, 1, "set_encap_sport_identity_rx(1, 5, 1, " + std::string(kIds) + ")", {"ERROR [SetPtpRxSrcPortId] SetEncapSportIdentityRx failed, ret = 1"}},
    {"TxId", TXID, {}, 0, "set_encap_sport_identity_tx(1, 5, " + std::string(kIds) + ")", {}},
    {"TxIdFails", TXID, {{"oda_1588_set_encap_sport_identity_tx", 1}}, 1, "set_encap_sport_identity_tx(1, 5, " + std::string(kIds) + ")", {"ERROR [SetPtpTxSrcPortId] SetEncapSportIdentityTx failed, ret = 1"}},
};
#undef ENC
#undef RX
#undef TX
#undef DIRECT
#undef RXID
#undef TXID
// clang-format on

using EncapCtl = fwmtest::ServiceTest;

TEST_F(EncapCtl, EveryRequestMakesItsGoldenCallsAndLines) {
  for (const Step &s : kSteps) run(s);
}

}  // namespace
