// Big-endian fields of IEEE 1588 messages, shared by the codec's files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fwmptp::detail {

inline uint64_t getBe(std::span<const uint8_t> b, size_t at, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = v << 8 | b[at + i];
  return v;
}

inline void putBe(std::span<uint8_t> b, size_t at, size_t width, uint64_t v) {
  for (size_t i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * (width - 1 - i)));
}

}  // namespace fwmptp::detail
