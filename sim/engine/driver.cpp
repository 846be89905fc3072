// The simulated engine's 1588 driver functions: each is recorded, may be
// faulted, and then reads or writes the port's state in the engine.
#include "fwmsim/engine/engine.hpp"

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "fwmclk/platform/oda.h"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

// Call-text forms of the records the driver receives by pointer.
struct MacArg {
  const uint8_t *mac;
};
struct WordsArg {
  const uint32_t *words;
  size_t count;
};
struct PortCtrlArg {
  const uint32_t *words;
};

std::string arg(MacArg v) {
  if (v.mac == nullptr) return "NULL";
  char buf[24];
  (void)std::snprintf(buf, sizeof buf, "%02X:%02X:%02X:%02X:%02X:%02X", v.mac[0], v.mac[1], v.mac[2], v.mac[3],
                      v.mac[4], v.mac[5]);
  return buf;
}

std::string arg(WordsArg v) {
  if (v.words == nullptr) return "NULL";
  std::string s = "[";
  for (size_t i = 0; i < v.count; ++i) s += (i != 0 ? ", " : "") + std::to_string(v.words[i]);
  return s + "]";
}

std::string arg(PortCtrlArg v) {
  if (v.words == nullptr) return "NULL";
  std::string s = "{";
  for (size_t i = 0; i < 5; ++i) s += std::to_string(v.words[i]) + ", ";
  return s + arg(Hex{v.words[5]}) + "}";
}

namespace {

constexpr uint32_t kOdaCodeNullPtr = 8;

// Records the call, then answers with an injected fault or a bad unit.
template <class... A>
std::optional<uint32_t> enter(const char *fn, uint32_t unit, const A &...args) {
  record("oda", fn, unit, args...);
  if (auto code = faults().take(fn)) return code;
  if (unit >= kOdaUnits) return kOdaCodeParam;
  return std::nullopt;
}

// A write: record, check, apply to the port's state.
template <class Apply, class... A>
uint32_t write(const char *fn, uint32_t unit, uint32_t port, Apply &&apply, const A &...shown) {
  if (auto code = enter(fn, unit, port, shown...)) return *code;
  engine().with(unit, port, apply);
  return 0;
}

// A write of one packet type's setting.
template <class Apply, class... A>
uint32_t writePkt(const char *fn, uint32_t unit, uint32_t port, uint32_t pktType, Apply &&apply, const A &...shown) {
  if (auto code = enter(fn, unit, port, pktType, shown...)) return *code;
  if (pktType >= kOdaPktTypes) return kOdaCodeParam;
  engine().with(unit, port, [&](OdaPort &p) { apply(p, pktType); });
  return 0;
}

// A read into the caller's `size` bytes at `out`; `leading` are the value
// arguments shown before the output pointer.
template <class Read, class... A>
uint32_t read(const char *fn, uint32_t unit, uint32_t port, void *out, size_t size, Read &&readInto,
              const A &...leading) {
  auto code = enter(fn, unit, port, leading..., Ptr{out});
  if (code && out != nullptr && engine().scribbleOnFault()) std::memset(out, 0xA5, size);
  if (code) return *code;
  if (out == nullptr) return kOdaCodeNullPtr;
  return engine().with(unit, port, [&](OdaPort &p) { return readInto(p); });
}

template <class T>
void copyOut(void *out, const T &value) {
  std::memcpy(out, &value, sizeof value);
}

}  // namespace
}  // namespace fwmsim

using fwmsim::engine;
using fwmsim::kOdaCodeParam;
using fwmsim::OdaPort;
using fwmsim::Ptr;

