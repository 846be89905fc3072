// clkpeer's view of a datagram: any bytes are refused with a reason or
// decoded, and what decodes is described, written as JSON and as the wire
// announce, and encodes back to the same acknowledgement.
#include <cstdlib>

#include "fwmtools/ack_json.hpp"
#include "fwmtools/ack_text.hpp"
#include "fwmtools/announce.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fwmtools::DecodeError why;
  auto ack = fwmtools::decodeAck({data, size}, &why);
  if (!ack) {
    if (why.reason.empty()) std::abort();
    return 0;
  }
  (void)fwmtools::describeAck(*ack);
  (void)fwmtools::ackToJson(*ack).dump();
  (void)fwmptp::encodeAnnounce(ack->announce);
  auto again = fwmtools::decodeAck(fwmtools::encodeAck(*ack));
  if (!again || fwmtools::summarizeAck(*again) != fwmtools::summarizeAck(*ack)) std::abort();
  return 0;
}
