// The bounds-checked memory and string functions, with the host's contracts:
// bad arguments give a non-zero result; a formatted text that does not fit
// gives -1 (never a cut text).
#include "fwmclk/platform/securec.h"

#include <cstdio>
#include <cstring>

#include "fwmsim/faults.hpp"

namespace {
// An injected failure is the bad-arguments answer: nothing written.
std::optional<int> failed(const char *fn) {
  if (auto code = fwmsim::faults().take(fn)) return static_cast<int>(*code);
  return std::nullopt;
}
}  // namespace

extern "C" {

int memset_s(void *dest, size_t destMax, int c, size_t count) {
  if (auto code = failed("memset_s")) return *code;
  if (dest == nullptr || count > destMax) return 1;
  std::memset(dest, c, count);
  return 0;
}

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
  if (auto code = failed("memcpy_s")) return *code;
  if (dest == nullptr || count > destMax) return 1;
  if (src == nullptr) {
    std::memset(dest, 0, destMax);
    return 1;
  }
  std::memmove(dest, src, count);
  return 0;
}

int strcpy_s(char *dest, size_t destMax, const char *src) {
  if (auto code = failed("strcpy_s")) return *code;
  if (dest == nullptr || destMax == 0) return 1;
  if (src == nullptr) {
    dest[0] = '\0';
    return 1;
  }
  size_t n = std::strlen(src);
  if (n >= destMax) {
    dest[0] = '\0';
    return 1;
  }
  std::memcpy(dest, src, n + 1);
  return 0;
}

int vsprintf_s(char *dest, size_t destMax, const char *fmt, va_list ap) {
  if (auto code = failed("vsprintf_s")) return *code;
  if (dest == nullptr || destMax == 0 || fmt == nullptr) return -1;
  int n = std::vsnprintf(dest, destMax, fmt, ap);
  if (n < 0 || static_cast<size_t>(n) >= destMax) {
    dest[0] = '\0';
    return -1;
  }
  return n;
}

int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *fmt, va_list ap) {
  if (auto code = failed("vsnprintf_s")) return *code;
  if (dest == nullptr || destMax == 0 || fmt == nullptr || count >= destMax) return -1;
  int n = std::vsnprintf(dest, count + 1, fmt, ap);
  if (n < 0 || static_cast<size_t>(n) > count) {
    dest[0] = '\0';
    return -1;
  }
  return n;
}

}  // extern "C"
