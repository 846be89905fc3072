// Announce programming: the record built from a request, the comparison with
// what the engine holds, and the calls made with transmission off and on.
#include <cstring>

#include "fwmsim/engine.hpp"
#include "service_fixture.hpp"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;

constexpr uint32_t kUnit = 1;
constexpr uint32_t kPort = 5;

ClkPtpAnnPkt annRequest() {
  ClkPtpAnnPkt a{};
  a.flagField = 0x0208;
  a.currentUtcOffset = 37;
  a.grandmasterPriority1 = 128;
  a.grandmasterPriority2 = 129;
  a.clockClass = 248;
  a.clockAccuracy = 0xFE;
  a.offsetScaledLogVariance = 0xFFFF;
  a.grandmasterIdentityHigh = 0x00112233u;
  a.grandmasterIdentityLow = 0x44556677u;
  a.stepsRemoved = 2;
  a.timeSource = 0xA0;
  return a;
}

// The engine record of annRequest(): bytes 0..35, the rest zero.
constexpr uint8_t kAnnFieldsBody[36] = {
    37,   0,    0,    0,     // currentUtcOffset
    0x33, 0x22, 0x11, 0x00,  // grandmasterIdentityHigh
    0x77, 0x66, 0x55, 0x44,  // grandmasterIdentityLow
    248,  0,                 // clockClass, 16 bits
    0xFE, 0,                 // clockAccuracy, 16 bits
    0xFF, 0xFF, 0,    0,     // offsetScaledLogVariance, 32 bits
    128,  0,    0,    0,     // grandmasterPriority1
    129,  0,    0,    0,     // grandmasterPriority2
    2,    0,    0,    0,     // stepsRemoved
    0xA0, 0,    0,    0,     // timeSource
};

// Every body field takes part in the comparison; the flag field does not.
struct CompCase {
  const char *field;
  void (*change)(ClkPtpAnnPkt &);
};

const CompCase kCompCases[] = {
    {"currentUtcOffset", [](ClkPtpAnnPkt &a) { a.currentUtcOffset = 36; }},
    {"grandmasterIdentityHigh", [](ClkPtpAnnPkt &a) { a.grandmasterIdentityHigh ^= 1; }},
    {"grandmasterIdentityLow", [](ClkPtpAnnPkt &a) { a.grandmasterIdentityLow ^= 1; }},
    {"clockClass", [](ClkPtpAnnPkt &a) { a.clockClass = 6; }},
    {"clockAccuracy", [](ClkPtpAnnPkt &a) { a.clockAccuracy = 0x21; }},
    {"offsetScaledLogVariance", [](ClkPtpAnnPkt &a) { a.offsetScaledLogVariance = 0x4E5D; }},
    {"grandmasterPriority1", [](ClkPtpAnnPkt &a) { a.grandmasterPriority1 = 1; }},
    {"grandmasterPriority2", [](ClkPtpAnnPkt &a) { a.grandmasterPriority2 = 1; }},
    {"stepsRemoved", [](ClkPtpAnnPkt &a) { a.stepsRemoved = 3; }},
    {"timeSource", [](ClkPtpAnnPkt &a) { a.timeSource = 0x20; }},
};

TEST(AnnCompare, EveryBodyFieldCountsAndNothingElse) {
  ClkPtpAnnPkt ann = annRequest();
  ClkNpAnnFields engine{};
  ClkNpAnnFlags flags{};
  CLK_NP_1588_FormatAnnPkt(&ann, &flags, &engine);
  for (const CompCase &c : kCompCases) {
    ClkPtpAnnPkt changed = annRequest();
    c.change(changed);
    uint32_t word = 0;
    CLK_NP_1588_CompAnnPayload(&changed, &engine, &word);
    EXPECT_EQ(word, 1u) << c.field;
  }
  // Equal bodies leave the caller's word as it was, whatever the flag field
  // or the receive-side bytes say.
  ClkPtpAnnPkt same = annRequest();
  same.flagField = 0;
  engine.domainNumber = 44;
  engine.sourcePortNumber = 7;
  uint32_t word = 5;
  CLK_NP_1588_CompAnnPayload(&same, &engine, &word);
  EXPECT_EQ(word, 5u);
}

// Announce transmission of the port, as the orchestrator switches it: NP packet type 1.
void setAnnounceTx(const ClkSrvOrchIntf *orch, uint32_t enable) {
  ClkPtpTxCtl tx{2, enable, 0, 0};
  ASSERT_EQ(orch->setPtpTxCtl(kUnit, kPort, &tx), 0u);
}

constexpr char kWriteWhileOff[] =
    "get_pkt_tx_en(1, 5, 1, &); set_announce_field_tx(1, 5, &, &); set_encap_flagfield(1, 5, 520)";
constexpr char kUnchangedWhileOn[] = "get_pkt_tx_en(1, 5, 1, &); get_announce_field_tx(1, 5, &, &)";
// A changed body while transmitting: pause, write body and flag field, resume.
constexpr char kChangedWhileOn[] =
    "get_pkt_tx_en(1, 5, 1, &); get_announce_field_tx(1, 5, &, &); set_pkt_tx_en(1, 5, 1, 0); "
    "set_announce_field_tx(1, 5, &, &); set_encap_flagfield(1, 5, 520); set_pkt_tx_en(1, 5, 1, 1)";
