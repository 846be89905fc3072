// libFuzzer target: any bytes as a capture file (pcap or pcapng, as libpcap
// reads them) through the reader and the checker behind it, with every
// profile's rules in turn: nothing is read outside a record, and the checker
// takes whatever frames the file holds.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "capture.hpp"
#include "checker.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The last byte picks the profile; the rest is the file.
  if (size < 2) return 0;
  const auto &profile = clkcheck::kProfiles[data[size - 1] % std::size(clkcheck::kProfiles)];
  std::FILE *f = fmemopen(const_cast<uint8_t *>(data), size - 1, "rb");
  if (!f) return 0;
  clkcheck::CaptureReader reader;
  std::string error;
  if (!reader.open(f, &error)) return 0;
  clkcheck::Checker checker(profile, [](const clkcheck::Finding &) {});
  clkcheck::Packet p;
  while (reader.next(p)) checker.frame(p);
  checker.finish();
  return 0;
}
