#include "fwmptp/frame.hpp"

#include <algorithm>

#include "fwmptp/announce.hpp"

namespace fwmptp {

namespace {

constexpr size_t kEthHeader = 14, kTag = 4, kIpHeader = 20, kUdpHeader = 8;
constexpr uint16_t kIpv4 = 0x0800, kVlan = 0x8100;
constexpr uint8_t kUdp = 17;

void be16(std::vector<uint8_t> &b, size_t at, uint32_t v) {
  b[at] = static_cast<uint8_t>(v >> 8);
  b[at + 1] = static_cast<uint8_t>(v);
}

void be32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
  be16(b, at, v >> 16);
  be16(b, at + 2, v & 0xFFFFu);
}

uint16_t get16(std::span<const uint8_t> b, size_t at) { return static_cast<uint16_t>(b[at] << 8 | b[at + 1]); }

uint32_t sum16(std::span<const uint8_t> bytes, uint32_t acc) {
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) acc += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
  if (bytes.size() % 2) acc += static_cast<uint32_t>(bytes.back() << 8);
  return acc;
}

uint16_t fold(uint32_t acc) {
  // Two folds reach 16 bits from any 32-bit sum: the first leaves at most 0x1FFFE.
  acc = (acc & 0xFFFFu) + (acc >> 16);
  acc = (acc & 0xFFFFu) + (acc >> 16);
  return static_cast<uint16_t>(~acc);
}

}  // namespace

uint16_t internetChecksum(std::span<const uint8_t> bytes) { return fold(sum16(bytes, 0)); }

std::vector<uint8_t> buildFrame(std::span<const uint8_t> payload, const FrameLayout &layout) {
  const size_t l2 = kEthHeader + (layout.vlanTag ? kTag : 0);
  const size_t l3 = layout.ipv4 ? kIpHeader + kUdpHeader : 0;
  std::vector<uint8_t> f(l2 + l3 + payload.size(), 0);
  std::copy(layout.dstMac.begin(), layout.dstMac.end(), f.begin());
  std::copy(layout.srcMac.begin(), layout.srcMac.end(), f.begin() + 6);
  if (layout.vlanTag) be32(f, 12, layout.vlanTag);
  be16(f, l2 - 2, layout.ipv4 ? kIpv4 : kEthertype);
  std::copy(payload.begin(), payload.end(), f.begin() + static_cast<std::ptrdiff_t>(l2 + l3));
  if (!layout.ipv4) return f;

  const size_t ip = l2;
  f[ip] = 0x45;  // version 4, 5 words
  f[ip + 1] = static_cast<uint8_t>(layout.dscp << 2);
  be16(f, ip + 2, static_cast<uint32_t>(l3 + payload.size()));
  be16(f, ip + 4, layout.ipId);
  be16(f, ip + 6, 0x4000);  // don't fragment
  f[ip + 8] = layout.ttl;
  f[ip + 9] = kUdp;
  be32(f, ip + 12, layout.srcIp);
  be32(f, ip + 16, layout.dstIp);
  be16(f, ip + 10, internetChecksum(std::span<const uint8_t>(f).subspan(ip, kIpHeader)));

  const size_t udp = ip + kIpHeader;
  const auto udpLen = static_cast<uint32_t>(kUdpHeader + payload.size());
  be16(f, udp, layout.udpPort);
  be16(f, udp + 2, layout.udpPort);
  be16(f, udp + 4, udpLen);
  // Pseudo-header: addresses, protocol, UDP length.
  std::vector<uint8_t> pseudo(12, 0);
  be32(pseudo, 0, layout.srcIp);
  be32(pseudo, 4, layout.dstIp);
  pseudo[9] = kUdp;
  be16(pseudo, 10, udpLen);
  uint16_t c = fold(sum16(std::span<const uint8_t>(f).subspan(udp), sum16(pseudo, 0)));
  be16(f, udp + 6, c == 0 ? 0xFFFF : c);
  return f;
}

std::optional<ParsedFrame> parseFrame(std::span<const uint8_t> f) {
  if (f.size() < kEthHeader) return std::nullopt;
  ParsedFrame p;
  std::copy(f.begin(), f.begin() + 6, p.dstMac.begin());
  std::copy(f.begin() + 6, f.begin() + 12, p.srcMac.begin());
  size_t at = 12;
  uint16_t type = get16(f, at);
  if (type == kVlan) {
    if (f.size() < kEthHeader + kTag) return std::nullopt;
    p.vlanTci = get16(f, at + 2);
    at += kTag;
    type = get16(f, at);
  }
  at += 2;
  if (type == kEthertype) {
    p.payload = f.subspan(at);
    return p;
  }
  if (type != kIpv4 || f.size() < at + kIpHeader) return std::nullopt;
  const size_t ihl = (f[at] & 0x0Fu) * 4u;
  if ((f[at] >> 4) != 4 || ihl < kIpHeader || f[at + 9] != kUdp || f.size() < at + ihl + kUdpHeader)
    return std::nullopt;
  p.ipv4 = true;
  p.dscp = static_cast<uint8_t>(f[at + 1] >> 2);
  p.srcIp = static_cast<uint32_t>(get16(f, at + 12)) << 16 | get16(f, at + 14);
  p.dstIp = static_cast<uint32_t>(get16(f, at + 16)) << 16 | get16(f, at + 18);
  const size_t udp = at + ihl;
  p.udpPort = get16(f, udp + 2);
  if (p.udpPort != kEventPort && p.udpPort != kGeneralPort) return std::nullopt;
  const size_t udpLen = get16(f, udp + 4);
  const size_t end = std::min(f.size(), udp + std::max(udpLen, kUdpHeader));
  p.payload = f.subspan(udp + kUdpHeader, end - udp - kUdpHeader);
  return p;
}

}  // namespace fwmptp
