#include "programmed.hpp"

#include <fmt/format.h>

#include <cstring>

namespace clkcheck {

namespace {

constexpr int kOneSecondCode = 7;  // the transmit control's interval code of 2^0 s
// Orchestrator packet types as the transmit control names them.
constexpr uint32_t kTxSync = 1, kTxAnnounce = 2, kTxFollowUp = 8;

uint32_t word(const clksim::Request &r, size_t at) {
  uint32_t v = 0;
  if (at + 4 <= r.record.size()) std::memcpy(&v, r.record.data() + at, 4);
  return v;
}

// A field of the request's record by name; nothing when the record has none.
std::optional<uint64_t> field(const clksim::Request &r, std::string_view name, size_t index = 0) {
  const auto *d = r.op && r.op->record ? r.op->record->find(name) : nullptr;
  if (!d || r.nullRecord) return std::nullopt;
  switch (d->kind) {
    case clksim::FieldKind::U8:
      return d->offset < r.record.size() ? r.record[d->offset] : 0;
    case clksim::FieldKind::U16:
      return word(r, d->offset) & 0xFFFFu;
    case clksim::FieldKind::ClockId:
      return uint64_t{word(r, d->offset)} << 32 | word(r, d->offset2);
    case clksim::FieldKind::Words:
    case clksim::FieldKind::PortIdWords:
      return word(r, d->offset + 4 * index);
    default:
      return word(r, d->offset);
  }
}

}  // namespace

std::vector<ProgrammedPort> programmedPorts(const clksim::Scenario &sc) {
  std::vector<ProgrammedPort> ports;
  auto portOf = [&](uint32_t unit, uint32_t port) -> ProgrammedPort & {
    for (auto &p : ports)
      if (p.unit == unit && p.port == port) return p;
    auto &p = ports.emplace_back();
    p.unit = unit;
    p.port = port;
    return p;
  };
  for (const auto &step : sc.steps) {
    const auto *r = std::get_if<clksim::Request>(&step.body);
    if (!r || !r->op || !clksim::hasUnitPort(r->op->shape) || r->nullRecord) continue;
    auto &p = portOf(r->unit, r->port);
    const std::string_view op = r->op->name;
    if (op == "set_ptp_port_cfg") {
      p.domain = field(*r, "domainNumber");
    } else if (op == "set_ptp_pkt_encap") {
      p.encap = field(*r, "encapType");
      p.vlanId = field(*r, "vlanId");
      p.destIp = field(*r, "destIp");
    } else if (op == "set_ptp_tx_src_port_id") {
      p.identity = PortKey{*field(*r, "identity", 0) << 32 | *field(*r, "identity", 1),
                           static_cast<uint16_t>(*field(*r, "identity", 2))};
    } else if (op == "set_ptp_port_pkt") {
      p.grandmasters.emplace(*field(*r, "grandmasterIdentity"), *field(*r, "grandmasterPriority1"),
                             *field(*r, "clockClass"));
    } else if (op == "set_ptp_tx_ctl") {
      const auto type = *field(*r, "pktType");
      const bool on = *field(*r, "txEnable") == 1;
      const int log = static_cast<int>(*field(*r, "interval")) - kOneSecondCode;
      if (type == kTxFollowUp) p.followUp = on;
      if (type == kTxAnnounce) p.logAnnounce = on ? std::optional(log) : std::nullopt;
      if (type == kTxSync) p.logSync = on ? std::optional(log) : std::nullopt;
    }
  }
  std::erase_if(ports, [](const ProgrammedPort &p) { return !p.identity; });
  return ports;
}

void ProgrammedCheck::check(const Seen &m, const std::function<void(std::string_view, std::string)> &report) {
  const PortKey key{m.header.source.clockIdentity, m.header.source.portNumber};
  for (const auto &p : ports_) {
    if (p.identity != key) continue;
    auto differs = [&](const char *what, auto seen, auto programmed) {
      if (seen != programmed)
        report("programmed",
               fmt::format("{} {}; unit {} port {} was programmed with {}", what, seen, p.unit, p.port, programmed));
    };
    if (p.domain) differs("domainNumber", uint32_t{m.header.domainNumber}, *p.domain);
    if (p.encap) {
      differs("over UDP/IPv4", m.frame.ipv4, *p.encap == 2 || *p.encap == 3);
      differs("802.1Q tagged", m.frame.vlanTci.has_value(), *p.encap == 1 || *p.encap == 3);
      if (m.frame.vlanTci && p.vlanId) differs("VLAN", *m.frame.vlanTci & 0xFFFu, *p.vlanId);
    }
    auto ip = [](uint32_t v) { return fmt::format("{}.{}.{}.{}", v >> 24, v >> 16 & 0xFF, v >> 8 & 0xFF, v & 0xFF); };
    if (m.frame.ipv4 && p.destIp && *p.destIp) differs("to", ip(m.frame.dstIp), ip(*p.destIp));
    const int log = m.header.logMessageInterval;
    if (m.header.messageType == fwmptp::kMsgAnnounce && p.logAnnounce)
      differs("logMessageInterval", log, *p.logAnnounce);
    if (m.header.messageType == fwmptp::kMsgSync) {
      if (p.logSync) differs("logMessageInterval", log, *p.logSync);
      differs("twoStepFlag", (m.header.flagField & fwmptp::kFlagTwoStep) != 0, p.followUp);
    }
    if (m.announce && !p.grandmasters.count(
                          {m.announce->grandmasterIdentity, m.announce->grandmasterPriority1, m.announce->clockClass}))
      report("programmed", fmt::format("grandmaster {} priority1 {} class {} was never programmed on unit {} port {}",
                                       fwmptp::clockIdentityText(m.announce->grandmasterIdentity),
                                       m.announce->grandmasterPriority1, m.announce->clockClass, p.unit, p.port));
  }
}

std::vector<Finding> ProgrammedCheck::silent(const Checker &c) const {
  std::vector<Finding> out;
  for (const auto &p : ports_) {
    const auto it = c.stats().find(*p.identity);
    for (auto [type, log] : {std::pair{fwmptp::kMsgAnnounce, p.logAnnounce}, std::pair{fwmptp::kMsgSync, p.logSync}})
      if (log && (it == c.stats().end() || it->second[type].count == 0))
        out.push_back(
            {"programmed", 0, 0, portText(*p.identity), fwmptp::messageTypeName(type),
             fmt::format("none in the capture; unit {} port {} was programmed to send them", p.unit, p.port)});
  }
  return out;
}

}  // namespace clkcheck
