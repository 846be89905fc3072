// Result codes injected into simulated platform functions by name: once, N
// times, or always, optionally after letting some calls through.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace fwmsim {

// How a platform function says it failed. An injected fault must look like an
// answer the real platform could give: never "success" without its output.
enum class FailsAs : uint8_t {
  Nonzero,      // a failure code: anything but 0
  Zero,         // a null pointer, handle or count: only 0
  Negative,     // a signed result below zero
  NotPositive,  // a signed count of zero or less
  AnyValue,     // a plain value without a failure meaning: any value
};

struct Faultable {
  std::string_view function;
  FailsAs failsAs;
};

// Every function the library imports that the board can fail, by name.
std::span<const Faultable> faultables();
const Faultable *findFaultable(std::string_view fn);
// Empty when `code` is a failure `fn` can really answer, else the reason not.
std::string faultRefusal(std::string_view fn, uint32_t code);
// The failure a fault of this kind answers when no code is given.
constexpr uint32_t typicalFailure(FailsAs k) {
  return k == FailsAs::Nonzero ? 1u : k == FailsAs::Negative ? 0xFFFFFFFFu : 0u;
}

class Faults {
 public:
  static constexpr int kAlways = -1;
  // The next `times` calls of `fn` after `skip` good ones return `code`. A
  // name the board cannot fail or a code meaning success ends the process:
  // such a fault would test nothing.
  void inject(std::string fn, uint32_t code, int times = 1, int skip = 0);
  // Consumes one injection for `fn`, if one is due.
  std::optional<uint32_t> take(std::string_view fn);
  // How many injected failures of `fn` were answered since the last clear().
  int delivered(std::string_view fn) const;
  void clear();

 private:
  struct Plan {
    uint32_t code;
    int times;
    int skip;
  };
  mutable std::mutex mu_;
  std::map<std::string, int, std::less<>> delivered_;
  std::map<std::string, Plan, std::less<>> plans_;
  // Mirrors plans_.size(): with nothing planned, a call need not take the lock.
  std::atomic<size_t> planned_{0};
};

Faults &faults();

}  // namespace fwmsim
