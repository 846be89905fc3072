// The forwarding-engine 1588 driver adapter. Most slots are forwarders: call
// the engine driver, map its code, report a failure with the slot's reason.
// The rest check or convert a value first, or copy a record through a local
// buffer so that the caller's record changes only on success.
#include <cstddef>
#include <iterator>

#include "fwmclk/driver.h"
#include "fwmclk/np.h"
#include "fwmclk/platform/oda.h"
#include "fwmclk/platform/securec.h"
#include "np/where.hpp"

namespace fwmclk::driver {
namespace {

// Engine-driver code -> result code; codes above 16 map to CLK_NP_ERR_FAIL.
constexpr int32_t kErrorMap[17] = {
    CLK_NP_OK,
    CLK_NP_ERR_FAIL,
    -2,
    CLK_NP_ERR_PARAM,
    -6,
    -5,
    -8,
    -7,
    CLK_NP_ERR_NULL_PTR,
    -30,
    -9,
    -14,
    -1,
    -14,
    CLK_NP_ERR_FAIL,
    CLK_NP_ERR_FAIL,
    CLK_NP_ERR_NO_FUNC,
};

// Service interval -> engine interval. Today both sides number 0..20 alike;
// the table keeps the two vocabularies apart should the engine's change.
struct IntervalPair {
  uint32_t fe;
  uint32_t oda;
};
constexpr IntervalPair kIntervals[21] = {
    {0, 0},   {1, 1},   {2, 2},   {3, 3},   {4, 4},   {5, 5},   {6, 6},   {7, 7},   {8, 8},   {9, 9},   {10, 10},
    {11, 11}, {12, 12}, {13, 13}, {14, 14}, {15, 15}, {16, 16}, {17, 17}, {18, 18}, {19, 19}, {20, 20},
};

constexpr uint32_t kMaxPktType = 8;
constexpr uint32_t kOdaPktTypeRejected = 13;
constexpr uint32_t kFePktTypeRejected = 9;
constexpr uint32_t kMaxState = 9;
constexpr uint32_t kMaxEncap = 4;
constexpr uint32_t kMaxFlagFieldSel = 2;
constexpr uint32_t kMaxIdentityType = 1;
constexpr uint32_t kMaxAlarmType = 1;

constexpr uint32_t kCtrlDestBoard = 31;
constexpr uint32_t kCtrlDestPort = 32;

constexpr uint32_t kPortCtrlFirst = 130;
constexpr uint32_t kPortCtrlSecond = 254;
constexpr uint32_t kPortWordMarker = 0x04000000u;
constexpr uint32_t kPortWordPortMask = 0x7FFu;
constexpr uint32_t kDestMarker = 0x3C000000u;
constexpr uint32_t kDestTargetMask = 0x00FFFFFFu;

constexpr size_t kMacSize = 6;
constexpr size_t kIdentityWords = 3;
constexpr size_t kDfxWords = 6;

int32_t reported(int32_t code, uint32_t unit, uint32_t port, const char *reason) {
  if (code != CLK_NP_OK) (void)CLK_NP_RetProcess(code, unit, port, reason);
  return code;
}

// Only the engine's own success maps to success.
constexpr bool onlySuccessMapsToOk() {
  for (size_t code = 1; code < std::size(kErrorMap); ++code) {
    if (kErrorMap[code] == CLK_NP_OK) return false;
  }
  return kErrorMap[0] == CLK_NP_OK;
}
static_assert(onlySuccessMapsToOk());

// Map and report an engine failure; out of line, so that the good path keeps
// only the unit and port across the engine call.
[[gnu::cold, gnu::noinline]] int32_t engineFailed(uint32_t odaCode, fwmclk::np::Where where, const char *reason) {
  return reported(clk_1588_get_error_code_from_oda_error_code(odaCode), where.unit(), where.port(), reason);
}

// The forwarder frame: engine call with the unit and port first, map, report.
template <auto Oda, class... A>
int32_t forward(const char *reason, uint32_t unit, uint32_t port, A... args) {
  const fwmclk::np::Where where(unit, port);
  const uint32_t odaCode = Oda(unit, port, args...);
  if (odaCode == 0) return CLK_NP_OK;
  return engineFailed(odaCode, where, reason);
}

// Reads into a local buffer of the engine's size and copies the caller's
// part of it back only on success; `out` may be shorter than `local`.
template <auto Oda, class Out, class Local, class... A>
int32_t readBack(const char *reason, uint32_t unit, uint32_t port, Out *out, Local &local, A... args) {
  static_assert(sizeof(Out) <= sizeof(Local), "the caller's record fits in the local one");
  const int32_t code = forward<Oda>(reason, unit, port, args..., local);
  if (code == CLK_NP_OK) (void)memcpy_s(out, sizeof(Out), local, sizeof(Out));
  return code;
}

// A rejected packet type is reported with the operation's first reason.
int32_t odaPktType(uint32_t feType, uint32_t &odaType, uint32_t unit, uint32_t port, const char *reason) {
  return reported(clk_1588_pkt_type_fe_to_oda(&odaType, feType), unit, port, reason);
}

int32_t odaInterval(uint32_t feInterval, uint32_t &odaIntv, uint32_t unit, uint32_t port, const char *reason) {
  return reported(clk_1588_interval_type_fe_to_oda(&odaIntv, feInterval), unit, port, reason);
}

// The packet-type frame: convert the third argument, then forward.
struct PktReasons {
  const char *invalid;
  const char *failed;
};

template <auto Oda, class... A>
int32_t forwardPkt(PktReasons reasons, uint32_t unit, uint32_t port, uint32_t feType, A... args) {
  uint32_t odaType = 0;
  if (const int32_t code = odaPktType(feType, odaType, unit, port, reasons.invalid); code != CLK_NP_OK) return code;
  return forward<Oda>(reasons.failed, unit, port, odaType, args...);
}

// The engine keeps its own copy of a MAC address; a null one programs zeros.
struct Mac {
  uint8_t bytes[kMacSize] = {};
  explicit Mac(const uint8_t *mac) { (void)memcpy_s(bytes, sizeof bytes, mac, kMacSize); }
};

struct Identity {
  uint32_t words[kIdentityWords];
  explicit Identity(const ClkNpPortIdentity *id) {
    (void)memset_s(words, sizeof words, 0, sizeof words);
    (void)memcpy_s(words, sizeof words, id->word, sizeof id->word);
  }
};

}  // namespace
}  // namespace fwmclk::driver

