// The exported NP entries. Each one is a row of the descriptor table below
// and a one-line instantiation of the common frame: unit check, required
// pointers, parameter line, slot call (or the empty-slot code), report.
// Three entries leave the frame at one step and are written out at the end.
#include <cstddef>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <utility>

#include "diag/log.hpp"
#include "fwmclk/diag.h"
#include "fwmclk/np.h"
#include "np/slots.hpp"
#include "np/where.hpp"

namespace fwmclk::np {
namespace {

constexpr uint32_t kMaxUnit = CLK_NP_UNIT_NUM - 1;
constexpr uint32_t kDbgLevel = 2;

// How an entry departs from the common frame; all but Frame are written by hand.
enum class Shape : uint8_t {
  Frame,           // the common frame
  LogAfterCall,    // the parameter line follows the call and shows the value read
  OwnLine,         // the parameter line carries fields that are not plain arguments
  ReportPortZero,  // no port argument: the report names port 0
};

struct Entry {
  size_t slot;
  const char *nullLine;   // set: every pointer argument must be present
  const char *paramLine;  // MSG line: the unit, then the value arguments in order
  const char *reason;     // what the failure report says could not be done
  Shape shape = Shape::Frame;
};

// clang-format off
constexpr Entry kEntries[] = {
    {1, nullptr, "1588.(parameter in SetSsmRxEnable: Unit=[%u], Port=[%u], Enable=[%u]).", "NP_1588_SetSsmRxEnable"},
    {2, nullptr, "1588.(parameter in SetPtpCtrl: Unit=[%u], Port=[%u], Type=[%u], Value=[%u]).", "NP_1588_SetPtpCtrl"},
    {3, "[CLK_NP] GetPtpCtrl, null pointer", "1588.(parameter in GetPtpCtrl: Unit=[%u], Type=[%u]).", "NP_1588_GetPtpCtrl"},
    {4, nullptr, "1588.(parameter in SetPtpState: Unit=[%u], Port=[%u], State=[%u]).", "NP_1588_SetPtpState"},
    {5, "[CLK_NP] GetPtpState, null pointer", nullptr, "NP_1588_GetPtpState"},
    {6, nullptr, "1588.(parameter in SetEncapType: Unit=[%u], Port=[%u], Tb=[%u], Encap=[%u]).", "NP_1588_SetEncapType"},
    {7, "[CLK_NP] GetEncapType, null pointer", nullptr, "NP_1588_GetEncapType"},
    {8, nullptr, nullptr, "NP_1588_SetEncapDaSel"},
    {9, nullptr, nullptr, "NP_1588_SetEncapDipSel"},
    {10, nullptr, nullptr, "NP_1588_SetEncapFlagFieldSel"},
    {11, nullptr, "1588.(parameter in SetEncapFlagField: Unit=[%u], Port=[%u], FlagField=[%u]).", "NP_1588_SetEncapFlagField"},
    {12, "[CLK_NP] GetEncapFlagField, null pointer", nullptr, "NP_1588_GetEncapFlagField"},
    {13, nullptr, "1588.(parameter in SetEncapDomainNumber: Unit=[%u], Port=[%u], DomainNum=[%u]).", "NP_1588_SetEncapDomainNumber"},
    {14, "[CLK_NP] GetEncapDomainNumber, null pointer", nullptr, "NP_1588_GetEncapDomainNumber"},
    {15, "[CLK_NP] SetEncapSportIdentityTx, null pointer", "1588.(parameter in SetEncapSportIdentityTx: Unit=[%u], Port=[%u]).", "NP_1588_SetEncapSportIdentityTx"},
    {16, "[CLK_NP] GetEncapSportIdentityTx, null pointer", nullptr, "NP_1588_GetEncapSportIdentityTx"},
    {17, "[CLK_NP] SetEncapSportIdentityRx, null pointer", "1588.(parameter in SetEncapSportIdentityRx: Unit=[%u], Port=[%u], Type=[%u]).", "NP_1588_SetEncapSportIdentityRx"},
    {18, "[CLK_NP] GetEncapSportIdentityRx, null pointer", nullptr, "NP_1588_GetEncapSportIdentityRx"},
    {19, nullptr, "1588.(parameter in SetEncapDa: Unit=[%u], Port=[%u],PktType=[%u]).", "NP_1588_SetEncapDa"},
    {20, nullptr, "1588.(parameter in SetEncapSa: Unit=[%u], Port=[%u], PktType=[%u]).", "NP_1588_SetEncapSa"},
    {21, nullptr, "1588.(parameter in SetEncapDip: Unit=[%u], Port=[%u], PktType=[%u], Dip=[%u]).", "NP_1588_SetEncapDip"},
    {22, nullptr, "1588.(parameter in SetEncapSip: Unit=[%u], Port=[%u], PktType=[%u], Sip=[%u]).", "NP_1588_SetEncapSip"},
    {23, nullptr, "1588.(parameter in SetEncapDscp: Unit=[%u], Port=[%u], Dscp=[%u]).", "NP_1588_SetEncapDscp"},
    {24, nullptr, "1588.(parameter in SetEncapVlan: Unit=[%u], Port=[%u], Vlan=[%u]).", "NP_1588_SetEncapVlan"},
    {25, nullptr, nullptr, "NP_1588_SetEncapUdpSport"},
    {26, "[CLK_NP] SetEncapIpHeader, null pointer", nullptr, "NP_1588_SetEncapIpHeader"},
    {27, nullptr, "1588.(parameter in SetPktTxEn: Unit=[%u], Port=[%u], PktType=[%u], Enable=[%u]).", "NP_1588_SetPktTxEn"},
    {28, nullptr, "1588.(parameter in GetPktTxEn: Unit=[%u], Port=[%u], PktType=[%u], Enable=[%u]).", "NP_1588_GetPktTxEn", Shape::LogAfterCall},
    {29, nullptr, "1588.(parameter in SetPktRxEn: Unit=[%u], Port=[%u], PktType=[%u], Enable=[%u]).", "NP_1588_SetPktRxEn"},
    {30, nullptr, "1588.(parameter in SetPktInterval: Unit=[%u], Port=[%u], PktType=[%u], Interval=[%u]).", "NP_1588_SetPktInterval"},
    {31, "[CLK_NP] GetPktstatAlarm, null pointer", nullptr, "NP_1588_GetPktstatAlarm"},
    {32, "[CLK_NP] GetPktstat, null pointer", "1588.(parameter in GetPktstat: Unit=[%u], Port=[%u], ReadClear=[%u]).", "NP_1588_GetPktstat"},
    {33, nullptr, "1588.(parameter in SetAnnounceTimeout: Unit=[%u], Port=[%u], Multiple=[%u], Interval=[%u]).", "NP_1588_SetAnnounceTimeout"},
    {34, "[CLK_NP] GetAnnounceAlarm, null pointer", nullptr, "NP_1588_GetAnnounceAlarm"},
    {35, nullptr, "1588.(parameter in SetAnnounceAlarm: Unit=[%u], Port=[%u], Type=[%u], Exist=[%u]).", "NP_1588_SetAnnounceAlarm"},
    {36, "[CLK_NP] SetAnnounceFieldTx, null pointer", "1588.(parameter in SetAnnounceFieldTx: Unit=[%u], Port=[%u]).", "NP_1588_SetAnnounceFieldTx"},
    {37, "[CLK_NP] GetAnnounceFieldTx, null pointer", nullptr, "NP_1588_GetAnnounceFieldTx"},
    {38, "[CLK_NP] GetAnnounceFieldRx, null pointer", "1588.(parameter in GetAnnounceFieldRx: Unit=[%u], Port=[%u], ReadClear=[%u]).", "NP_1588_GetAnnounceFieldRx"},
    {39, "[CLK_NP] SetPortEn, null pointer", "1588.(parameter in SetPortEn: unit=%d, port=%d, fwdunit=%d, fwdport=%d, enable=%d).", "NP_1588_SetPortEn", Shape::OwnLine},
    {40, "[CLK_NP] GetPortEn, null pointer", nullptr, "NP_1588_GetPortEn"},
    {41, "[CLK_NP] GetTimestamp, null pointer", "1588.(parameter in GetTimestamp: Unit=[%u], Port=[%u]).", "NP_1588_GetTimestamp"},
    {42, "[CLK_NP] GetSsmStat, null pointer", nullptr, "NP_1588_GetSsmStat"},
    {43, "[CLK_NP] GetDfxT2SubT1, null pointer", "1588.(parameter in GetDfxT2SubT1: Unit=[%u], Port=[%u], ReadClear=[%u]).", "NP_1588_GetDfxT2SubT1"},
    {44, "[CLK_NP] GetDfxT4SubT3, null pointer", "1588.(parameter in GetDfxT4SubT3: Unit=[%u], Port=[%u], ReadClear=[%u]).", "NP_1588_GetDfxT4SubT3"},
    {48, nullptr, nullptr, "NP_1588_SetPortTsReportEnable"},
    {49, nullptr, nullptr, "NP_1588_PtpSetMac47bitModeEn"},
    {50, nullptr, nullptr, "NP_1588_PtpSetMacRxPortDelay"},
    {51, nullptr, nullptr, "NP_1588_PtpSetMacTxPortDelay"},
    {52, nullptr, nullptr, "NP_1588_PtpSetTspDelay"},
    {53, "[CLK_NP] PtpGetTspHeaderCnt, null pointer", nullptr, "NP_1588_PtpGetTspHeaderCnt"},
    {54, "[CLK_NP] PtpGetTsReportPort, null pointer", nullptr, "NP_1588_PtpGetTsReportPort"},
    {55, nullptr, nullptr, "NP_1588_PtpSetI2cSlaveAddr"},
    {56, nullptr, nullptr, "NP_1588_PtpSetRtcTime"},
    {57, "[CLK_NP] PtpSetRtcNsAdjust, null pointer", nullptr, "NP_1588_PtpSetRtcNsAdjust"},
    {58, nullptr, nullptr, "NP_1588_PtpSetTspRefreshEn"},
    {59, nullptr, nullptr, "NP_1588_PtpClearTsCnt"},
    {60, nullptr, nullptr, "NP_1588_PtpSetPortEnable"},
    {62, "[CLK_NP] PtpGetPortTsReportEnable, null pointer", nullptr, "NP_1588_PtpGetPortTsReportEnable"},
    {63, "[CLK_NP] PtpGetReportTs, null pointer", nullptr, "NP_1588_PtpGetReportTs", Shape::ReportPortZero},
    {64, "[CLK_NP] PtpGetChannelTs, null pointer", nullptr, "NP_1588_PtpGetChannelTs"},
};
// clang-format on

constexpr size_t kEntryCount = std::size(kEntries);

constexpr size_t rowsFor(size_t slot) {
  size_t rows = 0;
  for (const Entry &e : kEntries) rows += e.slot == slot ? 1 : 0;
  return rows;
}

constexpr bool slotsValid() {
  for (const Entry &e : kEntries) {
    if (e.slot == 0 || e.slot >= kSlotCount || isUnassigned(e.slot) || rowsFor(e.slot) != 1) return false;
  }
  return kEntryCount == kSlotCount - 5;  // every slot but 0 and the four unassigned ones
}
static_assert(slotsValid(), "each entry names an assigned slot of its own, and every assigned slot has an entry");

constexpr size_t rowOf(size_t slot) {
  size_t row = 0;
  while (kEntries[row].slot != slot) ++row;
  return row;
}

template <auto Member>
constexpr size_t kRowOf = rowOf(kSlotOf<Member>);

template <class T>
constexpr bool isNull(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return value == nullptr;
  } else {
    return false;
  }
}

// Values come before pointers in every entry; only values are logged.
template <class... A>
constexpr size_t kValueCount = (0 + ... + (std::is_pointer_v<A> ? 0 : 1));

template <class... A>
constexpr bool valuesLead() {
  bool seenPointer = false;
  bool ok = true;
  ((ok = ok && !(seenPointer && !std::is_pointer_v<A>), seenPointer = seenPointer || std::is_pointer_v<A>), ...);
  return ok;
}

// Step 2: a missing required pointer prints the entry's line and ends the call.
template <size_t Row, class... A>
bool pointerMissing(A... args) {
  constexpr const Entry &E = kEntries[Row];
  if constexpr (E.nullLine == nullptr) {
    return false;
  } else {
    static_assert((std::is_pointer_v<A> || ...), "a null check needs a pointer");
    if (!(isNull(args) || ...)) return false;
    (void)FWM_SRV_CLK_PrintDbg(kDbgLevel, "%s", E.nullLine);
    return true;
  }
}

// Step 3: the parameter line, handed over unformatted.
template <size_t Row, class Tuple, size_t... I>
void logValues(uint32_t unit, const Tuple &args, std::index_sequence<I...>) {
  FWMCLK_LOG(FWM_CLK_LOG_MSG, kEntries[Row].paramLine, unit, std::get<I>(args)...);
}

template <size_t Row, class... A>
void logParams(uint32_t unit, A... args) {
  if constexpr (kEntries[Row].paramLine != nullptr) {
    static_assert(valuesLead<A...>(), "values precede pointers");
    logValues<Row>(unit, std::tuple<A...>{args...}, std::make_index_sequence<kValueCount<A...>>{});
  }
}

// Step 5 for a failure: kept out of line, so that the good path saves only
// what the report needs.
template <auto Member>
[[gnu::cold, gnu::noinline]] int32_t reportFailure(int32_t result, Where where) {
  (void)CLK_NP_RetProcess(result, where.unit(), where.port(), kEntries[kRowOf<Member>].reason);
  return result;
}

// Steps 4 and 5: the slot (or the empty-slot code) and the report.
template <auto Member, class... A>
[[gnu::always_inline]] inline int32_t callSlot(uint32_t unit, uint32_t port, A... args) {
  using Fn = std::remove_cvref_t<decltype(std::declval<Funcs &>().*Member)>;
  static_assert(std::is_same_v<Fn, int32_t (*)(uint32_t, A...)>, "entry and slot take the same arguments");
  const Fn fn = g_fnNpClkDriver[unit].*Member;
  if (fn == nullptr) return reportFailure<Member>(CLK_NP_ERR_NO_FUNC, Where(unit, port));
  const Where where(unit, port);
  const int32_t result = fn(unit, args...);
  // The reporter is silent for success; skipping the call keeps the good path short.
  if (result != CLK_NP_OK) return reportFailure<Member>(result, where);
  return result;
}

// Steps 3 to 5 when the parameter line is wanted: out of line, so that the
// switched-off case neither calls the log nor keeps the arguments across it.
template <auto Member, class... A>
[[gnu::noinline]] int32_t loggedCall(uint32_t unit, uint32_t port, A... rest) {
  constexpr size_t row = kRowOf<Member>;
  logParams<row>(unit, port, rest...);
  return callSlot<Member>(unit, port, port, rest...);
}

// The common frame.
template <auto Member, class... A>
int32_t entry(uint32_t unit, uint32_t port, A... rest) {
  constexpr size_t row = kRowOf<Member>;
  static_assert(kEntries[row].shape == Shape::Frame, "entries with a shape of their own are written out");
  if (unit > kMaxUnit) return CLK_NP_ERR_UNIT;
  if (pointerMissing<row>(port, rest...)) return CLK_NP_ERR_NULL_PTR;
  if constexpr (kEntries[row].paramLine != nullptr) {
    if (diagOn(FWM_CLK_LOG_MSG)) return loggedCall<Member>(unit, port, rest...);
  }
  return callSlot<Member>(unit, port, port, rest...);
}

}  // namespace
}  // namespace fwmclk::np

