// Classic pcap files of PTP announce messages, as a capture on the line
// card's port would show them: Ethernet, IPv4 to the PTP primary multicast
// address, UDP to the general port 320.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "fwmptp/announce.hpp"
#include "fwmptp/frame.hpp"
#include "fwmtools/announce.hpp"

namespace fwmtools {

inline constexpr uint16_t kPtpGeneralPort = fwmptp::kGeneralPort;

struct FrameAddressing {
  std::array<uint8_t, 6> srcMac{0x00, 0x1b, 0x19, 0x00, 0x00, 0x01};
  std::array<uint8_t, 6> dstMac{0x01, 0x00, 0x5e, 0x00, 0x01, 0x81};  // 224.0.1.129
  uint32_t srcIp = 0x0A000001u;                                       // host order
  uint32_t dstIp = 0xE0000181u;                                       // 224.0.1.129
};

// Ethernet/IPv4/UDP frame around one PTP message, checksums filled in.
std::vector<uint8_t> udpFrame(std::span<const uint8_t> payload, const FrameAddressing &addr, uint16_t ipId);

using fwmptp::internetChecksum;

class PcapWriter {
 public:
  PcapWriter() = default;
  ~PcapWriter();
  PcapWriter(const PcapWriter &) = delete;
  PcapWriter &operator=(const PcapWriter &) = delete;

  // Creates the file and writes the global header (Ethernet link type).
  bool open(const std::string &path, std::string *error = nullptr);
  bool isOpen() const { return file_ != nullptr; }
  // One record with the capture time in microseconds.
  void write(uint64_t timeUs, std::span<const uint8_t> frame);
  // Convenience: the announce wrapped in its UDP frame.
  void writeAnnounce(uint64_t timeUs, const Announce &a, const FrameAddressing &addr);
  size_t records() const { return records_; }
  void close();

 private:
  std::FILE *file_ = nullptr;
  size_t records_ = 0;
  uint16_t ipId_ = 1;
};

}  // namespace fwmtools
