// Where an announce the line card received came from, as far as the
// acknowledgement tells: the sender's clock identity, not its addresses.
#pragma once

#include "fwmtools/announce.hpp"
#include "fwmtools/pcap.hpp"

namespace fwmtools {

// The frame of a received announce as its sender put it on the link: the
// port's transport, tag and destination, from the sender's MAC address (its
// clock identity without the FF-FE in the middle, or 02:00:00:00:00:00 when
// the identity was not made from one) and, over UDP, from 0.0.0.0: the
// acknowledgement does not carry the sender's IPv4 address, so the frame is
// rebuilt, and says so rather than show the card's own address.
FrameAddressing senderFrame(const Announce &a, FrameAddressing port = {});

}  // namespace fwmtools
