#include <fmt/format.h>

#include <time.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <span>
#include <stdexcept>

#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "keeper.hpp"

namespace clksim {

namespace {

using fwmtools::timing::ServoState;

std::optional<std::pair<uint32_t, uint32_t>> enginePort(const std::string &s) {
  const size_t colon = s.find(':');
  if (colon == std::string::npos) return std::nullopt;
  return std::pair{static_cast<uint32_t>(std::stoul(s.substr(0, colon))),
                   static_cast<uint32_t>(std::stoul(s.substr(colon + 1)))};
}

// The operation table the library registered with the orchestrator, if any.
std::optional<ClkSrvOrchIntf> orchestratorTable() {
  const auto &regs = fwmsim::orchestrator().registrations;
  if (regs.empty() || regs.back().size() != FWM_CLK_ORCH_SLOT_NUM) return std::nullopt;
  ClkSrvOrchIntf table;
  std::memcpy(&table, regs.back().data(), sizeof table);
  return table;
}

// The engine's clock as the library reads it (slot 64).
std::optional<int64_t> engineTime(uint32_t unit) {
  fwmsim::RtcTime t{};
  if (CLK_NP_1588_PtpGetChannelTs(unit, fwmsim::kRtcChannelClock, &t) != 0) return std::nullopt;
  const int64_t s = static_cast<int64_t>(uint64_t{t.secondsHigh} << 32 | t.secondsLow);
  return s * fwmsim::kRtcNsPerSecond + t.nanoseconds;
}

}  // namespace

std::optional<std::string> servoWithoutLink(const TimeKeeping &tk, const std::vector<WirePort> &wire, bool live) {
  for (const auto &s : tk.servos) {
    bool onWire = false;
    for (const auto &w : wire) onWire = onWire || (w.unit == s.unit && w.port == s.port);
    if (live && !onWire)
      return fmt::format(
          "the servo on {0}:{1} has nothing to follow on the wall clock: put its port on the wire "
          "(--live {0}:{1}=IFACE)",
          s.unit, s.port);
    if (!live && !tk.network.present)
      return fmt::format("the servo on {}:{} needs a 'network' (or its port on the wire)", s.unit, s.port);
  }
  return std::nullopt;
}

Timekeeper::Timekeeper(const TimeKeeping &setup, bool live, Say say, OwnClock *own)
    : setup_(setup), say_(std::move(say)) {
  startNs_ = live ? fwmsim::trueNanos() : fwmsim::boardTrueNanos();
  startMs_ = fwmsim::clock().nowMs();
  nextSampleNs_ = startNs_ + setup_.te.sampleNs;
  for (const auto &c : setup_.clocks) {
    fwmsim::setClockModel(c.unit, c.model, c.seed, startNs_);
    te_[c.unit];
  }
  const double periodS = static_cast<double>(setup_.te.sampleNs) / 1e9;
  for (const auto &s : setup_.servos) {
    servos_.push_back({&s, fwmtools::timing::PiServo(s.config, periodS)});
    servos_.back().port = s.port;
    te_[s.unit];
  }
  if (own)
    orch_ =
        std::make_unique<Orchestrator>(setup_.boundary, *own, orchestratorTable, [this](std::string t) { note(t); });
  if (live) {
    if (setup_.network.present)
      note("the virtual network runs in virtual time only: on the wall clock the wire ports are the links");
    return;
  }
  net_ = std::make_unique<fwmsim::VirtualNet>(setup_.network.seed, startNs_);
  std::map<std::string, fwmsim::VirtualNet::Node> nodes;
  for (const auto &g : setup_.network.grandmasters) nodes[g.name] = net_->addGrandmaster(g.shape);
  auto node = [&](const std::string &name) {
    if (auto it = nodes.find(name); it != nodes.end()) return it->second;
    auto [unit, port] = *enginePort(name);
    return nodes[name] = net_->addEnginePort(unit, port);
  };
  for (const auto &l : setup_.network.links) {
    fwmsim::LinkSpec shape = l.shape;
    // The scenario's outages are times since the run began.
    for (auto *d : {&shape.there, &shape.back})
      for (auto &[from, to] : d->outages) from += startNs_, to += startNs_;
    if (!net_->connect(node(l.from), node(l.to), shape))
      note(fmt::format("link {} - {} not made: one end is linked already", l.from, l.to));
  }
  fwmsim::setTrueTimeSource([net = net_.get()] { return net->now(); });
}

Timekeeper::~Timekeeper() {
  if (net_) fwmsim::setTrueTimeSource({});
}

Timekeeper::NextPeriod Timekeeper::nextPeriod(int64_t endedNs, int64_t periodNs, int64_t nowNs) {
  const int64_t next = endedNs + periodNs;
  if (nowNs < next) return {next, 0};
  const int64_t missed = (nowNs - next) / periodNs + 1;
  return {next + missed * periodNs, missed};
}

int64_t Timekeeper::now() const { return net_ ? net_->now() : fwmsim::trueNanos(); }

// Virtual: the board clock, then the network up to that true instant. Live:
// a sleep until the machine's clock reaches it; the wire ports run meanwhile.
void Timekeeper::moveTo(int64_t trueNs) {
  if (!net_) {
    const timespec at{static_cast<time_t>(trueNs / fwmsim::kRtcNsPerSecond),
                      static_cast<long>(trueNs % fwmsim::kRtcNsPerSecond)};
    while (::clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
    return;
  }
  const uint64_t boardMs = startMs_ + static_cast<uint64_t>((trueNs - startNs_) / 1'000'000);
  if (boardMs > fwmsim::clock().nowMs()) fwmsim::clock().advance(boardMs - fwmsim::clock().nowMs());
  fwmsim::clock().settle();
  net_->runUntil(trueNs);
}

void Timekeeper::advance(uint64_t ms) {
  std::map<uint32_t, size_t> from;
  for (const auto &[unit, series] : te_) from[unit] = series.size();
  const int64_t end = now() + static_cast<int64_t>(ms) * 1'000'000;
  while (now() < end) {
    const int64_t t = std::min(end, nextSampleNs_);
    moveTo(t);
    if (t < nextSampleNs_) continue;
    // A live run woken late serves once and keeps the TE series on its grid.
    const auto next = nextPeriod(nextSampleNs_, setup_.te.sampleNs, now());
    nextSampleNs_ = next.atNs;
    for (auto &s : servos_) serve(s);
    if (orch_) orch_->tick(now());
    sampleTe(next.missed);
    if (betweenSamples) betweenSamples();
  }
  // Live, the link changes under the run (netem, a peer restarting): each
  // stretch of wall clock gets its own figures.
  if (net_) return;
  for (const auto &[unit, series] : te_)
    if (auto line = stretchFigures(std::span(series).subspan(from[unit])))
      note(fmt::format("time error of unit {} over {:.1f} s: {}", unit, static_cast<double>(ms) / 1e3, *line));
}

std::optional<int64_t> Timekeeper::crossOffset(const ClockRead &reference, const ClockRead &local) {
  std::optional<int64_t> best, bestWidth;
  for (int i = 0; i < kCrossTries && bestWidth != 0; ++i) {
    const auto before = reference(), at = local(), after = reference();
    if (!before || !at || !after) return std::nullopt;
    const int64_t width = *after - *before;
    if (width < 0 || (bestWidth && width >= *bestWidth)) continue;
    best = *at - (*before + width / 2), bestWidth = width;
  }
  if (!bestWidth || *bestWidth > kCrossWidestNs) return std::nullopt;
  return best;
}

std::optional<std::string> Timekeeper::stretchFigures(std::span<const double> te) {
  if (te.empty()) return std::nullopt;
  double sum = 0, squares = 0, peak = 0;
  for (double x : te) sum += x, squares += x * x, peak = std::max(peak, std::fabs(x));
  const auto n = static_cast<double>(te.size());
  return fmt::format("mean {:.0f} ns, RMS {:.0f} ns, max|TE| {:.0f} ns", sum / n, std::sqrt(squares / n), peak);
}

// The orchestrator's side: the port's last t2 - t1 and t4 - t3 through the
// service operations, read-clear, as the offset from the master and the
// mean path delay.
void Timekeeper::serve(Servo &s) {
  const auto table = orchestratorTable();
  const auto local = engineTime(s.setup->unit);
  if (!table || !local) return;
  if (reference_ && *reference_ != s.setup->unit) {
    // Another engine of the card: both clocks read through the library's
    // channel time stamp, the slave engine's time as the master's.
    const uint32_t ref = *reference_, unit = s.setup->unit;
    s.offsetNs = crossOffset([ref] { return engineTime(ref); }, [unit] { return engineTime(unit); });
    steer(s, s.offsetNs ? s.pi.sample(*s.offsetNs, *local) : s.pi.idle(*local), *local);
    return;
  }
  const uint32_t unit = s.setup->unit, port = s.port;
  // A read-clear hands nothing back: read, then clear what was read.
  auto take = [&](auto op, ClkPtpDfxDelay &d) {
    if (((*table).*op)(unit, port, 0, &d) != 0 || d.words[fwmsim::dly::kCount] == 0) return false;
    ((*table).*op)(unit, port, 1, nullptr);
    return true;
  };
  ClkPtpDfxDelay sync{}, delay{};
  const bool haveSync = take(&ClkSrvOrchIntf::getPtpT2SubT1, sync);
  const bool newDelay = take(&ClkSrvOrchIntf::getPtpT4SubT3, delay);
  if (newDelay) s.t4SubT3 = fwmsim::lastDelay(delay.words);
  if (!haveSync || !s.t4SubT3) {
    s.offsetNs.reset();
    steer(s, s.pi.idle(*local), *local);
    return;
  }
  // As ptp4l: each exchange's mean path delay, filtered; the offset is this
  // Sync's t2 - t1 less it.
  const int64_t ms = fwmsim::lastDelay(sync.words);
  if (newDelay || !s.pathDelayNs) s.pathDelayNs = s.delays.add((ms + *s.t4SubT3) / 2);
  s.offsetNs = ms - *s.pathDelayNs;
  steer(s, s.pi.sample(*s.offsetNs, *local), *local);
}

void Timekeeper::decided(const fwmtools::bmca::Decision &d) {
  if (!orch_) return;
  const auto slave = orch_->act(d, now());
  if (!slave) return;  // the card leads: each servo holds over on its own
  reference_ = slave->first;
  if (!follow(slave->first, slave->second))
    note(fmt::format("no servo on unit {} to follow {}:{}", slave->first, slave->first, slave->second));
}

bool Timekeeper::follow(uint32_t unit, uint32_t port) {
  for (auto &s : servos_) {
    if (s.setup->unit != unit) continue;
    if (s.port == port) return true;
    note(fmt::format("servo {}:{} follows {}:{} now", unit, s.port, unit, port));
    // The path delay measured to the old master says nothing of the new one.
    s.port = port, s.t4SubT3.reset(), s.pathDelayNs.reset(), s.delays.reset();
    return true;
  }
  return false;
}

void Timekeeper::steer(Servo &s, const fwmtools::timing::ServoOutput &out, int64_t localNs) {
  const uint32_t unit = s.setup->unit;
  if (out.state != s.state) {
    std::string how;
    const int64_t now = fwmsim::trueNanos(), te = fwmsim::timeError(unit);
    if (out.state == ServoState::Holdover) {
      s.holdNs = now, s.holdTeNs = te, s.holdRate = fwmsim::clockRate(unit);
      how = fmt::format(": TE {} ns, residual frequency {:.3f} ppb", te, s.holdRate * 1e9);
    } else if (s.state == ServoState::Holdover) {
      // What the residual frequency alone would have made of the TE.
      const double expect = static_cast<double>(s.holdTeNs) + s.holdRate * static_cast<double>(now - s.holdNs);
      how = fmt::format(": after {:.3f} s of holdover TE {} ns, {:.0f} ns by the residual frequency",
                        static_cast<double>(now - s.holdNs) / 1e9, te, expect);
    }
    tellState(s, out.state, how);
    if (orch_) orch_->servoState(unit, out.state, fwmsim::trueNanos());
  }
  s.state = out.state;
  if (out.stepNs != 0 || out.freqPpb != s.freqPpb) tellAdjust(s, out);
  if (out.stepNs != 0) {
    // A step of a second or more sets the time; a smaller one moves the phase.
    if (std::llabs(out.stepNs) >= fwmsim::kRtcNsPerSecond) {
      const auto t = fwmsim::rtcTimeOf(localNs + out.stepNs);
      CLK_NP_1588_PtpSetRtcTime(unit, t.secondsHigh, t.secondsLow, t.nanoseconds);
    } else {
      auto a = fwmsim::adjustOf(out.stepNs);
      CLK_NP_1588_PtpSetRtcNsAdjust(unit, fwmsim::kRtcAdjustPhase, &a);
    }
  }
  if (out.freqPpb != s.freqPpb) {
    auto a = fwmsim::adjustOf(std::llround(out.freqPpb * fwmsim::kRtcFreqScale));
    CLK_NP_1588_PtpSetRtcNsAdjust(unit, fwmsim::kRtcAdjustFrequency, &a);
    s.freqPpb = out.freqPpb;
  }
}

}  // namespace clksim