constexpr char kSetFailed[] = "ERROR [FWM_SRV_CLK] SetAnnPortPkt failed, ";
constexpr char kReadFailed[] = "ERROR [FWM_SRV_CLK] GetAnnounceFieldTx failed, Ret=1";

// The request, changed by `edit`, sent through the announce slot.
template <class F>
auto send(F edit) {
  return [edit](const ClkSrvOrchIntf *o) {
    ClkPtpAnnPkt a = annRequest();
    edit(a);
    return o->setPtpPortPkt(kUnit, kPort, &a);
  };
}
const auto kSame = [](ClkPtpAnnPkt &) {};

using AnnProgramming = fwmtest::ServiceTest;

TEST_F(AnnProgramming, TransmissionOffWritesAtOnceOnWritesOnlyAChangedBody) {
  run("Off", send(kSame), {}, 0, kWriteWhileOff, {});
  ClkNpAnnFields f = fwmsim::engine().port(kUnit, kPort).txFields;
  std::vector<uint8_t> bytes(sizeof f), want(sizeof f, 0);
  std::memcpy(bytes.data(), &f, sizeof f);
  std::memcpy(want.data(), kAnnFieldsBody, sizeof kAnnFieldsBody);
  EXPECT_EQ(bytes, want);
  EXPECT_THAT(fwmsim::engine().port(kUnit, kPort).txFlags.flag, Each(1u));
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).flagField, 0x0208u);

  // Same body, new flag field: nothing written, the stream is not paused.
  setAnnounceTx(orch, 1);
  run("OnSame", send([](ClkPtpAnnPkt &a) { a.flagField = 0x0008; }), {}, 0, kUnchangedWhileOn, {});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).flagField, 0x0208u);
  run("OnChanged", send([](ClkPtpAnnPkt &a) { a.stepsRemoved = 3; }), {}, 0, kChangedWhileOn, {});
  fwmsim::OdaPort port = fwmsim::engine().port(kUnit, kPort);
  // The read-back hands the engine flag words 0..9 set and word 10 clear.
  EXPECT_THAT(port.txReadFlags.flag, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0));
  EXPECT_EQ(port.txFields.stepsRemoved, 3u);
  EXPECT_EQ(port.txEnable[1], 1u);

  // A failed read-back compares the request with a zero record: any non-zero
  // body is written and the request fails, a zero body is equal.
  const fwmtest::Fault readFails{"oda_1588_get_announce_field_tx", 1};
  run("ReadFails", send(kSame), {readFails}, 1, kChangedWhileOn,
      {kReadFailed, kSetFailed + std::string("unit=1 port=5 ret=1"), kSetFailed + std::string("Ret=1")});
  run("ReadFailsZero", send([](ClkPtpAnnPkt &a) {
        a = ClkPtpAnnPkt{};
        a.flagField = 8;
      }),
      {readFails}, 0, kUnchangedWhileOn, {kReadFailed});
}

// Transmission is resumed even when the pause and the write failed; a failed
// enable read takes the unconditional path.
TEST_F(AnnProgramming, ResumeFollowsAFailedPauseAndWriteAndAFailedEnableReadWritesAtOnce) {
  setAnnounceTx(orch, 1);
  run("PauseFails", send(kSame), {{"oda_1588_set_pkt_tx_en", 1}, {"oda_1588_set_encap_flagfield", 2}}, 0xFFFFFFFFu,
      kChangedWhileOn,
      {"ERROR [FWM_SRV_CLK] SetPtpPortPkt failed, Ret=4294967294",
       kSetFailed + std::string("unit=1 port=5 ret=4294967295"), kSetFailed + std::string("Ret=4294967295")});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).txEnable[1], 1u);
  run("EnableReadFails", send(kSame), {{"oda_1588_get_pkt_tx_en", 1}}, 1, kWriteWhileOff,
      {"ERROR [FWM_SRV_CLK] SetPtpPortPktProc failed, Ret=1"});
}

TEST_F(AnnProgramming, ClearWritesTheChangeAlarmAndReadClearsTheReceivedFields) {
  ClkNpAnnFields rx{};
  rx.stepsRemoved = 4;
  fwmsim::engine().setRxAnnounce(kUnit, kPort, rx);
  const auto clear = [](const ClkSrvOrchIntf *o) { return o->setPtpAnnClr(kUnit, kPort); };
  const char *calls = "set_announce_alarm(1, 5, 0, 1); get_announce_field_rx(1, 5, 1, &, &)";
  run("Clear", clear, {}, 0, calls, {});
  EXPECT_EQ(fwmsim::engine().port(kUnit, kPort).rxFields.stepsRemoved, 0u);
  run("ClearFails", clear, {{"oda_1588_set_announce_alarm", 1}}, 1, calls,
      {"ERROR [FWM_SRV_CLK] SetPtpAnnClr failed, ret = 1"});
}

}  // namespace
