#include "records.hpp"

#include <array>
#include <cstddef>

#include <fmt/format.h>

#include "fwmclk/np.h"
#include "fwmclk/service_ops.h"
#include "fwmtools/announce.hpp"
#include "values.hpp"

namespace clksim {

namespace {

using K = FieldKind;

// Offsets come from the records themselves, so the table cannot drift from them.
#define CLKSIM_AT(rec, member) static_cast<uint16_t>(offsetof(rec, member))
#define CLKSIM_SIZE(rec) static_cast<uint16_t>(sizeof(rec))

constexpr FieldDesc kGlbCfg[] = {
    {"slavePort", K::U32, CLKSIM_AT(ClkPtpGlbCfg, slavePort), 1, 0, 0, 0, 0,
     "port (and value) of control type 8 on unit 0"},
};

constexpr FieldDesc kPortCfg[] = {
    {"enable", K::U32, CLKSIM_AT(ClkPtpPortCfg, enable), 1, 0, 0, 0, 0, "1 = PTP on, 0 = off"},
    {"ctrlType0Value", K::U32, CLKSIM_AT(ClkPtpPortCfg, ctrlType0Value)},
    {"portState", K::Bits, CLKSIM_AT(ClkPtpPortCfg, portState), 1, 0, 0, 0, 0x7FFFFFFFu,
     "IEEE 1588 port state, a number or its name (SLAVE)", kPortStates},
    {"stateFlag", K::Bits, CLKSIM_AT(ClkPtpPortCfg, portState), 1, 0, 0, 31, 1u, "bit 31 of the port state word"},
    {"ctrlType2Value", K::U32, CLKSIM_AT(ClkPtpPortCfg, ctrlType2Value)},
    {"domainNumber", K::U32, CLKSIM_AT(ClkPtpPortCfg, domainNumber)},
    {"ctrlType1Value", K::U32, CLKSIM_AT(ClkPtpPortCfg, ctrlType1Value)},
    {"annTimeoutMultiple", K::U32, CLKSIM_AT(ClkPtpPortCfg, annTimeoutMultiple)},
    {"rxSrcPortIdentity", K::PortIdWords, CLKSIM_AT(ClkPtpPortCfg, rxSrcPortIdentity), 3, 0, 0, 0, 0,
     "three words or \"001b19.fffe.000001-1\""},
    {"ctrlType33Value", K::U16, CLKSIM_AT(ClkPtpPortCfg, ctrlType33Value)},
    {"ifIndex", K::U32, CLKSIM_AT(ClkPtpPortCfg, ifIndex)},
};

constexpr FieldDesc kPktEncap[] = {
    {"encapType", K::U32, CLKSIM_AT(ClkPtpPktEncap, encapType), 1, 0, 0, 0, 0,
     "0..4; 1 and 3 tag 802.1Q, 2 and 3 IPv4"},
    {"vlanPriority", K::U32, CLKSIM_AT(ClkPtpPktEncap, vlanPriority)},
    {"vlanId", K::U32, CLKSIM_AT(ClkPtpPktEncap, vlanId)},
    {"dscp", K::U32, CLKSIM_AT(ClkPtpPktEncap, dscp)},
    {"destMac", K::Mac, CLKSIM_AT(ClkPtpPktEncap, destMac)},
    {"srcMac", K::Mac, CLKSIM_AT(ClkPtpPktEncap, srcMac)},
    {"destIp", K::Ipv4, CLKSIM_AT(ClkPtpPktEncap, destIp)},
    {"srcIp", K::Ipv4, CLKSIM_AT(ClkPtpPktEncap, srcIp)},
};

constexpr FieldDesc kRxCtl[] = {
    {"pktType", K::U32, CLKSIM_AT(ClkPtpRxCtl, pktType), 1, 0, 0, 0, 0, "packet type 1..8 or its name", kPacketTypes},
    {"rxEnable", K::U32, CLKSIM_AT(ClkPtpRxCtl, rxEnable), 1, 0, 0, 0, 0, "0 leave, 1 on, other off"},
    {"domainCheck", K::U32, CLKSIM_AT(ClkPtpRxCtl, domainCheck)},
    {"srcPortIdCheck", K::U32, CLKSIM_AT(ClkPtpRxCtl, srcPortIdCheck)},
};

constexpr FieldDesc kTxCtl[] = {
    {"pktType", K::U32, CLKSIM_AT(ClkPtpTxCtl, pktType), 1, 0, 0, 0, 0, "packet type 1..8 or its name", kPacketTypes},
    {"txEnable", K::U32, CLKSIM_AT(ClkPtpTxCtl, txEnable)},
    {"interval", K::Interval, CLKSIM_AT(ClkPtpTxCtl, interval), 1, 0, 0, 0, 0, "code 0..20 or a duration (125ms)"},
};

constexpr FieldDesc kRxSrcPortId[] = {
    {"pktType", K::U32, CLKSIM_AT(ClkPtpRxSrcPortId, pktType), 1, 0, 0, 0, 0, "packet type 1..8 or its name",
     kPacketTypes},
    {"identity", K::PortIdWords, CLKSIM_AT(ClkPtpRxSrcPortId, identity), 3},
};

constexpr FieldDesc kTxSrcPortId[] = {
    {"identity", K::PortIdWords, CLKSIM_AT(ClkPtpTxSrcPortId, identity), 3},
};

constexpr FieldDesc kPortAsym[] = {
    {"asymmetry", K::S32, CLKSIM_AT(ClkPtpPortAsym, asymmetry), 1, 0, 0, 0, 0,
     "signed; the sign picks control type 4 or 5"},
};

constexpr FieldDesc kAnnPkt[] = {
    {"flagField", K::U16, CLKSIM_AT(ClkPtpAnnPkt, flagField)},
    {"currentUtcOffset", K::U32, CLKSIM_AT(ClkPtpAnnPkt, currentUtcOffset)},
    {"grandmasterPriority1", K::U32, CLKSIM_AT(ClkPtpAnnPkt, grandmasterPriority1)},
    {"grandmasterPriority2", K::U32, CLKSIM_AT(ClkPtpAnnPkt, grandmasterPriority2)},
    {"clockClass", K::U8, CLKSIM_AT(ClkPtpAnnPkt, clockClass)},
    {"clockAccuracy", K::U8, CLKSIM_AT(ClkPtpAnnPkt, clockAccuracy)},
    {"offsetScaledLogVariance", K::U16, CLKSIM_AT(ClkPtpAnnPkt, offsetScaledLogVariance)},
    {"grandmasterIdentity", K::ClockId, CLKSIM_AT(ClkPtpAnnPkt, grandmasterIdentityHigh), 1,
     CLKSIM_AT(ClkPtpAnnPkt, grandmasterIdentityLow), 0, 0, 0, "\"001b19.fffe.000001\""},
    {"grandmasterIdentityHigh", K::U32, CLKSIM_AT(ClkPtpAnnPkt, grandmasterIdentityHigh)},
    {"grandmasterIdentityLow", K::U32, CLKSIM_AT(ClkPtpAnnPkt, grandmasterIdentityLow)},
    {"stepsRemoved", K::U32, CLKSIM_AT(ClkPtpAnnPkt, stepsRemoved)},
    {"timeSource", K::U32, CLKSIM_AT(ClkPtpAnnPkt, timeSource)},
};

constexpr FieldDesc kTimestampReply[] = {{"words", K::Words, CLKSIM_AT(ClkPtpTimestamp, words), 17}};
constexpr FieldDesc kDelayReply[] = {{"words", K::Words, CLKSIM_AT(ClkPtpDfxDelay, words), 6}};
constexpr FieldDesc kStatReply[] = {{"words", K::Words, CLKSIM_AT(ClkPtpPktStat, words), 24}};

constexpr FieldDesc kSsmCfg[] = {
    {"ssmRxEn", K::U32, CLKSIM_AT(ClkSsmPortCfg, ssmRxEn)},
};

constexpr FieldDesc kAnnFields[] = {
    {"currentUtcOffset", K::U32, CLKSIM_AT(ClkNpAnnFields, currentUtcOffset)},
    {"grandmasterIdentity", K::ClockId, CLKSIM_AT(ClkNpAnnFields, grandmasterIdentityHigh), 1,
     CLKSIM_AT(ClkNpAnnFields, grandmasterIdentityLow)},
    {"clockClass", K::U16, CLKSIM_AT(ClkNpAnnFields, clockClass)},
    {"clockAccuracy", K::U16, CLKSIM_AT(ClkNpAnnFields, clockAccuracy)},
    {"offsetScaledLogVariance", K::U32, CLKSIM_AT(ClkNpAnnFields, offsetScaledLogVariance)},
    {"grandmasterPriority1", K::U32, CLKSIM_AT(ClkNpAnnFields, grandmasterPriority1)},
    {"grandmasterPriority2", K::U32, CLKSIM_AT(ClkNpAnnFields, grandmasterPriority2)},
    {"stepsRemoved", K::U32, CLKSIM_AT(ClkNpAnnFields, stepsRemoved)},
    {"timeSource", K::U32, CLKSIM_AT(ClkNpAnnFields, timeSource)},
    {"domainNumber", K::U8, CLKSIM_AT(ClkNpAnnFields, domainNumber)},
    {"flagField", K::U16, CLKSIM_AT(ClkNpAnnFields, flagField)},
    {"logMessageInterval", K::S8, CLKSIM_AT(ClkNpAnnFields, logMessageInterval)},
    {"sourcePortIdentity", K::PortIdentity, CLKSIM_AT(ClkNpAnnFields, sourceClockIdentityHigh), 1,
     CLKSIM_AT(ClkNpAnnFields, sourceClockIdentityLow), CLKSIM_AT(ClkNpAnnFields, sourcePortNumber), 0, 0,
     "\"001b19.fffe.000001-1\""},
    {"sourceClockIdentity", K::ClockId, CLKSIM_AT(ClkNpAnnFields, sourceClockIdentityHigh), 1,
     CLKSIM_AT(ClkNpAnnFields, sourceClockIdentityLow)},
    {"sourcePortNumber", K::U32, CLKSIM_AT(ClkNpAnnFields, sourcePortNumber)},
};

constexpr RecordDesc kGlbCfgRec{"ClkPtpGlbCfg", CLKSIM_SIZE(ClkPtpGlbCfg), kGlbCfg};
constexpr RecordDesc kPortCfgRec{"ClkPtpPortCfg", CLKSIM_SIZE(ClkPtpPortCfg), kPortCfg};
constexpr RecordDesc kPktEncapRec{"ClkPtpPktEncap", CLKSIM_SIZE(ClkPtpPktEncap), kPktEncap};
constexpr RecordDesc kRxCtlRec{"ClkPtpRxCtl", CLKSIM_SIZE(ClkPtpRxCtl), kRxCtl};
constexpr RecordDesc kTxCtlRec{"ClkPtpTxCtl", CLKSIM_SIZE(ClkPtpTxCtl), kTxCtl};
constexpr RecordDesc kRxSrcPortIdRec{"ClkPtpRxSrcPortId", CLKSIM_SIZE(ClkPtpRxSrcPortId), kRxSrcPortId};
constexpr RecordDesc kTxSrcPortIdRec{"ClkPtpTxSrcPortId", CLKSIM_SIZE(ClkPtpTxSrcPortId), kTxSrcPortId};
constexpr RecordDesc kPortAsymRec{"ClkPtpPortAsym", CLKSIM_SIZE(ClkPtpPortAsym), kPortAsym};
constexpr RecordDesc kAnnPktRec{"ClkPtpAnnPkt", CLKSIM_SIZE(ClkPtpAnnPkt), kAnnPkt};
constexpr RecordDesc kTimestampRec{"ClkPtpTimestamp", CLKSIM_SIZE(ClkPtpTimestamp), kTimestampReply};
constexpr RecordDesc kDelayRec{"ClkPtpDfxDelay", CLKSIM_SIZE(ClkPtpDfxDelay), kDelayReply};
constexpr RecordDesc kStatRec{"ClkPtpPktStat", CLKSIM_SIZE(ClkPtpPktStat), kStatReply};
constexpr RecordDesc kSsmCfgRec{"ClkSsmPortCfg", CLKSIM_SIZE(ClkSsmPortCfg), kSsmCfg};
constexpr RecordDesc kAnnFieldsRec{"ClkNpAnnFields", CLKSIM_SIZE(ClkNpAnnFields), kAnnFields};

using S = CallShape;

// In slot order: the orchestrator sees the operations by position only.
constexpr std::array<OpDesc, 15> kOps{{
    {"set_ptp_glb_cfg", 0, "FWM_SRV_CLK_SetPtpGlbCfg", S::Record, {}, 0, &kGlbCfgRec},
    {"set_ptp_port_cfg", 1, "FWM_SRV_CLK_SetPtpPortCfg", S::UnitPortArgRecord, "fwdTarget", 0xFFFFFFFFu, &kPortCfgRec},
    {"set_ptp_pkt_encap", 2, "FWM_SRV_CLK_SetPtpPktEncap", S::UnitPortArgRecord, "targetBoard", 0, &kPktEncapRec},
    {"set_ptp_rx_ctl", 3, "FWM_SRV_CLK_SetPtpRxCtl", S::UnitPortRecord, {}, 0, &kRxCtlRec},
    {"set_ptp_tx_ctl", 4, "FWM_SRV_CLK_SetPtpTxCtl", S::UnitPortRecord, {}, 0, &kTxCtlRec},
    {"set_ptp_rx_src_port_id", 5, "FWM_SRV_CLK_SetPtpRxSrcPortId", S::UnitPortRecord, {}, 0, &kRxSrcPortIdRec},
    {"set_ptp_tx_src_port_id", 6, "FWM_SRV_CLK_SetPtpTxSrcPortId", S::UnitPortRecord, {}, 0, &kTxSrcPortIdRec},
    {"set_ptp_port_asym", 7, "FWM_SRV_CLK_SetPtpPortAsym", S::UnitPortRecord, {}, 0, &kPortAsymRec},
    {"set_ptp_port_pkt", 8, "FWM_SRV_CLK_SetPtpPortPkt", S::UnitPortRecord, {}, 0, &kAnnPktRec},
    {"set_ptp_ann_clr", 9, "FWM_SRV_CLK_SetPtpAnnClr", S::UnitPort, {}, 0, nullptr},
    {"get_ptp_timestamp", 10, "FWM_SRV_CLK_GetPtpTimestamp", S::UnitPortReply, {}, 0, &kTimestampRec},
    {"get_ptp_t2_sub_t1", 11, "FWM_SRV_CLK_GetPtpT2SubT1", S::UnitPortArgReply, "readClear", 0, &kDelayRec},
    {"get_ptp_t4_sub_t3", 12, "FWM_SRV_CLK_GetPtpT4SubT3", S::UnitPortArgReply, "readClear", 0, &kDelayRec},
    {"get_ptp_pkt_stat", 13, "FWM_SRV_CLK_GetPtpPktStat", S::UnitPortArgReply, "readClear", 0, &kStatRec},
    {"set_ssm_port_cfg", 14, "FWM_SRV_CLK_SetSsmPortCfg", S::UnitPortRecord, {}, 0, &kSsmCfgRec, false},
}};

#undef CLKSIM_AT
#undef CLKSIM_SIZE

uint32_t le(std::span<const uint8_t> b, size_t at, size_t width) {
  uint32_t v = 0;
  for (size_t i = 0; i < width; ++i) v |= static_cast<uint32_t>(b[at + i]) << (8 * i);
  return v;
}

uint64_t clockAt(const FieldDesc &f, std::span<const uint8_t> b, size_t low) {
  return uint64_t{le(b, f.offset, 4)} << 32 | le(b, low, 4);
}

}  // namespace

std::string fieldJson(const FieldDesc &f, std::span<const uint8_t> b) {
  switch (f.kind) {
    case K::U8:
      return std::to_string(b[f.offset]);
    case K::S8:
      return std::to_string(static_cast<int8_t>(b[f.offset]));
    case K::U16:
      return std::to_string(le(b, f.offset, 2));
    case K::U32:
    case K::Interval:
      return std::to_string(le(b, f.offset, 4));
    case K::S32:
      return std::to_string(static_cast<int32_t>(le(b, f.offset, 4)));
    case K::Bits:
      return std::to_string((le(b, f.offset, 4) >> f.shift) & f.mask);
    case K::Mac:
      return fmt::format("\"{:02x}\"", fmt::join(b.subspan(f.offset, 6), ":"));
    case K::Ipv4: {
      const uint32_t ip = le(b, f.offset, 4);
      return fmt::format("\"{}.{}.{}.{}\"", ip >> 24, (ip >> 16) & 0xFF, (ip >> 8) & 0xFF, ip & 0xFF);
    }
    case K::Words: {
      std::vector<uint32_t> w;
      for (size_t i = 0; i < f.count; ++i) w.push_back(le(b, f.offset + 4 * i, 4));
      return fmt::format("[{}]", fmt::join(w, ","));
    }
    case K::PortIdWords:
      return fmt::format("\"{}-{}\"", fwmtools::clockIdentityText(clockAt(f, b, f.offset + 4u)),
                         le(b, f.offset + 8u, 4));
    case K::ClockId:
      return fmt::format("\"{}\"", fwmtools::clockIdentityText(clockAt(f, b, f.offset2)));
    case K::PortIdentity:
      return fmt::format("\"{}-{}\"", fwmtools::clockIdentityText(clockAt(f, b, f.offset2)), le(b, f.offset3, 4));
  }
  return "null";
}

std::string fieldText(const FieldDesc &f, std::span<const uint8_t> b) {
  const uint32_t code = f.kind == K::Bits ? (le(b, f.offset, 4) >> f.shift) & f.mask : le(b, f.offset, 4);
  if (f.kind == K::Interval) return fmt::format("{} ({})", code, intervalText(code));
  const std::string_view name = nameOf(f.names, code);
  return name.empty() ? std::to_string(code) : fmt::format("{} {}", code, name);
}

const FieldDesc *RecordDesc::find(std::string_view name) const {
  for (const auto &f : fields)
    if (f.name == name) return &f;
  return nullptr;
}

std::span<const OpDesc> operations() { return kOps; }

const OpDesc *findOperation(std::string_view name) {
  for (const auto &op : kOps)
    if (op.name == name) return &op;
  return nullptr;
}

const RecordDesc &announceFieldsRecord() { return kAnnFieldsRec; }

bool isReply(CallShape s) { return s == CallShape::UnitPortArgReply || s == CallShape::UnitPortReply; }

bool hasUnitPort(CallShape s) { return s != CallShape::Record; }

}  // namespace clksim
