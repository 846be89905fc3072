// The C library calls whose behaviour depends on the board: `time` reads the
// board's wall clock; the calendar, formatting and system-call functions are
// the C library's own, passed through so that a test can fail them. They take
// precedence over the C library's because this library is loaded before it.
// (`sleep` is in host/sleep.cpp.)
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"

namespace {
template <class Fn>
Fn next(const char *name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" {

time_t time(time_t *out) {
  if (fwmsim::faults().take("time")) return static_cast<time_t>(-1);
  auto t = static_cast<time_t>(fwmsim::clock().wallSeconds());
  if (out != nullptr) *out = t;
  return t;
}

struct tm *localtime_r(const time_t *t, struct tm *out) {
  static const auto real = next<struct tm *(*)(const time_t *, struct tm *)>("localtime_r");
  if (fwmsim::faults().take("localtime_r")) return nullptr;
  return real(t, out);
}

size_t strftime(char *s, size_t max, const char *fmt, const struct tm *tm) {
  static const auto real = next<size_t (*)(char *, size_t, const char *, const struct tm *)>("strftime");
  if (fwmsim::faults().take("strftime")) return 0;
  return real(s, max, fmt, tm);
}

// Only the thread-id request can be failed: the C++ runtime's own system
// calls pass through untouched. Like the C library's own, this reads six
// argument words whatever the call takes; the kernel ignores the extra ones,
// and the address checker must not mistake them for an overflow.
__attribute__((no_sanitize("address"))) long syscall(long number, ...) {
  static const auto real = next<long (*)(long, ...)>("syscall");
  va_list ap;
  va_start(ap, number);
  long a[6];
  for (long &x : a) x = va_arg(ap, long);
  va_end(ap);
  if (number == SYS_gettid && fwmsim::faults().take("syscall")) {
    errno = ENOSYS;
    return -1;
  }
  return real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

}  // extern "C"