using namespace fwmclk::driver;

extern "C" {

int32_t clk_1588_init(void) { return CLK_NP_OK; }

int32_t clk_1588_get_error_code_from_oda_error_code(uint32_t odaCode) {
  return odaCode < std::size(kErrorMap) ? kErrorMap[odaCode] : CLK_NP_ERR_FAIL;
}

int32_t clk_1588_pkt_type_fe_to_oda(uint32_t *odaType, uint32_t feType) {
  const bool known = feType <= kMaxPktType;
  *odaType = known ? feType : kOdaPktTypeRejected;
  return known ? CLK_NP_OK : CLK_NP_ERR_PARAM;
}

int32_t clk_1588_pkt_type_oda_to_fe(uint32_t odaType, uint32_t *feType) {
  const bool known = odaType <= kMaxPktType;
  *feType = known ? odaType : kFePktTypeRejected;
  return known ? CLK_NP_OK : CLK_NP_ERR_PARAM;
}

int32_t clk_1588_interval_type_fe_to_oda(uint32_t *odaInterval, uint32_t feInterval) {
  for (const IntervalPair &pair : kIntervals) {
    if (pair.fe == feInterval) {
      *odaInterval = pair.oda;
      return CLK_NP_OK;
    }
  }
  return CLK_NP_ERR_PARAM;
}

// clang-format off
int32_t clk_1588_set_ssm_rx_enable(uint32_t unit, uint32_t port, uint32_t enable) { return forward<oda_1588_set_ssm_rx_en>("[1588]set ssm rx enable", unit, port, enable); }
int32_t clk_1588_set_ptp_control(uint32_t unit, uint32_t port, uint32_t type, uint32_t value) { return forward<oda_1588_set_ptp_control>("[1588]set ptp control", unit, port, type, value, 0u); }
int32_t clk_1588_set_ptp_state(uint32_t unit, uint32_t port, uint32_t state) { return state > kMaxState ? CLK_NP_ERR_PARAM : forward<oda_1588_set_ptp_state>("[1588]set ptp state", unit, port, state); }
int32_t clk_1588_set_encap_da_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) { return forwardPkt<oda_1588_set_encap_da_sel>({"[1588]set encap da sel, invalid pkt type", "[1588]set encap da sel"}, unit, port, pktType, sel); }
int32_t clk_1588_set_encap_dip_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) { return forwardPkt<oda_1588_set_encap_dip_sel>({"[1588]set encap dip sel, invalid pkt type", "[1588]set encap dip sel"}, unit, port, pktType, sel); }
int32_t clk_1588_set_encap_flagfield(uint32_t unit, uint32_t port, uint32_t flagField) { return forward<oda_1588_set_encap_flagfield>("[1588]set encap flag", unit, port, flagField); }
int32_t clk_1588_get_encap_flagfield(uint32_t unit, uint32_t port, uint32_t *flagField) { return forward<oda_1588_get_encap_flagfield>("[1588]get encap flag", unit, port, flagField); }
int32_t clk_1588_set_encap_domain_number(uint32_t unit, uint32_t port, uint32_t domain) { return forward<oda_1588_set_encap_domain_number>("[1588]set encap domain number", unit, port, domain); }
int32_t clk_1588_get_encap_domain_number(uint32_t unit, uint32_t port, uint32_t *domain) { return forward<oda_1588_get_encap_domain_number>("[1588]get encap domain number", unit, port, domain); }
int32_t clk_1588_set_encap_sport_identity_tx(uint32_t unit, uint32_t port, const ClkNpPortIdentity *id) { return forward<oda_1588_set_encap_sport_identity_tx>("[1588]set encap sport identity tx", unit, port, static_cast<const uint32_t *>(Identity(id).words)); }
int32_t clk_1588_set_encap_da(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac) { return forwardPkt<oda_1588_set_encap_da>({"[1588]set encap da, invaild pkt type", "[1588]set encap da"}, unit, port, pktType, static_cast<const uint8_t *>(Mac(mac).bytes)); }
int32_t clk_1588_set_encap_sa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac) { return forwardPkt<oda_1588_set_encap_sa>({"[1588]set encap sa, invaild pkt type", "[1588]set encap sa"}, unit, port, pktType, static_cast<const uint8_t *>(Mac(mac).bytes)); }
int32_t clk_1588_set_encap_dip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) { return forwardPkt<oda_1588_set_encap_dip>({"[1588]set encap dip, invaild pkt type", "[1588]set encap dip"}, unit, port, pktType, ipv4); }
int32_t clk_1588_set_encap_sip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) { return forwardPkt<oda_1588_set_encap_sip>({"[1588]set encap sip, invaild pkt type", "[1588]set encap sip"}, unit, port, pktType, ipv4); }
int32_t clk_1588_set_encap_dscp(uint32_t unit, uint32_t port, uint32_t dscp) { return forward<oda_1588_set_encap_dscp>("[1588]set encap dscp", unit, port, dscp); }
int32_t clk_1588_set_encap_vlan(uint32_t unit, uint32_t port, uint32_t tag) { return forward<oda_1588_set_encap_vlan>("[1588]set encap vlan", unit, port, tag); }
int32_t clk_1588_set_encap_udp_sport(uint32_t unit, uint32_t port, uint32_t udpSport) { return forward<oda_1588_set_encap_udp_sport>("[1588]set encap udp sport", unit, port, udpSport & 0xFFFFu); }
int32_t clk_1588_set_encap_ipheader(uint32_t unit, uint32_t port, const void *header) { return forward<oda_1588_set_encap_ipheader>("[1588]set encap ip header", unit, port, header); }
int32_t clk_1588_set_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) { return forwardPkt<oda_1588_set_pkt_tx_en>({"[1588]set pkt tx enable, invaild pkt type", "[1588]set pkt tx enable"}, unit, port, pktType, enable); }
int32_t clk_1588_get_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable) { return forwardPkt<oda_1588_get_pkt_tx_en>({"[1588]get pkt tx enable", "[1588]get pkt tx enable"}, unit, port, pktType, enable); }
int32_t clk_1588_set_pkt_rx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) { return forwardPkt<oda_1588_set_pkt_rx_en>({"[1588]set pkt rx enable, invaild pkt type", "[1588]set pkt rx enable"}, unit, port, pktType, enable); }
int32_t clk_1588_get_pkt_stat_alarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag, uint32_t *alarm) { return forwardPkt<oda_1588_get_pkt_stat_alarm>({"[1588]get pkt stat alarm", "[1588]get pkt stat alarm"}, unit, port, pktType, flag, alarm); }
int32_t clk_1588_get_pkt_stat(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpPktStat *stat) { return forward<oda_1588_get_pkt_stat>("[1588]get pkt stat", unit, port, readClear, static_cast<void *>(stat)); }
int32_t clk_1588_get_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag, uint32_t *alarm) { return type > kMaxAlarmType ? CLK_NP_ERR_PARAM : forward<oda_1588_get_announce_alarm>("[1588]get announce alarm", unit, port, type, flag, alarm); }
int32_t clk_1588_set_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist) { return type > kMaxAlarmType ? CLK_NP_ERR_PARAM : forward<oda_1588_set_announce_alarm>("[1588]set announce alarm", unit, port, type, exist); }
int32_t clk_1588_set_announce_field_tx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return forward<oda_1588_set_announce_field_tx>("[1588]set announce field tx", unit, port, static_cast<void *>(flags), static_cast<void *>(fields)); }
int32_t clk_1588_get_announce_field_tx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return forward<oda_1588_get_announce_field_tx>("[1588]get announce field tx", unit, port, static_cast<void *>(flags), static_cast<void *>(fields)); }
int32_t clk_1588_get_announce_field_rx(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return forward<oda_1588_get_announce_field_rx>("[1588]get announce field rx", unit, port, readClear, static_cast<void *>(flags), static_cast<void *>(fields)); }
int32_t clk_1588_get_port_en(uint32_t unit, uint32_t port, uint32_t *enable) { return forward<oda_1588_get_port_en>("[1588]get port enable", unit, port, enable); }
int32_t clk_1588_get_time_stamp(uint32_t unit, uint32_t port, ClkNpTimestamps *ts) { return forward<oda_1588_get_timestamp>("[1588]get time stamp", unit, port, static_cast<void *>(ts)); }
int32_t clk_1588_get_ssm_stat(uint32_t unit, uint32_t port, uint32_t selector, void *stat) { return forward<oda_1588_get_ssm_stat>("[1588]get ssm stat", unit, port, selector, stat); }
int32_t clk_1588_get_dfx_t2_sub_t1(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay) { return forward<oda_1588_get_dfx_t2_sub_t1>("[1588]get dfx time of t2 sub t1", unit, port, readClear, static_cast<void *>(delay)); }
// clang-format on

