// The forwarding engine behind the simulated 1588 driver (oda_1588_... and
// oda_port_set_control). It keeps, per unit and port, what the library
// programmed, and answers the driver's read functions from it; tests and the
// simulator play the network's side through this API: received announce
// fields, announce alarms, timestamps, statistics and delay records.
//
// Every driver call is recorded (facility "oda") before anything else, e.g.
//   oda_1588_set_ptp_control(0, 3, 7, 1, 0)
// then consumes a fault injected under its own name (fwmsim::faults()); a
// faulted call changes nothing and returns the injected code. Engine-side
// checks return driver code 3 (bad parameter): a unit above 7, a packet type
// above 8, an announce alarm type above 1, an identity type above 1.
//
// Model choices where the driver's contract leaves room:
// - oda_1588_get_ptp_control(unit, type, rec3): rec3[0] names the port on the
//   way in and is kept; rec3[1] receives the value programmed for that port
//   and type (0 if none); rec3[2] is set to 0.
// - Announce alarms latch: one event raises an alarm once, and a read with
//   flag 1 returns it and clears it (flag 0 leaves it), so one change of what
//   the port hears gives exactly one acknowledgement to the negotiation peer.
//   ANNOUNCE_CHANGE is raised by a received announce whose fields differ from
//   the last ones stored (receiveAnnounce). ANNOUNCE_TIMEOUT is raised each
//   time a whole timeout window passes without an announce (announceTimedOut:
//   the wire port calls it once per window, a scenario step once per step);
//   an announce arriving withdraws a timeout not yet read. The supervision
//   only notes a first timeout and reports the loss on the second window.
//   oda_1588_set_announce_alarm stores the programmed word separately
//   (alarmProgrammed); setAnnounceAlarm raises or drops a latch directly.
// - Intervals (packet interval, announce timeout interval) are codes 0..20:
//   2^(code - 7) seconds, so 7 is one second and 4 is 1/8 s. A timeout
//   interval code 0 follows the logMessageInterval of the announces heard.
// - Packet types, as the wire port honours their enables and intervals:
//   0 Sync (transmit in MASTER, at interval[0]; receive in any state),
//   1 Announce, 2 Follow_Up (its transmit enable makes a MASTER's Sync
//   two-step), 3 the delay request-response (transmit: a SLAVE sends
//   Delay_Req at interval[3], a MASTER answers with Delay_Resp; receive: a
//   MASTER accepts Delay_Req), 4 peer delay (receive and transmit both on:
//   the port answers Pdelay_Req, peer-to-peer), 5 Delay_Resp (receive in
//   SLAVE). Types 6 to 8 are stored and have no effect on the wire.
// - The three measurement records and the statistics are filled by the wire
//   port; their words are defined below (namespace ts, dly, stat) and are
//   the only place their meaning is written down.
// - Read-clear 1 clears what was read (statistics, delays, received fields).
// - The announce field reads copy the whole stored 88-byte record; the flag
//   words are taken as given and recorded in the transmit state on a write;
//   a read records the flag words it was handed (txReadFlags, rxReadFlags).
// - SSM statistics are kSsmStatWords words per port and selector.
//
// All state is behind one mutex: the library's announce timer reads it from
// the timer thread while tests write it from theirs.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "fwmclk/np.h"

