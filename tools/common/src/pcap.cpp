#include "fwmtools/pcap.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace fwmtools {

namespace {

constexpr size_t kEthHeader = 14, kIpHeader = 20, kUdpHeader = 8;

void be16(std::vector<uint8_t> &b, size_t at, uint32_t v) {
  b[at] = static_cast<uint8_t>(v >> 8);
  b[at + 1] = static_cast<uint8_t>(v);
}

void be32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
  be16(b, at, v >> 16);
  be16(b, at + 2, v & 0xFFFFu);
}

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

uint32_t sum16(std::span<const uint8_t> bytes, uint32_t acc) {
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) acc += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
  if (bytes.size() % 2) acc += static_cast<uint32_t>(bytes.back() << 8);
  return acc;
}

uint16_t fold(uint32_t acc) {
  while (acc >> 16) acc = (acc & 0xFFFFu) + (acc >> 16);
  return static_cast<uint16_t>(~acc);
}

}  // namespace

uint16_t internetChecksum(std::span<const uint8_t> bytes) { return fold(sum16(bytes, 0)); }

std::vector<uint8_t> ptpFrame(std::span<const uint8_t> payload, const FrameAddressing &addr, uint16_t ipId) {
  const size_t tag = addr.vlanTci ? 4 : 0, eth = kEthHeader + tag;
  std::vector<uint8_t> f(eth + (addr.udp ? kIpHeader + kUdpHeader : 0) + payload.size(), 0);
  std::copy(addr.dstMac.begin(), addr.dstMac.end(), f.begin());
  std::copy(addr.srcMac.begin(), addr.srcMac.end(), f.begin() + 6);
  if (addr.vlanTci) {
    be16(f, 12, 0x8100);
    be16(f, 14, *addr.vlanTci);
  }
  be16(f, eth - 2, addr.udp ? 0x0800 : kEtherTypePtp);
  if (!addr.udp) {
    std::copy(payload.begin(), payload.end(), f.begin() + static_cast<std::ptrdiff_t>(eth));
    return f;
  }

  const size_t ip = eth;
  const auto ipLen = static_cast<uint32_t>(kIpHeader + kUdpHeader + payload.size());
  f[ip] = 0x45;  // version 4, 5 words
  f[ip + 1] = static_cast<uint8_t>(addr.dscp << 2);
  be16(f, ip + 2, ipLen);
  be16(f, ip + 4, ipId);
  be16(f, ip + 6, 0x4000);  // don't fragment
  f[ip + 8] = 1;            // TTL: PTP event and general messages stay on the link
  f[ip + 9] = 17;           // UDP
  be32(f, ip + 12, addr.srcIp);
  be32(f, ip + 16, addr.dstIp);
  be16(f, ip + 10, internetChecksum(std::span<const uint8_t>(f).subspan(ip, kIpHeader)));

  const size_t udp = ip + kIpHeader;
  const auto udpLen = static_cast<uint32_t>(kUdpHeader + payload.size());
  be16(f, udp, kPtpGeneralPort);
  be16(f, udp + 2, kPtpGeneralPort);
  be16(f, udp + 4, udpLen);
  std::copy(payload.begin(), payload.end(), f.begin() + static_cast<std::ptrdiff_t>(udp + kUdpHeader));
  // Pseudo-header: addresses, protocol, UDP length.
  std::vector<uint8_t> pseudo(12, 0);
  be32(pseudo, 0, addr.srcIp);
  be32(pseudo, 4, addr.dstIp);
  pseudo[9] = 17;
  be16(pseudo, 10, udpLen);
  uint16_t c = fold(sum16(std::span<const uint8_t>(f).subspan(udp), sum16(pseudo, 0)));
  be16(f, udp + 6, c == 0 ? 0xFFFF : c);
  return f;
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
  auto wire = ptpAnnounceWire(a);
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
