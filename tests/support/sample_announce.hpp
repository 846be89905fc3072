// The announce the codec and tool tests carry around: every field set, none of them
// equal to another, so that a swapped or dropped field shows.
#pragma once

#include "fwmptp/announce.hpp"

namespace fwmtest {

inline fwmptp::Announce sampleAnnounce() {
  fwmptp::Announce a;
  a.messageType = 11;
  a.versionPtp = 2;
  a.messageLength = 64;
  a.domainNumber = 24;
  a.flagField = 0x0208;
  a.sourceClockIdentity = 0x001B19FFFE00A001ull;
  a.sourcePortNumber = 1;
  a.controlField = 5;
  a.logMessageInterval = 1;
  a.currentUtcOffset = 37;
  a.grandmasterPriority1 = 100;
  a.clockClass = 6;
  a.clockAccuracy = 0x21;
  a.offsetScaledLogVariance = 0x4E5D;
  a.grandmasterPriority2 = 128;
  a.grandmasterIdentity = 0x7C2E0DFFFE1F0002ull;
  a.stepsRemoved = 2;
  a.timeSource = 0x20;
  return a;
}

}  // namespace fwmtest
