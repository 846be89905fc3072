#include "engine_bridge.hpp"

#include <fmt/format.h>

#include <cstring>

#include "fwmsim/channel.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/engine/wire.hpp"
#include "fwmsim/faults.hpp"
#include "fwmtools/ack_text.hpp"

namespace clksim {

namespace {

template <class Rec>
Rec wordsInto(const std::vector<uint32_t> &words) {
  Rec rec{};
  std::memcpy(&rec, words.data(), std::min(sizeof rec, words.size() * sizeof(uint32_t)));
  return rec;
}

}  // namespace

BridgeResult applyFail(const Fail &f) {
  fwmsim::faults().inject(f.function, f.code, f.times < 0 ? fwmsim::Faults::kAlways : f.times, f.skip);
  std::string times = f.times < 0 ? "every call" : f.times == 1 ? "the next call" : fmt::format("{} calls", f.times);
  std::string skip = f.skip ? fmt::format(" after {} good ones", f.skip) : "";
  return {true, fmt::format("{} fails with code {} ({}): {}{}", f.function, static_cast<int32_t>(f.code), f.code, times,
                            skip)};
}

BridgeResult applyAnnounce(const AnnounceReceived &a) {
  static_assert(sizeof(ClkNpAnnFields) == std::tuple_size_v<decltype(a.fields)>);
  ClkNpAnnFields fields;
  std::memcpy(&fields, a.fields.data(), sizeof fields);
  const fwmsim::AnnounceOffer r = fwmsim::wire().offerAnnounce(a.unit, a.port, fields);
  if (!r.accepted) return {false, "engine: dropped: " + r.text};
  const bool changed = r.changed;
  uint64_t gm = uint64_t{fields.grandmasterIdentityHigh} << 32 | fields.grandmasterIdentityLow;
  const std::string id = fwmtools::clockIdentityText(gm);
  if (!changed) return {true, fmt::format("engine: the same announce again (grandmaster {}), no alarm", id)};
  return {true, fmt::format("engine: received fields stored, ANNOUNCE_CHANGE raised (grandmaster {})", id)};
}

BridgeResult applyAlarm(const AnnounceAlarm &a) {
  fwmsim::Engine &e = fwmsim::engine();
  if (a.what == AlarmEvent::Timeout) {
    const fwmsim::AnnounceOffer r = fwmsim::wire().offerTimeout(a.unit, a.port);
    if (!r.accepted) return {false, "engine: dropped: " + r.text};
    return {true, "engine: a timeout window passed without an announce, ANNOUNCE_TIMEOUT raised"};
  }
  e.setAnnounceAlarm(a.unit, a.port, fwmsim::kOdaAlarmChange, false);
  e.setAnnounceAlarm(a.unit, a.port, fwmsim::kOdaAlarmTimeout, false);
  return {true, "engine: both announce alarms down"};
}

BridgeResult applyValues(const EngineValues &v) {
  fwmsim::Engine &e = fwmsim::engine();
  switch (v.what) {
    case EngineData::Timestamps:
      e.setTimestamps(v.unit, v.port, wordsInto<ClkNpTimestamps>(v.words));
      break;
    case EngineData::T2SubT1:
      e.setDfxT2SubT1(v.unit, v.port, wordsInto<ClkNpDfxDelay>(v.words));
      break;
    case EngineData::T4SubT3:
      e.setDfxT4SubT3(v.unit, v.port, wordsInto<ClkNpDfxDelay>(v.words));
      break;
    case EngineData::PktStat:
      e.setPktStat(v.unit, v.port, wordsInto<ClkNpPktStat>(v.words));
      break;
  }
  return {true, fmt::format("engine: {} words stored", v.words.size())};
}

std::optional<fwmtools::FrameAddressing> portFraming(uint32_t unit, uint32_t port) {
  constexpr uint32_t kAnnounce = 1;  // the engine's packet type of announce messages
  const fwmsim::OdaPort p = fwmsim::engine().port(unit, port);
  const bool programmed = p.encap != 0 || p.da[kAnnounce] != fwmsim::Mac{} || p.sa[kAnnounce] != fwmsim::Mac{};
  if (!programmed || p.encap > 3) return std::nullopt;
  fwmtools::FrameAddressing f;
  f.udp = p.encap >= 2;
  if (p.encap == 1 || p.encap == 3) f.vlanTci = static_cast<uint16_t>(p.vlan & 0xFFFFu);
  f.dscp = static_cast<uint8_t>(p.dscp & 0x3Fu);
  f.dstMac = p.da[kAnnounce];
  f.srcMac = p.sa[kAnnounce];
  f.dstIp = p.dip[kAnnounce];
  f.srcIp = p.sip[kAnnounce];
  return f;
}

BridgeResult routeNegotiationClient(const fwmtools::Endpoint &peer) {
  // The client of the line card talks to its peer over the loopback
  // interface only; the port is the simulator's to choose.
  if (peer.host != "127.0.0.1" && peer.host != "localhost")
    return {false, fmt::format("the negotiation client reaches the loopback address only, not {}", peer.host)};
  fwmsim::setPeerPort(peer.port);
  return {true, {}};
}

}  // namespace clksim
