// The simulated forwarding engine's state: what the library programmed and
// what the network's side put there, one mutex over all of it.
#include <algorithm>
#include <climits>
#include <cstring>

#include "fwmsim/board.hpp"
#include "fwmsim/engine/engine.hpp"

namespace fwmsim {

OdaPort Engine::port(uint32_t unit, uint32_t portNo) const {
  std::lock_guard lk(mu_);
  auto it = ports_.find({unit, portNo});
  return it != ports_.end() ? it->second : OdaPort{};
}

std::vector<OdaPortCtrlCall> Engine::portControls() const {
  std::lock_guard lk(mu_);
  return portControls_;
}

void Engine::addPortControl(const OdaPortCtrlCall &call) {
  std::lock_guard lk(mu_);
  portControls_.push_back(call);
}

void Engine::setRxAnnounce(uint32_t unit, uint32_t portNo, const ClkNpAnnFields &fields) {
  with(unit, portNo, [&](OdaPort &p) { p.rxFields = fields; });
}
bool Engine::receiveAnnounce(uint32_t unit, uint32_t portNo, const ClkNpAnnFields &fields) {
  return with(unit, portNo, [&](OdaPort &p) {
    const bool changed = p.rxLost || std::memcmp(&p.rxFields, &fields, sizeof fields) != 0;
    p.rxFields = fields;
    p.rxLost = false;
    if (changed) p.alarm[kOdaAlarmChange] = 1;
    p.alarm[kOdaAlarmTimeout] = 0;
    return changed;
  });
}
void Engine::announceTimedOut(uint32_t unit, uint32_t portNo) {
  with(unit, portNo, [&](OdaPort &p) {
    p.alarm[kOdaAlarmTimeout] = 1;
    p.rxLost = true;
  });
}
void Engine::countPacket(uint32_t unit, uint32_t portNo, size_t statWord) {
  with(unit, portNo, [&](OdaPort &p) { ++p.pktStat.word[statWord]; });
}
void Engine::stampTime(uint32_t unit, uint32_t portNo, size_t at, const EngineTime &t, uint16_t sequenceId,
                       uint32_t flags) {
  with(unit, portNo, [&](OdaPort &p) {
    auto &w = p.timestamps.word;
    w[at] = static_cast<uint32_t>(t.seconds >> 32) & 0xFFFFu;
    w[at + 1] = static_cast<uint32_t>(t.seconds);
    w[at + 2] = t.nanoseconds;
    const bool sync = at < ts::kT3;
    w[sync ? ts::kSyncSeq : ts::kDelaySeq] = sequenceId;
    w[sync ? ts::kSyncFlags : ts::kDelayFlags] = flags;
  });
}
void Engine::addDelay(uint32_t unit, uint32_t portNo, bool t4SubT3, int64_t nanos, uint16_t sequenceId) {
  with(unit, portNo, [&](OdaPort &p) {
    auto &w = (t4SubT3 ? p.t4SubT3 : p.t2SubT1).word;
    const auto clamped = static_cast<int32_t>(std::clamp<int64_t>(nanos, INT32_MIN, INT32_MAX));
    const bool first = w[dly::kCount] == 0;
    if (first || clamped < static_cast<int32_t>(w[dly::kMin])) w[dly::kMin] = static_cast<uint32_t>(clamped);
    if (first || clamped > static_cast<int32_t>(w[dly::kMax])) w[dly::kMax] = static_cast<uint32_t>(clamped);
    ++w[dly::kCount];
    w[dly::kLastHigh] = static_cast<uint32_t>(static_cast<uint64_t>(nanos) >> 32);
    w[dly::kLastLow] = static_cast<uint32_t>(static_cast<uint64_t>(nanos));
    w[dly::kSequence] = sequenceId;
  });
}
void Engine::setAnnounceAlarm(uint32_t unit, uint32_t portNo, uint32_t type, bool raised) {
  with(unit, portNo, [&](OdaPort &p) { p.alarm.at(type) = raised ? 1 : 0; });
}
void Engine::setTimestamps(uint32_t unit, uint32_t portNo, const ClkNpTimestamps &ts) {
  with(unit, portNo, [&](OdaPort &p) { p.timestamps = ts; });
}
void Engine::setPktStat(uint32_t unit, uint32_t portNo, const ClkNpPktStat &stat) {
  with(unit, portNo, [&](OdaPort &p) { p.pktStat = stat; });
}
void Engine::setPktStatAlarm(uint32_t unit, uint32_t portNo, uint32_t pktType, uint32_t alarm) {
  with(unit, portNo, [&](OdaPort &p) { p.pktStatAlarm.at(pktType) = alarm; });
}
void Engine::setDfxT2SubT1(uint32_t unit, uint32_t portNo, const ClkNpDfxDelay &delay) {
  with(unit, portNo, [&](OdaPort &p) { p.t2SubT1 = delay; });
}
void Engine::setDfxT4SubT3(uint32_t unit, uint32_t portNo, const ClkNpDfxDelay &delay) {
  with(unit, portNo, [&](OdaPort &p) { p.t4SubT3 = delay; });
}
void Engine::setSsmStat(uint32_t unit, uint32_t portNo, uint32_t selector,
                        const std::array<uint32_t, kSsmStatWords> &stat) {
  with(unit, portNo, [&](OdaPort &p) { p.ssmStat[selector] = stat; });
}

void Engine::setScribbleOnFault(bool on) {
  std::lock_guard lk(mu_);
  scribble_ = on;
}

bool Engine::scribbleOnFault() const {
  std::lock_guard lk(mu_);
  return scribble_;
}

void Engine::reset() {
  std::lock_guard lk(mu_);
  ports_.clear();
  portControls_.clear();
  scribble_ = false;
}

Engine &engine() {
  static auto *e = new Engine;  // the library's timer thread may outlive main's objects
  return *e;
}

namespace {
[[maybe_unused]] const bool kResetWithBoard = onBoardReset([] { engine().reset(); });
}  // namespace
}  // namespace fwmsim