namespace fwmsim {

inline constexpr uint32_t kOdaUnits = 8;
inline constexpr uint32_t kOdaPktTypes = 9;  // 0..8; 1 is the announce message
inline constexpr uint32_t kOdaAlarmChange = 0;
inline constexpr uint32_t kOdaAlarmTimeout = 1;
inline constexpr size_t kSsmStatWords = 4;
inline constexpr uint32_t kOdaCodeParam = 3;
inline constexpr uint32_t kOdaPktAnnounce = 1;
inline constexpr uint32_t kOdaIntervalUnit = 7;  // the code of one second
inline constexpr uint32_t kOdaPktSync = 0, kOdaPktFollowUp = 2, kOdaPktDelay = 3, kOdaPktPdelay = 4,
                          kOdaPktDelayResp = 5;

// ClkNpPktStat: 37 counters, each wrapping at 2^32, cleared by a read-clear.
// Words 0..4 and 29..36 stay zero (the service passes words 5..28 on).
namespace stat {
inline constexpr size_t kAnnTx = 5, kAnnRx = 6;
inline constexpr size_t kMalformed = 7;  // dropped: short, wrong version, or shorter than its type (any type)
inline constexpr size_t kForeign = 8;    // dropped: other domain or identity, a type or state not received
inline constexpr size_t kSyncTx = 9, kSyncRx = 10, kFollowUpTx = 11, kFollowUpRx = 12;
inline constexpr size_t kDelayReqTx = 13, kDelayReqRx = 14, kDelayRespTx = 15, kDelayRespRx = 16;
inline constexpr size_t kPdelayReqRx = 17, kPdelayRespTx = 18, kPdelayRespFollowUpTx = 19;
inline constexpr size_t kBadSequence = 20;     // dropped: Follow_Up or Delay_Resp with a sequence id not awaited
inline constexpr size_t kFollowUpNoSync = 21;  // dropped: Follow_Up with no two-step Sync awaiting it
inline constexpr size_t kOtherRequester = 22;  // dropped: Delay_Resp or Pdelay answer for another port
inline constexpr size_t kTxFailed = 23;        // a message the port could not send
inline constexpr size_t kNoTimestamp = 24;     // a message sent or received without a kernel time stamp
inline constexpr size_t kWords = 37;
}  // namespace stat
inline constexpr size_t kStatAnnTx = stat::kAnnTx, kStatAnnRx = stat::kAnnRx, kStatMalformed = stat::kMalformed,
                        kStatForeign = stat::kForeign;

// ClkNpTimestamps: the port's last exchange, four times of three words each
// (seconds bits 47..32, seconds bits 31..0, nanoseconds), as the unit's
// clock (rtc.hpp: its reading at the instant the link stamped) and the
// master's messages say:
//   t1 Sync sent by the master (its origin or Follow_Up's precise origin),
//   t2 that Sync received here, t3 Delay_Req sent here, t4 that Delay_Req
//   received by the master (Delay_Resp's receive timestamp).
// A MASTER port fills t1 (its own Sync) and t4 (the last Delay_Req it
// answered); a SLAVE all four. Each pair has its sequence id and flags.
namespace ts {
inline constexpr size_t kT1 = 0, kT2 = 3, kSyncSeq = 6, kSyncFlags = 7, kT3 = 8, kT4 = 11, kDelaySeq = 14,
                        kDelayFlags = 15;
inline constexpr uint32_t kFlagValid = 1u << 0;     // the pair's times are complete
inline constexpr uint32_t kFlagTwoStep = 1u << 1;   // t1 came in a Follow_Up
inline constexpr uint32_t kFlagHardware = 1u << 2;  // this port's stamp (t2 or t3) is the interface's
}  // namespace ts

// ClkNpDfxDelay, t2 - t1 and t4 - t3 (each less its messages' correction
// fields), over the samples since the last read-clear.
namespace dly {
inline constexpr size_t kCount = 0;                   // samples
inline constexpr size_t kLastHigh = 1, kLastLow = 2;  // the last difference, signed 64-bit nanoseconds
inline constexpr size_t kMin = 3, kMax = 4;           // signed 32-bit nanoseconds, saturated
inline constexpr size_t kSequence = 5;                // sequence id of the last sample
}  // namespace dly

// A time at word `at` of a timestamp record, and the last delay of a record.
struct EngineTime {
  uint64_t seconds = 0;
  uint32_t nanoseconds = 0;
  bool operator==(const EngineTime &) const = default;
};
inline EngineTime timeAt(const uint32_t *words, size_t at) {
  return {uint64_t{words[at] & 0xFFFFu} << 32 | words[at + 1], words[at + 2]};
}
inline int64_t lastDelay(const uint32_t *words) {
  return static_cast<int64_t>(uint64_t{words[dly::kLastHigh]} << 32 | words[dly::kLastLow]);
}
// PTP control types the receive path honours: source identity and domain checks of announces.
inline constexpr uint32_t kCtrlAnnSrcIdCheck = 9, kCtrlAnnDomainCheck = 14;
// The port's delay asymmetry, as IEEE 1588-2019 16.8 has it: the master-to-
// slave delay minus the mean path delay, in nanoseconds, positive when the
// master-to-slave path is the longer. Control type 4 writes it as is, type 5
// its magnitude when negative; the last write of either holds. A SLAVE port
// corrects its measurements by it: t2 - t1 less the asymmetry, t4 - t3 plus
// it (the Sync's correction gains it, the Delay_Req's loses it), so that
// half their difference is the offset from the master. The time-stamp record
// keeps the stamps as taken.
inline constexpr uint32_t kCtrlAsymPositive = 4, kCtrlAsymNegative = 5;

using Mac = std::array<uint8_t, 6>;
using Words3 = std::array<uint32_t, 3>;
using PerPktType = std::array<uint32_t, kOdaPktTypes>;

// What one port of the engine holds.
struct OdaPort {
  // Programmed by the library.
  std::map<uint32_t, uint32_t> ptpControl;  // by control type
  int64_t asymmetryNs = 0;                  // control types 4 and 5
  uint32_t ssmRxEnable = 0;
  uint32_t state = 0;
  uint32_t encap = 0;
  PerPktType daSel{}, dipSel{}, flagFieldSel{};
  std::array<Mac, kOdaPktTypes> da{}, sa{};
  PerPktType dip{}, sip{};
  uint32_t dscp = 0;
  uint32_t vlan = 0;
  uint32_t udpSport = 0;
  uint32_t flagField = 0;
  uint32_t domainNumber = 0;
  Words3 identityTx{};
  std::array<Words3, 2> identityRx{};  // by identity type
  uint32_t ipHeaderWrites = 0;         // the header's layout is the engine's own
  PerPktType txEnable{}, rxEnable{}, interval{};
  uint32_t annTimeoutMultiple = 0;
  uint32_t annTimeoutInterval = 0;
  std::array<uint32_t, 2> alarmProgrammed{};  // by alarm type
  ClkNpAnnFlags txFlags{};
  ClkNpAnnFields txFields{};
  uint32_t portEnable = 0;
  ClkNpAnnFlags txReadFlags{}, rxReadFlags{};  // handed to the last field read of each side

