// The PTP profiles a capture is checked against, as data: one row each. The
// checker holds no profile's numbers of its own; a new profile is a new row.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace clkcheck {

// A closed range of log2 intervals (seconds) or of domain numbers.
struct Range {
  int lo, hi;
  constexpr bool contains(int v) const { return v >= lo && v <= hi; }
};

inline constexpr uint8_t kOverL2 = 1, kOverUdp4 = 2;  // transports, as bits
enum class Cast : uint8_t { Multicast, Unicast, Either };
enum class DelayMechanism : uint8_t { EndToEnd, PeerToPeer };

struct Profile {
  std::string_view name;   // as --profile takes it
  std::string_view title;  // for people
  Range domain;
  uint8_t transports;
  Cast cast;
  DelayMechanism delay;
  Range announce, sync, delayReq, pdelayReq;  // logMessageInterval each may carry
  bool anyL2Group;                            // Ethernet messages may go to the peer group address as well
  bool alternateMaster;                       // alternateMasterFlag may be set
  uint8_t priority1;                          // the one grandmasterPriority1 allowed; 0: any
  std::array<uint8_t, 12> clockClasses;       // those allowed, the list ending at the first 0
};

inline constexpr Profile kProfiles[] = {
    {"default-e2e",
     "IEEE 1588-2019 default delay request-response profile",
     {0, 127},
     kOverL2 | kOverUdp4,
     Cast::Either,
     DelayMechanism::EndToEnd,
     {0, 4},
     {-1, 1},
     {0, 5},
     {0, 5},
     false,
     true,
     0,
     {6, 7, 13, 14, 52, 58, 187, 193, 248, 255}},
    {"default-p2p",
     "IEEE 1588-2019 default peer-to-peer profile",
     {0, 127},
     kOverL2 | kOverUdp4,
     Cast::Either,
     DelayMechanism::PeerToPeer,
     {0, 4},
     {-1, 1},
     {0, 5},
     {0, 5},
     false,
     true,
     0,
     {6, 7, 13, 14, 52, 58, 187, 193, 248, 255}},
    {"g8275.1",
     "ITU-T G.8275.1 telecom profile (full timing support)",
     {24, 43},
     kOverL2,
     Cast::Multicast,
     DelayMechanism::EndToEnd,
     {-3, -3},
     {-4, -4},
     {-4, -4},
     {-4, -4},
     true,
     false,
     128,
     {6, 7, 135, 140, 150, 160, 165, 248, 255}},
    {"g8275.2",
     "ITU-T G.8275.2 telecom profile (partial timing support)",
     {44, 63},
     kOverUdp4,
     Cast::Unicast,
     DelayMechanism::EndToEnd,
     {-3, 0},
     {-7, 0},
     {-7, 0},
     {-7, 0},
     false,
     false,
     128,
     {6, 7, 135, 140, 150, 160, 165, 248, 255}},
};

inline const Profile *findProfile(std::string_view name) {
  for (const auto &p : kProfiles)
    if (p.name == name) return &p;
  return nullptr;
}

inline bool allowsClass(const Profile &p, uint8_t c) {
  for (uint8_t allowed : p.clockClasses)
    if (allowed == c && allowed != 0) return true;
  return false;
}

}  // namespace clkcheck
