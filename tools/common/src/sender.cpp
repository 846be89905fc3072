#include "fwmtools/sender.hpp"

namespace fwmtools {

FrameAddressing senderFrame(const Announce &a, FrameAddressing port) {
  const uint64_t id = a.sourceClockIdentity;
  port.srcMac = {0x02, 0, 0, 0, 0, 0};
  if (((id >> 24) & 0xFFFFu) == 0xFFFEu)
    port.srcMac = {static_cast<uint8_t>(id >> 56), static_cast<uint8_t>(id >> 48), static_cast<uint8_t>(id >> 40),
                   static_cast<uint8_t>(id >> 16), static_cast<uint8_t>(id >> 8),  static_cast<uint8_t>(id)};
  port.srcIp = 0;
  return port;
}

}  // namespace fwmtools
