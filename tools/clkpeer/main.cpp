// clkpeer: a stand-alone clock negotiation peer. Listens on the loopback
// address for the clock service's announce acknowledgements, decodes each one
// and prints it, or writes it to a pcap file as the announce it carries.
#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "fwmtools/ack_json.hpp"
#include "fwmtools/ack_text.hpp"
#include "fwmtools/announce.hpp"
#include "fwmtools/cli.hpp"
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
};

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
  app.set_version_flag("--version", "clkpeer " FWMCLK_VERSION " (" FWMCLK_SONAME ")");
  app.footer(fwmtools::exitCodeHelp(fwmtools::Tool::Clkpeer));
  if (auto rc = fwmtools::parseCommandLine(app, argc, argv)) return *rc;

  auto at = fwmtools::parseEndpoint(opt.listen, true);
  if (!at) {
    fmt::print(stderr, "clkpeer: --listen {}: expected HOST:PORT\n", opt.listen);
    return fwmtools::kExitRefused;
  }
  std::string err;
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
