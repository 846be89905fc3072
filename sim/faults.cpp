#include "fwmsim/faults.hpp"

namespace fwmsim {

void Faults::inject(std::string fn, uint32_t code, int times, int skip) {
  std::lock_guard lk(mu_);
  plans_[std::move(fn)] = Plan{code, times, skip};
  planned_.store(plans_.size(), std::memory_order_release);
}

std::optional<uint32_t> Faults::take(std::string_view fn) {
  if (planned_.load(std::memory_order_acquire) == 0) return std::nullopt;
  std::lock_guard lk(mu_);
  auto it = plans_.find(fn);
  if (it == plans_.end()) return std::nullopt;
  Plan &p = it->second;
  if (p.skip > 0) {
    --p.skip;
    return std::nullopt;
  }
  uint32_t code = p.code;
  if (p.times != kAlways && --p.times <= 0) {
    plans_.erase(it);
    planned_.store(plans_.size(), std::memory_order_release);
  }
  return code;
}

void Faults::clear() {
  std::lock_guard lk(mu_);
  plans_.clear();
  planned_.store(0, std::memory_order_release);
}

Faults &faults() {
  static auto *f = new Faults;
  return *f;
}

}  // namespace fwmsim
