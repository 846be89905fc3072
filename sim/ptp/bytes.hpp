// Big-endian fields of IEEE 1588 messages, shared by the codec's files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "fwmptp/announce.hpp"

namespace fwmptp::detail {

inline uint64_t getBe(std::span<const uint8_t> b, size_t at, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v = v << 8 | b[at + i];
  return v;
}

inline void putBe(std::span<uint8_t> b, size_t at, size_t width, uint64_t v) {
  for (size_t i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * (width - 1 - i)));
}

// What every message must pass before its type is looked at: a whole header,
// our version, and a messageLength that covers the header and was received
// in full. Gives the length, or why the bytes are refused.
inline uint16_t checkHeader(std::span<const uint8_t> b, Reject &why) {
  const auto length = b.size() < kHeaderSize ? uint16_t{0} : static_cast<uint16_t>(getBe(b, 2, 2));
  if (b.size() < kHeaderSize)
    why = Reject::Short;
  else if ((b[1] & 0x0F) != kVersion)
    why = Reject::Version;
  else if (length < kHeaderSize || length > b.size())
    why = Reject::Length;
  else
    why = Reject::None;
  return length;
}

}  // namespace fwmptp::detail
