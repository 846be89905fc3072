// The driver table's slots by number. The table is a struct of typed members
// so that C callers and the adapter name what they fill; the NP frame and the
// tests reach a slot by its number through this list, which is proved below
// to follow the struct's declaration order member for member.
#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "fwmclk/np.h"

namespace fwmclk::np {

using Funcs = NpClkDriverFuncs;

inline constexpr auto kSlotMembers = std::tuple{
    &Funcs::init,                      // 0
    &Funcs::setSsmRxEnable,            // 1
    &Funcs::setPtpCtrl,                // 2
    &Funcs::getPtpCtrl,                // 3
    &Funcs::setPtpState,               // 4
    &Funcs::getPtpState,               // 5
    &Funcs::setEncapType,              // 6
    &Funcs::getEncapType,              // 7
    &Funcs::setEncapDaSel,             // 8
    &Funcs::setEncapDipSel,            // 9
    &Funcs::setEncapFlagFieldSel,      // 10
    &Funcs::setEncapFlagField,         // 11
    &Funcs::getEncapFlagField,         // 12
    &Funcs::setEncapDomainNumber,      // 13
    &Funcs::getEncapDomainNumber,      // 14
    &Funcs::setEncapSportIdentityTx,   // 15
    &Funcs::getEncapSportIdentityTx,   // 16
    &Funcs::setEncapSportIdentityRx,   // 17
    &Funcs::getEncapSportIdentityRx,   // 18
    &Funcs::setEncapDa,                // 19
    &Funcs::setEncapSa,                // 20
    &Funcs::setEncapDip,               // 21
    &Funcs::setEncapSip,               // 22
    &Funcs::setEncapDscp,              // 23
    &Funcs::setEncapVlan,              // 24
    &Funcs::setEncapUdpSport,          // 25
    &Funcs::setEncapIpHeader,          // 26
    &Funcs::setPktTxEn,                // 27
    &Funcs::getPktTxEn,                // 28
    &Funcs::setPktRxEn,                // 29
    &Funcs::setPktInterval,            // 30
    &Funcs::getPktstatAlarm,           // 31
    &Funcs::getPktstat,                // 32
    &Funcs::setAnnounceTimeout,        // 33
    &Funcs::getAnnounceAlarm,          // 34
    &Funcs::setAnnounceAlarm,          // 35
    &Funcs::setAnnounceFieldTx,        // 36
    &Funcs::getAnnounceFieldTx,        // 37
    &Funcs::getAnnounceFieldRx,        // 38
    &Funcs::setPortEn,                 // 39
    &Funcs::getPortEn,                 // 40
    &Funcs::getTimestamp,              // 41
    &Funcs::getSsmStat,                // 42
    &Funcs::getDfxT2SubT1,             // 43
    &Funcs::getDfxT4SubT3,             // 44
    &Funcs::reserved45,                // 45
    &Funcs::reserved46,                // 46
    &Funcs::reserved47,                // 47
    &Funcs::setPortTsReportEnable,     // 48
    &Funcs::ptpSetMac47bitModeEn,      // 49
    &Funcs::ptpSetMacRxPortDelay,      // 50
    &Funcs::ptpSetMacTxPortDelay,      // 51
    &Funcs::ptpSetTspDelay,            // 52
    &Funcs::ptpGetTspHeaderCnt,        // 53
    &Funcs::ptpGetTsReportPort,        // 54
    &Funcs::ptpSetI2cSlaveAddr,        // 55
    &Funcs::ptpSetRtcTime,             // 56
    &Funcs::ptpSetRtcNsAdjust,         // 57
    &Funcs::ptpSetTspRefreshEn,        // 58
    &Funcs::ptpClearTsCnt,             // 59
    &Funcs::ptpSetPortEnable,          // 60
    &Funcs::reserved61,                // 61
    &Funcs::ptpGetPortTsReportEnable,  // 62
    &Funcs::ptpGetReportTs,            // 63
    &Funcs::ptpGetChannelTs,           // 64
};

inline constexpr size_t kSlotCount = std::tuple_size_v<decltype(kSlotMembers)>;
static_assert(kSlotCount == CLK_NP_SLOT_NUM, "one member per slot");

namespace detail {
template <size_t... I>
constexpr bool strictlyAscending(std::index_sequence<I...>) {
  Funcs t{};
  return ((static_cast<const void *>(&(t.*std::get<I>(kSlotMembers))) <
           static_cast<const void *>(&(t.*std::get<I + 1>(kSlotMembers)))) &&
          ...);
}

template <auto Member, class Other>
constexpr bool same(Other other) {
  if constexpr (std::is_same_v<decltype(Member), Other>) {
    return Member == other;
  } else {
    return false;
  }
}

template <auto Member, size_t... I>
constexpr size_t indexOf(std::index_sequence<I...>) {
  size_t slot = kSlotCount;
  (void)((same<Member>(std::get<I>(kSlotMembers)) ? (slot = I, true) : false) || ...);
  return slot;
}
}  // namespace detail

// 65 distinct members of a struct of exactly 65 pointers, in ascending
// address order: list position k is the member at offset k pointers.
static_assert(detail::strictlyAscending(std::make_index_sequence<kSlotCount - 1>{}), "slot list follows the struct");

// Slot number of a member, and the member of a slot number.
template <auto Member>
inline constexpr size_t kSlotOf = detail::indexOf<Member>(std::make_index_sequence<kSlotCount>{});

template <size_t Slot>
inline constexpr auto kMemberOf = std::get<Slot>(kSlotMembers);

// Number of the slots of the adapter's range (0..44) and of the ones no entry reads.
inline constexpr size_t kAdapterSlots = 45;
constexpr bool isUnassigned(size_t slot) { return slot == 45 || slot == 46 || slot == 47 || slot == 61; }

}  // namespace fwmclk::np
