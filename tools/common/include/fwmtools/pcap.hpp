// Classic pcap files (nanosecond time stamps, written by libpcap) of PTP
// messages, as a capture on the line card's port would show them: Ethernet
// (with an 802.1Q tag where the port has one), then the PTP message directly
// (EtherType 0x88F7) or in UDP/IPv4 to the general port 320.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fwmptp/announce.hpp"
#include "fwmptp/frame.hpp"
#include "fwmtools/announce.hpp"

struct pcap;
struct pcap_dumper;

namespace fwmtools {

inline constexpr uint16_t kPtpGeneralPort = fwmptp::kGeneralPort;

struct FrameAddressing {
  bool udp = true;                  // UDP/IPv4; false: the message right after the Ethernet header
  std::optional<uint16_t> vlanTci;  // 802.1Q priority, DEI and VLAN id, when the port tags
  uint8_t dscp = 0;
  std::array<uint8_t, 6> srcMac{0x00, 0x1b, 0x19, 0x00, 0x00, 0x01};
  std::array<uint8_t, 6> dstMac{0x01, 0x00, 0x5e, 0x00, 0x01, 0x81};  // 224.0.1.129
  uint32_t srcIp = 0x0A000001u;                                       // host order
  uint32_t dstIp = 0xE0000181u;                                       // 224.0.1.129
};

// The frame around one PTP message as `addr` says, checksums filled in.
std::vector<uint8_t> ptpFrame(std::span<const uint8_t> payload, const FrameAddressing &addr, uint16_t ipId);

// An acknowledgement with no grandmaster or no source port identity tells
// the peer that the announces stopped; no such announce was ever on the
// wire, and written as one it would look like the best clock there is.
inline bool reportsLoss(const Announce &a) { return a.grandmasterIdentity == 0 || a.sourceClockIdentity == 0; }

using fwmptp::internetChecksum;

class PcapWriter {
 public:
  PcapWriter() = default;
  ~PcapWriter();
  PcapWriter(const PcapWriter &) = delete;
  PcapWriter &operator=(const PcapWriter &) = delete;

  // Creates the file and writes the global header (Ethernet link type).
  bool open(const std::string &path, std::string *error = nullptr);
  bool isOpen() const { return dumper_ != nullptr; }
  // One record with the capture time in microseconds since 1970.
  void write(uint64_t timeUs, std::span<const uint8_t> frame);
  // The announce in its frame; false, and nothing written, when it reports a
  // loss (see reportsLoss).
  bool writeAnnounce(uint64_t timeUs, const Announce &a, const FrameAddressing &addr);
  size_t records() const { return records_; }
  // Flushes and closes; false when any write failed, with the reason.
  bool close(std::string *error = nullptr);

 private:
  ::pcap *dead_ = nullptr;
  ::pcap_dumper *dumper_ = nullptr;
  std::string path_;
  bool failed_ = false;
  size_t records_ = 0;
  uint16_t ipId_ = 1;
};

}  // namespace fwmtools
