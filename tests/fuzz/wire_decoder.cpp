// libFuzzer target: whatever arrives on a wire port, as a whole frame or as a
// bare PTP message, goes through the one decoder without reading outside the
// bytes; whatever it accepts, announce or event message, encodes back to the
// same fields.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>

#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  std::span<const uint8_t> payload = bytes;
  if (auto frame = fwmptp::parseFrame(bytes)) payload = frame->payload;
  fwmptp::Reject why = fwmptp::Reject::None;
  // Odd sizes decode without a domain, even ones with the last byte as the domain.
  const auto domain = size % 2 == 1 || size == 0 ? std::nullopt : std::optional<uint8_t>(data[size - 1]);
  auto a = fwmptp::decodeAnnounce(payload, domain, &why);
  if (a.has_value() != (why == fwmptp::Reject::None)) std::abort();
  if (a) {
    auto wire = fwmptp::encodeAnnounce(*a);
    auto back = fwmptp::decodeAnnounce(wire);
    if (!back) std::abort();
    back->messageLength = a->messageLength;  // always 64 once re-encoded
    back->controlField = a->controlField;
    back->correctionField = a->correctionField;
    if (!(*back == *a)) std::abort();
  }
  auto e = fwmptp::decodeEvent(payload, domain, &why);
  if (e.has_value() != (why == fwmptp::Reject::None)) std::abort();
  if (e) {
    auto back = fwmptp::decodeEvent(fwmptp::encodeEvent(*e).view());
    if (!back) std::abort();
    back->messageLength = e->messageLength;  // the type's size once re-encoded
    if (!(*back == *e)) std::abort();
  }
  return 0;
}
