// Receive and transmit control per orchestrator packet type, driven by one
// translation table.
#include "diag/log.hpp"
#include "fwmclk/np.h"
#include "fwmclk/service_ops.h"
#include "service/svc_common.hpp"

namespace {

using fwmclk::svc::checked;
using fwmclk::svc::kRefused;
using fwmclk::svc::nullRecord;
using fwmclk::svc::res;

// What one orchestrator packet type becomes in one setting: zero, one or two
// NP packet types or PTP control types. Zero targets: accepted, nothing written.
struct Targets {
  uint8_t count;
  uint8_t value[2];
};
constexpr Targets kNothing{0, {0, 0}};
constexpr Targets to(uint8_t a) { return {1, {a, 0}}; }
constexpr Targets to(uint8_t a, uint8_t b) { return {2, {a, b}}; }

enum Setting : uint8_t { kRxEnable, kTxEnable, kInterval, kSrcPortIdCheck, kDomainCheck, kSettingNum };

constexpr uint32_t kFirstPktType = 1;
constexpr uint32_t kPktTypeNum = 8;

// Rows: orchestrator packet types 1..8. Receive and transmit enable and the
// interval give NP packet types; the two checks give PTP control types.
constexpr Targets kPktTypeMap[kPktTypeNum][kSettingNum] = {
    /* 1 */ {to(0), to(0), to(0), to(10), to(16)},
    /* 2 */ {to(1), to(1), to(1), to(9), to(14)},
    /* 3 */ {to(3), to(3), to(3, 4), kNothing, to(15)},
    /* 4 */ {to(5), to(3), to(3, 4), kNothing, kNothing},
    /* 5 */ {to(4), to(4), kNothing, kNothing, to(14)},
    /* 6 */ {kNothing, to(4), kNothing, kNothing, kNothing},
    /* 7 */ {kNothing, to(7), kNothing, kNothing, kNothing},
    /* 8 */ {kNothing, to(2), kNothing, kNothing, kNothing},
};

// Every setting is written by an NP entry of the same shape: (unit, port, target, value).
using NpWrite = int32_t (*)(uint32_t unit, uint32_t port, uint32_t target, uint32_t value);

struct SettingWriter {
  NpWrite write;
  const char *invalidLine;  // followed by the rejected type
};

constexpr SettingWriter kWriters[kSettingNum] = {
    {CLK_NP_1588_SetPktRxEn, "SetPktRxEn, Invaild pkt type: "},
    {CLK_NP_1588_SetPktTxEn, "[SetPktTxEn] Invaild pkt type: "},
    {CLK_NP_1588_SetPktInterval, "[SetPktInterval] Invaild pkt type: "},
    {CLK_NP_1588_SetPtpCtrl, "SetSrcPortIdCheck, Invaild pkt type: "},
    {CLK_NP_1588_SetPtpCtrl, "SetDomainCheck, Invaild pkt type: "},
};

// Writes every target of the packet type, whatever the earlier ones returned.
template <Setting S>
uint32_t setPerPktType(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t value) {
  if (pktType - kFirstPktType >= kPktTypeNum) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "%s%u", kWriters[S].invalidLine, pktType);
    return kRefused;
  }
  const Targets &t = kPktTypeMap[pktType - kFirstPktType][S];
  uint32_t r = 0;
  for (uint8_t i = 0; i < t.count; ++i) r |= res(kWriters[S].write(unit, port, t.value[i], value));
  return r;
}

// The receive steps in the order they are made; a tri-state of 0 skips one.
struct RxStep {
  uint32_t ClkPtpRxCtl::*triState;
  uint32_t (*apply)(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable);
  const char *name;
};

constexpr RxStep kRxSteps[] = {
    {&ClkPtpRxCtl::rxEnable, FWM_SRV_CLK_SetPktRxEn, "SetPktRxEn"},
    {&ClkPtpRxCtl::srcPortIdCheck, FWM_SRV_CLK_SetSrcPortIdCheck, "SetSrcPortIdCheck"},
    {&ClkPtpRxCtl::domainCheck, FWM_SRV_CLK_SetDomainCheck, "SetDomainCheck"},
};

}  // namespace

extern "C" {

uint32_t FWM_SRV_CLK_SetPktRxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return setPerPktType<kRxEnable>(unit, port, pktType, enable);
}
uint32_t FWM_SRV_CLK_SetPktTxEn(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return setPerPktType<kTxEnable>(unit, port, pktType, enable);
}
uint32_t FWM_SRV_CLK_SetPktInterval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval) {
  return setPerPktType<kInterval>(unit, port, pktType, interval);
}
uint32_t FWM_SRV_CLK_SetSrcPortIdCheck(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return setPerPktType<kSrcPortIdCheck>(unit, port, pktType, enable);
}
uint32_t FWM_SRV_CLK_SetDomainCheck(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return setPerPktType<kDomainCheck>(unit, port, pktType, enable);
}

uint32_t FWM_SRV_CLK_SetPtpRxCtl(uint32_t unit, uint32_t port, ClkPtpRxCtl *rx) {
  if (rx == nullptr) return nullRecord("SetPtpRxCtl");
  for (const RxStep &step : kRxSteps) {
    const uint32_t triState = rx->*step.triState;
    if (triState == FWM_CLK_TRISTATE_LEAVE) continue;
    const uint32_t enable = triState == FWM_CLK_TRISTATE_ON ? 1u : 0u;
    const uint32_t r = step.apply(unit, port, rx->pktType, enable);
    if (r != 0) return checked(step.name, r);
  }
  return 0;
}

uint32_t FWM_SRV_CLK_SetPtpTxCtl(uint32_t unit, uint32_t port, ClkPtpTxCtl *tx) {
  if (tx == nullptr) return nullRecord("SetPtpTxCtl");
  uint32_t r = FWM_SRV_CLK_SetPktInterval(unit, port, tx->pktType, tx->interval);
  if (r != 0) {
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[SetPtpTxCtl] SetPktInterval failed, ret = %u", r);
    return r;
  }
  r = FWM_SRV_CLK_SetPktTxEn(unit, port, tx->pktType, tx->txEnable);
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[SetPtpTxCtl] SetPktTxEn failed, ret = %u", r);
  return r;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_PKT_CTL)