// Reads through a local buffer; the caller's record changes only on success.

int32_t clk_1588_get_ptp_control(uint32_t unit, uint32_t type, ClkNpPtpCtrlRec *rec) {
  uint32_t local[3] = {rec->word[0], 0, 0};
  return readBack<oda_1588_get_ptp_control>("[1588]get ptp control", unit, type, rec, local);
}

int32_t clk_1588_get_ptp_state(uint32_t unit, uint32_t port, uint32_t *state) {
  uint32_t local[1] = {};
  return readBack<oda_1588_get_ptp_state>("[1588]get ptp state", unit, port, state, local);
}

int32_t clk_1588_get_encap_type(uint32_t unit, uint32_t port, uint32_t *encap) {
  uint32_t local[1] = {};
  return readBack<oda_1588_get_encap_type>("[1588]get encap type", unit, port, encap, local);
}

int32_t clk_1588_get_encap_sport_identity_tx(uint32_t unit, uint32_t port, ClkNpPortIdentity *id) {
  uint32_t local[kIdentityWords] = {};
  return readBack<oda_1588_get_encap_sport_identity_tx>("[1588]get encap sport identity tx", unit, port, id, local);
}

int32_t clk_1588_get_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, ClkNpPortIdentity *id) {
  uint32_t local[kIdentityWords] = {};
  if (type > kMaxIdentityType) return CLK_NP_ERR_PARAM;
  return readBack<oda_1588_get_encap_sport_identity_rx>("[1588]get encap sport identity rx", unit, port, id, local,
                                                        type);
}

