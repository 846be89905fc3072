// Global and per-port PTP configuration, path asymmetry and SSM receive.
#include "diag/log.hpp"
#include "fwmclk/np.h"
#include "fwmclk/service_ops.h"
#include "service/mira_hook.hpp"
#include "service/rx_identity.hpp"
#include "service/svc_common.hpp"

namespace {

using fwmclk::svc::checked;
using fwmclk::svc::nullRecord;
using fwmclk::svc::res;

// PTP control types the configuration writes; the engine driver gives them meaning.
enum CtrlType : uint32_t {
  kCtrl0 = 0,
  kCtrl1 = 1,
  kCtrl2 = 2,
  kCtrlAsymPositive = 4,
  kCtrlAsymNegative = 5,
  kCtrl6 = 6,
  kCtrl7 = 7,
  kCtrlSlavePort = 8,
  kCtrl18 = 18,
  kCtrl33 = 33,
};

constexpr uint32_t kStatePassive = 7;
constexpr uint32_t kStateSlave = 9;
constexpr uint32_t kNpPktTypeAnnounceTx = 4;  // NP packet type switched with the port
constexpr uint32_t kRxIdentityPktType = 1;

// Port enable with the port's own unit and port as the forwarding unit/port.
uint32_t setPortEnable(uint32_t unit, uint32_t port, uint32_t fwdTarget, uint32_t enable, ClkNpPortEnInfo *info) {
  info->fwdUnit = static_cast<uint8_t>(unit);
  info->fwdPort = static_cast<uint8_t>(port);
  info->fwdTarget = fwdTarget;
  return res(CLK_NP_1588_SetPortEn(unit, port, enable, info));
}

// Control type 18 is kept for an enabled port unless it is PASSIVE or a
// SLAVE with the state flag clear.
bool writesCtrl18(uint32_t enable, uint32_t state, uint32_t stateFlag) {
  if (enable != 1) return true;
  return state == kStatePassive || (state == kStateSlave && stateFlag == 0);
}

// The two halves of the port configuration, inline in it and in their own
// exported operations.
[[gnu::always_inline]] inline uint32_t portCfg1(uint32_t unit, uint32_t port, uint32_t stateFlag, ClkPtpPortCfg *cfg) {
  const uint32_t state = cfg->portState;
  uint32_t r = res(CLK_NP_1588_SetPtpState(unit, port, state));
  r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl0, cfg->ctrlType0Value));
  r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl1, cfg->ctrlType1Value));
  if (writesCtrl18(cfg->enable, state, stateFlag)) {
    r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl18, cfg->enable));
    if (state == kStateSlave && stateFlag == 0) r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrlSlavePort, port));
  }
  return checked("SetPtpPortCfg1", r);
}

[[gnu::always_inline]] inline uint32_t portCfg2(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  uint32_t r = res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl2, cfg->ctrlType2Value));
  r |= res(CLK_NP_1588_SetAnnounceTimeout(unit, port, cfg->annTimeoutMultiple, 0));
  if (cfg->ctrlType1Value == 1)
    r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl6, 1));
  else
    r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl7, 255));
  r |= res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrl33, cfg->ctrlType33Value));
  return checked("SetPtpPortCfg2", r);
}

}  // namespace

extern "C" {

uint32_t FWM_SRV_CLK_SetPtpGlbCfg(ClkPtpGlbCfg *cfg) {
  if (cfg == nullptr) return nullRecord("SetPtpGlbCfg");
  return checked("SetPtpGlbCfg", res(CLK_NP_1588_SetPtpCtrl(0, cfg->slavePort, kCtrlSlavePort, cfg->slavePort)));
}

uint32_t FWM_SRV_CLK_SetPtpPortCfg(uint32_t unit, uint32_t port, uint32_t fwdTarget, ClkPtpPortCfg *cfg) {
  if (cfg == nullptr) return nullRecord("SetPtpPortCfg");
  // The hook keeps the state word as it arrived, flag included.
  (void)fwmclk::svc::miraSpecialProc(unit, port, cfg);

  const uint32_t stateFlag = (cfg->portState & FWM_CLK_PORT_STATE_FLAG) != 0 ? 1u : 0u;
  cfg->portState &= ~FWM_CLK_PORT_STATE_FLAG;

  ClkNpPortEnInfo info{};
  uint32_t r = 0;
  // Off before anything else is written, on only after everything else.
  if (cfg->enable == 0) r = setPortEnable(unit, port, fwdTarget, 0, &info);
  r |= portCfg1(unit, port, stateFlag, cfg);
  r |= fwmclk::svc::setRxSrcPortId(unit, port, kRxIdentityPktType, cfg->rxSrcPortIdentity);
  r |= res(CLK_NP_1588_SetPktTxEn(unit, port, kNpPktTypeAnnounceTx, cfg->enable));
  r |= res(CLK_NP_1588_SetEncapDomainNumber(unit, port, cfg->domainNumber));
  r |= portCfg2(unit, port, cfg);
  if (cfg->enable == 1) r |= setPortEnable(unit, port, fwdTarget, 1, &info);
  return checked("SetPtpPortCfg", r);
}

uint32_t FWM_SRV_CLK_SetPtpPortCfg1(uint32_t unit, uint32_t port, uint32_t stateFlag, ClkPtpPortCfg *cfg) {
  return portCfg1(unit, port, stateFlag, cfg);
}

uint32_t FWM_SRV_CLK_SetPtpPortCfg2(uint32_t unit, uint32_t port, ClkPtpPortCfg *cfg) {
  return portCfg2(unit, port, cfg);
}

uint32_t FWM_SRV_CLK_SetPtpPortAsym(uint32_t unit, uint32_t port, ClkPtpPortAsym *asym) {
  if (asym == nullptr) return nullRecord("SetPtpPortAsym");
  const int32_t a = asym->asymmetry;
  // Negated in unsigned arithmetic so that INT32_MIN gives its magnitude.
  const uint32_t r = a < 0 ? res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrlAsymNegative, 0u - static_cast<uint32_t>(a)))
                           : res(CLK_NP_1588_SetPtpCtrl(unit, port, kCtrlAsymPositive, static_cast<uint32_t>(a)));
  return checked("SetPtpPortAsym", r);
}

uint32_t FWM_SRV_CLK_SetSsmPortCfg(uint32_t unit, uint32_t port, ClkSsmPortCfg *ssm) {
  FWMCLK_LOG(FWM_CLK_LOG_INFO, "[FWM_SRV_CLK] SetSsmPortCfg, unit=%u, port=%u, ssmRxEn=%u", unit, port, ssm->ssmRxEn);
  const uint32_t r = res(CLK_NP_1588_SetSsmRxEnable(unit, port, ssm->ssmRxEn));
  if (r != 0) FWMCLK_LOG(FWM_CLK_LOG_ERROR, "[FWM_SRV_CLK] SetSsmPortCfg failed, ret=%u", r);
  return r;
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_PORT_CFG)
