// clkpeer: a stand-alone clock negotiation peer. Listens on the loopback
// address for the clock service's announce acknowledgements, decodes each one
// and prints it, or writes it to a pcap file as the announce it carries. With
// --decide it also weighs what each port heard against the card's own data
// set and prints every decision that differs from the one before.
#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "fwmtools/ack_json.hpp"
#include "fwmtools/ack_text.hpp"
#include "fwmtools/announce.hpp"
#include "fwmtools/cli.hpp"
#include "fwmtools/negotiator.hpp"
#include "fwmtools/pcap.hpp"
#include "fwmtools/sender.hpp"
#include "fwmtools/udp_peer.hpp"

namespace {

volatile std::sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }

struct Options {
  std::string listen = "127.0.0.1:39011";
  std::string format = "text";
  std::string pcap;
  size_t count = 0;     // stop after this many acknowledgements (0 = never)
  uint32_t idleMs = 0;  // stop after this long without a datagram (0 = never)
  bool decide = false;
  std::string profile = "default";
  std::string identity;
  fwmtools::bmca::LocalClock self;
  std::vector<std::string> ports;
};

// "IFINDEX[:LOCALPRIORITY][:master-only]"; the port is numbered by its place.
std::optional<std::pair<uint32_t, fwmtools::PeerPort>> portOption(const std::string &text, uint16_t number) {
  auto num = [](const std::string &s, unsigned long max) -> std::optional<unsigned long> {
    if (s.empty() || s.size() > 10 || s.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    unsigned long v = std::stoul(s);
    return v <= max ? std::optional(v) : std::nullopt;
  };
  std::vector<std::string> parts;
  for (size_t at = 0;;) {
    size_t colon = text.find(':', at);
    parts.push_back(text.substr(at, colon - at));
    if (colon == std::string::npos) break;
    at = colon + 1;
  }
  fwmtools::PeerPort p{number, 128, false};
  if (!parts.empty() && parts.back() == "master-only") {
    p.masterOnly = true;
    parts.pop_back();
  }
  auto ifIndex = parts.empty() ? std::nullopt : num(parts[0], UINT32_MAX);
  if (!ifIndex || parts.size() > 2) return std::nullopt;
  if (parts.size() == 2) {
    auto lp = num(parts[1], 255);
    if (!lp) return std::nullopt;
    p.localPriority = static_cast<uint8_t>(*lp);
  }
  return std::pair{static_cast<uint32_t>(*ifIndex), p};
}

// The negotiator the options describe, or why they do not describe one.
std::optional<fwmtools::Negotiator> negotiatorOf(Options &opt, std::string *why) {
  std::vector<fwmtools::PeerPort> ports;
  std::vector<uint32_t> ifIndexes;
  for (const auto &text : opt.ports) {
    auto p = portOption(text, static_cast<uint16_t>(ports.size() + 1));
    if (!p) {
      *why = fmt::format("--port '{}': expected IFINDEX[:LOCALPRIORITY][:master-only], e.g. 3:128:master-only", text);
      return std::nullopt;
    }
    if (std::find(ifIndexes.begin(), ifIndexes.end(), p->first) != ifIndexes.end()) {
      *why = fmt::format("--port '{}': ifIndex {} is given twice", text, p->first);
      return std::nullopt;
    }
    ifIndexes.push_back(p->first);
    ports.push_back(p->second);
  }
  auto id = fwmtools::parseClockIdentity(opt.identity);
  if (!id || *id == 0) {
    *why = fmt::format("--identity '{}': expected the card's clock identity like 001b19.fffe.00a001", opt.identity);
    return std::nullopt;
  }
  opt.self.identity = *id;
  if (ports.empty()) {
    *why = "--decide needs the card's ports: --port IFINDEX[:LOCALPRIORITY][:master-only], once for each";
    return std::nullopt;
  }
  fwmtools::Negotiator n(opt.profile == "telecom" ? fwmtools::bmca::Profile::Telecom : fwmtools::bmca::Profile::Default,
                         opt.self, ports);
  for (size_t i = 0; i < ports.size(); ++i) n.route(ifIndexes[i], ports[i].number);
  return n;
}

}  // namespace

