#include "fwmtools/pcap.hpp"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace fwmtools {

std::vector<uint8_t> ptpFrame(std::span<const uint8_t> payload, const FrameAddressing &addr, uint16_t ipId) {
  fwmptp::FrameLayout layout;
  layout.dstMac = addr.dstMac;
  layout.srcMac = addr.srcMac;
  layout.vlanTag = addr.vlanTci ? (0x8100u << 16 | *addr.vlanTci) : 0;
  layout.ipv4 = addr.udp;
  layout.srcIp = addr.srcIp;
  layout.dstIp = addr.dstIp;
  layout.dscp = addr.dscp;
  layout.udpPort = kPtpGeneralPort;
  layout.ipId = ipId;
  return fwmptp::buildFrame(payload, layout);
}

PcapWriter::~PcapWriter() { close(); }

bool PcapWriter::open(const std::string &path, std::string *error) {
  close();
  path_ = path;
  failed_ = false;
  // The file is ours to open, so that a refusal names the system's reason.
  std::FILE *file = std::fopen(path.c_str(), "wb");
  if (!file) {
    if (error) *error = fmt::format("--pcap {}: cannot create the file: {}", path, std::strerror(errno));
    return false;
  }
  dead_ = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, 65535, PCAP_TSTAMP_PRECISION_NANO);
  dumper_ = dead_ ? pcap_dump_fopen(dead_, file) : nullptr;
  // A device that takes no data (a full disk) is found out now, before the run.
  if (!dumper_ || pcap_dump_flush(dumper_) != 0) {
    const int why = errno;
    if (error) *error = fmt::format("--pcap {}: cannot write the file: {}", path, std::strerror(why));
    if (dumper_) {
      pcap_dump_close(dumper_);
    } else {
      std::fclose(file);
    }
    dumper_ = nullptr;
    close();
    return false;
  }
  return true;
}

void PcapWriter::write(uint64_t timeUs, std::span<const uint8_t> frame) {
  if (!dumper_) return;
  pcap_pkthdr h{};
  h.ts.tv_sec = static_cast<time_t>(timeUs / 1000000u);
  h.ts.tv_usec = static_cast<suseconds_t>(timeUs % 1000000u * 1000u);  // nanoseconds in this file
  h.caplen = h.len = static_cast<bpf_u_int32>(frame.size());
  pcap_dump(reinterpret_cast<u_char *>(dumper_), &h, frame.data());
  if (std::ferror(pcap_dump_file(dumper_))) failed_ = true;
  ++records_;
}

bool PcapWriter::writeAnnounce(uint64_t timeUs, const Announce &a, const FrameAddressing &addr) {
  if (reportsLoss(a)) return false;
  auto wire = fwmptp::encodeAnnounce(a);
  write(timeUs, ptpFrame(wire, addr, ipId_++));
  return true;
}

bool PcapWriter::close(std::string *error) {
  bool ok = true;
  if (dumper_) {
    // Short writes and a full disk may show only when the buffer is flushed.
    ok = !failed_ && pcap_dump_flush(dumper_) == 0 && std::ferror(pcap_dump_file(dumper_)) == 0;
    pcap_dump_close(dumper_);
    dumper_ = nullptr;
    if (!ok && error) *error = fmt::format("--pcap {}: writing the file failed", path_);
  }
  if (dead_) pcap_close(dead_);
  dead_ = nullptr;
  return ok;
}

}  // namespace fwmtools
