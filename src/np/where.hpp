// The unit and port of a call, kept across the call below it for the failure
// report. Packed into one word, they cost one saved register on the success
// path instead of two.
#pragma once

#include <cstdint>

namespace fwmclk::np {

class Where {
 public:
  Where(uint32_t unit, uint32_t port) : word_((uint64_t{port} << 32) | unit) {}
  uint32_t unit() const { return static_cast<uint32_t>(word_); }
  uint32_t port() const { return static_cast<uint32_t>(word_ >> 32); }

 private:
  uint64_t word_;
};

}  // namespace fwmclk::np
