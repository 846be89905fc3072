#include "values.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/ether.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

#include "fwmtools/announce.hpp"

namespace clksim {

namespace {

size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diag = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t up = row[j];
      bool same =
          std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (same ? 0 : 1)});
      diag = up;
    }
  }
  return row[b.size()];
}

}  // namespace

std::optional<uint64_t> parseUnsigned(std::string s) {
  if (s == "true") return 1;
  if (s == "false") return 0;
  s.erase(std::remove(s.begin(), s.end(), '_'), s.end());
  int base = 10;
  size_t i = 0;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'))
    base = 16, i = 2;
  else if (s.size() > 2 && s[0] == '0' && (s[1] == 'b' || s[1] == 'B'))
    base = 2, i = 2;
  uint64_t v = 0;
  const char *first = s.data() + i, *last = s.data() + s.size();
  // from_chars takes no sign or blank, so neither can slip through.
  auto [end, ec] = std::from_chars(first, last, v, base);
  if (first == last || ec != std::errc() || end != last) return std::nullopt;
  return v;
}

std::optional<uint32_t> parseIpv4(const std::string &s) {
  in_addr a{};
  if (inet_pton(AF_INET, s.c_str(), &a) != 1) return std::nullopt;
  return ntohl(a.s_addr);
}

std::optional<std::array<uint8_t, 6>> parseMac(const std::string &s) {
  // ether_aton_r stops reading after the sixth octet; the rest must be nothing.
  if (std::count(s.begin(), s.end(), ':') != 5 ||
      std::any_of(s.begin(), s.end(), [](char c) { return !std::isxdigit(static_cast<unsigned char>(c)) && c != ':'; }))
    return std::nullopt;
  ether_addr e{};
  if (ether_aton_r(s.c_str(), &e) == nullptr) return std::nullopt;
  std::array<uint8_t, 6> out{};
  std::copy(std::begin(e.ether_addr_octet), std::end(e.ether_addr_octet), out.begin());
  return out;
}

std::optional<PortId> parsePortIdentity(std::string_view s) {
  const size_t dash = s.rfind('-');
  if (dash == std::string_view::npos) return std::nullopt;
  auto port = parseUnsigned(std::string(s.substr(dash + 1)));
  auto clock = fwmtools::parseClockIdentity(std::string(s.substr(0, dash)));
  if (!port || *port > 0xFFFF || !clock) return std::nullopt;
  return PortId{*clock, static_cast<uint16_t>(*port)};
}

std::string portIdentityText(const PortId &id) {
  return fmt::format("{}-{}", fwmtools::clockIdentityText(id.clock), id.port);
}

std::optional<WirePort> parseWirePort(std::string_view text) {
  const size_t colon = text.find(':'), eq = text.find('=');
  if (colon == std::string_view::npos || eq == std::string_view::npos || eq < colon || eq + 1 == text.size())
    return std::nullopt;
  auto number = [](std::string_view digits, uint32_t max) -> std::optional<uint32_t> {
    uint32_t v = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v);
    if (ec != std::errc() || end != digits.data() + digits.size() || digits.empty() || v > max) return std::nullopt;
    return v;
  };
  auto unit = number(text.substr(0, colon), 7);
  auto port = number(text.substr(colon + 1, eq - colon - 1), 0xFFFFFFFFu);
  if (!unit || !port) return std::nullopt;
  return WirePort{*unit, *port, std::string(text.substr(eq + 1))};
}

std::string joinNames(const std::vector<std::string_view> &names) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i) out += ", ";
    out += names[i];
  }
  return out;
}

std::string suggestion(std::string_view wrong, const std::vector<std::string_view> &names) {
  std::string_view best;
  size_t bestD = std::numeric_limits<size_t>::max();
  for (auto n : names) {
    size_t d = editDistance(wrong, n);
    if (d < bestD) bestD = d, best = n;
  }
  if (best.empty() || bestD > std::max<size_t>(2, wrong.size() / 3)) return {};
  return std::string(" (did you mean '") + std::string(best) + "'?)";
}

