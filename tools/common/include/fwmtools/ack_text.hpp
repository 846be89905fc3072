// Acknowledgements written out for people: one block of announce fields.
#pragma once

#include <string>
#include <vector>

#include "fwmtools/announce.hpp"

namespace fwmtools {

// Lines such as "grandmaster 001b19.fffe.000001 class 6 accuracy 0x21 (within 100 ns)".
std::vector<std::string> describeAck(const Ack &ack);
// One line summary: "ifIndex 3, GM 001b19.fffe.000001, class 6, steps 1".
std::string summarizeAck(const Ack &ack);
// The port identity "001b19.fffe.000001-1".
std::string portIdentityText(uint64_t clockIdentity, uint16_t portNumber);

}  // namespace fwmtools
