// The driver adapter called directly: conversions, the error map, every
// operation's engine-driver calls, its checks and reasons, and the operations
// that copy through a local buffer or make several calls.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fwmclk/driver.h"
#include "fwmsim/engine.hpp"
#include "np_timeline.hpp"

namespace {

using nptest::report;
using nptest::Timeline;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Adapter : public nptest::NpBoard {};

TEST(ErrorMap, MapsEngineCodesAsTabled) {
  const int32_t expected[17] = {0, 1, -2, -4, -6, -5, -8, -7, -99, -30, -9, -14, -1, -14, 1, 1, -16};
  for (uint32_t code = 0; code < 17; ++code)
    EXPECT_EQ(clk_1588_get_error_code_from_oda_error_code(code), expected[code]) << code;
  for (uint32_t code : {17u, 255u, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(clk_1588_get_error_code_from_oda_error_code(code), 1) << code;
}

// Packet types 0..8 and intervals 0..20 pass unchanged; others are refused
// with -4 and the out-of-range marker (13 to the engine, 9 back), a refused
// interval leaving its output alone.
TEST(Conversions, PacketTypesBothWaysAndIntervals) {
  auto check = [](uint32_t v) {
    uint32_t toOda = 99, toFe = 99, interval = 77;
    const bool type = v <= 8, known = v <= 20;
    EXPECT_EQ(clk_1588_pkt_type_fe_to_oda(&toOda, v), type ? 0 : -4) << v;
    EXPECT_EQ(clk_1588_pkt_type_oda_to_fe(v, &toFe), type ? 0 : -4) << v;
    EXPECT_EQ(clk_1588_interval_type_fe_to_oda(&interval, v), known ? 0 : -4) << v;
    EXPECT_EQ(toOda, type ? v : 13u) << v;
    EXPECT_EQ(toFe, type ? v : 9u) << v;
    EXPECT_EQ(interval, known ? v : 77u) << v;
  };
  for (uint32_t v = 0; v <= 21; ++v) check(v);
  for (uint32_t v : {255u, 0x80000000u, 0xFFFFFFFFu}) check(v);
}

// Each slot's engine-driver call and failure reports are checked through the
// NP entries (np_entries_test); here the adapter's own checks and multi-call slots.
alignas(8) uint8_t gRec[2][256];

template <class T>
T *rec(int i) {
  return reinterpret_cast<T *>(gRec[i]);
}

// Values the adapter refuses before the engine is called.
struct Refusal {
  const char *name;
  std::function<int32_t()> call;
  const char *reason;  // nullptr: refused silently
};

// clang-format off
const Refusal kRefusals[] = {
    {"state10", [] { return clk_1588_set_ptp_state(1, 3, 10); }, nullptr},
    {"encap5", [] { return clk_1588_set_encap_type(1, 3, 9, 5); }, nullptr},
    {"setIdentityRxType2", [] { return clk_1588_set_encap_sport_identity_rx(1, 3, 2, rec<ClkNpPortIdentity>(1)); }, nullptr},
    {"getIdentityRxType2", [] { return clk_1588_get_encap_sport_identity_rx(1, 3, 2, rec<ClkNpPortIdentity>(0)); }, nullptr},
    {"flagFieldSel3", [] { return clk_1588_set_encap_flagfield_sel(1, 3, 1, 3); }, nullptr},
    {"getAlarmType2", [] { return clk_1588_get_announce_alarm(1, 3, 2, 1, rec<uint32_t>(0)); }, nullptr},
    {"setAlarmType2", [] { return clk_1588_set_announce_alarm(1, 3, 2, 1); }, nullptr},
    {"daSelPkt9", [] { return clk_1588_set_encap_da_sel(1, 3, 9, 0); }, "[1588]set encap da sel, invalid pkt type"},
    {"dipSelPkt9", [] { return clk_1588_set_encap_dip_sel(1, 3, 9, 0); }, "[1588]set encap dip sel, invalid pkt type"},
    {"flagFieldSelPkt9", [] { return clk_1588_set_encap_flagfield_sel(1, 3, 9, 3); }, "[1588]set encap flagfield sel, invalid pkt type"},
    {"daPkt9", [] { return clk_1588_set_encap_da(1, 3, 9, rec<uint8_t>(1)); }, "[1588]set encap da, invaild pkt type"},
    {"saPkt9", [] { return clk_1588_set_encap_sa(1, 3, 9, rec<uint8_t>(1)); }, "[1588]set encap sa, invaild pkt type"},
    {"dipPkt9", [] { return clk_1588_set_encap_dip(1, 3, 9, 1); }, "[1588]set encap dip, invaild pkt type"},
    {"sipPkt9", [] { return clk_1588_set_encap_sip(1, 3, 0xFFFFFFFF, 1); }, "[1588]set encap sip, invaild pkt type"},
    {"txEnPkt9", [] { return clk_1588_set_pkt_tx_en(1, 3, 9, 1); }, "[1588]set pkt tx enable, invaild pkt type"},
    {"getTxEnPkt9", [] { return clk_1588_get_pkt_tx_en(1, 3, 9, rec<uint32_t>(0)); }, "[1588]get pkt tx enable"},
    {"rxEnPkt9", [] { return clk_1588_set_pkt_rx_en(1, 3, 9, 1); }, "[1588]set pkt rx enable, invaild pkt type"},
    {"statAlarmPkt9", [] { return clk_1588_get_pkt_stat_alarm(1, 3, 9, 1, rec<uint32_t>(0)); }, "[1588]get pkt stat alarm"},
    {"interval21", [] { return clk_1588_set_pkt_interval(1, 3, 9, 21); }, "[1588]get oda interval"},
    {"intervalPkt9", [] { return clk_1588_set_pkt_interval(1, 3, 9, 20); }, "[1588]get oda pkt type"},
    {"timeoutInterval21", [] { return clk_1588_set_announce_timeout(1, 3, 3, 21); }, "[1588]set announce timeout"},
};
// clang-format on

TEST_F(Adapter, RefusesWithMinusFourAndNoEngineCall) {
  for (const Refusal &r : kRefusals) {
    Timeline t;
    EXPECT_EQ(r.call(), CLK_NP_ERR_PARAM) << r.name;
    if (r.reason == nullptr) {
      EXPECT_THAT(t.lines(), IsEmpty()) << r.name;
    } else {
      EXPECT_THAT(t.lines(), ElementsAre(report("FFFFFFFC", 1, 3, r.reason)));
    }
  }
}

// Slot 6: encapsulation, then destination port and board; the first failure stops.
TEST_F(Adapter, EncapTypeProgramsDestinationPortAndBoardAndStopsAtTheFirstFailure) {
  Timeline ok;
  EXPECT_EQ(clk_1588_set_encap_type(1, 3, 0x55, 4), 0);
  EXPECT_THAT(ok.lines(), ElementsAre("oda_1588_set_encap_type(1, 3, 4)", "oda_1588_set_ptp_control(1, 3, 32, 3, 0)",
                                      "oda_1588_set_ptp_control(1, 3, 31, 85, 0)"));
  struct Step {
    int skip;
    const char *fn;
    size_t calls;
    const char *reason;
  };
  const Step steps[] = {{0, "oda_1588_set_encap_type", 1, "[1588]set encap type"},
                        {0, "oda_1588_set_ptp_control", 2, "[1588]set dest port"},
                        {1, "oda_1588_set_ptp_control", 3, "[1588]set dest board"}};
  for (const Step &s : steps) {
    fwmsim::faults().clear();
    fwmsim::faults().inject(s.fn, 2, 1, s.skip);
    const size_t mark = fwmsim::recorder().mark();
    Timeline t;
    EXPECT_EQ(clk_1588_set_encap_type(1, 3, 0x55, 0), -2);
    EXPECT_EQ(fwmtest::callsSince(mark, "oda").size(), s.calls) << s.reason;
    EXPECT_EQ(t.lines().back(), report("FFFFFFFE", 1, 3, s.reason));
  }
}

// Slot 39: the port control precedes the enable; its outcome is not the enable's.
TEST_F(Adapter, PortEnableProgramsPortControlTwiceFirst) {
  ClkNpPortEnInfo info{};
  info.fwdTarget = CLK_NP_FWD_TARGET_NONE;  // no forwarding target: the enable alone
  Timeline none;
  EXPECT_EQ(clk_1588_set_port_en(1, 3, 1, &info), 0);
  EXPECT_THAT(none.lines(), ElementsAre("oda_1588_set_port_en(1, 3, 1)"));
  info.fwdTarget = 0xAB123456u;
  fwmsim::faults().inject("oda_port_set_control", 9, fwmsim::Faults::kAlways);
  Timeline t;
  EXPECT_EQ(clk_1588_set_port_en(1, 2049, 1, &info), 0);
  EXPECT_THAT(t.lines(), ElementsAre("oda_port_set_control(1, 0x4000001, {130, 1, 0, 0, 0, 0x3C123456})",
                                     "oda_port_set_control(1, 0x4000001, {254, 1, 0, 0, 0, 0x3C123456})",
                                     "oda_1588_set_port_en(1, 2049, 1)"));
  fwmsim::faults().clear();
  fwmsim::faults().inject("oda_1588_set_port_en", 10);
  Timeline failed;
  EXPECT_EQ(clk_1588_set_port_en(1, 6, 0, &info), -9);
  EXPECT_EQ(failed.lines().back(), report("FFFFFFF7", 1, 6, "[1588]set port enable"));
  const auto ctrl = fwmsim::engine().portControls();
  ASSERT_EQ(ctrl.size(), 2u);
  EXPECT_EQ(ctrl[1].portWord, 0x04000006u);
  EXPECT_EQ(ctrl[1].words, (std::array<uint32_t, 6>{254, 0, 0, 0, 0, 0x3C123456}));
}

// Reads through a local buffer leave the caller's record alone on failure,
// whatever the engine wrote into the buffer it was given.
struct ReadBack {
  const char *name;
  const char *fn;
  size_t size;
  std::function<int32_t(void *)> call;
};

// clang-format off
#define R(fn, Rec, ...) {#fn, "oda_1588_" #fn, sizeof(Rec), [](void *p) { return clk_1588_##fn(1, 3, __VA_ARGS__ static_cast<Rec *>(p)); }}
const ReadBack kReadBacks[] = {
    R(get_ptp_control, ClkNpPtpCtrlRec), R(get_ptp_state, uint32_t), R(get_encap_type, uint32_t),
    R(get_encap_sport_identity_tx, ClkNpPortIdentity), R(get_encap_sport_identity_rx, ClkNpPortIdentity, 1,),
    R(get_dfx_t4_sub_t3, ClkNpDfxDelay, 0,),
};
#undef R
// clang-format on

TEST_F(Adapter, LocalReadsCopyOnlyTheCallersSizeAndNothingOnFailure) {
  fwmsim::engine().setScribbleOnFault(true);
  for (const ReadBack &r : kReadBacks) {
    uint8_t record[32];
    std::memset(record, 0x3C, sizeof record);
    EXPECT_EQ(r.call(record), 0) << r.name;
    for (size_t i = r.size; i < sizeof record; ++i) ASSERT_EQ(record[i], 0x3C) << r.name << i;
    std::memset(record, 0x3C, sizeof record);
    fwmsim::faults().inject(r.fn, 1);
    EXPECT_EQ(r.call(record), CLK_NP_ERR_FAIL) << r.name;
    for (size_t i = 0; i < sizeof record; ++i) ASSERT_EQ(record[i], 0x3C) << r.name << i;
  }
  // A read straight into the caller's record keeps what the engine wrote.
  fwmsim::faults().inject("oda_1588_get_dfx_t2_sub_t1", 1);
  ClkNpDfxDelay delay{};
  EXPECT_EQ(clk_1588_get_dfx_t2_sub_t1(1, 3, 0, &delay), 1);
  EXPECT_EQ(delay.word[0], 0xA5A5A5A5u);
}

// The last accepted values reach the engine; the port control alone always
// answers 0; the control read hands word 0 in and returns two words; a null
// MAC programs zeros.
TEST_F(Adapter, AcceptedValuesPortControlControlReadAndNullMac) {
  Timeline t;
  EXPECT_EQ(clk_1588_set_ptp_state(1, 3, 9), 0);
  EXPECT_EQ(clk_1588_set_encap_flagfield_sel(1, 3, 8, 0), 0);
  EXPECT_EQ(clk_1588_set_announce_alarm(1, 3, 1, 0), 0);
  EXPECT_THAT(t.lines(), ElementsAre("oda_1588_set_ptp_state(1, 3, 9)", "oda_1588_set_encap_flagfield_sel(1, 3, 8, 0)",
                                     "oda_1588_set_announce_alarm(1, 3, 1, 0)"));
  Timeline control;
  EXPECT_EQ(clk_oda_port_set_control(0, 0xFFFFFFFF, 0x00000001, 7), 0);
  EXPECT_EQ(clk_oda_port_set_control(0, 5, CLK_NP_FWD_TARGET_NONE, 1), 0);
  EXPECT_THAT(control.lines(), ElementsAre("oda_port_set_control(0, 0x40007FF, {130, 7, 0, 0, 0, 0x3C000001})",
                                           "oda_port_set_control(0, 0x40007FF, {254, 7, 0, 0, 0, 0x3C000001})"));
  ASSERT_EQ(clk_1588_set_ptp_control(1, 3, 31, 0x1234), 0);
  ClkNpPtpCtrlRec rec{{3, 99}};
  EXPECT_EQ(clk_1588_get_ptp_control(1, 31, &rec), 0);
  EXPECT_THAT(rec.word, ElementsAre(3u, 0x1234u));
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(clk_1588_set_encap_da(1, 3, 1, mac), 0);
  Timeline nullMac;
  EXPECT_EQ(clk_1588_set_encap_da(1, 3, 1, nullptr), 0);
  EXPECT_THAT(nullMac.lines(), ElementsAre("oda_1588_set_encap_da(1, 3, 1, 00:00:00:00:00:00)"));
  EXPECT_EQ(fwmsim::engine().port(1, 3).da[1], (fwmsim::Mac{}));
}

}  // namespace
