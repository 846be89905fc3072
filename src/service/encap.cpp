// Encapsulation of a port's PTP packets and the source port identities.
#include "diag/log.hpp"
#include "fwmclk/np.h"
#include "fwmclk/service_ops.h"
#include "service/rx_identity.hpp"
#include "service/svc_common.hpp"

namespace {

using fwmclk::svc::checked;
using fwmclk::svc::nullRecord;
using fwmclk::svc::res;

// The same addresses go to these NP packet types, in this order, whatever the encapsulation.
constexpr uint32_t kAddressedNpPktTypes[] = {3, 0, 1};
constexpr uint32_t kCtrlSrcIp = 26;
constexpr uint32_t kVlanTpid = 0x81000000u;

bool hasVlanTag(uint32_t encapType) { return (encapType & ~2u) == 1; }  // 1 and 3
bool hasIpv4(uint32_t encapType) { return encapType - 2u <= 1; }        // 2 and 3

// 802.1Q tag: TPID in the upper half, priority in bits 13-15, DEI 0, VLAN id in bits 0-11.
uint32_t vlanTag(uint32_t priority, uint32_t vlanId) {
  return kVlanTpid | ((priority << 13) & 0xFFFFu) | (vlanId & 0xFFFu);
}

void copyIdentity(ClkNpPortIdentity *dst, const uint32_t (&src)[3]) {
  *dst = ClkNpPortIdentity{};
  dst->word[0] = src[0];
  dst->word[1] = src[1];
  dst->word[2] = src[2];
}

}  // namespace

extern "C" {

uint32_t FWM_SRV_CLK_SetPtpPktEncap(uint32_t unit, uint32_t port, uint32_t targetBoard, ClkPtpPktEncap *encap) {
  if (encap == nullptr) return nullRecord("SetPtpPktEncap");
  uint32_t r = FWM_SRV_CLK_SetPtpPktEncapData(unit, port, targetBoard, encap);
  r |= FWM_SRV_CLK_SetPtpEncapVlan(unit, port, encap);
  return checked("SetPtpPktEncap", r);
}

uint32_t FWM_SRV_CLK_SetPtpPktEncapData(uint32_t unit, uint32_t port, uint32_t targetBoard, ClkPtpPktEncap *encap) {
  uint32_t r = res(CLK_NP_1588_SetEncapType(unit, port, targetBoard, encap->encapType));
  for (uint32_t npType : kAddressedNpPktTypes) {
    r |= res(CLK_NP_1588_SetEncapDa(unit, port, npType, encap->destMac));
    r |= res(CLK_NP_1588_SetEncapSa(unit, port, npType, encap->srcMac));
    r |= res(CLK_NP_1588_SetEncapDip(unit, port, npType, encap->destIp));
    r |= res(CLK_NP_1588_SetEncapSip(unit, port, npType, encap->srcIp));
  }
  r |= res(CLK_NP_1588_SetEncapDscp(unit, port, encap->dscp));
  return checked("SetPtpPktEncapData", r);
}

uint32_t FWM_SRV_CLK_SetPtpEncapVlan(uint32_t unit, uint32_t port, ClkPtpPktEncap *encap) {
  uint32_t r = 0;
  if (hasVlanTag(encap->encapType))
    r = res(CLK_NP_1588_SetEncapVlan(unit, port, vlanTag(encap->vlanPriority, encap->vlanId)));
  if (hasIpv4(encap->encapType)) r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrlSrcIp, encap->srcIp));
  return checked("SetPtpEncapVlan", r);
}

uint32_t FWM_SRV_CLK_SetPtpRxSrcPortId(uint32_t unit, uint32_t port, ClkPtpRxSrcPortId *id) {
  if (id == nullptr) return nullRecord("SetPtpRxSrcPortId");
  return fwmclk::svc::setRxSrcPortId(unit, port, id->pktType, id->identity);
}

uint32_t FWM_SRV_CLK_SetPtpTxSrcPortId(uint32_t unit, uint32_t port, ClkPtpTxSrcPortId *id) {
  if (id == nullptr) return nullRecord("SetPtpTxSrcPortId");
  ClkNpPortIdentity identity;
  copyIdentity(&identity, id->identity);
  const uint32_t r = res(CLK_NP_1588_SetEncapSportIdentityTx(unit, port, &identity));
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[SetPtpTxSrcPortId] SetEncapSportIdentityTx failed, ret = %u", r);
  return r;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_ENCAP)
