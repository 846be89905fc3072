// Result codes injected into simulated platform functions by name: once, N
// times, or always, optionally after letting some calls through.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace fwmsim {

class Faults {
 public:
  static constexpr int kAlways = -1;
  // The next `times` calls of `fn` after `skip` good ones return `code`.
  void inject(std::string fn, uint32_t code, int times = 1, int skip = 0);
  // Consumes one injection for `fn`, if one is due.
  std::optional<uint32_t> take(std::string_view fn);
  void clear();

 private:
  struct Plan {
    uint32_t code;
    int times;
    int skip;
  };
  std::mutex mu_;
  std::map<std::string, Plan, std::less<>> plans_;
  // Mirrors plans_.size(): with nothing planned, a call need not take the lock.
  std::atomic<size_t> planned_{0};
};

Faults &faults();

}  // namespace fwmsim
