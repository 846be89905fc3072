// clkcheck: does a capture keep its PTP profile? Reads a pcap or pcapng file
// one frame at a time, decodes every PTP message with the project's codec and
// checks each port's messages against the profile's rules (and, given a
// clksim scenario, against what it programmed each port to send).
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <variant>

#include "capture.hpp"
#include "checker.hpp"
#include "fwmtools/cli.hpp"
#include "loader.hpp"
#include "programmed.hpp"
#include "report.hpp"

namespace {

constexpr int kKeeps = 0, kFindings = 1, kUnreadable = 2;

std::string footer() {
  std::string s = "Profiles:";
  for (const auto &p : clkcheck::kProfiles) s += fmt::format("\n  {:<12} {}", p.name, p.title);
  s += "\nRules (the word in brackets on each finding):";
  for (const auto &r : clkcheck::kRules) s += fmt::format("\n  {:<12} {}", r.name, r.what);
  return s + fmt::format(
                 "\nExit codes:\n  {}  the capture keeps the profile\n  {}  findings\n  {}  the capture "
                 "cannot be read or is not one, or the command line or the scenario was refused",
                 kKeeps, kFindings, kUnreadable);
}

}  // namespace

int main(int argc, char **argv) {
  std::string capture, profileName = "default-e2e", scenario, format = "text";
  CLI::App app{"clkcheck: checks that the PTP messages of a capture keep their profile"};
  app.add_option("CAPTURE", capture, "pcap or pcapng file (Ethernet; PTP over Ethernet or UDP/IPv4, VLAN tags too)")
      ->required();
  std::vector<std::string> names;
  for (const auto &p : clkcheck::kProfiles) names.emplace_back(p.name);
  app.add_option("--profile", profileName, "the profile to check against")
      ->check(CLI::IsMember(names))
      ->capture_default_str();
  app.add_option("--programmed", scenario,
                 "also check each port against what this clksim SCENARIO programmed it to send");
  app.add_option("--format", format, "text for people, jsonl for machines (one object a line)")
      ->check(CLI::IsMember({"text", "jsonl"}))
      ->capture_default_str();
  app.set_version_flag("--version", "clkcheck " FWMCLK_VERSION);
  app.footer(footer());
  if (auto rc = fwmtools::parseCommandLine(app, argc, argv)) return *rc;
  const clkcheck::Profile &profile = *clkcheck::findProfile(profileName);

  std::optional<clkcheck::ProgrammedCheck> programmed;
  if (!scenario.empty()) {
    auto loaded = clksim::loadScenarioFile(scenario);
    if (const auto *e = std::get_if<clksim::LoadError>(&loaded)) {
      fmt::print(stderr, "clkcheck: {}\n", e->text());
      return kUnreadable;
    }
    programmed.emplace(clkcheck::programmedPorts(std::get<clksim::Scenario>(loaded)));
  }
  clkcheck::CaptureReader reader;
  std::string error;
  if (!reader.open(capture, &error)) {
    fmt::print(stderr, "clkcheck: {}\n", error);
    return kUnreadable;
  }
  auto out = format == "jsonl" ? clkcheck::makeJsonlOutput(stdout) : clkcheck::makeTextOutput(stdout);
  clkcheck::Checker checker(profile, [&](const clkcheck::Finding &f) { out->finding(f); });
  if (programmed) checker.addCheck([&](const auto &m, const auto &report) { programmed->check(m, report); });
  clkcheck::Packet packet;
  while (reader.next(packet)) checker.frame(packet);
  checker.finish();
  if (programmed)
    for (const auto &f : programmed->silent(checker)) checker.report(f);
  // What was read is reported even when the file breaks off.
  out->end(checker, profile);
  if (!reader.error().empty()) {
    fmt::print(stderr, "clkcheck: {}: {}\n", capture, reader.error());
    return kUnreadable;
  }
  return checker.findings() == 0 ? kKeeps : kFindings;
}