using fwmclk::np::entry;
using fwmclk::np::Funcs;

extern "C" {

// clang-format off
int32_t CLK_NP_1588_SetSsmRxEnable(uint32_t unit, uint32_t port, uint32_t enable) { return entry<&Funcs::setSsmRxEnable>(unit, port, enable); }
int32_t CLK_NP_1588_SetPtpCtrl(uint32_t unit, uint32_t port, uint32_t type, uint32_t value) { return entry<&Funcs::setPtpCtrl>(unit, port, type, value); }
int32_t CLK_NP_1588_GetPtpCtrl(uint32_t unit, uint32_t type, ClkNpPtpCtrlRec *rec) { return entry<&Funcs::getPtpCtrl>(unit, type, rec); }
int32_t CLK_NP_1588_SetPtpState(uint32_t unit, uint32_t port, uint32_t state) { return entry<&Funcs::setPtpState>(unit, port, state); }
int32_t CLK_NP_1588_GetPtpState(uint32_t unit, uint32_t port, uint32_t *state) { return entry<&Funcs::getPtpState>(unit, port, state); }
int32_t CLK_NP_1588_SetEncapType(uint32_t unit, uint32_t port, uint32_t board, uint32_t encap) { return entry<&Funcs::setEncapType>(unit, port, board, encap); }
int32_t CLK_NP_1588_GetEncapType(uint32_t unit, uint32_t port, uint32_t *encap) { return entry<&Funcs::getEncapType>(unit, port, encap); }
int32_t CLK_NP_1588_SetEncapDaSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) { return entry<&Funcs::setEncapDaSel>(unit, port, pktType, sel); }
int32_t CLK_NP_1588_SetEncapDipSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) { return entry<&Funcs::setEncapDipSel>(unit, port, pktType, sel); }
int32_t CLK_NP_1588_SetEncapFlagFieldSel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) { return entry<&Funcs::setEncapFlagFieldSel>(unit, port, pktType, sel); }
int32_t CLK_NP_1588_SetEncapFlagField(uint32_t unit, uint32_t port, uint32_t flagField) { return entry<&Funcs::setEncapFlagField>(unit, port, flagField); }
int32_t CLK_NP_1588_GetEncapFlagField(uint32_t unit, uint32_t port, uint32_t *flagField) { return entry<&Funcs::getEncapFlagField>(unit, port, flagField); }
int32_t CLK_NP_1588_SetEncapDomainNumber(uint32_t unit, uint32_t port, uint32_t domain) { return entry<&Funcs::setEncapDomainNumber>(unit, port, domain); }
int32_t CLK_NP_1588_GetEncapDomainNumber(uint32_t unit, uint32_t port, uint32_t *domain) { return entry<&Funcs::getEncapDomainNumber>(unit, port, domain); }
int32_t CLK_NP_1588_SetEncapSportIdentityTx(uint32_t unit, uint32_t port, const ClkNpPortIdentity *id) { return entry<&Funcs::setEncapSportIdentityTx>(unit, port, id); }
int32_t CLK_NP_1588_GetEncapSportIdentityTx(uint32_t unit, uint32_t port, ClkNpPortIdentity *id) { return entry<&Funcs::getEncapSportIdentityTx>(unit, port, id); }
int32_t CLK_NP_1588_SetEncapSportIdentityRx(uint32_t unit, uint32_t port, uint32_t type, const ClkNpPortIdentity *id) { return entry<&Funcs::setEncapSportIdentityRx>(unit, port, type, id); }
int32_t CLK_NP_1588_GetEncapSportIdentityRx(uint32_t unit, uint32_t port, uint32_t type, ClkNpPortIdentity *id) { return entry<&Funcs::getEncapSportIdentityRx>(unit, port, type, id); }
int32_t CLK_NP_1588_SetEncapDa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac) { return entry<&Funcs::setEncapDa>(unit, port, pktType, mac); }
int32_t CLK_NP_1588_SetEncapSa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac) { return entry<&Funcs::setEncapSa>(unit, port, pktType, mac); }
int32_t CLK_NP_1588_SetEncapDip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) { return entry<&Funcs::setEncapDip>(unit, port, pktType, ipv4); }
int32_t CLK_NP_1588_SetEncapSip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) { return entry<&Funcs::setEncapSip>(unit, port, pktType, ipv4); }
int32_t CLK_NP_1588_SetEncapDscp(uint32_t unit, uint32_t port, uint32_t dscp) { return entry<&Funcs::setEncapDscp>(unit, port, dscp); }
int32_t CLK_NP_1588_SetEncapVlan(uint32_t unit, uint32_t port, uint32_t tag) { return entry<&Funcs::setEncapVlan>(unit, port, tag); }
int32_t CLK_NP_1588_SetEncapUdpSport(uint32_t unit, uint32_t port, uint32_t udpSport) { return entry<&Funcs::setEncapUdpSport>(unit, port, udpSport); }
int32_t CLK_NP_1588_SetEncapIpHeader(uint32_t unit, uint32_t port, const void *header) { return entry<&Funcs::setEncapIpHeader>(unit, port, header); }
int32_t CLK_NP_1588_SetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) { return entry<&Funcs::setPktTxEn>(unit, port, pktType, enable); }
int32_t CLK_NP_1588_SetPktRxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) { return entry<&Funcs::setPktRxEn>(unit, port, pktType, enable); }
int32_t CLK_NP_1588_SetPktInterval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval) { return entry<&Funcs::setPktInterval>(unit, port, pktType, interval); }
int32_t CLK_NP_1588_GetPktstatAlarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag, uint32_t *alarm) { return entry<&Funcs::getPktstatAlarm>(unit, port, pktType, flag, alarm); }
int32_t CLK_NP_1588_GetPktstat(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpPktStat *stat) { return entry<&Funcs::getPktstat>(unit, port, readClear, stat); }
int32_t CLK_NP_1588_SetAnnounceTimeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval) { return entry<&Funcs::setAnnounceTimeout>(unit, port, multiple, interval); }
int32_t CLK_NP_1588_GetAnnounceAlarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag, uint32_t *alarm) { return entry<&Funcs::getAnnounceAlarm>(unit, port, type, flag, alarm); }
int32_t CLK_NP_1588_SetAnnounceAlarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist) { return entry<&Funcs::setAnnounceAlarm>(unit, port, type, exist); }
int32_t CLK_NP_1588_SetAnnounceFieldTx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return entry<&Funcs::setAnnounceFieldTx>(unit, port, flags, fields); }
int32_t CLK_NP_1588_GetAnnounceFieldTx(uint32_t unit, uint32_t port, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return entry<&Funcs::getAnnounceFieldTx>(unit, port, flags, fields); }
int32_t CLK_NP_1588_GetAnnounceFieldRx(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) { return entry<&Funcs::getAnnounceFieldRx>(unit, port, readClear, flags, fields); }
int32_t CLK_NP_1588_GetPortEn(uint32_t unit, uint32_t port, uint32_t *enable) { return entry<&Funcs::getPortEn>(unit, port, enable); }
int32_t CLK_NP_1588_GetTimestamp(uint32_t unit, uint32_t port, ClkNpTimestamps *ts) { return entry<&Funcs::getTimestamp>(unit, port, ts); }
int32_t CLK_NP_1588_GetSsmStat(uint32_t unit, uint32_t port, uint32_t selector, void *stat) { return entry<&Funcs::getSsmStat>(unit, port, selector, stat); }
int32_t CLK_NP_1588_GetDfxT2SubT1(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay) { return entry<&Funcs::getDfxT2SubT1>(unit, port, readClear, delay); }
int32_t CLK_NP_1588_GetDfxT4SubT3(uint32_t unit, uint32_t port, uint32_t readClear, ClkNpDfxDelay *delay) { return entry<&Funcs::getDfxT4SubT3>(unit, port, readClear, delay); }

