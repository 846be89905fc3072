#include "records.hpp"

#include <array>

namespace clksim {

namespace {

using K = FieldKind;

constexpr FieldDesc kGlbCfg[] = {
    {"slavePort", K::U32, 0, 1, 0, 0, 0, 0, "port (and value) of control type 8 on unit 0"},
};

constexpr FieldDesc kPortCfg[] = {
    {"enable", K::U32, 0, 1, 0, 0, 0, 0, "1 = PTP on, 0 = off"},
    {"ctrlType0Value", K::U32, 4},
    {"portState", K::Bits, 8, 1, 0, 0, 0, 0x7FFFFFFFu, "IEEE 1588 port state (7 PASSIVE, 9 SLAVE)"},
    {"stateFlag", K::Bits, 8, 1, 0, 0, 31, 1u, "bit 31 of the port state word"},
    {"ctrlType2Value", K::U32, 12},
    {"domainNumber", K::U32, 16},
    {"ctrlType1Value", K::U32, 20},
    {"annTimeoutMultiple", K::U32, 24},
    {"rxSrcPortIdentity", K::Words, 28, 3, 0, 0, 0, 0, "three words"},
    {"ctrlType33Value", K::U16, 48},
    {"ifIndex", K::U32, 52},
};

constexpr FieldDesc kPktEncap[] = {
    {"encapType", K::U32, 0, 1, 0, 0, 0, 0, "0..4; 1 and 3 tag 802.1Q, 2 and 3 IPv4"},
    {"vlanPriority", K::U32, 8},
    {"vlanId", K::U32, 12},
    {"dscp", K::U32, 16},
    {"destMac", K::Mac, 20},
    {"srcMac", K::Mac, 28},
    {"destIp", K::Ipv4, 36},
    {"srcIp", K::Ipv4, 40},
};

constexpr FieldDesc kRxCtl[] = {
    {"pktType", K::U32, 0, 1, 0, 0, 0, 0, "orchestrator packet type 1..8"},
    {"rxEnable", K::U32, 4, 1, 0, 0, 0, 0, "0 leave, 1 on, other off"},
    {"domainCheck", K::U32, 20},
    {"srcPortIdCheck", K::U32, 24},
};

constexpr FieldDesc kTxCtl[] = {
    {"pktType", K::U32, 0},
    {"txEnable", K::U32, 4},
    {"interval", K::U32, 12, 1, 0, 0, 0, 0, "interval type 0..20"},
};

constexpr FieldDesc kRxSrcPortId[] = {
    {"pktType", K::U32, 0},
    {"identity", K::Words, 4, 3},
};

constexpr FieldDesc kTxSrcPortId[] = {
    {"identity", K::Words, 0, 3},
};

constexpr FieldDesc kPortAsym[] = {
    {"asymmetry", K::S32, 0, 1, 0, 0, 0, 0, "signed; the sign picks control type 4 or 5"},
};

constexpr FieldDesc kAnnPkt[] = {
    {"flagField", K::U16, 0},
    {"currentUtcOffset", K::U32, 16},
    {"grandmasterPriority1", K::U32, 20},
    {"grandmasterPriority2", K::U32, 24},
    {"clockClass", K::U8, 28},
    {"clockAccuracy", K::U8, 29},
    {"offsetScaledLogVariance", K::U16, 30},
    {"grandmasterIdentity", K::ClockId, 32, 1, 36, 0, 0, 0, "\"001b19.fffe.000001\""},
    {"grandmasterIdentityHigh", K::U32, 32},
    {"grandmasterIdentityLow", K::U32, 36},
    {"stepsRemoved", K::U32, 40},
    {"timeSource", K::U32, 44},
};

constexpr FieldDesc kTimestampReply[] = {{"words", K::Words, 0, 17}};
constexpr FieldDesc kDelayReply[] = {{"words", K::Words, 0, 6}};
constexpr FieldDesc kStatReply[] = {{"words", K::Words, 0, 24}};

constexpr FieldDesc kSsmCfg[] = {
    {"ssmRxEn", K::U32, 8},
};

constexpr FieldDesc kAnnFields[] = {
    {"currentUtcOffset", K::U32, 0},
    {"grandmasterIdentity", K::ClockId, 4, 1, 8},
    {"clockClass", K::U16, 12},
    {"clockAccuracy", K::U16, 14},
    {"offsetScaledLogVariance", K::U32, 16},
    {"grandmasterPriority1", K::U32, 20},
    {"grandmasterPriority2", K::U32, 24},
    {"stepsRemoved", K::U32, 28},
    {"timeSource", K::U32, 32},
    {"domainNumber", K::U8, 40},
    {"flagField", K::U16, 42},
    {"logMessageInterval", K::U8, 44},
    {"sourcePortIdentity", K::PortIdentity, 48, 1, 52, 56, 0, 0, "\"001b19.fffe.000001-1\""},
    {"sourceClockIdentity", K::ClockId, 48, 1, 52},
    {"sourcePortNumber", K::U32, 56},
};

constexpr RecordDesc kGlbCfgRec{"ClkPtpGlbCfg", 4, kGlbCfg};
constexpr RecordDesc kPortCfgRec{"ClkPtpPortCfg", 56, kPortCfg};
constexpr RecordDesc kPktEncapRec{"ClkPtpPktEncap", 44, kPktEncap};
constexpr RecordDesc kRxCtlRec{"ClkPtpRxCtl", 28, kRxCtl};
constexpr RecordDesc kTxCtlRec{"ClkPtpTxCtl", 16, kTxCtl};
constexpr RecordDesc kRxSrcPortIdRec{"ClkPtpRxSrcPortId", 16, kRxSrcPortId};
constexpr RecordDesc kTxSrcPortIdRec{"ClkPtpTxSrcPortId", 12, kTxSrcPortId};
constexpr RecordDesc kPortAsymRec{"ClkPtpPortAsym", 4, kPortAsym};
constexpr RecordDesc kAnnPktRec{"ClkPtpAnnPkt", 48, kAnnPkt};
constexpr RecordDesc kTimestampRec{"ClkPtpTimestamp", 68, kTimestampReply};
constexpr RecordDesc kDelayRec{"ClkPtpDfxDelay", 24, kDelayReply};
constexpr RecordDesc kStatRec{"ClkPtpPktStat", 96, kStatReply};
constexpr RecordDesc kSsmCfgRec{"ClkSsmPortCfg", 12, kSsmCfg};
constexpr RecordDesc kAnnFieldsRec{"ClkNpAnnFields", 88, kAnnFields};

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
    {"set_ssm_port_cfg", 14, "FWM_SRV_CLK_SetSsmPortCfg", S::UnitPortRecord, {}, 0, &kSsmCfgRec},
}};

}  // namespace

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
