#include "fwmtools/pcap.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace fwmtools {

namespace {

// Little-endian words of the file format (the magic tells readers our order).
void putU32(std::FILE *f, uint32_t v) {
  uint8_t b[4] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
                  static_cast<uint8_t>(v >> 24)};
  (void)std::fwrite(b, 1, 4, f);  // errors stay on the stream; close() reports them
}

void putU16(std::FILE *f, uint16_t v) {
  uint8_t b[2] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)};
  (void)std::fwrite(b, 1, 2, f);
}

}  // namespace

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
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) {
    if (error) *error = fmt::format("--pcap {}: cannot create the file: {}", path, std::strerror(errno));
    return false;
  }
  putU32(file_, 0xA1B2C3D4u);  // microsecond timestamps
  putU16(file_, 2);
  putU16(file_, 4);
  putU32(file_, 0);      // GMT offset
  putU32(file_, 0);      // accuracy
  putU32(file_, 65535);  // snap length
  putU32(file_, 1);      // LINKTYPE_ETHERNET
  // A device that takes no data (a full disk) is found out now, before the run.
  if (std::fflush(file_) != 0) {
    if (error) *error = fmt::format("--pcap {}: cannot write the file: {}", path, std::strerror(errno));
    std::fclose(file_);
    file_ = nullptr;
    return false;
  }
  return true;
}

void PcapWriter::write(uint64_t timeUs, std::span<const uint8_t> frame) {
  if (!file_) return;
  putU32(file_, static_cast<uint32_t>(timeUs / 1000000u));
  putU32(file_, static_cast<uint32_t>(timeUs % 1000000u));
  putU32(file_, static_cast<uint32_t>(frame.size()));
  putU32(file_, static_cast<uint32_t>(frame.size()));
  if (std::fwrite(frame.data(), 1, frame.size(), file_) != frame.size()) failed_ = true;
  ++records_;
}

bool PcapWriter::writeAnnounce(uint64_t timeUs, const Announce &a, const FrameAddressing &addr) {
  if (reportsLoss(a)) return false;
  auto wire = fwmptp::encodeAnnounce(a);
  write(timeUs, ptpFrame(wire, addr, ipId_++));
  return true;
}

bool PcapWriter::close(std::string *error) {
  if (!file_) return true;
  // Short writes and a full disk may show only when the buffer is flushed.
  bool ok = !failed_ && std::ferror(file_) == 0;
  ok = std::fclose(file_) == 0 && ok;
  file_ = nullptr;
  if (!ok && error) *error = fmt::format("--pcap {}: writing the file failed", path_);
  return ok;
}

}  // namespace fwmtools