int32_t CLK_NP_1588_SetPortTsReportEnable(uint32_t unit, uint32_t port, uint32_t enable) { return entry<&Funcs::setPortTsReportEnable>(unit, port, enable); }
int32_t CLK_NP_1588_PtpSetMac47bitModeEn(uint32_t unit, uint32_t value, uint32_t enable) { return entry<&Funcs::ptpSetMac47bitModeEn>(unit, value, enable); }
int32_t CLK_NP_1588_PtpSetMacRxPortDelay(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2) { return entry<&Funcs::ptpSetMacRxPortDelay>(unit, port, value1, value2); }
int32_t CLK_NP_1588_PtpSetMacTxPortDelay(uint32_t unit, uint32_t port, uint32_t value1, uint32_t value2) { return entry<&Funcs::ptpSetMacTxPortDelay>(unit, port, value1, value2); }
int32_t CLK_NP_1588_PtpSetTspDelay(uint32_t unit, uint32_t value, uint32_t delay) { return entry<&Funcs::ptpSetTspDelay>(unit, value, delay); }
int32_t CLK_NP_1588_PtpGetTspHeaderCnt(uint32_t unit, uint32_t value, uint32_t *count) { return entry<&Funcs::ptpGetTspHeaderCnt>(unit, value, count); }
int32_t CLK_NP_1588_PtpGetTsReportPort(uint32_t unit, uint32_t value, uint32_t *reportPort) { return entry<&Funcs::ptpGetTsReportPort>(unit, value, reportPort); }
int32_t CLK_NP_1588_PtpSetI2cSlaveAddr(uint32_t unit, uint32_t value, uint32_t addr) { return entry<&Funcs::ptpSetI2cSlaveAddr>(unit, value, addr); }
int32_t CLK_NP_1588_PtpSetRtcTime(uint32_t unit, uint32_t value1, uint32_t value2, uint32_t value3) { return entry<&Funcs::ptpSetRtcTime>(unit, value1, value2, value3); }
int32_t CLK_NP_1588_PtpSetRtcNsAdjust(uint32_t unit, uint32_t value, void *adjust) { return entry<&Funcs::ptpSetRtcNsAdjust>(unit, value, adjust); }
int32_t CLK_NP_1588_PtpSetTspRefreshEn(uint32_t unit, uint32_t value, uint32_t enable) { return entry<&Funcs::ptpSetTspRefreshEn>(unit, value, enable); }
int32_t CLK_NP_1588_PtpClearTsCnt(uint32_t unit, uint32_t value) { return entry<&Funcs::ptpClearTsCnt>(unit, value); }
int32_t CLK_NP_1588_PtpSetPortEnable(uint32_t unit, uint32_t port, uint32_t enable) { return entry<&Funcs::ptpSetPortEnable>(unit, port, enable); }
int32_t CLK_NP_1588_PtpGetPortTsReportEnable(uint32_t unit, uint32_t port, uint32_t *enable) { return entry<&Funcs::ptpGetPortTsReportEnable>(unit, port, enable); }
int32_t CLK_NP_1588_PtpGetChannelTs(uint32_t unit, uint32_t channel, void *ts) { return entry<&Funcs::ptpGetChannelTs>(unit, channel, ts); }
// clang-format on