int main(int argc, char **argv) {
  Options opt;
  CLI::App app{"clkpeer: a clock negotiation peer that prints the announce acknowledgements it receives"};
  app.add_option("-l,--listen", opt.listen, "HOST:PORT or PORT to listen on (port 0 picks a free one)")
      ->capture_default_str();
  app.add_option("--format", opt.format, "text for people, jsonl for machines (one object a line)")
      ->check(CLI::IsMember({"text", "jsonl"}))
      ->capture_default_str();
  app.add_option("--pcap", opt.pcap,
                 "also write each announce as an IEEE 1588 message to this pcap file (not the acknowledgements that "
                 "report a loss: they were never an announce)");
  app.add_option("-n,--count", opt.count, "exit after this many acknowledgements");
  app.add_option("--idle-exit-ms", opt.idleMs, "exit after this many milliseconds without a datagram");
  app.add_flag("--decide", opt.decide,
               "decide as a boundary clock's peer: each port's state and the parent, printed when it changes");
  app.add_option("--profile", opt.profile, "how to compare: default (IEEE 1588) or telecom (G.8275.1)")
      ->check(CLI::IsMember({"default", "telecom"}))
      ->capture_default_str();
  auto *decide = app.get_option("--decide");
  app.add_option("--identity", opt.identity, "the card's clock identity, e.g. 001b19.fffe.00a001")->needs(decide);
  app.add_option("--priority1", opt.self.priority1, "the card's priority1")->capture_default_str();
  app.add_option("--priority2", opt.self.priority2, "the card's priority2")->capture_default_str();
  app.add_option("--clock-class", opt.self.clockClass, "the card's clock class")->capture_default_str();
  app.add_option("--clock-accuracy", opt.self.clockAccuracy, "the card's clock accuracy")->capture_default_str();
  app.add_option("--variance", opt.self.variance, "the card's offsetScaledLogVariance")->capture_default_str();
  app.add_option("--local-priority", opt.self.localPriority, "the card's own localPriority (telecom)")
      ->capture_default_str();
  app.add_option("--port", opt.ports,
                 "a port of the card, numbered 1, 2, ... in the order given: IFINDEX[:LOCALPRIORITY][:master-only]")
      ->needs(decide);
  app.set_version_flag("--version", "clkpeer " FWMCLK_VERSION " (" FWMCLK_SONAME ")");
  app.footer(fwmtools::exitCodeHelp(fwmtools::Tool::Clkpeer));
  if (auto rc = fwmtools::parseCommandLine(app, argc, argv)) return *rc;

  auto at = fwmtools::parseEndpoint(opt.listen, true);
  if (!at) {
    fmt::print(stderr, "clkpeer: --listen {}: expected HOST:PORT\n", opt.listen);
    return fwmtools::kExitRefused;
  }
  std::string err;
  std::optional<fwmtools::Negotiator> negotiator;
  if (opt.decide && !(negotiator = negotiatorOf(opt, &err))) {
    fmt::print(stderr, "clkpeer: {}\n", err);
    return fwmtools::kExitRefused;
  }
  fwmtools::PcapWriter pcap;
  if (!opt.pcap.empty() && !pcap.open(opt.pcap, &err)) {
    fmt::print(stderr, "clkpeer: {}\n", err);
    return fwmtools::kExitOutput;
  }
  fwmtools::UdpSocket sock;
  if (!sock.bind(*at, &err)) {
    fmt::print(stderr, "clkpeer: {}\n", err);
    return fwmtools::kExitSocket;
  }
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  fmt::print(stderr, "clkpeer: listening on {}:{}\n", at->host, sock.localPort());
  std::fflush(stderr);

  size_t datagrams = 0, acks = 0, skipped = 0;
  // Each decision that differs from the one before; the first is the card
  // on its own, before it heard anything.
  auto printDecision = [&] {
    auto d = negotiator->changed();
    if (!d) return;
    if (opt.format == "jsonl") {
      auto j = fwmtools::decisionJson(*d);
      j["kind"] = "decision";
      j["datagram"] = datagrams;
      fmt::print("{}\n", j.dump());
    } else {
      fmt::print("decision: {}\n", fwmtools::decisionText(*d));
    }
    std::fflush(stdout);
  };
  if (negotiator) printDecision();
  uint32_t idle = 0;
  while (!gStop && (opt.count == 0 || acks < opt.count)) {
    auto dgram = sock.receive(std::chrono::milliseconds(100));
    if (!dgram) {
      idle += 100;
      if (opt.idleMs && idle >= opt.idleMs) break;
      continue;
    }
    idle = 0;
    ++datagrams;
    fwmtools::DecodeError why;
    auto ack = fwmtools::decodeAck(*dgram, &why);
    if (!ack) {
      ++skipped;
      if (opt.format == "jsonl")
        fmt::print("{}\n", nlohmann::json{{"kind", "skipped"}, {"datagram", datagrams}, {"reason", why.reason}}.dump());
      else
        fmt::print("datagram {}: skipped, {}\n", datagrams, why.reason);
      std::fflush(stdout);
      continue;
    }
    ++acks;
    if (opt.format == "jsonl") {
      auto j = fwmtools::ackToJson(*ack);
      j["kind"] = "ack";
      j["datagram"] = datagrams;
      fmt::print("{}\n", j.dump());
    } else {
      fmt::print("ack {} (datagram {}): {}\n", acks, datagrams, fwmtools::summarizeAck(*ack));
      for (const auto &line : fwmtools::describeAck(*ack)) fmt::print("    {}\n", line);
    }
    if (negotiator && negotiator->hear(*ack)) printDecision();
    std::fflush(stdout);
    if (pcap.isOpen()) {
      // Dated when it arrived, like any capture.
      auto us =
          std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
      pcap.writeAnnounce(static_cast<uint64_t>(us.count()), ack->announce, fwmtools::senderFrame(ack->announce));
    }
  }
  fmt::print(stderr, "clkpeer: {} datagrams, {} acknowledgements, {} skipped\n", datagrams, acks, skipped);
  if (!pcap.close(&err) || std::fflush(stdout) != 0 || std::ferror(stdout)) {
    fmt::print(stderr, "clkpeer: {}\n", err.empty() ? "writing the standard output failed" : err);
    return fwmtools::kExitOutput;
  }
  return fwmtools::kExitOk;
}
