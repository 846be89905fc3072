// One wire port's protocol: what the engine's programmed state makes it send
// and on what schedule (PortSender), and what it makes of what arrives
// (PortReceiver). Both see the engine through a Programmed snapshot taken
// under the engine's lock, and the link only through its Transport.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/engine/wire.hpp"
#include "link.hpp"

namespace fwmsim {

// A time on the clock of a port's transport (Transport::now).
using WireTime = std::chrono::nanoseconds;

inline constexpr uint32_t kStateMaster = 6, kStateUncalibrated = 8, kStateSlave = 9;
inline constexpr uint32_t kCtrlSyncSrcIdCheck = 10;

// What the wire needs of a port's engine state, copied under the engine's lock.
struct Programmed {
  bool exists = true;  // a unit the board has
  bool enabled = false, transmit = false, receive = false;
  uint32_t state = 0;
  ClkNpAnnFields tx{};
  uint32_t flagField = 0, domain = 0, encap = 0, vlan = 0, dscp = 0, interval = 0;
  Words3 identityTx{}, identityRx{};
  bool srcIdCheck = false, syncSrcIdCheck = false;
  std::array<Mac, kOdaPktTypes> da{}, sa{};
  PerPktType dip{}, sip{}, txEnable{}, rxEnable{}, intervals{};
  uint32_t timeoutMultiple = 0, timeoutInterval = 0;
  int64_t asymmetry = 0;

  bool sends(uint32_t type) const { return enabled && txEnable[type] == 1; }
  bool takes(uint32_t type) const { return enabled && rxEnable[type] == 1; }
  bool master() const { return state == kStateMaster; }
  bool slave() const { return state == kStateSlave || state == kStateUncalibrated; }
  fwmptp::PortIdentity self() const {
    return {uint64_t{identityTx[0]} << 32 | identityTx[1], static_cast<uint16_t>(identityTx[2])};
  }
  fwmptp::PortIdentity expected() const {
    return {uint64_t{identityRx[0]} << 32 | identityRx[1], static_cast<uint16_t>(identityRx[2] & 0xFFFFu)};
  }
  int log(uint32_t type) const { return static_cast<int>(intervals[type]) - static_cast<int>(kOdaIntervalUnit); }
  // The announce timeout's interval: programmed, or that of the announces heard.
  int timeoutLog(int heardLog) const {
    return timeoutInterval != 0 ? static_cast<int>(timeoutInterval) - static_cast<int>(kOdaIntervalUnit) : heardLog;
  }
};
Programmed programmed(uint32_t unit, uint32_t port);
// A link's stamp (true time) as the unit's clock read at that instant.
Stamp onEngineClock(uint32_t unit, const Stamp &trueStamp);

struct WireCounters {
  std::atomic<uint64_t> sent{0}, received{0}, dropped{0}, timeouts{0};
};

// The trace under facility "wire", with the whole frame as the event's bytes.
void recordWire(std::string text, std::span<const uint8_t> frame);
__attribute__((format(printf, 1, 2))) std::string strf(const char *f, ...);
std::string timeText(const fwmptp::Timestamp &t);
std::string describe(const fwmptp::EventMessage &m);
std::chrono::nanoseconds intervalOf(int log2s);
// An event message from this port, as programmed.
fwmptp::EventMessage eventFrom(const Programmed &g, uint8_t type, uint16_t sequenceId, int8_t log);

class PortSender {
 public:
  PortSender(uint32_t unit, uint32_t port, Transport &link, WireCounters &counters)
      : unit_(unit), port_(port), link_(link), counters_(counters) {}
  // Sends what is due; returns when something is due next.
  WireTime service(const Programmed &g, WireTime now);
  // Frames `msg` as packet type `pktType` is programmed and sends it; with
  // `wantStamp`, returns its transmit stamp.
  Stamp send(const Programmed &g, uint32_t pktType, std::span<const uint8_t> msg, const std::string &what,
             size_t statWord, bool wantStamp);
  const std::string &who() const { return who_; }
  const Transport &link() const { return link_; }

