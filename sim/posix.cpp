// The C library calls whose behaviour depends on time: on the simulated board
// `sleep` waits on the board clock and `time` reads the board's wall clock, so
// that tests never wait in real time. They take precedence over the C
// library's because this library is loaded before it.
#include <unistd.h>
#include <ctime>

#include "fwmsim/clock.hpp"
#include "fwmsim/recorder.hpp"

extern "C" {

unsigned int sleep(unsigned int seconds) {
  fwmsim::record("posix", "sleep", seconds);
  fwmsim::clock().sleepMs(uint64_t{seconds} * 1000u);
  return 0;
}

time_t time(time_t *out) {
  auto t = static_cast<time_t>(fwmsim::clock().wallSeconds());
  if (out != nullptr) *out = t;
  return t;
}

}  // extern "C"
