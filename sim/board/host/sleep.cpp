// `sleep` on the simulated board waits on the board clock, so that tests never
// wait in real time. It is compiled into every program that links the board
// rather than into the board's library: a program's own definition comes
// before a sanitizer runtime's, and ThreadSanitizer's `sleep` would otherwise
// run this one with every lock inside it hidden from the race checks.
#include <time.h>
#include <unistd.h>

#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

extern "C" unsigned int sleep(unsigned int seconds) {
  // A thread the board never met waits on the wall clock, unrecorded: a
  // fuzzer's memory watcher sleeping here would otherwise spin, pushing
  // board time on and a record into the recorder at every turn.
  if (!fwmsim::onBoardThread()) {
    timespec left{static_cast<time_t>(seconds), 0};
    return ::nanosleep(&left, &left) == 0 ? 0 : static_cast<unsigned int>(left.tv_sec);
  }
  fwmsim::record("posix", "sleep", seconds);
  // An interrupted sleep: back at once, every second left unslept.
  if (fwmsim::faults().take("sleep")) return seconds;
  fwmsim::clock().sleepMs(uint64_t{seconds} * 1000u);
  return 0;
}