  // Set by the network's side.
  std::array<uint32_t, 2> alarm{};  // reported announce alarms, by type
  ClkNpAnnFields rxFields{};
  // The master timed out: whatever is heard next is news, even the same
  // announce, or a peer would never learn its master came back.
  bool rxLost = false;
  ClkNpPktStat pktStat{};
  PerPktType pktStatAlarm{};
  ClkNpTimestamps timestamps{};
  ClkNpDfxDelay t2SubT1{}, t4SubT3{};
  std::map<uint32_t, std::array<uint32_t, kSsmStatWords>> ssmStat;  // by selector
};

// One oda_port_set_control call as the engine received it.
struct OdaPortCtrlCall {
  uint32_t unit;
  uint32_t portWord;
  std::array<uint32_t, 6> words;
};

class Engine {
 public:
  // A copy of a port's state (all zero for a port never touched).
  OdaPort port(uint32_t unit, uint32_t port) const;
  // Every port-control record received, in order.
  std::vector<OdaPortCtrlCall> portControls() const;

  // The network's side. An announce the port accepted: stores its fields and
  // raises ANNOUNCE_CHANGE when they differ from the last ones (true then).
  bool receiveAnnounce(uint32_t unit, uint32_t port, const ClkNpAnnFields &fields);
  // A whole timeout window passed with no announce: latches ANNOUNCE_TIMEOUT.
  void announceTimedOut(uint32_t unit, uint32_t port);
  void countPacket(uint32_t unit, uint32_t port, size_t statWord);
  // What the wire port measured: a time into the port's timestamp record
  // (word ts::kT1 .. ts::kT4) with its pair's sequence id and flags, and a
  // difference into t2 - t1 (t4 - t3 with `t4SubT3`).
  void stampTime(uint32_t unit, uint32_t port, size_t at, const EngineTime &t, uint16_t sequenceId, uint32_t flags);
  void addDelay(uint32_t unit, uint32_t port, bool t4SubT3, int64_t nanos, uint16_t sequenceId);
  void setRxAnnounce(uint32_t unit, uint32_t port, const ClkNpAnnFields &fields);
  void setAnnounceAlarm(uint32_t unit, uint32_t port, uint32_t type, bool raised);
  void setTimestamps(uint32_t unit, uint32_t port, const ClkNpTimestamps &ts);
  void setPktStat(uint32_t unit, uint32_t port, const ClkNpPktStat &stat);
  void setPktStatAlarm(uint32_t unit, uint32_t port, uint32_t pktType, uint32_t alarm);
  void setDfxT2SubT1(uint32_t unit, uint32_t port, const ClkNpDfxDelay &delay);
  void setDfxT4SubT3(uint32_t unit, uint32_t port, const ClkNpDfxDelay &delay);
  void setSsmStat(uint32_t unit, uint32_t port, uint32_t selector, const std::array<uint32_t, kSsmStatWords> &stat);

  // A faulted read first fills its output with 0xA5 bytes, as a failing
  // engine may leave garbage behind; off by default.
  void setScribbleOnFault(bool on);
  bool scribbleOnFault() const;

  void reset();

  // Used by the driver functions: runs `fn` on the port's state under the lock.
  template <class F>
  auto with(uint32_t unit, uint32_t port, F &&fn) {
    std::lock_guard lk(mu_);
    return fn(ports_[{unit, port}]);
  }
  void addPortControl(const OdaPortCtrlCall &call);

 private:
  mutable std::mutex mu_;
  std::map<std::pair<uint32_t, uint32_t>, OdaPort> ports_;
  std::vector<OdaPortCtrlCall> portControls_;
  bool scribble_ = false;
};

Engine &engine();

}  // namespace fwmsim