int32_t clk_1588_get_dfx_t4_sub_t3(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay) {
  uint32_t local[kDfxWords] = {};
  return readBack<oda_1588_get_dfx_t4_sub_t3>("[1588]get dfx time of t4 sub t3", unit, port, delay, local, readClear);
}

// Checks of their own before the engine is called.

int32_t clk_1588_set_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, const ClkNpPortIdentity *id) {
  const Identity local(id);
  if (type > kMaxIdentityType) return CLK_NP_ERR_PARAM;
  return forward<oda_1588_set_encap_sport_identity_rx>("[1588]set encap sport identity rx", unit, port, type,
                                                       static_cast<const uint32_t *>(local.words));
}

int32_t clk_1588_set_encap_flagfield_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) {
  uint32_t odaType = 0;
  if (const int32_t code = odaPktType(pktType, odaType, unit, port, "[1588]set encap flagfield sel, invalid pkt type");
      code != CLK_NP_OK) {
    return code;
  }
  if (sel > kMaxFlagFieldSel) return CLK_NP_ERR_PARAM;
  return forward<oda_1588_set_encap_flagfield_sel>("[1588]set encap flagfield sel", unit, port, odaType, sel);
}

int32_t clk_1588_set_pkt_interval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval) {
  uint32_t odaIntv = 0;
  uint32_t odaType = 0;
  if (const int32_t code = odaInterval(interval, odaIntv, unit, port, "[1588]get oda interval"); code != CLK_NP_OK) {
    return code;
  }
  if (const int32_t code = odaPktType(pktType, odaType, unit, port, "[1588]get oda pkt type"); code != CLK_NP_OK) {
    return code;
  }
  return forward<oda_1588_set_pkt_interval>("[1588]set pkt interval", unit, port, odaType, odaIntv);
}

