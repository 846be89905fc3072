// Announce message programming: the body and flag field the engine transmits,
// and the announce clear.
#include "diag/log.hpp"
#include "fwmclk/np.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/service_ops.h"
#include "service/svc_common.hpp"

namespace {

using fwmclk::svc::checked;
using fwmclk::svc::nullRecord;
using fwmclk::svc::res;

constexpr uint32_t kNpPktTypeAnnounce = 1;
constexpr uint32_t kAlarmAnnounceChange = 0;
constexpr uint32_t kFlagWordNum = 11;
// A read leaves the last flag word 0; a write sets all of them.
constexpr uint32_t kReadFlagWordNum = 10;
static_assert(sizeof(ClkNpAnnFlags) == kFlagWordNum * sizeof(uint32_t), "eleven flag words");

// Zeroes the flags and sets the first `count` words to 1.
void fillFlags(ClkNpAnnFlags *flags, uint32_t count) {
  uint32_t words[kFlagWordNum] = {};
  for (uint32_t i = 0; i < count; ++i) words[i] = 1;
  (void)memcpy_s(flags, sizeof *flags, words, sizeof words);
}

// One announce body field: the request's member and the engine record's,
// which may be wider (the request's value is zero-extended).
template <auto Request, auto Engine>
struct BodyField {
  static bool differs(const ClkPtpAnnPkt &ann, const ClkNpAnnFields &fields) {
    return static_cast<uint32_t>(fields.*Engine) != static_cast<uint32_t>(ann.*Request);
  }
  static void copy(const ClkPtpAnnPkt &ann, ClkNpAnnFields &fields) { fields.*Engine = ann.*Request; }
};

template <class... Field>
struct Body {
  // In field order, stopping at the first difference.
  static bool differs(const ClkPtpAnnPkt &ann, const ClkNpAnnFields &fields) {
    return (Field::differs(ann, fields) || ...);
  }
  static void copy(const ClkPtpAnnPkt &ann, ClkNpAnnFields &fields) { (Field::copy(ann, fields), ...); }
};

// The announce body as written and compared; the flag field travels separately.
using AnnBody = Body<BodyField<&ClkPtpAnnPkt::currentUtcOffset, &ClkNpAnnFields::currentUtcOffset>,
                     BodyField<&ClkPtpAnnPkt::grandmasterIdentityHigh, &ClkNpAnnFields::grandmasterIdentityHigh>,
                     BodyField<&ClkPtpAnnPkt::grandmasterIdentityLow, &ClkNpAnnFields::grandmasterIdentityLow>,
                     BodyField<&ClkPtpAnnPkt::clockClass, &ClkNpAnnFields::clockClass>,
                     BodyField<&ClkPtpAnnPkt::clockAccuracy, &ClkNpAnnFields::clockAccuracy>,
                     BodyField<&ClkPtpAnnPkt::offsetScaledLogVariance, &ClkNpAnnFields::offsetScaledLogVariance>,
                     BodyField<&ClkPtpAnnPkt::grandmasterPriority1, &ClkNpAnnFields::grandmasterPriority1>,
                     BodyField<&ClkPtpAnnPkt::grandmasterPriority2, &ClkNpAnnFields::grandmasterPriority2>,
                     BodyField<&ClkPtpAnnPkt::stepsRemoved, &ClkNpAnnFields::stepsRemoved>,
                     BodyField<&ClkPtpAnnPkt::timeSource, &ClkNpAnnFields::timeSource>>;

}  // namespace

extern "C" {

uint32_t FWM_SRV_CLK_SetPtpPortPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann) {
  if (ann == nullptr) return nullRecord("SetPtpPortPkt");
  uint32_t enabled = 0;
  const uint32_t g = res(CLK_NP_1588_GetPktTxEn(unit, port, kNpPktTypeAnnounce, &enabled));
  // A failed read leaves `enabled` at 0 and takes the unconditional path.
  if (enabled == 1) return checked("SetAnnPortPkt", g | CLK_NP_1588_SetAnnPortPkt(unit, port, ann));
  return checked("SetPtpPortPktProc", g | FWM_SRV_CLK_SetPtpPortPktProc(unit, port, ann));
}

uint32_t FWM_SRV_CLK_SetPtpPortPktProc(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann) {
  ClkNpAnnFields fields;
  ClkNpAnnFlags flags;
  (void)memset_s(&fields, sizeof fields, 0, sizeof fields);
  (void)memset_s(&flags, sizeof flags, 0, sizeof flags);
  CLK_NP_1588_FormatAnnPkt(ann, &flags, &fields);
  uint32_t r = res(CLK_NP_1588_SetAnnounceFieldTx(unit, port, &flags, &fields));
  r |= res(CLK_NP_1588_SetEncapFlagField(unit, port, ann->flagField));
  return checked("SetPtpPortPkt", r);
}

uint32_t CLK_NP_1588_SetAnnPortPkt(uint32_t unit, uint32_t port, ClkPtpAnnPkt *ann) {
  ClkNpAnnFields fields;
  ClkNpAnnFlags flags;
  (void)memset_s(&fields, sizeof fields, 0, sizeof fields);
  fillFlags(&flags, kReadFlagWordNum);
  // A failed read-back is compared as the zero record it left.
  const uint32_t g = checked("GetAnnounceFieldTx", res(CLK_NP_1588_GetAnnounceFieldTx(unit, port, &flags, &fields)));
  uint32_t changed = 0;
  CLK_NP_1588_CompAnnPayload(ann, &fields, &changed);
  if (changed == 0) return 0;

  // Transmission is resumed whatever the pause and the write returned.
  const uint32_t a = res(CLK_NP_1588_SetPktTxEn(unit, port, kNpPktTypeAnnounce, 0));
  const uint32_t b = FWM_SRV_CLK_SetPtpPortPktProc(unit, port, ann);
  const uint32_t c = res(CLK_NP_1588_SetPktTxEn(unit, port, kNpPktTypeAnnounce, 1));
  const uint32_t r = g | a | b | c;
  if (r != 0)
    FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] SetAnnPortPkt failed, unit=%u port=%u ret=%u", unit, port, r);
  return r;
}

void CLK_NP_1588_FormatAnnPkt(ClkPtpAnnPkt *ann, ClkNpAnnFlags *flags, ClkNpAnnFields *fields) {
  fillFlags(flags, kFlagWordNum);
  AnnBody::copy(*ann, *fields);
}

void CLK_NP_1588_CompAnnPayload(ClkPtpAnnPkt *ann, ClkNpAnnFields *fields, uint32_t *changed) {
  if (AnnBody::differs(*ann, *fields)) *changed = 1;
}

uint32_t FWM_SRV_CLK_SetPtpAnnClr(uint32_t unit, uint32_t port) {
  ClkNpAnnFields fields;
  ClkNpAnnFlags flags;
  (void)memset_s(&fields, sizeof fields, 0, sizeof fields);
  fillFlags(&flags, kReadFlagWordNum);
  uint32_t r = res(CLK_NP_1588_SetAnnounceAlarm(unit, port, kAlarmAnnounceChange, 1));
  r |= res(CLK_NP_1588_GetAnnounceFieldRx(unit, port, 1, &flags, &fields));  // read-clear; the fields are dropped
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] SetPtpAnnClr failed, ret = %u", r);
  return r;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_ANN)
