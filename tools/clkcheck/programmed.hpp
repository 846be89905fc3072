// What a clksim scenario programmed each engine port to send, read from the
// orchestrator's requests as the scenario loader turned them into records,
// and the check of a capture's messages against it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "checker.hpp"
#include "scenario.hpp"

namespace clkcheck {

struct ProgrammedPort {
  uint32_t unit = 0, port = 0;
  std::optional<PortKey> identity;  // set_ptp_tx_src_port_id
  std::optional<uint32_t> domain, encap, vlanId, destIp;
  std::optional<int> logAnnounce, logSync;                          // set by an enabled transmit control
  bool followUp = false;                                            // two-step: Follow_Up transmit enabled
  std::set<std::tuple<uint64_t, uint32_t, uint32_t>> grandmasters;  // identity, priority1, clockClass
};

// The ports the scenario's requests program, in the order first named.
std::vector<ProgrammedPort> programmedPorts(const clksim::Scenario &sc);

class ProgrammedCheck {
 public:
  explicit ProgrammedCheck(std::vector<ProgrammedPort> ports) : ports_(std::move(ports)) {}
  // One message against its port's programming (messages of other ports pass).
  void check(const Seen &m, const std::function<void(std::string_view, std::string)> &report);
  // Programmed ports that should have sent but never appear in the capture.
  std::vector<Finding> silent(const Checker &c) const;

 private:
  std::vector<ProgrammedPort> ports_;
};

}  // namespace clkcheck
