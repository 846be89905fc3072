#include "port_table.hpp"

#include <fmt/format.h>

#include <array>
#include <cstring>

#include <nlohmann/json.hpp>

#include "fwmsim/engine/engine.hpp"
#include "fwmtools/announce.hpp"
#include "values.hpp"

namespace clksim {

namespace {

namespace stat = fwmsim::stat;

FieldValue number(const char *name, uint64_t v) { return {name, std::to_string(v), std::to_string(v)}; }
FieldValue text(const char *name, const std::string &v) { return {name, v, nlohmann::json(v).dump()}; }

// The engine's packet types switched on, by name.
std::string enabled(const fwmsim::PerPktType &on) {
  std::vector<std::string> names;
  for (uint32_t t = 0; t < on.size(); ++t)
    if (on[t]) {
      std::string_view n = nameOf(kNpPacketTypes, t);
      names.push_back(n.empty() ? std::to_string(t) : std::string(n));
    }
  return names.empty() ? "-" : fmt::format("{}", fmt::join(names, ","));
}

constexpr std::pair<size_t, const char *> kDrops[] = {
    {stat::kMalformed, "malformed"},           {stat::kForeign, "foreign"},          {stat::kBadSequence, "sequence"},
    {stat::kFollowUpNoSync, "followUpNoSync"}, {stat::kOtherRequester, "otherPort"},
};

}  // namespace

std::set<PortKey> portsOf(const Scenario &sc) {
  std::set<PortKey> out;
  for (const auto &s : sc.steps)
    std::visit(
        [&](const auto &b) {
          using T = std::decay_t<decltype(b)>;
          if constexpr (std::is_same_v<T, Request>) {
            if (hasUnitPort(b.op->shape)) out.insert({b.unit, b.port});
          } else if constexpr (std::is_same_v<T, AnnounceReceived> || std::is_same_v<T, AnnounceAlarm> ||
                               std::is_same_v<T, EngineValues>) {
            out.insert({b.unit, b.port});
          }
        },
        s.body);
  for (const auto &w : sc.board.wirePorts) out.insert({w.unit, w.port});
  // A unit the board does not have holds nothing to show.
  std::erase_if(out, [&](const PortKey &k) { return k.first >= sc.board.engines; });
  return out;
}

std::vector<FieldValue> portRow(PortKey key, const std::optional<LastAck> &lastAck) {
  const fwmsim::OdaPort p = fwmsim::engine().port(key.first, key.second);
  const std::string_view state = nameOf(kPortStates, p.state);
  const ClkNpAnnFields &rx = p.rxFields;
  const uint64_t gm = uint64_t{rx.grandmasterIdentityHigh} << 32 | rx.grandmasterIdentityLow;
  const uint64_t from = uint64_t{rx.sourceClockIdentityHigh} << 32 | rx.sourceClockIdentityLow;
  std::array<uint32_t, stat::kWords> w{};
  static_assert(sizeof w == sizeof p.pktStat);
  std::memcpy(w.data(), &p.pktStat, sizeof w);
  std::string drops;
  for (auto [word, name] : kDrops)
    if (w[word] != 0) drops += fmt::format("{}{} {}", drops.empty() ? "" : ", ", name, w[word]);
  std::vector<FieldValue> row = {
      text("port", fmt::format("{}/{}", key.first, key.second)),
      {"state", state.empty() ? std::to_string(p.state) : fmt::format("{} {}", p.state, state),
       std::to_string(p.state)},
      number("domain", p.domainNumber),
      number("portEnable", p.portEnable),
      text("rx", enabled(p.rxEnable)),
      text("tx", enabled(p.txEnable)),
      text("heard", gm == 0 ? "nothing"
                            : fmt::format("GM {} class {} priority1 {} from {}-{}", fwmtools::clockIdentityText(gm),
                                          rx.clockClass, rx.grandmasterPriority1, fwmtools::clockIdentityText(from),
                                          rx.sourcePortNumber)),
      text("lastAck",
           lastAck ? fmt::format("{:.3f} {}", static_cast<double>(lastAck->timeMs) / 1000.0, lastAck->text) : "none"),
      number("announcesSent", w[stat::kAnnTx]),
      number("announcesReceived", w[stat::kAnnRx]),
  };
  for (auto [word, name] : kDrops) row.push_back(number(name, w[word]));
  row.push_back(text("dropped", drops.empty() ? "none" : drops));
  return row;
}

}  // namespace clksim
