#include "fwmsim/clock.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {
// 2026-11-22 08:00:00 UTC: the board's wall clock at virtual time 0.
constexpr int64_t kVirtualEpoch = 1795334400;
// A quiet board is reached within microseconds; this only turns a hang into a message.
constexpr auto kQuietLimit = std::chrono::seconds(10);
thread_local bool tlSimThread = false;
}  // namespace

Clock::Clock() : realStart_(std::chrono::steady_clock::now()) {
  timerThread_ = std::thread([this] { timerThread(); });
  timerThread_.detach();
}

void Clock::setMode(Mode mode) {
  std::lock_guard lk(mu_);
  mode_ = mode;
  realStart_ = std::chrono::steady_clock::now() - std::chrono::milliseconds(nowMs_);
  cv_.notify_all();
}

Clock::Mode Clock::mode() const {
  std::lock_guard lk(mu_);
  return mode_;
}

uint64_t Clock::nowMs() const {
  std::lock_guard lk(mu_);
  if (mode_ == Mode::Real) {
    auto d = std::chrono::steady_clock::now() - realStart_;
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
  }
  return nowMs_;
}

int64_t Clock::wallSeconds() const {
  if (mode() == Mode::Real) {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
  return kVirtualEpoch + static_cast<int64_t>(nowMs() / 1000);
}

void Clock::waitQuietLocked(std::unique_lock<std::mutex> &lk) {
  if (!quietCv_.wait_for(lk, kQuietLimit, [this] { return busy_ <= 0; })) {
    std::fprintf(stderr, "fwmsim: the board never became quiet (%d threads busy)\n", busy_);
    std::abort();
  }
}

// Only a quiet board is waited for, and only by those who drive time: a busy
// count that stays above zero wakes nobody, and the timer thread and the
// sleepers, who wait on their own condition, are never woken by the count.
void Clock::notifyIfQuietLocked() {
  if (busy_ <= 0) quietCv_.notify_all();
}

void Clock::settle() {
  std::unique_lock lk(mu_);
  waitQuietLocked(lk);
}

void Clock::busyInc() {
  std::lock_guard lk(mu_);
  ++busy_;
}

void Clock::busyDec() {
  std::lock_guard lk(mu_);
  --busy_;
  notifyIfQuietLocked();
}

void Clock::sleepMs(uint64_t ms) {
  if (ms == 0) return;
  if (mode() == Mode::Real) {
    busyDec();
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    busyInc();
    return;
  }
  if (!tlSimThread) {
    // A host thread that sleeps is the one driving time.
    advance(ms);
    return;
  }
  std::unique_lock lk(mu_);
  Sleeper s{nowMs_ + ms};
  sleepers_.push_back(&s);
  --busy_;
  notifyIfQuietLocked();
  cv_.wait(lk, [&s] { return s.woken; });
  // The waker counted this thread busy again on its behalf.
}

uint32_t Clock::startTimer(uint64_t lengthMs, bool periodic, TimerFn fn) {
  std::lock_guard lk(mu_);
  uint32_t id = nextTimerId_++;
  uint64_t now = mode_ == Mode::Real ? static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                                 std::chrono::steady_clock::now() - realStart_)
                                                                 .count())
                                     : nowMs_;
  timers_[id] = Timer{now + lengthMs, lengthMs, periodic, std::move(fn)};
  cv_.notify_all();
  return id;
}

bool Clock::stopTimer(uint32_t id) {
  std::lock_guard lk(mu_);
  return timers_.erase(id) != 0;
}

bool Clock::timerRunning(uint32_t id) const {
  std::lock_guard lk(mu_);
  return timers_.count(id) != 0;
}

size_t Clock::runningTimers() const {
  std::lock_guard lk(mu_);
  return timers_.size();
}

uint64_t Clock::nextDueLocked() const {
  uint64_t next = UINT64_MAX;
  for (const auto *s : sleepers_) next = std::min(next, s->due);
  for (const auto &[id, t] : timers_) next = std::min(next, t.due);
  return next;
}

void Clock::fireDueLocked(std::unique_lock<std::mutex> &) {
  for (auto it = sleepers_.begin(); it != sleepers_.end();) {
    if ((*it)->due <= nowMs_) {
      (*it)->woken = true;
      ++busy_;
      it = sleepers_.erase(it);
    } else {
      ++it;
    }
  }
  for (auto it = timers_.begin(); it != timers_.end();) {
    Timer &t = it->second;
    if (t.due <= nowMs_) {
      ++busy_;
      fireQueue_.push_back(t.fn);
      if (t.periodic && t.length > 0) {
        t.due += t.length;
        ++it;
      } else {
        it = timers_.erase(it);
      }
    } else {
      ++it;
    }
  }
  cv_.notify_all();
}

void Clock::advance(uint64_t ms) {
  if (mode() == Mode::Real) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return;
  }
  std::unique_lock lk(mu_);
  const uint64_t target = nowMs_ + ms;
  for (;;) {
    waitQuietLocked(lk);
    uint64_t next = nextDueLocked();
    if (next > target) break;
    nowMs_ = std::max(nowMs_, next);
    fireDueLocked(lk);
  }
  nowMs_ = target;
  waitQuietLocked(lk);
}

void Clock::timerThread() {
  setThreadName("reltmr");
  tlSimThread = true;
  std::unique_lock lk(mu_);
  for (;;) {
    if (mode_ == Mode::Real && fireQueue_.empty()) {
      uint64_t now = static_cast<uint64_t>(
          std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - realStart_).count());
      nowMs_ = now;
      fireDueLocked(lk);
      if (fireQueue_.empty()) {
        uint64_t next = 0;
        for (const auto &[id, t] : timers_) next = next == 0 ? t.due : std::min(next, t.due);
        auto until = next == 0 ? std::chrono::steady_clock::now() + std::chrono::milliseconds(100)
                               : realStart_ + std::chrono::milliseconds(next);
        cv_.wait_until(lk, until);
        continue;
      }
    }
    if (fireQueue_.empty()) {
      cv_.wait(lk, [this] { return !fireQueue_.empty() || mode_ == Mode::Real; });
      continue;
    }
    TimerFn fn = std::move(fireQueue_.front());
    fireQueue_.erase(fireQueue_.begin());
    lk.unlock();
    fn();
    lk.lock();
    --busy_;
    notifyIfQuietLocked();
  }
}

void Clock::spawn(std::string name, std::function<void()> body) {
  busyInc();
  std::thread([this, name = std::move(name), body = std::move(body)] {
    setThreadName(name);
    tlSimThread = true;
    body();
    busyDec();
  }).detach();
}

bool onBoardThread() { return tlSimThread || ::gettid() == ::getpid(); }

Clock &clock() {
  static auto *c = new Clock;
  return *c;
}

}  // namespace fwmsim
