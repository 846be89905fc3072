// clkcheck: a good G.8275.1 link (a master's Announces, two-step Syncs and
// Delay_Resps, a slave's Delay_Reqs) built here keeps the profile with this
// exact summary; the same link broken one way at a time gives exactly that
// rule's finding; a scenario's programming is held against the capture; and
// what is no capture is refused.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <optional>

#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "fwmtools/pcap.hpp"
#include "subprocess.hpp"

namespace {

constexpr uint64_t kMaster = 0x001b19fffe000001ull, kSlave = 0x7c2e0dfffe000002ull, kT0 = 1700000000000000ull;

struct Msg {
  uint64_t us;
  fwmptp::EventMessage m;
  std::optional<fwmptp::Announce> a;
  fwmptp::FrameLayout l{{0x01, 0x1b, 0x19, 0, 0, 0}, {0x02, 0, 0, 0, 0, 1}};
  uint8_t version = 2;
};

// Two seconds: Syncs (Follow_Up 1 ms later) and Delay_Req/Delay_Resp 16 times a second, Announces 8.
std::vector<Msg> goodLink() {
  std::vector<Msg> v;
  auto event = [&](uint64_t us, uint8_t type, uint64_t clock, uint16_t seq, int8_t log, uint16_t flags = 0) {
    fwmptp::EventMessage m{type, 0, 24, flags, 0, {clock, 1}, seq, log, {1700000000, seq}, {}};
    if (type == fwmptp::kMsgDelayResp) m.requesting = {kSlave, 1};
    v.push_back({us, m, std::nullopt});
  };
  for (uint16_t i = 0; i < 32; ++i) {
    const uint64_t t = kT0 + i * 62500u;
    event(t, fwmptp::kMsgSync, kMaster, i, -4, fwmptp::kFlagTwoStep);
    event(t + 1000, fwmptp::kMsgFollowUp, kMaster, i, -4);
    event(t + 20000, fwmptp::kMsgDelayReq, kSlave, i, 0x7F);
    event(t + 20500, fwmptp::kMsgDelayResp, kMaster, i, -4);
  }
  for (uint16_t i = 0; i < 16; ++i)
    v.push_back(
        {kT0 + 5000 + i * 125000u,
         {fwmptp::kMsgAnnounce, 0, 24, 0, 0, {kMaster, 1}, i, -3, {}, {}},
         fwmptp::Announce{11, 2, 64, 24, 0, 0, kMaster, 1, i, 5, -3, 37, 128, 6, 0x21, 0x4e5d, 128, kMaster, 0, 0x20}});
  return v;
}

Msg &nth(std::vector<Msg> &v, uint8_t type, int k) {
  return *std::find_if(v.begin(), v.end(), [&](const Msg &m) { return m.m.messageType == type && k-- == 0; });
}

std::string write(std::vector<Msg> v, const std::string &name) {
  std::stable_sort(v.begin(), v.end(), [](const Msg &a, const Msg &b) { return a.us < b.us; });
  const std::string path = fwmtest::scratch(name);
  fwmtools::PcapWriter w;
  EXPECT_TRUE(w.open(path));
  for (const auto &m : v) {
    std::vector<uint8_t> b;
    if (m.a) {
      const auto a = fwmptp::encodeAnnounce(*m.a);
      b.assign(a.begin(), a.end());
    } else {
      const auto e = fwmptp::encodeEvent(m.m);
      b.assign(e.view().begin(), e.view().end());
    }
    b[1] = m.version;
    w.write(m.us, fwmptp::buildFrame(b, m.l));
  }
  EXPECT_TRUE(w.close());
  return path;
}

fwmtest::Outcome check(const std::string &path, std::vector<std::string> more = {}) {
  std::vector<std::string> argv{CLKCHECK_PATH, path, "--profile", "g8275.1"};
  argv.insert(argv.end(), more.begin(), more.end());
  return fwmtest::runTool(argv);
}

TEST(Clkcheck, GoodLinkKeepsTheProfile) {
  const auto o = check(write(goodLink(), "good.pcap"));
  EXPECT_EQ(o.exitCode, 0) << o.out << o.err;
  EXPECT_EQ(o.out,
            "\nport                     message                  count  mean interval  log    largest gap findings\n"
            "001b19.fffe.000001-1     Sync                        32      62.500 ms   -4      62.500 ms        0\n"
            "001b19.fffe.000001-1     Follow_Up                   32      62.500 ms   -4       0.000 ms        0\n"
            "001b19.fffe.000001-1     Delay_Resp                  32      62.500 ms   -4       0.000 ms        0\n"
            "001b19.fffe.000001-1     Announce                    16     125.000 ms   -3     125.000 ms        0\n"
            "7c2e0d.fffe.000002-1     Delay_Req                   32      62.500 ms  127       0.000 ms        0\n"
            "\nclkcheck: 144 frames, 144 PTP messages, 2 ports: keeps g8275.1\n");
}

struct Broken {
  const char *rule;
  std::function<void(std::vector<Msg> &)> breakIt;
  const char *finding;
};

TEST(Clkcheck, EachBrokenRuleGivesExactlyItsFinding) {
  using namespace fwmptp;
  const Broken rows[] = {
      {"malformed", [](auto &v) { v.push_back(nth(v, kMsgSync, 5)), v.back().version = 1; },
       "frame 25 at 0.312500000: - PTP: [malformed] message refused: wrong version\n"},
      {"transport",
       [](auto &v) {
         nth(v, kMsgAnnounce, 3).l = {{1, 0, 0x5e, 0, 1, 0x81}, {2}, 0, true, 1, 0xE0000181u};
       },
       "frame 30 at 0.380000000: 001b19.fffe.000001-1 Announce: [transport] over UDP/IPv4; the profile carries PTP "
       "over Ethernet only\n"},
      {"destination", [](auto &v) { nth(v, kMsgSync, 5).l.dstMac = {1, 0, 0x5e, 0, 1, 0x81}; },
       "frame 24 at 0.312500000: 001b19.fffe.000001-1 Sync: [destination] to 01:00:5e:00:01:81, not the group address "
       "of Sync\n"},
      {"domain", [](auto &v) { nth(v, kMsgSync, 5).m.domainNumber = 0; },
       "frame 24 at 0.312500000: 001b19.fffe.000001-1 Sync: [domain] domainNumber 0 outside 24..43\n"},
      {"flags", [](auto &v) { nth(v, kMsgAnnounce, 4).a->flagField = 0x0400; },
       "frame 39 at 0.505000000: 001b19.fffe.000001-1 Announce: [flags] unicastFlag set on a message to a group "
       "address\n"},
      {"interval", [](auto &v) { nth(v, kMsgSync, 5).m.logMessageInterval = -3; },
       "frame 24 at 0.312500000: 001b19.fffe.000001-1 Sync: [interval] logMessageInterval -3 outside -4..-4\n"},
      {"mechanism",
       [](auto &v) {
         v.push_back({kT0 + 30000,
                      {kMsgPdelayReq, 0, 24, 0, 0, {kSlave, 1}, 0, 0x7F, {}, {}},
                      std::nullopt,
                      {{0x01, 0x80, 0xc2, 0, 0, 0x0e}}});
       },
       "frame 6 at 0.030000000: 7c2e0d.fffe.000002-1 Pdelay_Req: [mechanism] peer delay message in an end-to-end "
       "profile\n"},
      {"rate",
       [](auto &v) {
         for (unsigned i = 0; i < 16; ++i) nth(v, kMsgAnnounce, static_cast<int>(i)).us = kT0 + 5000 + i * 140000u;
       },
       "frame 144 at 2.105000000: 001b19.fffe.000001-1 Announce: [rate] mean interval 140.000 ms over 16 messages, "
       "+12.0 % off 125.000 ms (logMessageInterval -3)\n"},
      {"gap",
       [](auto &v) {
         for (auto &m : v)
           if (m.m.sequenceId >= 16 && (m.m.messageType == kMsgSync || m.m.messageType == kMsgFollowUp)) m.us += 70000;
       },
       "frame 76 at 1.070000000: 001b19.fffe.000001-1 Sync: [gap] 132.500 ms since the last, over twice the interval "
       "of 62.500 ms\n"},
      {"follow-up", [](auto &v) { nth(v, kMsgFollowUp, 5).us += 14000; },
       "frame 24 at 0.312500000: 001b19.fffe.000001-1 Sync: [follow-up] sequenceId 5 has no Follow_Up within 10.000 "
       "ms\n"},
      {"delay-resp", [](auto &v) { v.erase(v.begin() + (&nth(v, kMsgDelayResp, 5) - v.data())); },
       "frame 26 at 0.332500000: 7c2e0d.fffe.000002-1 Delay_Req: [delay-resp] sequenceId 5 has no Delay_Resp within "
       "62.500 ms\n"},
      {"sequence",
       [](auto &v) {
         for (int i = 8; i < 16; ++i) ++nth(v, kMsgAnnounce, i).a->sequenceId;
       },
       "frame 75 at 1.005000000: 001b19.fffe.000001-1 Announce: [sequence] sequenceId 9 after 7\n"},
      {"announce", [](auto &v) { nth(v, kMsgAnnounce, 4).a->clockClass = 52; },
       "frame 39 at 0.505000000: 001b19.fffe.000001-1 Announce: [announce] clockClass 52 is not one the profile "
       "allows\n"},
  };
  for (const auto &row : rows) {
    auto v = goodLink();
    row.breakIt(v);
    const auto o = check(write(v, std::string(row.rule) + ".pcap"));
    EXPECT_EQ(o.exitCode, 1) << row.rule;
    EXPECT_EQ(o.out.substr(0, o.out.find("\n\n") + 1), row.finding) << row.rule;
  }
}

}  // namespace