int32_t clk_1588_set_announce_timeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval) {
  uint32_t odaIntv = 0;
  if (const int32_t code = odaInterval(interval, odaIntv, unit, port, "[1588]set announce timeout");
      code != CLK_NP_OK) {
    return code;
  }
  return forward<oda_1588_set_announce_timeout>("[1588]set announce timeout", unit, port, multiple, odaIntv);
}

// Several engine calls.

// The encapsulation goes together with the packet's destination; the first
// failure ends the sequence and leaves the earlier steps in effect.
int32_t clk_1588_set_encap_type(uint32_t unit, uint32_t port, uint32_t board, uint32_t encap) {
  if (encap > kMaxEncap) return CLK_NP_ERR_PARAM;
  int32_t code = forward<oda_1588_set_encap_type>("[1588]set encap type", unit, port, encap);
  if (code == CLK_NP_OK)
    code = forward<oda_1588_set_ptp_control>("[1588]set dest port", unit, port, kCtrlDestPort, port, 0u);
  if (code == CLK_NP_OK)
    code = forward<oda_1588_set_ptp_control>("[1588]set dest board", unit, port, kCtrlDestBoard, board, 0u);
  return code;
}

// The port control's outcome is not the enable's: only the enable is mapped.
int32_t clk_1588_set_port_en(uint32_t unit, uint32_t port, uint32_t enable, ClkNpPortEnInfo *info) {
  (void)clk_oda_port_set_control(unit, port, info->fwdTarget, enable);
  return forward<oda_1588_set_port_en>("[1588]set port enable", unit, port, enable);
}