extern "C" {

uint32_t oda_1588_set_ssm_rx_en(uint32_t unit, uint32_t port, uint32_t enable) {
  return fwmsim::write(
      "oda_1588_set_ssm_rx_en", unit, port, [&](OdaPort &p) { p.ssmRxEnable = enable; }, enable);
}

uint32_t oda_1588_set_ptp_control(uint32_t unit, uint32_t port, uint32_t type, uint32_t value, uint32_t reserved) {
  return fwmsim::write(
      "oda_1588_set_ptp_control", unit, port,
      [&](OdaPort &p) {
        p.ptpControl[type] = value;
        if (type == fwmsim::kCtrlAsymPositive) p.asymmetryNs = value;
        if (type == fwmsim::kCtrlAsymNegative) p.asymmetryNs = -int64_t{value};
      },
      type, value, reserved);
}

uint32_t oda_1588_get_ptp_control(uint32_t unit, uint32_t type, uint32_t *rec3) {
  if (auto code = fwmsim::enter("oda_1588_get_ptp_control", unit, type, Ptr{rec3})) {
    if (rec3 != nullptr && engine().scribbleOnFault()) std::memset(rec3, 0xA5, 3 * sizeof *rec3);
    return *code;
  }
  if (rec3 == nullptr) return fwmsim::kOdaCodeNullPtr;
  engine().with(unit, rec3[0], [&](OdaPort &p) {
    auto it = p.ptpControl.find(type);
    rec3[1] = it != p.ptpControl.end() ? it->second : 0;
    rec3[2] = 0;
  });
  return 0;
}

uint32_t oda_1588_set_ptp_state(uint32_t unit, uint32_t port, uint32_t state) {
  return fwmsim::write(
      "oda_1588_set_ptp_state", unit, port, [&](OdaPort &p) { p.state = state; }, state);
}

uint32_t oda_1588_get_ptp_state(uint32_t unit, uint32_t port, uint32_t *state) {
  return fwmsim::read("oda_1588_get_ptp_state", unit, port, state, sizeof *state, [&](OdaPort &p) {
    *state = p.state;
    return 0u;
  });
}

uint32_t oda_1588_set_encap_type(uint32_t unit, uint32_t port, uint32_t encap) {
  return fwmsim::write(
      "oda_1588_set_encap_type", unit, port, [&](OdaPort &p) { p.encap = encap; }, encap);
}

uint32_t oda_1588_get_encap_type(uint32_t unit, uint32_t port, uint32_t *encap) {
  return fwmsim::read("oda_1588_get_encap_type", unit, port, encap, sizeof *encap, [&](OdaPort &p) {
    *encap = p.encap;
    return 0u;
  });
}

uint32_t oda_1588_set_encap_da_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_da_sel", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.daSel[t] = sel; }, sel);
}

uint32_t oda_1588_set_encap_dip_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_dip_sel", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.dipSel[t] = sel; }, sel);
}

uint32_t oda_1588_set_encap_flagfield_sel(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t sel) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_flagfield_sel", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.flagFieldSel[t] = sel; },
      sel);
}

uint32_t oda_1588_set_encap_flagfield(uint32_t unit, uint32_t port, uint32_t flagField) {
  return fwmsim::write(
      "oda_1588_set_encap_flagfield", unit, port, [&](OdaPort &p) { p.flagField = flagField; }, flagField);
}

uint32_t oda_1588_get_encap_flagfield(uint32_t unit, uint32_t port, uint32_t *flagField) {
  return fwmsim::read("oda_1588_get_encap_flagfield", unit, port, flagField, sizeof *flagField, [&](OdaPort &p) {
    *flagField = p.flagField;
    return 0u;
  });
}

uint32_t oda_1588_set_encap_domain_number(uint32_t unit, uint32_t port, uint32_t domain) {
  return fwmsim::write(
      "oda_1588_set_encap_domain_number", unit, port, [&](OdaPort &p) { p.domainNumber = domain; }, domain);
}

uint32_t oda_1588_get_encap_domain_number(uint32_t unit, uint32_t port, uint32_t *domain) {
  return fwmsim::read("oda_1588_get_encap_domain_number", unit, port, domain, sizeof *domain, [&](OdaPort &p) {
    *domain = p.domainNumber;
    return 0u;
  });
}

uint32_t oda_1588_set_encap_sport_identity_tx(uint32_t unit, uint32_t port, const uint32_t *identity3) {
  if (auto code = fwmsim::enter("oda_1588_set_encap_sport_identity_tx", unit, port, fwmsim::WordsArg{identity3, 3})) {
    return *code;
  }
  if (identity3 == nullptr) return fwmsim::kOdaCodeNullPtr;
  engine().with(unit, port, [&](OdaPort &p) { std::memcpy(p.identityTx.data(), identity3, sizeof p.identityTx); });
  return 0;
}