 private:
  void announce(const Programmed &g);
  void sync(const Programmed &g);
  void delayReq(const Programmed &g);
  friend class PortReceiver;

  uint32_t unit_, port_;
  Transport &link_;
  WireCounters &counters_;
  std::string who_ = strf("%u/%u ", unit_, port_) + link_.iface();
  bool transmitting_ = false, syncing_ = false, requesting_ = false;
  WireTime nextTx_{}, nextSync_{}, nextDelayReq_{};
  uint16_t sequenceId_ = 0, syncSequence_ = 0, delayReqSequence_ = 0, ipId_ = 0;
  std::optional<std::pair<uint16_t, fwmptp::Timestamp>> awaitedResp_;  // a Delay_Req sent: its sequence id and t3
};

// What one received frame comes to: counted once under `stat`, traced once,
// and what it changes in the engine's records.
struct Verdict {
  size_t stat = 0;
  bool accepted = false, changed = false;
  std::string text;  // what was received, or why it was dropped
  struct Time {
    size_t at;
    fwmptp::Timestamp time;
    uint16_t sequenceId;
    uint32_t flags;
  };
  std::vector<Time> times;
  struct Difference {
    const char *what;  // "t2-t1" or "t4-t3"
    int64_t nanos;
    uint16_t sequenceId;
  };
  std::optional<Difference> measured;
  std::optional<ClkNpAnnFields> announce;
  std::optional<fwmptp::EventMessage> answer;  // sent once the frame is settled
  int64_t requestCorrection = 0;               // the correction of the request answered
  int heardLog = 0;                            // an announce's message interval
};

class PortReceiver {
 public:
  PortReceiver(uint32_t unit, uint32_t port, PortSender &sender, WireCounters &counters)
      : unit_(unit), port_(port), sender_(sender), counters_(counters) {}
  // A frame from the link (or handed in): judged, then settled in one go.
  void handle(std::span<const uint8_t> frame, const Stamp &rxStamp, bool hardware);
  // An announce's fields or a passed timeout window handed in without a
  // frame: the same rules, counts and trace as the wire's.
  AnnounceOffer offer(const ClkNpAnnFields &fields);
  AnnounceOffer offerTimeout();
  // Latches the announce timeout when a whole window passed; returns when to look again.
  WireTime supervise(const Programmed &g, WireTime now, WireTime next);

 private:
  Verdict judge(const Programmed &g, std::span<const uint8_t> payload, const Stamp &rxStamp, uint32_t hw);
  Verdict announced(const Programmed &g, const fwmptp::Announce &a);
  Verdict event(const Programmed &g, const fwmptp::EventMessage &m, const Stamp &rxStamp, uint32_t hw);
  void settle(const Programmed &g, std::span<const uint8_t> frame, Verdict &v);
  void answer(const Programmed &g, const fwmptp::EventMessage &r, int64_t requestCorrection);

  // A two-step Sync heard, waiting for its Follow_Up.
  struct AwaitedSync {
    uint16_t sequenceId = 0;
    fwmptp::PortIdentity source;
    fwmptp::Timestamp t2;
    int64_t correction = 0;
  };
  uint32_t unit_, port_;
  PortSender &sender_;
  WireCounters &counters_;
  bool heard_ = false;
  int heardLog_ = 0;
  WireTime timeoutAt_{};
  std::optional<AwaitedSync> awaitedSync_;
};

// A wire port: its link, what it sends and what it receives.
struct WirePort {
  WirePort(uint32_t u, uint32_t p, std::unique_ptr<Transport> l, WireCounters &counters)
      : unit(u), port(p), link(std::move(l)), tx(u, p, *link, counters), rx(u, p, tx, counters) {}
  uint32_t unit, port;
  std::unique_ptr<Transport> link;
  PortSender tx;
  PortReceiver rx;
};

}  // namespace fwmsim