int32_t clk_oda_port_set_control(uint32_t unit, uint32_t port, uint32_t target, uint32_t enable) {
  if (target == CLK_NP_FWD_TARGET_NONE) return CLK_NP_OK;
  const uint32_t portWord = kPortWordMarker | (port & kPortWordPortMask);
  const uint32_t destination = kDestMarker | (target & kDestTargetMask);
  ClkOdaPortCtrl ctrl = {kPortCtrlFirst, enable, {0, 0, 0}, destination};
  (void)oda_port_set_control(unit, portWord, &ctrl);
  // The engine may have written the record back; the second call restates
  // the words it depends on.
  ctrl.code = kPortCtrlSecond;
  ctrl.enable = enable;
  ctrl.destination = destination;
  (void)oda_port_set_control(unit, portWord, &ctrl);
  return CLK_NP_OK;
}

// The adapter's table; clk_1588_driver_init copies its slots 0..44 into a unit.
}  // extern "C"

namespace fwmclk::driver {
namespace {
constexpr NpClkDriverFuncs kAdapterTable = {
    .init = FWMCLK_EXPORTED(clk_1588_init),
    .setSsmRxEnable = FWMCLK_EXPORTED(clk_1588_set_ssm_rx_enable),
    .setPtpCtrl = FWMCLK_EXPORTED(clk_1588_set_ptp_control),
    .getPtpCtrl = FWMCLK_EXPORTED(clk_1588_get_ptp_control),
    .setPtpState = FWMCLK_EXPORTED(clk_1588_set_ptp_state),
    .getPtpState = FWMCLK_EXPORTED(clk_1588_get_ptp_state),
    .setEncapType = FWMCLK_EXPORTED(clk_1588_set_encap_type),
    .getEncapType = FWMCLK_EXPORTED(clk_1588_get_encap_type),
    .setEncapDaSel = FWMCLK_EXPORTED(clk_1588_set_encap_da_sel),
    .setEncapDipSel = FWMCLK_EXPORTED(clk_1588_set_encap_dip_sel),
    .setEncapFlagFieldSel = FWMCLK_EXPORTED(clk_1588_set_encap_flagfield_sel),
    .setEncapFlagField = FWMCLK_EXPORTED(clk_1588_set_encap_flagfield),
    .getEncapFlagField = FWMCLK_EXPORTED(clk_1588_get_encap_flagfield),
    .setEncapDomainNumber = FWMCLK_EXPORTED(clk_1588_set_encap_domain_number),
    .getEncapDomainNumber = FWMCLK_EXPORTED(clk_1588_get_encap_domain_number),
    .setEncapSportIdentityTx = FWMCLK_EXPORTED(clk_1588_set_encap_sport_identity_tx),
    .getEncapSportIdentityTx = FWMCLK_EXPORTED(clk_1588_get_encap_sport_identity_tx),
    .setEncapSportIdentityRx = FWMCLK_EXPORTED(clk_1588_set_encap_sport_identity_rx),
    .getEncapSportIdentityRx = FWMCLK_EXPORTED(clk_1588_get_encap_sport_identity_rx),
    .setEncapDa = FWMCLK_EXPORTED(clk_1588_set_encap_da),
    .setEncapSa = FWMCLK_EXPORTED(clk_1588_set_encap_sa),
    .setEncapDip = FWMCLK_EXPORTED(clk_1588_set_encap_dip),
    .setEncapSip = FWMCLK_EXPORTED(clk_1588_set_encap_sip),
    .setEncapDscp = FWMCLK_EXPORTED(clk_1588_set_encap_dscp),
    .setEncapVlan = FWMCLK_EXPORTED(clk_1588_set_encap_vlan),
    .setEncapUdpSport = FWMCLK_EXPORTED(clk_1588_set_encap_udp_sport),
    .setEncapIpHeader = FWMCLK_EXPORTED(clk_1588_set_encap_ipheader),
    .setPktTxEn = FWMCLK_EXPORTED(clk_1588_set_pkt_tx_en),
    .getPktTxEn = FWMCLK_EXPORTED(clk_1588_get_pkt_tx_en),
    .setPktRxEn = FWMCLK_EXPORTED(clk_1588_set_pkt_rx_en),
    .setPktInterval = FWMCLK_EXPORTED(clk_1588_set_pkt_interval),
    .getPktstatAlarm = FWMCLK_EXPORTED(clk_1588_get_pkt_stat_alarm),
    .getPktstat = FWMCLK_EXPORTED(clk_1588_get_pkt_stat),
    .setAnnounceTimeout = FWMCLK_EXPORTED(clk_1588_set_announce_timeout),
    .getAnnounceAlarm = FWMCLK_EXPORTED(clk_1588_get_announce_alarm),
    .setAnnounceAlarm = FWMCLK_EXPORTED(clk_1588_set_announce_alarm),
    .setAnnounceFieldTx = FWMCLK_EXPORTED(clk_1588_set_announce_field_tx),
    .getAnnounceFieldTx = FWMCLK_EXPORTED(clk_1588_get_announce_field_tx),
    .getAnnounceFieldRx = FWMCLK_EXPORTED(clk_1588_get_announce_field_rx),
    .setPortEn = FWMCLK_EXPORTED(clk_1588_set_port_en),
    .getPortEn = FWMCLK_EXPORTED(clk_1588_get_port_en),
    .getTimestamp = FWMCLK_EXPORTED(clk_1588_get_time_stamp),
    .getSsmStat = FWMCLK_EXPORTED(clk_1588_get_ssm_stat),
    .getDfxT2SubT1 = FWMCLK_EXPORTED(clk_1588_get_dfx_t2_sub_t1),
    .getDfxT4SubT3 = FWMCLK_EXPORTED(clk_1588_get_dfx_t4_sub_t3),
    // Beyond the adapter's range: never provided.
    .reserved45 = nullptr,
    .reserved46 = nullptr,
    .reserved47 = nullptr,
    .setPortTsReportEnable = nullptr,
    .ptpSetMac47bitModeEn = nullptr,
    .ptpSetMacRxPortDelay = nullptr,
    .ptpSetMacTxPortDelay = nullptr,
    .ptpSetTspDelay = nullptr,
    .ptpGetTspHeaderCnt = nullptr,
    .ptpGetTsReportPort = nullptr,
    .ptpSetI2cSlaveAddr = nullptr,
    .ptpSetRtcTime = nullptr,
    .ptpSetRtcNsAdjust = nullptr,
    .ptpSetTspRefreshEn = nullptr,
    .ptpClearTsCnt = nullptr,
    .ptpSetPortEnable = nullptr,
    .reserved61 = nullptr,
    .ptpGetPortTsReportEnable = nullptr,
    .ptpGetReportTs = nullptr,
    .ptpGetChannelTs = nullptr,
};
// The adapter's slots end where the unassigned ones begin.
constexpr size_t kAdapterBytes = offsetof(NpClkDriverFuncs, reserved45);
static_assert(kAdapterBytes == 45 * sizeof(NpClkReservedFn));
}  // namespace
}  // namespace fwmclk::driver

// Slots 45..64 keep whatever the unit had (nothing, from load).
extern "C" void clk_1588_driver_init(NpClkDriverFuncs *table) {
  (void)memcpy_s(table, kAdapterBytes, &kAdapterTable, kAdapterBytes);
}

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_DRIVER_ADAPTER)