uint32_t oda_1588_get_encap_sport_identity_tx(uint32_t unit, uint32_t port, uint32_t *identity3) {
  return fwmsim::read("oda_1588_get_encap_sport_identity_tx", unit, port, identity3, 3 * sizeof *identity3,
                      [&](OdaPort &p) {
                        fwmsim::copyOut(identity3, p.identityTx);
                        return 0u;
                      });
}

uint32_t oda_1588_set_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, const uint32_t *identity3) {
  if (auto code =
          fwmsim::enter("oda_1588_set_encap_sport_identity_rx", unit, port, type, fwmsim::WordsArg{identity3, 3})) {
    return *code;
  }
  if (type > 1) return kOdaCodeParam;
  if (identity3 == nullptr) return fwmsim::kOdaCodeNullPtr;
  engine().with(unit, port,
                [&](OdaPort &p) { std::memcpy(p.identityRx[type].data(), identity3, sizeof p.identityRx[type]); });
  return 0;
}

uint32_t oda_1588_get_encap_sport_identity_rx(uint32_t unit, uint32_t port, uint32_t type, uint32_t *identity3) {
  return fwmsim::read(
      "oda_1588_get_encap_sport_identity_rx", unit, port, identity3, 3 * sizeof *identity3,
      [&](OdaPort &p) {
        if (type > 1) return kOdaCodeParam;
        fwmsim::copyOut(identity3, p.identityRx[type]);
        return 0u;
      },
      type);
}

uint32_t oda_1588_set_encap_da(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac6) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_da", unit, port, pktType,
      [&](OdaPort &p, uint32_t t) {
        if (mac6 != nullptr) std::memcpy(p.da[t].data(), mac6, p.da[t].size());
      },
      fwmsim::MacArg{mac6});
}

uint32_t oda_1588_set_encap_sa(uint32_t unit, uint32_t port, uint32_t pktType, const uint8_t *mac6) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_sa", unit, port, pktType,
      [&](OdaPort &p, uint32_t t) {
        if (mac6 != nullptr) std::memcpy(p.sa[t].data(), mac6, p.sa[t].size());
      },
      fwmsim::MacArg{mac6});
}

uint32_t oda_1588_set_encap_dip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_dip", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.dip[t] = ipv4; }, ipv4);
}

uint32_t oda_1588_set_encap_sip(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t ipv4) {
  return fwmsim::writePkt(
      "oda_1588_set_encap_sip", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.sip[t] = ipv4; }, ipv4);
}

uint32_t oda_1588_set_encap_dscp(uint32_t unit, uint32_t port, uint32_t dscp) {
  return fwmsim::write(
      "oda_1588_set_encap_dscp", unit, port, [&](OdaPort &p) { p.dscp = dscp; }, dscp);
}

uint32_t oda_1588_set_encap_vlan(uint32_t unit, uint32_t port, uint32_t tag) {
  return fwmsim::write(
      "oda_1588_set_encap_vlan", unit, port, [&](OdaPort &p) { p.vlan = tag; }, fwmsim::Hex{tag});
}

uint32_t oda_1588_set_encap_udp_sport(uint32_t unit, uint32_t port, uint32_t udpSport) {
  return fwmsim::write(
      "oda_1588_set_encap_udp_sport", unit, port, [&](OdaPort &p) { p.udpSport = udpSport; }, udpSport);
}

uint32_t oda_1588_set_encap_ipheader(uint32_t unit, uint32_t port, const void *header) {
  return fwmsim::write(
      "oda_1588_set_encap_ipheader", unit, port, [&](OdaPort &p) { ++p.ipHeaderWrites; }, Ptr{header});
}

uint32_t oda_1588_set_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return fwmsim::writePkt(
      "oda_1588_set_pkt_tx_en", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.txEnable[t] = enable; }, enable);
}

