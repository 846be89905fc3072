// The announce the codec and tool tests carry around: every field set, none of them
// equal to another, so that a swapped or dropped field shows.
#pragma once

#include "fwmptp/announce.hpp"

namespace fwmtest {

// In field order: type 11, version 2, length 64, domain 24, flags, correction 0,
// source clock and port, sequence 0, control 5, log interval 1, UTC offset 37,
// priority1, class, accuracy, variance, priority2, grandmaster, steps removed, time source.
inline fwmptp::Announce sampleAnnounce() {
  return {11, 2,   64, 24,   0x0208, 0,   0x001B19FFFE00A001ull, 1, 0,   5, 1,
          37, 100, 6,  0x21, 0x4E5D, 128, 0x7C2E0DFFFE1F0002ull, 2, 0x20};
}

}  // namespace fwmtest
