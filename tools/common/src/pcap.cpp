#include "fwmtools/pcap.hpp"

namespace fwmtools {

namespace {

// Little-endian words of the file format (the magic tells readers our order).
void putU32(std::FILE *f, uint32_t v) {
  uint8_t b[4] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
                  static_cast<uint8_t>(v >> 24)};
  std::fwrite(b, 1, 4, f);
}

void putU16(std::FILE *f, uint16_t v) {
  uint8_t b[2] = {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)};
  std::fwrite(b, 1, 2, f);
}

}  // namespace

std::vector<uint8_t> udpFrame(std::span<const uint8_t> payload, const FrameAddressing &addr, uint16_t ipId) {
  fwmptp::FrameLayout layout;
  layout.dstMac = addr.dstMac;
  layout.srcMac = addr.srcMac;
  layout.ipv4 = true;
  layout.srcIp = addr.srcIp;
  layout.dstIp = addr.dstIp;
  layout.udpPort = kPtpGeneralPort;
  layout.ipId = ipId;
  return fwmptp::buildFrame(payload, layout);
}

PcapWriter::~PcapWriter() { close(); }

bool PcapWriter::open(const std::string &path, std::string *error) {
  close();
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) {
    if (error) *error = "cannot create " + path;
    return false;
  }
  putU32(file_, 0xA1B2C3D4u);  // microsecond timestamps
  putU16(file_, 2);
  putU16(file_, 4);
  putU32(file_, 0);      // GMT offset
  putU32(file_, 0);      // accuracy
  putU32(file_, 65535);  // snap length
  putU32(file_, 1);      // LINKTYPE_ETHERNET
  return true;
}

void PcapWriter::write(uint64_t timeUs, std::span<const uint8_t> frame) {
  if (!file_) return;
  putU32(file_, static_cast<uint32_t>(timeUs / 1000000u));
  putU32(file_, static_cast<uint32_t>(timeUs % 1000000u));
  putU32(file_, static_cast<uint32_t>(frame.size()));
  putU32(file_, static_cast<uint32_t>(frame.size()));
  std::fwrite(frame.data(), 1, frame.size(), file_);
  ++records_;
}

void PcapWriter::writeAnnounce(uint64_t timeUs, const Announce &a, const FrameAddressing &addr) {
  auto wire = fwmptp::encodeAnnounce(a);
  write(timeUs, udpFrame(wire, addr, ipId_++));
}

void PcapWriter::close() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
}

}  // namespace fwmtools