std::string_view nameOf(CodeNames names, uint32_t code) {
  for (const auto &n : names)
    if (n.code == code) return n.name;
  return {};
}

std::optional<uint32_t> codeOf(CodeNames names, std::string_view name) {
  for (const auto &n : names)
    if (n.name == name) return n.code;
  return std::nullopt;
}

std::vector<std::string_view> allNames(CodeNames names) {
  std::vector<std::string_view> out;
  for (const auto &n : names) out.push_back(n.name);
  return out;
}

std::string intervalText(uint32_t code) {
  if (code > kMaxIntervalCode) return "not an interval";
  if (code >= 7) return fmt::format("{} s", 1u << (code - 7));
  return fmt::format("{:.3g} ms", 1000.0 / static_cast<double>(1u << (7 - code)));
}

std::optional<uint32_t> intervalCode(std::string_view duration) {
  std::string s(duration);
  double factor = 1;
  if (s.ends_with("ms"))
    s.resize(s.size() - 2);
  else if (s.ends_with("s"))
    s.resize(s.size() - 1), factor = 1000;
  else
    return std::nullopt;
  char *end = nullptr;
  const double ms = std::strtod(s.c_str(), &end) * factor;
  if (s.empty() || end != s.c_str() + s.size()) return std::nullopt;
  for (uint32_t code = 0; code <= kMaxIntervalCode; ++code)
    if (ms == std::ldexp(1000.0, static_cast<int>(code) - 7)) return code;
  return std::nullopt;
}

bool parseDuration(std::string_view text, uint64_t &ms) {
  std::string s(text);
  size_t i = 0;
  while (i < s.size() && (std::isdigit(static_cast<unsigned char>(s[i])) || s[i] == '.')) ++i;
  if (i == 0) return false;
  std::string num = s.substr(0, i), unit = s.substr(i);
  while (!unit.empty() && unit.front() == ' ') unit.erase(0, 1);
  char *end = nullptr;
  double v = std::strtod(num.c_str(), &end);
  if (!end || *end != '\0' || v < 0) return false;
  double factor;
  if (unit.empty() || unit == "ms")
    factor = 1;
  else if (unit == "s")
    factor = 1000;
  else if (unit == "min")
    factor = 60000;
  else
    return false;
  double total = v * factor;
  if (total > 1e12 || total != std::floor(total)) return false;
  ms = static_cast<uint64_t>(total);
  return true;
}

std::string formatDuration(uint64_t ms) {
  if (ms % 1000 == 0) return std::to_string(ms / 1000) + "s";
  return std::to_string(ms) + "ms";
}

std::string annotateCodes(std::string_view line) {
  if (line.find("1588.(parameter in ") == std::string_view::npos) return std::string(line);
  const bool timeout = line.find("SetAnnounceTimeout") != std::string_view::npos;
  std::string out;
  size_t from = 0;
  for (size_t at = line.find("=["); at != std::string_view::npos; at = line.find("=[", at + 2)) {
    const size_t close = line.find(']', at);
    if (close == std::string_view::npos) break;
    size_t start = at;
    while (start > 0 && std::isalpha(static_cast<unsigned char>(line[start - 1]))) --start;
    const std::string_view key = line.substr(start, at - start);
    uint32_t code = 0;
    auto [end, ec] = std::from_chars(line.data() + at + 2, line.data() + close, code);
    if (ec != std::errc() || end != line.data() + close) continue;
    std::string name;
    if (key == "State")
      name = nameOf(kPortStates, code);
    else if (key == "PktType")
      name = nameOf(kNpPacketTypes, code);
    else if (key == "Type")
      name = nameOf(kControlTypes, code);
    else if (key == "Interval")
      name = timeout && code == 0 ? "(as the announces heard)" : "(" + intervalText(code) + ")";
    if (name.empty()) continue;
    out.append(line.substr(from, close + 1 - from)).append(" ").append(name);
    from = close + 1;
  }
  return out.append(line.substr(from));
}

}  // namespace clksim
