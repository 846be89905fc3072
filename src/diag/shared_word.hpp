// Exported words that one thread writes and others read (agent handle, debug
// id, channel handles). The host sees plain aligned 32-bit words; inside the
// library every access goes through these so the C++ memory model holds.
#pragma once

#include <atomic>
#include <cstdint>

namespace fwmclk {

template <class T>
inline T loadShared(T &word) {
  return std::atomic_ref<T>(word).load(std::memory_order_acquire);
}

template <class T>
inline void storeShared(T &word, T value) {
  std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

}  // namespace fwmclk