namespace {

std::string scenario(int domain, const char *more, const std::string &name) {
  const std::string path = fwmtest::scratch(name);
  std::ofstream(path) << "name: programmed\nboard: {chipType: 40, engines: 2}\nsteps:\n"
                         "  - set_ptp_pkt_encap: {unit: 0, port: 1, targetBoard: 3, encapType: 0}\n"
                         "  - set_ptp_port_cfg: {unit: 0, port: 1, enable: 1, portState: 6, domainNumber: "
                      << domain
                      << "}\n"
                         "  - set_ptp_tx_src_port_id: {unit: 0, port: 1, identity: [0x001b19ff, 0xfe000001, 1]}\n"
                         "  - set_ptp_port_pkt: {unit: 0, port: 1, grandmasterPriority1: 128, clockClass: 6, "
                         "grandmasterIdentity: 001b19.fffe.000001}\n"
                         "  - set_ptp_tx_ctl: {unit: 0, port: 1, pktType: 2, txEnable: 1, interval: 4}\n"
                         "  - set_ptp_tx_ctl: {unit: 0, port: 1, pktType: 8, txEnable: 1}\n"
                         "  - set_ptp_tx_ctl: {unit: 0, port: 1, pktType: 1, txEnable: 1, interval: 3}\n"
                      << more;
  return path;
}

TEST(Clkcheck, CaptureAgainstWhatTheScenarioProgrammed) {
  const std::string good = write(goodLink(), "programmed.pcap");
  const char *nothing = "  - set_ptp_tx_src_port_id: {unit: 0, port: 1, nullRecord: 1}\n";  // programs nothing
  EXPECT_EQ(check(good, {"--programmed", scenario(24, nothing, "right.yaml")}).exitCode, 0);
  const auto o = check(good, {"--programmed",
                              scenario(25,
                                       "  - set_ptp_tx_src_port_id: {unit: 0, port: 2, identity: "
                                       "[0x001b19ff, 0xfe000001, 2]}\n"
                                       "  - set_ptp_tx_ctl: {unit: 0, port: 2, pktType: 2, txEnable: "
                                       "1, interval: 4}\n",
                                       "wrong.yaml"),
                              "--format", "jsonl"});
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(
      o.out.substr(0, o.out.find("{\"count\"")),
      R"({"frame":1,"kind":"finding","message":"Sync","port":"001b19.fffe.000001-1","rule":"programmed","text":"domainNumber 24; unit 0 port 1 was programmed with 25","time":"0.000000000"}
{"frame":2,"kind":"finding","message":"Follow_Up","port":"001b19.fffe.000001-1","rule":"programmed","text":"domainNumber 24; unit 0 port 1 was programmed with 25","time":"0.001000000"}
{"frame":3,"kind":"finding","message":"Announce","port":"001b19.fffe.000001-1","rule":"programmed","text":"domainNumber 24; unit 0 port 1 was programmed with 25","time":"0.005000000"}
{"frame":5,"kind":"finding","message":"Delay_Resp","port":"001b19.fffe.000001-1","rule":"programmed","text":"domainNumber 24; unit 0 port 1 was programmed with 25","time":"0.020500000"}
{"frame":0,"kind":"finding","message":"Announce","port":"001b19.fffe.000001-2","rule":"programmed","text":"none in the capture; unit 0 port 2 was programmed to send them","time":"0.000000000"}
)");
}

TEST(Clkcheck, WhatIsNoCaptureIsRefused) {
  const std::string dir = fwmtest::scratch("");
  const std::string good = fwmtest::readFile(write(goodLink(), "whole.pcap"));
  std::ofstream(dir + "text.pcap") << "hello\n";
  std::ofstream(dir + "cut.pcap") << good.substr(0, good.size() - 20);
  std::ofstream(dir + "sll.pcap") << std::string("\x4d\x3c\xb2\xa1\x02\x00\x04\x00", 8) << std::string(8, '\0')
                                  << std::string("\xff\xff\x00\x00\x71\x00\x00\x00", 8);
  // What was read before a file breaks off is still reported.
  const struct {
    std::vector<std::string> args;
    std::string err, outEnd = "";
  } rows[] = {
      {{"none.pcap"}, "clkcheck: DIR/none.pcap: not a readable capture: DIR/none.pcap: No such file or directory\n"},
      {{"text.pcap"}, "clkcheck: DIR/text.pcap: not a readable capture: unknown file format\n"},
      {{"sll.pcap"}, "clkcheck: DIR/sll.pcap: link layer LINUX_SLL (113): only Ethernet captures are read\n"},
      {{"cut.pcap"},
       "clkcheck: DIR/cut.pcap: after frame 143: truncated dump file; tried to read 68 captured bytes, only got 48\n",
       "clkcheck: 143 frames, 143 PTP messages, 2 ports: keeps g8275.1\n"},
      {{"whole.pcap", "--profile", "g8275.9"},
       "--profile: g8275.9 not in {default-e2e,default-p2p,g8275.1,g8275.2}\nRun with --help for more information.\n"},
      {{"whole.pcap", "--programmed", "DIR/none.yaml"}, "clkcheck: DIR/none.yaml: error: cannot read the file\n"},
  };
  auto place = [&](std::string s) {
    for (size_t at; (at = s.find("DIR/")) != std::string::npos;) s.replace(at, 4, dir);
    return s;
  };
  for (const auto &row : rows) {
    std::vector<std::string> argv{CLKCHECK_PATH, dir + row.args[0], "--profile", "g8275.1"};
    for (size_t i = 1; i < row.args.size(); ++i) argv.push_back(place(row.args[i]));
    const auto o = fwmtest::runTool(argv);
    EXPECT_EQ(o.exitCode, 2) << row.args[0];
    EXPECT_EQ(o.err, place(row.err)) << row.args[0];
    EXPECT_EQ(o.out.substr(o.out.size() - std::min(o.out.size(), row.outEnd.size())), row.outEnd);
  }
}

}  // namespace
