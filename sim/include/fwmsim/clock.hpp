// The board clock. In virtual mode time moves only when a test or the
// simulator advances it, and everything that waits on it (task sleeps,
// relative timers) runs when its moment comes, in time order, on real
// threads. In real-time mode the same calls use the wall clock.
//
// Virtual time needs to know when the board is quiet: every simulated thread
// that has work counts as busy, and `advance` moves time only once the busy
// count has dropped to zero. Sleeping, waiting on an empty queue or having
// finished all count as quiet.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fwmsim {

class Clock {
 public:
  enum class Mode { Virtual, Real };

  Clock();
  ~Clock() = delete;  // lives as long as the process: tasks may still wait on it at exit
  Clock(const Clock &) = delete;
  Clock &operator=(const Clock &) = delete;

  void setMode(Mode mode);
  Mode mode() const;
  uint64_t nowMs() const;
  // Seconds since the epoch of the board's wall clock (virtual: a fixed base plus now).
  int64_t wallSeconds() const;

  // Blocks the calling simulated thread for `ms` of board time.
  void sleepMs(uint64_t ms);

  // Relative timers. The callback runs on the timer thread ("reltmr").
  using TimerFn = std::function<void()>;
  uint32_t startTimer(uint64_t lengthMs, bool periodic, TimerFn fn);
  bool stopTimer(uint32_t id);
  bool timerRunning(uint32_t id) const;
  size_t runningTimers() const;

  // Virtual mode: moves time forward by `ms`, running every sleep wake-up and
  // timer expiry that falls due, each once the board is quiet. Real mode:
  // sleeps for `ms`.
  void advance(uint64_t ms);
  // Waits until no simulated thread is busy (virtual and real mode alike).
  void settle();

  // Busy accounting for threads and hand-offs that the clock cannot see.
  void busyInc();
  void busyDec();

  // Starts a simulated thread that counts as busy until it sleeps or ends.
  void spawn(std::string name, std::function<void()> body);

 private:
  struct Timer {
    uint64_t due;
    uint64_t length;
    bool periodic;
    TimerFn fn;
  };
  struct Sleeper {
    uint64_t due;
    bool woken = false;
  };

  void timerThread();
  void fireDueLocked(std::unique_lock<std::mutex> &lk);
  uint64_t nextDueLocked() const;
  void waitQuietLocked(std::unique_lock<std::mutex> &lk);
  void notifyIfQuietLocked();

  mutable std::mutex mu_;
  std::condition_variable cv_;       // timers due, sleepers woken, mode changed
  std::condition_variable quietCv_;  // the busy count reached zero
  Mode mode_ = Mode::Virtual;
  uint64_t nowMs_ = 0;
  std::chrono::steady_clock::time_point realStart_;
  int busy_ = 0;
  uint32_t nextTimerId_ = 1;
  std::map<uint32_t, Timer> timers_;
  std::vector<Sleeper *> sleepers_;
  std::vector<TimerFn> fireQueue_;
  std::thread timerThread_;
};

Clock &clock();

// Whether the calling thread belongs to the board: one it started, or the
// process's main thread, which drives it. Others (a fuzzer's memory watcher,
// a sanitizer's helper) are strangers to the board clock.
bool onBoardThread();

}  // namespace fwmsim
