// The scalar values a scenario writes: numbers, durations, addresses,
// identities, and the names a few codes go by. Each parser takes the text
// whole and answers nothing when any of it is wrong; the loader says where.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.hpp"

namespace clksim {

// Decimal, 0x.. or 0b.. (underscores allowed), true or false.
std::optional<uint64_t> parseUnsigned(std::string s);
std::optional<uint32_t> parseIpv4(const std::string &s);  // host order
std::optional<std::array<uint8_t, 6>> parseMac(const std::string &s);

struct PortId {
  uint64_t clock = 0;
  uint16_t port = 0;
};
// "001b19.fffe.00a001-1"
std::optional<PortId> parsePortIdentity(std::string_view s);
std::string portIdentityText(const PortId &id);

// "UNIT:PORT=IFACE" (unit 0..7); nothing when malformed.
std::optional<WirePort> parseWirePort(std::string_view text);

std::string joinNames(const std::vector<std::string_view> &names);
// " (did you mean 'x'?)" for the nearest name, or nothing when none is near.
std::string suggestion(std::string_view wrong, const std::vector<std::string_view> &names);

inline constexpr CodeName kPortStates[] = {{1, "INITIALIZING"}, {2, "FAULTY"},       {3, "DISABLED"},
                                           {4, "LISTENING"},    {5, "PRE_MASTER"},   {6, "MASTER"},
                                           {7, "PASSIVE"},      {8, "UNCALIBRATED"}, {9, "SLAVE"}};
// Type 7 is carried to the engine, which gives it no meaning on the wire.
inline constexpr CodeName kPacketTypes[] =  // the orchestrator's packet types 1..8
    {{1, "Sync"},       {2, "Announce"},    {3, "Delay_Req"}, {4, "Delay_Resp"},
     {5, "Pdelay_Req"}, {6, "Pdelay_Resp"}, {8, "Follow_Up"}};
inline constexpr CodeName kNpPacketTypes[] =  // the engine's
    {{0, "Sync"}, {1, "Announce"}, {2, "Follow_Up"}, {3, "Delay_Req/Resp"}, {4, "Pdelay"}, {5, "Delay_Resp"}};
// Types 0, 1, 2, 6, 7 and 33 are the engine's own business and stay numbers.
inline constexpr CodeName kControlTypes[] = {{4, "asymmetry"},
                                             {5, "negative asymmetry"},
                                             {8, "slave port"},
                                             {9, "announce source identity check"},
                                             {10, "Sync source identity check"},
                                             {14, "announce domain check"},
                                             {15, "Delay_Req domain check"},
                                             {16, "Sync domain check"},
                                             {18, "port enable"},
                                             {26, "source IPv4"},
                                             {31, "destination board"},
                                             {32, "destination port"}};

std::string_view nameOf(CodeNames names, uint32_t code);  // empty when it has none
std::optional<uint32_t> codeOf(CodeNames names, std::string_view name);
std::vector<std::string_view> allNames(CodeNames names);

// Interval codes 0..20 stand for 2^(code - 7) s: "1 s", "15.6 ms".
inline constexpr uint32_t kMaxIntervalCode = 20;
std::string intervalText(uint32_t code);
// A duration that is one of those intervals ("125ms", "2s") as its code.
std::optional<uint32_t> intervalCode(std::string_view duration);

// Library lines name codes by number ("State=[9]"); the same line with
// each known code's name after it ("State=[9] SLAVE").
std::string annotateCodes(std::string_view line);

}  // namespace clksim