uint32_t oda_1588_get_pkt_tx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t *enable) {
  return fwmsim::read(
      "oda_1588_get_pkt_tx_en", unit, port, enable, sizeof *enable,
      [&](OdaPort &p) {
        if (pktType >= fwmsim::kOdaPktTypes) return kOdaCodeParam;
        *enable = p.txEnable[pktType];
        return 0u;
      },
      pktType);
}

uint32_t oda_1588_set_pkt_rx_en(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t enable) {
  return fwmsim::writePkt(
      "oda_1588_set_pkt_rx_en", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.rxEnable[t] = enable; }, enable);
}

uint32_t oda_1588_set_pkt_interval(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t interval) {
  return fwmsim::writePkt(
      "oda_1588_set_pkt_interval", unit, port, pktType, [&](OdaPort &p, uint32_t t) { p.interval[t] = interval; },
      interval);
}

uint32_t oda_1588_get_pkt_stat_alarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t flag, uint32_t *alarm) {
  return fwmsim::read(
      "oda_1588_get_pkt_stat_alarm", unit, port, alarm, sizeof *alarm,
      [&](OdaPort &p) {
        if (pktType >= fwmsim::kOdaPktTypes) return kOdaCodeParam;
        *alarm = p.pktStatAlarm[pktType];
        return 0u;
      },
      pktType, flag);
}

uint32_t oda_1588_get_pkt_stat(uint32_t unit, uint32_t port, uint32_t readClear, void *stat148) {
  return fwmsim::read(
      "oda_1588_get_pkt_stat", unit, port, stat148, sizeof(ClkNpPktStat),
      [&](OdaPort &p) {
        fwmsim::copyOut(stat148, p.pktStat);
        if (readClear == 1) p.pktStat = {};
        return 0u;
      },
      readClear);
}

uint32_t oda_1588_set_announce_timeout(uint32_t unit, uint32_t port, uint32_t multiple, uint32_t interval) {
  return fwmsim::write(
      "oda_1588_set_announce_timeout", unit, port,
      [&](OdaPort &p) {
        p.annTimeoutMultiple = multiple;
        p.annTimeoutInterval = interval;
      },
      multiple, interval);
}

uint32_t oda_1588_get_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t flag, uint32_t *alarm) {
  return fwmsim::read(
      "oda_1588_get_announce_alarm", unit, port, alarm, sizeof *alarm,
      [&](OdaPort &p) {
        if (type > fwmsim::kOdaAlarmTimeout) return kOdaCodeParam;
        *alarm = p.alarm[type];
        if (flag == 1) p.alarm[type] = 0;
        return 0u;
      },
      type, flag);
}

uint32_t oda_1588_set_announce_alarm(uint32_t unit, uint32_t port, uint32_t type, uint32_t exist) {
  if (auto code = fwmsim::enter("oda_1588_set_announce_alarm", unit, port, type, exist)) return *code;
  if (type > fwmsim::kOdaAlarmTimeout) return kOdaCodeParam;
  engine().with(unit, port, [&](OdaPort &p) { p.alarmProgrammed[type] = exist; });
  return 0;
}

uint32_t oda_1588_set_announce_field_tx(uint32_t unit, uint32_t port, void *flags11, void *fields88) {
  if (auto code = fwmsim::enter("oda_1588_set_announce_field_tx", unit, port, Ptr{flags11}, Ptr{fields88})) {
    return *code;
  }
  if (flags11 == nullptr || fields88 == nullptr) return fwmsim::kOdaCodeNullPtr;
  engine().with(unit, port, [&](OdaPort &p) {
    std::memcpy(&p.txFlags, flags11, sizeof p.txFlags);
    std::memcpy(&p.txFields, fields88, sizeof p.txFields);
  });
  return 0;
}

uint32_t oda_1588_get_announce_field_tx(uint32_t unit, uint32_t port, void *flags11, void *fields88) {
  return fwmsim::read(
      "oda_1588_get_announce_field_tx", unit, port, fields88, sizeof(ClkNpAnnFields),
      [&](OdaPort &p) {
        if (flags11 == nullptr) return fwmsim::kOdaCodeNullPtr;
        std::memcpy(&p.txReadFlags, flags11, sizeof p.txReadFlags);
        fwmsim::copyOut(fields88, p.txFields);
        return 0u;
      },
      Ptr{flags11});
}

