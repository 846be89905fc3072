// The frames that carry IEEE 1588 messages on a port: Ethernet (ethertype
// 0x88F7) or IPv4/UDP, each with an optional 802.1Q tag. Built whole, so that
// the engine's programmed addresses, tag, DSCP and TTL are exactly what goes
// out, and parsed back the same way.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace fwmptp {

using MacAddr = std::array<uint8_t, 6>;

struct FrameLayout {
  MacAddr dstMac{};
  MacAddr srcMac{};
  uint32_t vlanTag = 0;  // TPID in the upper 16 bits, TCI below; 0 = untagged
  bool ipv4 = false;     // IPv4/UDP; otherwise the PTP ethertype
  uint32_t srcIp = 0;    // host order
  uint32_t dstIp = 0;
  uint8_t dscp = 0;
  uint8_t ttl = 1;  // PTP messages stay on the link
  uint16_t udpPort = 320;
  uint16_t ipId = 0;
};

std::vector<uint8_t> buildFrame(std::span<const uint8_t> payload, const FrameLayout &layout);

// A received frame's PTP payload and how it came. Nothing when the frame is
// not addressed to PTP (other ethertypes, other protocols, other UDP ports)
// or is cut short before the payload.
struct ParsedFrame {
  std::span<const uint8_t> payload;
  MacAddr dstMac{};
  MacAddr srcMac{};
  std::optional<uint16_t> vlanTci;
  bool ipv4 = false;
  uint32_t srcIp = 0;
  uint32_t dstIp = 0;
  uint8_t dscp = 0;
  uint16_t udpPort = 0;
};
std::optional<ParsedFrame> parseFrame(std::span<const uint8_t> frame);

// The one's-complement sum of RFC 1071 over `bytes`, folded and inverted.
uint16_t internetChecksum(std::span<const uint8_t> bytes);

}  // namespace fwmptp