// The entries that leave the frame.

// Logs after the call so that the line shows the value read back (or, after a
// failure, what the caller had put there). Its caller always passes a word.
int32_t CLK_NP_1588_GetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable) {
  using namespace fwmclk::np;
  constexpr size_t row = kRowOf<&Funcs::getPktTxEn>;
  constexpr const Entry &e = kEntries[row];
  static_assert(e.shape == Shape::LogAfterCall);
  if (unit > kMaxUnit) return CLK_NP_ERR_UNIT;
  const int32_t result = callSlot<&Funcs::getPktTxEn>(unit, port, port, pktType, enable);
  FWMCLK_LOG(FWM_CLK_LOG_MSG, e.paramLine, unit, port, pktType, *enable);
  return result;
}

// Logs the forwarding unit and port from the record, in signed decimal.
int32_t CLK_NP_1588_SetPortEn(uint32_t unit, uint32_t port, uint32_t enable, ClkNpPortEnInfo *info) {
  using namespace fwmclk::np;
  constexpr size_t row = kRowOf<&Funcs::setPortEn>;
  constexpr const Entry &e = kEntries[row];
  static_assert(e.shape == Shape::OwnLine);
  if (unit > kMaxUnit) return CLK_NP_ERR_UNIT;
  if (pointerMissing<row>(info)) return CLK_NP_ERR_NULL_PTR;
  FWMCLK_LOG(FWM_CLK_LOG_MSG, e.paramLine, static_cast<int32_t>(unit), static_cast<int32_t>(port), info->fwdUnit,
             info->fwdPort, static_cast<int32_t>(enable));
  return callSlot<&Funcs::setPortEn>(unit, port, port, enable, info);
}

// Has no port argument, so its report names port 0.
int32_t CLK_NP_1588_PtpGetReportTs(uint32_t unit, void *report) {
  using namespace fwmclk::np;
  constexpr size_t row = kRowOf<&Funcs::ptpGetReportTs>;
  constexpr const Entry &e = kEntries[row];
  static_assert(e.shape == Shape::ReportPortZero);
  if (unit > kMaxUnit) return CLK_NP_ERR_UNIT;
  if (pointerMissing<row>(report)) return CLK_NP_ERR_NULL_PTR;
  return callSlot<&Funcs::ptpGetReportTs>(unit, 0, report);
}

// Kept for other modules of the host; they do nothing.
int32_t CLK_NP_1588_SetSynceConfig(uint32_t, ...) { return CLK_NP_OK; }
int32_t CLK_NP_1588_GetPtpRtcTs(uint32_t, ...) { return CLK_NP_OK; }
int32_t CLK_NP_1588_SetMacAsymDelay(uint32_t, ...) { return CLK_NP_OK; }

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_NP_ENTRIES)