uint32_t oda_1588_get_announce_field_rx(uint32_t unit, uint32_t port, uint32_t readClear, void *flags11,
                                        void *fields88) {
  return fwmsim::read(
      "oda_1588_get_announce_field_rx", unit, port, fields88, sizeof(ClkNpAnnFields),
      [&](OdaPort &p) {
        if (flags11 == nullptr) return fwmsim::kOdaCodeNullPtr;
        std::memcpy(&p.rxReadFlags, flags11, sizeof p.rxReadFlags);
        fwmsim::copyOut(fields88, p.rxFields);
        if (readClear == 1) p.rxFields = {};
        return 0u;
      },
      readClear, Ptr{flags11});
}

uint32_t oda_1588_set_port_en(uint32_t unit, uint32_t port, uint32_t enable) {
  return fwmsim::write(
      "oda_1588_set_port_en", unit, port, [&](OdaPort &p) { p.portEnable = enable; }, enable);
}

uint32_t oda_1588_get_port_en(uint32_t unit, uint32_t port, uint32_t *enable) {
  return fwmsim::read("oda_1588_get_port_en", unit, port, enable, sizeof *enable, [&](OdaPort &p) {
    *enable = p.portEnable;
    return 0u;
  });
}

uint32_t oda_1588_get_timestamp(uint32_t unit, uint32_t port, void *ts64) {
  return fwmsim::read("oda_1588_get_timestamp", unit, port, ts64, sizeof(ClkNpTimestamps), [&](OdaPort &p) {
    fwmsim::copyOut(ts64, p.timestamps);
    return 0u;
  });
}

uint32_t oda_1588_get_ssm_stat(uint32_t unit, uint32_t port, uint32_t selector, void *stat) {
  return fwmsim::read(
      "oda_1588_get_ssm_stat", unit, port, stat, fwmsim::kSsmStatWords * sizeof(uint32_t),
      [&](OdaPort &p) {
        fwmsim::copyOut(stat, p.ssmStat[selector]);
        return 0u;
      },
      selector);
}

uint32_t oda_1588_get_dfx_t2_sub_t1(uint32_t unit, uint32_t port, uint32_t readClear, void *delay24) {
  return fwmsim::read(
      "oda_1588_get_dfx_t2_sub_t1", unit, port, delay24, sizeof(ClkNpDfxDelay),
      [&](OdaPort &p) {
        fwmsim::copyOut(delay24, p.t2SubT1);
        if (readClear == 1) p.t2SubT1 = {};
        return 0u;
      },
      readClear);
}

uint32_t oda_1588_get_dfx_t4_sub_t3(uint32_t unit, uint32_t port, uint32_t readClear, void *delay24) {
  return fwmsim::read(
      "oda_1588_get_dfx_t4_sub_t3", unit, port, delay24, sizeof(ClkNpDfxDelay),
      [&](OdaPort &p) {
        fwmsim::copyOut(delay24, p.t4SubT3);
        if (readClear == 1) p.t4SubT3 = {};
        return 0u;
      },
      readClear);
}

uint32_t oda_port_set_control(uint32_t unit, uint32_t portWord, void *ctrl6) {
  const auto *words = static_cast<const uint32_t *>(ctrl6);
  fwmsim::record("oda", "oda_port_set_control", unit, fwmsim::Hex{portWord}, fwmsim::PortCtrlArg{words});
  if (auto code = fwmsim::faults().take("oda_port_set_control")) return *code;
  if (unit >= fwmsim::kOdaUnits) return kOdaCodeParam;
  if (words == nullptr) return fwmsim::kOdaCodeNullPtr;
  fwmsim::OdaPortCtrlCall call{unit, portWord, {}};
  std::memcpy(call.words.data(), words, sizeof call.words);
  engine().addPortControl(call);
  return 0;
}

}  // extern "C"
