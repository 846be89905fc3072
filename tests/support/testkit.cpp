#include "testkit.hpp"

#include "fwmclk/diag.h"

namespace fwmtest {

std::vector<std::string> callsSince(size_t mark, const std::string &facility) {
  std::vector<std::string> out;
  auto events = fwmsim::recorder().events();
  for (size_t i = mark; i < events.size(); ++i)
    if (events[i].facility == facility) out.push_back(events[i].text);
  return out;
}

std::vector<std::string> agentLines() {
  std::vector<std::string> out;
  for (const auto &d : fwmsim::agent().delivered()) out.push_back(d.level + " " + d.text);
  return out;
}

void dirtyStack() {
  volatile uint8_t junk[16384];
  for (auto &b : junk) b = 0xA5;
}
void adoptAgent(uint32_t handle) {
  fwmsim::agent().existingHandle = handle;
  FWM_SRV_ORCH_CLK_ImAgentInit();
}

std::string hex(std::span<const uint8_t> bytes) {
  std::string out;
  for (uint8_t b : bytes) out += "0123456789abcdef"[b >> 4], out += "0123456789abcdef"[b & 15];
  return out;
}

}  // namespace fwmtest
