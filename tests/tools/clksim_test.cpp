// clksim: what a wrong scenario is told (place and expectation), where a
// right one puts each field in the record the library reads, the exit codes;
// then the built-in story read back from its JSON lines (start-up, the
// requests and the engine calls they make, the failures and their report
// lines, the acknowledgements the negotiation peer receives) and the
// documentation's commands run as written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "builtin.hpp"
#include "engine_bridge.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/recorder.hpp"
#include "fwmtools/cli.hpp"
#include "fwmtools/udp_peer.hpp"
#include "keeper.hpp"
#include "loader.hpp"
#include "measure.hpp"
#include "runner.hpp"
#include "subprocess.hpp"
#include "testkit.hpp"
#include "values.hpp"

namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A board with the shortest time-error sample and wander step it takes, and a clock step.
const std::string kBoard =
    "board: {chipType: 40, engines: 2, timeError: {sample: 1ms}, clocks: [{unit: 0, wanderStep: 1ms, steps: [{at: 1s, "
    "ppm: 1}]}]}\n";

std::string times(int n, std::string_view s) {
  std::string r;
  while (n-- > 0) r += s;
  return r;
}

// A step under the board above, or (with a line break, or empty) the whole
// file; where the refusal points; what it says.
struct Refusal {
  std::string yaml;
  const char *at, *message;
};
const Refusal kRefusals[] = {
    {"set_ptp_prot_cfg: {unit: 0, port: 3}", "3:5",
     "unknown operation 'set_ptp_prot_cfg' (did you mean 'set_ptp_port_cfg'?)"},
    {"set_ptp_port_cfg: {unit: 0, port: 3, enabled: 1}", "3:42",
     "unknown field 'enabled' of set_ptp_port_cfg (did you mean 'enable'?); expected one of: unit, port, fwdTarget"},
    {"set_ptp_port_cfg: {unit: 0, port: 3, enable: yes}", "3:50",
     "field 'enable' of set_ptp_port_cfg (ClkPtpPortCfg): expected an unsigned integer (decimal, 0x.. or 0b..), got "
     "'yes'"},
    {"steps:\n  - advance: 1s\n", "1:1", "missing 'board': the line card to simulate"},
    {"set_ptp_rx_ctl: {unit: 0, pktType: 2}", "3:21", "set_ptp_rx_ctl: missing field 'port'"},
    {"set_ptp_port_cfg: {unit: 0, port: 3, ctrlType33Value: 70000}", "3:59", "does not fit (at most 65535)"},
    {"set_ptp_glb_cfg: {slavePort: -1}", "3:34", "expected an unsigned integer"},
    {"advance: soon", "3:14", "advance: expected a duration like 2s, 500ms or 1.5s, got 'soon'"},
    {"set_ptp_pkt_encap: {unit: 0, port: 3, srcMac: 00:1b}", "3:51", "expected a MAC address like 00:1b:19:00:00:01"},
    {"announce_received: {unit: 0, port: 3, grandmasterIdentity: 12.34}", "3:64",
     "expected a clock identity like 001b19.fffe.000001"},
    {"board: {chipType: 40, cores: 2}\nsteps: []\n", "1:23", "unknown field 'cores' of board"},
    {"board: {engines: 9}\nsteps: []\n", "1:18", "does not fit (at most 8)"},
    {"board: {wirePorts: [\"0:3\"]}\nsteps: []\n", "1:21",
     "board field 'wirePorts': expected a list of UNIT:PORT=IFACE"},
    {"advance", "3:5", "a step is one 'name: value' pair"},
    {"board: {chipType: 40, engines: 2}\nsteps: [\n", "3:1", "not valid YAML"},
    {"get_ptp_pkt_stat: {unit: 0, port: 3, words: [1]}", "3:42", "unknown field 'words' of get_ptp_pkt_stat"},
    {"fail: {code: 3}", "3:11", "fail: missing field 'function'"},
    {"notify: shutdown", "3:13", "notify: expected startup, master_ip or an event number, got 'shutdown'"},
    {"announce_received: {unit: 0, port: 3, logMessageInterval: -129}", "3:63",
     "logMessageInterval' of announce_received (ClkNpAnnFields): -129 does not fit (-128 to -1)"},
    {"fail: {function: oda_1588_set_ptp_contrl}", "3:22",
     "the board cannot fail 'oda_1588_set_ptp_contrl' (did you mean 'oda_1588_set_ptp_control'?)"},
    {"fail: {function: IM_Agent_ObjCreate, code: 0}", "3:48", "code 0 means success for IM_Agent_ObjCreate"},
    {"fail: {function: FWM_QUE_AsyRead, code: 1}", "3:45",
     "FWM_QUE_AsyRead fails only with 0 or less (nothing read); 1 claims entries it never wrote"},
    {"fail: {function: ORIN_MemAlloc, code: 3}", "3:43", "ORIN_MemAlloc fails only with 0 (nothing made)"},
    {"board: {selfIp: 4294967296.0.0.1}\nsteps: []\n", "1:17", "expected an IPv4 address like 10.0.0.1"},
    {"set_ptp_pkt_encap: {unit: 0, port: 3, srcMac: 100:1b:19:0:0:1}", "3:51",
     "expected a MAC address like 00:1b:19:00:00:01"},
    {"board: {chipType: 40, chipType: 41}\nsteps: []\n", "1:23", "field 'chipType' of board given twice"},
    {"board: {chipType: 40, engines: 2}\nsteps: []\n---\nname: x\n", "3:1", "a second YAML document"},
    {"{[a]: 1}", "3:6", "a step: a field name is a plain word, not a list"},
    {"", "1:1", "expected a scenario"},
    {"set_ssm_port_cfg: {unit: 0, port: 3, nullRecord: 1}", "3:42", "unknown field 'nullRecord' of set_ssm_port_cfg"},
    {"advance: 1441min", "3:14", "advance: 1441min is more than a day"},
    {"\"ad\\e[2Jvance\": 1s", "3:5", "unknown operation 'ad\\x1b[2Jvance'"},
    {kBoard + "# " + times(2000, "[") + "\nsteps: [\"" + times(2000, "{") + "\", " + times(1000, "[ ") + "][", "3:4011",
     "nested more than 500 levels deep; a scenario nests its lists and mappings 5 levels at most"},
    {kBoard + "steps:\n  " + times(600, "- "), "3:1000", "nested more than"},
    {"set_ptp_port_cfg: {unit: 0, port: 3, portState: SLAV}", "3:53",
     "unknown name 'SLAV' (did you mean 'SLAVE'?); expected a number or one of: INITIALIZING, FAULTY"},
    {"set_ptp_tx_ctl: {unit: 0, port: 3, interval: 100ms}", "3:50", "'100ms' is no interval; intervals are 2^n s"},
    {"set_ptp_tx_src_port_id: {unit: 0, port: 3, identity: 001b19.fffe.00a001}", "3:58",
     "expected a port identity like 001b19.fffe.000001-1"},
    {"board: {clocks: [{unit: 0, ppm: fast}]}\nsteps: []\n", "1:33",
     "clock field 'ppm': expected a number, got 'fast'"},
    {"board: {clocks: [{unit: 0, offset: 1h}]}\nsteps: []\n", "1:36",
     "expected a time like 1ms, 500ns or 2s, got '1h'"},
    {"board: {clocks: [{unit: 0}, {unit: 0}]}\nsteps: []\n", "1:36", "a clock: unit 0 has one already"},
    {"board: {clocks: [{unit: 8}]}\nsteps: []\n", "1:25", "clock field 'unit': 8 does not fit (at most 7)"},
    {"board: {network: {links: [{from: gm, to: \"0:3\"}]}}\nsteps: []\n", "1:34",
     "link field 'from': 'gm' is neither an engine port (UNIT:PORT) nor a grandmaster above"},
    {"board: {network: {links: [{from: \"0:1\", to: \"0:2\", jitter: pink}]}}\nsteps: []\n", "1:60",
     "unknown distribution 'pink'; expected one of: none, uniform, normal, exponential"},
    {"board: {network: {links: [{from: \"0:1\", to: \"0:2\", outages: [\"9s-2s\"]}]}}\nsteps: []\n", "1:62",
     "link field 'outages': '9s-2s' ends before it starts"},
    {"board: {network: {}, servos: [{unit: 0, port: 3, kp: -1}]}\nsteps: []\n", "1:54",
     "servo field 'kp': -1 is out of range"},
    {"board: {timeError: {sample: 10us}}\nsteps: []\n", "1:29", "timeError field 'sample': at least 1ms"},
    {"board: {boundary: [3]}\nsteps: []\n", "1:19", "board field 'boundary': expected a mapping of field: value"},
    {"board: {boundary: {profile: smpte}}\nsteps: []\n", "1:29", "expected one of: default, telecom"},
    {"board: {boundary: {clockClass: 6}}\nsteps: []\n", "1:19", "boundary field 'ports': expected a list of {unit"},
    {"board: {boundary: {ports: [{unit: 0, port: 3}, {unit: 0, port: 3}]}}\nsteps: []\n", "1:48", "is listed already"},
    {"board: {boundary: {ports: [{unit: 8, port: 3}]}}\nsteps: []\n", "1:35", "'unit': 8 is beyond the last engine"},
    {"board: {boundary: {ports: [{unit: 0, port: 3, masterOnly: 2}]}}\nsteps: []\n", "1:59",
     "2 does not fit (at most 1)"},
    {"board: {boundary: {domain: 256, ports: [{unit: 0, port: 3}]}}\nsteps: []\n", "1:28",
     "boundary field 'domain': 256 does not fit (at most 255)"},
};

TEST(Loader, RefusalSaysWhereAndWhatWasExpected) {
  for (const auto &c : kRefusals) {
    const std::string yaml =
        c.yaml.empty() || c.yaml.find('\n') != std::string::npos ? c.yaml : kBoard + ("steps:\n  - " + c.yaml + "\n");
    auto r = clksim::loadScenario(yaml, "bad.yaml");
    ASSERT_TRUE(std::holds_alternative<clksim::LoadError>(r)) << yaml;
    const auto &e = std::get<clksim::LoadError>(r);
    EXPECT_EQ(std::to_string(e.pos.line) + ":" + std::to_string(e.pos.column), c.at) << e.text();
    EXPECT_THAT(e.text(), HasSubstr(c.message));
    EXPECT_THAT(e.text(), HasSubstr(std::string("bad.yaml:") + c.at + ": error: "));
  }
}

// Where each field lands in the record the library reads, and the third
// argument's default per operation (no forwarding target; read, not read-clear).
TEST(Loader, PlacesFieldsWhereTheLibraryReadsThem) {
  const std::pair<const char *, std::string> cases[] = {
      {"set_ptp_port_cfg: {unit: 1, port: 5, fwdTarget: 7, enable: 1, ctrlType2Value: 4, stateFlag: 1, portState: 9, "
       "rxSrcPortIdentity: [1, 2, 0xfffffffe], ctrlType33Value: 0xbeef, ifIndex: 21}",
       "slot 1 unit 1 port 5 arg 0x7 "
       "010000000000000009000080040000000000000000000000000000000100000002000000feffffff0000000000000000efbe0000"
       "15000000"},
      {"set_ptp_port_cfg: {unit: 0, port: 3}", "slot 1 unit 0 port 3 arg 0xffffffff " + std::string(112, '0')},
      {"get_ptp_t2_sub_t1: {unit: 0, port: 3}", "slot 11 unit 0 port 3 arg 0x0 " + std::string(48, '0')},
      {"set_ptp_pkt_encap: {unit: 0, port: 3, destMac: 01:00:5e:00:01:81, srcIp: 10.3.0.1}",
       "slot 2 unit 0 port 3 arg 0x0 "
       "000000000000000000000000000000000000000001005e00018100000000000000000000000000000100030a"},
      {"set_ptp_port_asym: {unit: 0, port: 3, asymmetry: -100}", "slot 7 unit 0 port 3 arg 0x0 9cffffff"},
      {"set_ptp_port_pkt: {unit: 0, port: 3, grandmasterIdentity: 001b19.fffe.00a001, clockClass: 248}",
       "slot 8 unit 0 port 3 arg 0x0 "
       "00000000000000000000000000000000000000000000000000000000f8000000ff191b0001a000fe0000000000000000"},
      {"announce_received: {unit: 0, port: 3, sourcePortIdentity: 7c2e0d.fffe.1f0002-9, flagField: 0x0208, "
       "logMessageInterval: -3}",
       "unit 0 port 3 "
       "000000000000000000000000f800fe00ffff0000800000008000000000000000000000000000000000000802fd000000ff0d2e7c"
       "02001ffe0900000000000000000000000000000000000000000000000000000000000000"},
      {"set_ptp_tx_ctl: {unit: 0, port: 3, pktType: Announce, interval: 125ms}",
       "slot 4 unit 0 port 3 arg 0x0 02000000000000000000000004000000"},
      {"set_ptp_tx_src_port_id: {unit: 1, port: 5, identity: 001b19.fffe.030003-5}",
       "slot 6 unit 1 port 5 arg 0x0 ff191b00030003fe05000000"},
  };
  for (const auto &[step, expected] : cases) {
    auto r = clksim::loadScenario(kBoard + ("steps:\n  - " + std::string(step) + "\n"), "ok.yaml");
    ASSERT_TRUE(std::holds_alternative<clksim::Scenario>(r)) << std::get<clksim::LoadError>(r).text();
    const auto &body = std::get<clksim::Scenario>(r).steps.at(0).body;
    std::string got;
    if (const auto *q = std::get_if<clksim::Request>(&body))
      got = fmt::format("slot {} unit {} port {} arg {:#x} ", q->op->slot, q->unit, q->port, q->arg) +
            fwmtest::hex(q->record);
    if (const auto *a = std::get_if<clksim::AnnounceReceived>(&body))
      got = fmt::format("unit {} port {} ", a->unit, a->port) + fwmtest::hex(a->fields);
    EXPECT_EQ(got, expected) << step;
  }
}

TEST(Loader, ReadsDurations) {
  const std::pair<const char *, int64_t> cases[] = {{"2s", 2000}, {"500ms", 500}, {"1.5s", 1500}, {"1min", 60000},
                                                    {"250", 250}, {"", -1},       {"s", -1},      {"2h", -1},
                                                    {"-1s", -1},  {"0.5ms", -1}};  // -1: refused
  for (const auto &[text, ms] : cases) {
    uint64_t got = 0;
    EXPECT_EQ(clksim::parseDuration(text, got) ? static_cast<int64_t>(got) : -1, ms) << text;
  }
}

// Codes in library lines get their names; measurements the engine could not
// have written are named, not folded into plausible values.
TEST(Loader, NamesCodesAndFlagsImpossibleWords) {
  const std::pair<std::string, std::string> cases[] = {
      {clksim::annotateCodes("MSG 1588.(parameter in SetPtpState: Unit=[0], Port=[3], State=[9])."),
       "MSG 1588.(parameter in SetPtpState: Unit=[0], Port=[3], State=[9] SLAVE)."},
      {clksim::annotateCodes("1588.(parameter in SetPktInterval: Unit=[1], Port=[5], PktType=[1], Interval=[1])."),
       "1588.(parameter in SetPktInterval: Unit=[1], Port=[5], PktType=[1] Announce, Interval=[1] (15.6 ms))."},
      {clksim::annotateCodes("1588.(parameter in SetPtpCtrl: Unit=[0], Port=[3], Type=[0], Value=[1])."),
       "1588.(parameter in SetPtpCtrl: Unit=[0], Port=[3], Type=[0], Value=[1])."},
      {clksim::annotateCodes("1588.(parameter in SetAnnounceTimeout: Unit=[0], Port=[3], Multiple=[3], Interval=[0])."),
       "1588.(parameter in SetAnnounceTimeout: Unit=[0], Port=[3], Multiple=[3], Interval=[0] (as the announces "
       "heard))."},
      {clksim::intervalText(20) + " " + clksim::intervalText(0) + " " + clksim::intervalText(21),
       "8192 s 7.81 ms not an interval"},
  };
  for (const auto &[got, want] : cases) EXPECT_EQ(got, want);
  const std::pair<const char *, std::vector<uint32_t>> replies[] = {
      {"t1=0x65a1b200:0x0.500000000 t2=0.999999999 syncSeq=7 syncFlags=valid,unknown 0x8 t3=0.000000000 "
       "t4=0.000000000 delaySeq=0 delayFlags=none invalid=t1 seconds-high word 0x65a1b200 wider than 16 bits; "
       "syncFlags has unknown bits 0x8",
       {0, 0x65a1b200, 0, 500000000, 0, 0, 999999999, 0, 0, 0, 0, 0, 0, 7, 9, 0, 0}},
      {"samples=0 lastNs=5368709120000 minNs=1310 maxNs=0 seq=0 invalid=no samples, yet the record holds differences",
       {0, 1250, 0, 1310, 0, 0}},
      {"samples=2 lastNs=-5 minNs=9 maxNs=-9 seq=65536 invalid=minimum above maximum; sequence id 0x10000 wider than "
       "16 bits",
       {2, 0xFFFFFFFF, 0xFFFFFFFB, 9, 0xFFFFFFF7, 65536}},
  };
  for (const auto &[want, words] : replies) {
    std::string got;
    for (const auto &f :
         clksim::decodeMeasurement(words.size() == 6 ? "get_ptp_t2_sub_t1" : "get_ptp_timestamp", words))
      got += (got.empty() ? "" : " ") + f.name + "=" + f.text;
    EXPECT_EQ(got, want);
  }
}

// A port's messages are captured framed as the engine has it programmed:
// encapsulations 2 and 3 in UDP, 1 and 3 tagged, an unknown one not at all.
TEST(Capture, FramesAsTheEngineIsProgrammed) {
  const std::optional<uint16_t> tag = 0x2064, none;
  const std::optional<std::pair<bool, std::optional<uint16_t>>> want[] = {
      {{false, tag}}, {{true, none}}, {{true, tag}}, std::nullopt};  // encapsulations 1 to 4
  for (uint32_t encap = 1; encap <= 4; ++encap) {
    fwmsim::engine().with(0, encap, [&](fwmsim::OdaPort &p) { p.encap = encap, p.vlan = 0x12064; });
    const auto f = clksim::portFraming(0, encap);
    EXPECT_EQ(f ? std::optional(std::pair(f->udp, f->vlanTci)) : std::nullopt, want[encap - 1]) << encap;
  }
}

TEST(Loader, EveryBuiltInScenarioLoads) {
  ASSERT_NE(clksim::findBuiltin(clksim::kDefaultScenario), nullptr);
  for (const auto &b : clksim::builtinScenarios()) {
    auto r = clksim::loadScenario(b.yaml, std::string(b.name));
    EXPECT_TRUE(std::holds_alternative<clksim::Scenario>(r)) << b.name << ": " << std::get<clksim::LoadError>(r).text();
  }
}

std::string writeTemp(const std::string &name, const char *text) {
  std::string path = fwmtest::scratch(name);
  std::ofstream(path) << text;
  return path;
}

// Every record of every built-in scenario keeps the schema in docs/, each
// field with one type.
TEST(Cli, JsonLinesKeepTheirSchema) {
  std::vector<std::string> argv = {"/usr/bin/python3", FWMCLK_SOURCE_DIR "/tests/tools/jsonl_schema.py",
                                   FWMCLK_SOURCE_DIR "/docs/clksim-jsonl.schema.json"};
  for (const auto &b : clksim::builtinScenarios()) {
    auto o = fwmtest::runTool({CLKSIM_PATH, "-f", "jsonl", "-s", std::string(b.name)});
    argv.push_back(writeTemp(std::string(b.name) + ".jsonl", o.out.c_str()));
  }
  auto v = fwmtest::runTool(argv);
  EXPECT_EQ(v.exitCode, 0) << v.out << v.err;
}

// Every exit code of the table, from both tools, as --help and the docs state it.
TEST(Cli, ExitCodesAreTheOnesOfTheTable) {
  const std::string bad = writeTemp("bad.yaml", "board: {chipType: 40}\nsteps:\n  - set_ptp_glb_cfg: {slavePort: x}\n");
  const std::string early = writeTemp("early.yaml", "board: {chipType: 40}\nsteps:\n  - set_ptp_glb_cfg: {}\n");
  const std::string unsent =
      writeTemp("unsent.yaml",
                "board: {chipType: 40}\nsteps:\n  - fail: {function: CLOCK_NegoinfoiNtfyCliMsgSend, code: 1}\n"
                "  - notify: startup\n  - set_ptp_port_cfg: {unit: 0, port: 3, enable: 1, portState: 9, ifIndex: 3}\n"
                "  - set_ptp_rx_ctl: {unit: 0, port: 3, pktType: Announce, rxEnable: 1}\n"
                "  - announce_received: {unit: 0, port: 3, clockClass: 6}\n  - advance: 3s\n");
  const std::string failing = writeTemp("failing.yaml",
                                        "board: {chipType: 40}\nsteps:\n  - notify: startup\n"
                                        "  - fail: {function: oda_1588_set_ptp_control, code: 5}\n"
                                        "  - set_ptp_glb_cfg: {slavePort: 3}\n");
  const std::string lonely = writeTemp("lonely.yaml", "board: {servos: [{unit: 0, port: 3}]}\nsteps: []\n");
  fwmtools::UdpSocket busy;
  ASSERT_TRUE(busy.bind({"127.0.0.1", 0}));
  const std::string taken = "127.0.0.1:" + std::to_string(busy.localPort());
  std::string nobody;
  {
    fwmtools::UdpSocket gone;
    ASSERT_TRUE(gone.bind({"127.0.0.1", 0}));
    nobody = "--peer 127.0.0.1:" + std::to_string(gone.localPort());
  }
  const std::string noReport = fwmtest::scratch("no-report.html");
  struct Case {
    char tool;         // 's' clksim, 'p' clkpeer, 'c' clkcheck
    std::string args;  // separated by spaces
    int code;
    std::string err;       // what standard error says (a part of it)
    std::string out = "";  // a part of standard output; "" = nothing ran
  };
  const std::string s = CLKSIM_PATH, p = CLKPEER_PATH;
  const Case cases[] = {
      {'s', "--list-scenarios", 0, "", "mira-story"},
      {'c', "--version", 0, "", "clkcheck "},
      {'p', "--listen 127.0.0.1:0 --idle-exit-ms 1", 0, "0 datagrams"},
      {'s', early, 1, "", "0 requests (0 failed, 1 more could not be made)"},
      {'s', unsent, 0, "", "] ack      not sent (CLOCK_NegoinfoiNtfyCliMsgSend returned 1): ifIndex 3: announce lost"},
      {'s', bad, 2, bad + ":3:34: error: field 'slavePort' of set_ptp_glb_cfg (ClkPtpGlbCfg): expected an unsigned"},
      {'s', lonely, 2, "clksim: the servo on 0:3 needs a 'network' (or its port on the wire)\n"},
      {'s', "/nonexistent/scenario.yaml", 2, "/nonexistent/scenario.yaml: error: cannot read the file\n"},
      {'s', "--builtin no-such-story", 2, "clksim: no built-in scenario 'no-such-story' (see --list-scenarios)\n"},
      {'s', "--dump-scenario no-such-story", 2, "clksim: no built-in scenario 'no-such-story'"},
      {'s', "--peer 127.0.0.1", 2, "clksim: --peer 127.0.0.1: expected HOST:PORT, e.g. 127.0.0.1:39011\n"},
      {'s', "--peer 10.0.0.1:39011", 2, "clksim: --peer 10.0.0.1:39011: the negotiation client reaches 127.0.0.1 only"},
      {'s', nobody, 0, "", "ack      not delivered (nobody listens on 127.0.0.1:"},
      {'s', "--colour always " + failing, 0, "", "\033[1m  0.000 ── set_ptp_glb_cfg \033[0m\033[2m  " + failing + ":5"},
      {'s', "--colour always " + failing, 0, "",
       "\n" + std::string(16, ' ') + "\033[34moda      oda_1588_set_ptp_control(0, 3, 8, 3, 0) = \033[31m5\033[0m"},
      {'s', "--bogus", 2, "The following argument was not expected: --bogus"},
      {'s', "-f xml", 2, "--format: xml not in {text,jsonl}"},
      {'s', "--report " + noReport, 2,
       "clksim: --report " + noReport + ": builtin:mira-story has no clocks and no network: no engine's time error"},
      {'s', "-s servo --report /nonexistent/r.html", 3, "clksim: --report /nonexistent/r.html: cannot create the file"},
      {'s', "--only te_sample,bogus", 2,
       "clksim: --only te_sample,bogus: no kind of record 'bogus' (kinds: step_begin,"},
      {'s', "--timeline /nonexistent/t.json", 3,
       "clksim: --timeline /nonexistent/t.json: cannot create the file: No such"},
      {'s', "--pcap /nonexistent/a.pcap", 3,
       "clksim: --pcap /nonexistent/a.pcap: cannot create the file: No such file"},
      {'s', "--pcap /dev/full", 3, "clksim: --pcap /dev/full: cannot write the file: No space left on device\n"},
      {'s', "--timeline /dev/full", 3, "clksim: --timeline /dev/full: writing the file failed\n", "summary: 40 steps"},
      {'p', "--listen 127.0.0.1:notaport", 2, "clkpeer: --listen 127.0.0.1:notaport: expected HOST:PORT\n"},
      {'p', "--bogus 39011", 2, "The following arguments were not expected: 39011 --bogus"},
      {'p', "--port 3", 2, "--port requires --decide"},
      {'p', "--decide --port 3", 2,
       "clkpeer: --identity '': expected the card's clock identity like 001b19.fffe.00a001"},
      {'p', "--decide --identity 001b19.fffe.0c0001", 2, "clkpeer: --decide needs the card's ports: --port IFINDEX"},
      {'p', "--decide --port 3:256", 2, "clkpeer: --port '3:256': expected IFINDEX[:LOCALPRIORITY]"},
      {'p', "--decide --port 3:master", 2, "clkpeer: --port '3:master': expected"},
      {'p', "--decide --port 3:master-only --port 3:9", 2, "clkpeer: --port '3:9': ifIndex 3 is given"},
      {'p', "--profile boundary", 2, "--profile: boundary not in {default,telecom}"},
      {'p', "--count x", 2, "Could not convert: --count = x"},
      {'p', "--pcap /nonexistent/a.pcap", 3, "clkpeer: --pcap /nonexistent/a.pcap: cannot create the file"},
      {'p', "--listen " + taken, 4, "clkpeer: "},
      {'s', "--live 8:3=lo", 2, "clksim: --live 8:3=lo: expected UNIT:PORT=IFACE with unit 0..7, e.g. 0:3=veth0\n"},
      {'s', "--live 0:3=nosuch9", 2, "clksim: wire port 0:3=nosuch9: no network interface named 'nosuch9'\n"},
  };
  std::set<std::pair<std::string, int>> seen;
  for (const auto &c : cases) {
    std::vector<std::string> argv = {c.tool == 's' ? s : c.tool == 'p' ? p : CLKCHECK_PATH};
    std::istringstream words(c.args);
    argv.insert(argv.end(), std::istream_iterator<std::string>(words), {});
    auto o = fwmtest::runTool(argv);
    EXPECT_EQ(o.exitCode, c.code) << c.args << ": " << o.err;
    EXPECT_THAT(o.err, HasSubstr(c.err)) << c.args;
    EXPECT_EQ(o.out.empty(), c.out.empty()) << c.args << ": " << o.out;
    EXPECT_THAT(o.out, HasSubstr(c.out)) << c.args;
    seen.insert({argv[0], o.exitCode});
  }
  EXPECT_FALSE(std::filesystem::exists(noReport));
  const std::string docs = fwmtest::readFile(std::string(FWMCLK_SOURCE_DIR) + "/docs/clksim.md");
  for (auto [tool, path] : {std::pair{fwmtools::Tool::Clksim, s}, std::pair{fwmtools::Tool::Clkpeer, p}}) {
    auto help = fwmtest::runTool({path, "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, HasSubstr(fwmtools::exitCodeHelp(tool)));
    for (const auto &e : fwmtools::kExitCodes) {
      EXPECT_THAT(docs, HasSubstr(fmt::format("| {} | {} |", e.code, e.meaning)));
      if (e.tools & static_cast<unsigned>(tool)) {
        EXPECT_TRUE(seen.count({path, e.code})) << path << " " << e.code;
      }
    }
  }
}

// A scenario's announce meets the port's receive rules as a frame would.
TEST(Cli, ScenarioAnnouncesMeetThePortsReceiveRules) {
  const std::string setup =
      "board: {chipType: 40}\nsteps:\n  - notify: startup\n"
      "  - set_ptp_port_cfg: {unit: 0, port: 3, enable: 1, portState: SLAVE, ctrlType1Value: 1, "
      "rxSrcPortIdentity: 001b19.fffe.00a001-1, ifIndex: 3}\n"
      "  - set_ptp_rx_ctl: {unit: 0, port: 3, pktType: Announce, rxEnable: 1, domainCheck: 1, srcPortIdCheck: 1}\n"
      "  - set_ptp_port_cfg: {unit: 0, port: 4, enable: 1, portState: MASTER, ifIndex: 4}\n  - advance: 2500ms\n";
  const std::string from = ", sourcePortIdentity: 001b19.fffe.00a001-1}\n";
  const struct {
    std::string step, trace, counted;
  } cases[] = {
      {"announce_received: {unit: 0, port: 3, domainNumber: 24" + from, "rx 0/3 injected dropped: other domain",
       "dropped=foreign 1"},
      {"announce_received: {unit: 0, port: 3, sourcePortIdentity: 7c2e0d.fffe.1f0002-9}\n",
       "rx 0/3 injected dropped: other source identity 7c2e0d.fffe.1f0002", "dropped=foreign 1"},
      {"announce_received: {unit: 0, port: 4" + from, "rx 0/4 injected dropped: announce reception is off",
       "dropped=foreign 1"},
      {"announce_timeout: {unit: 0, port: 4}\n", "timeout 0/4 injected dropped: announce reception is off", ""},
      {"announce_received: {unit: 5, port: 3" + from, "rx 5/3 injected dropped: no such unit 5", ""},
      {"announce_received: {unit: 0, port: 3, clockClass: 6" + from,
       "engine: received fields stored, ANNOUNCE_CHANGE raised", "ack→peer ifIndex 3: GM 000000.0000.000000 class 6"},
  };
  for (const auto &c : cases) {
    const std::string file = writeTemp("rx.yaml", (setup + "  - " + c.step + "  - advance: 1s\n").c_str());
    const auto o = fwmtest::runTool({CLKSIM_PATH, file});
    EXPECT_EQ(o.exitCode, 0) << c.step << o.err;
    EXPECT_THAT(o.out, HasSubstr(c.trace)) << c.step;
    EXPECT_THAT(o.out, HasSubstr(c.counted)) << c.step;
    const bool taken = c.trace.starts_with("engine");
    EXPECT_EQ(o.out.find("engine: dropped: ") == std::string::npos, taken) << c.step;
    EXPECT_EQ(o.out.find("ack→peer") != std::string::npos, taken) << c.step;
  }
}

TEST(Cli, DumpsTheStoryAsTheFileInScenarios) {
  const std::string story = std::string(CLKSIM_SCENARIOS_DIR) + "/mira-story.yaml";
  const std::string file = fwmtest::readFile(story);
  auto o = fwmtest::runTool({CLKSIM_PATH, "--dump-scenario"});
  EXPECT_EQ(o.exitCode, 0);
  EXPECT_EQ(o.out, file);
  auto checked = fwmtest::runTool({CLKSIM_PATH, "--check", story});
  EXPECT_EQ(checked.exitCode, 0);
  EXPECT_THAT(checked.out, ::testing::HasSubstr("40 steps, good"));
}

// One run of the story for the whole suite: the process is the expensive part.
class Story : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Each test case is a process of its own and they run side by side.
    const std::string stem = fwmtest::scratch("story");
    pcapPath_ = stem + ".pcap";
    timelinePath_ = stem + ".json";
    run_ = fwmtest::runTool({CLKSIM_PATH, "--format", "jsonl", "--pcap", pcapPath_, "--timeline", timelinePath_});
    for (const auto &l : fwmtest::splitLines(run_.out)) lines_.push_back(json::parse(l));
  }

  // Records of the nth step (1-based) named `name`.
  static std::vector<json> step(const std::string &name, int nth = 1) {
    size_t index = 0;
    for (const auto &j : lines_)
      if (j.value("kind", "") == "step_begin" && j.value("name", "") == name && --nth == 0) index = j["step"];
    std::vector<json> out;
    for (const auto &j : lines_)
      if (j.contains("step") && j["step"] == index && index != 0) out.push_back(j);
    return out;
  }

  // The texts of the records of `kind` (of `layer` only, if given).
  static std::vector<std::string> texts(const std::vector<json> &recs, const std::string &kind,
                                        const std::string &layer = "") {
    std::vector<std::string> out;
    for (const auto &j : recs)
      if (j["kind"] == kind && (layer.empty() || j.value("layer", "") == layer)) out.push_back(j.value("text", ""));
    return out;
  }

  static json end(const std::vector<json> &recs) {
    for (const auto &j : recs)
      if (j["kind"] == "step_end") return j;
    return nullptr;
  }

  static const json &summary() { return lines_.back(); }

  static inline std::vector<json> lines_;
  static inline fwmtest::Outcome run_;
  static inline std::string pcapPath_, timelinePath_;
};

TEST_F(Story, RunsToTheEndWithAScenarioHeaderAndASummary) {
  EXPECT_EQ(run_.exitCode, 0) << run_.err;
  ASSERT_GE(lines_.size(), 3u);
  EXPECT_EQ(lines_.front(), json::parse(R"({"kind": "scenario", "name": "mira-story", "source": "builtin:mira-story",
      "steps": 40, "board": {"chassis": 1, "chipType": 40, "coldAgent": false, "engines": 2,
                             "masterIp": 167772414, "selfIp": 167772163, "slot": 3}})"));
  const json want = json::parse(R"({"kind": "summary", "requests": 13, "failedRequests": 2, "feModuleErrors": 4,
                                    "virtualMs": 5500, "acks": 3, "peerReceived": 3})");
  for (const auto &[key, value] : want.items()) EXPECT_EQ(summary()[key], value) << key;
}

// The table at the end: every port the story names, as the engine holds it.
TEST_F(Story, EndsWithEachPortAtAGlance) {
  std::vector<json> ports;
  for (const auto &j : lines_)
    if (j.value("kind", "") == "port") ports.push_back(j["fields"]);
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_EQ(ports[0]["heard"], "GM 7c2e0d.fffe.1f0002 class 6 priority1 100 from 001b19.fffe.00a001-1");
  EXPECT_EQ(ports[0]["lastAck"], "4.500 ifIndex 3: announce lost (no grandmaster)");
  EXPECT_EQ(ports[0]["dropped"], "malformed 2, foreign 64");
  EXPECT_EQ(ports[1], json::parse(R"({"port": "1/5", "state": 6, "domain": 24, "portEnable": 1, "rx": "-",
      "tx": "Announce,Pdelay", "heard": "nothing", "lastAck": "none", "announcesSent": 0, "announcesReceived": 0,
      "malformed": 0, "foreign": 0, "sequence": 0, "followUpNoSync": 0, "otherPort": 0, "dropped": "none"})"));
}

TEST_F(Story, RequestsRunOnTheOrchestratorsThreadDownToTheEngineDriver) {
  auto glb = step("set_ptp_glb_cfg");
  EXPECT_EQ(end(glb)["result"], 0);
  EXPECT_THAT(texts(glb, "call", "driver"), ElementsAre("oda_1588_set_ptp_control(0, 3, 8, 3, 0)"));
  // Only the announce tick reaches the engine from elsewhere: its alarm and
  // received-field reads run on the platform's timer thread.
  const std::regex tick(R"(oda_1588_get_announce_(alarm\(.*|field_rx\(.*, 0, &, &\)))");
  for (const auto &j : lines_) {
    if (j.value("kind", "") == "call" && j["layer"] == "driver") {
      EXPECT_EQ(j["thread"], std::regex_match(j["text"].get<std::string>(), tick) ? "reltmr" : "orchestrator")
          << j.dump();
      EXPECT_TRUE(j.contains("result")) << j.dump();
    }
  }
}

TEST_F(Story, QueriesReturnWhatTheEngineWasGiven) {
  auto ts = end(step("get_ptp_timestamp"));
  EXPECT_EQ(ts["result"], 0);
  EXPECT_EQ(ts["reply"], json({0, 1, 2, 3, 4, 5, 6, 9, 10, 11, 12, 13, 14, 7, 8, 15, 16}));
  EXPECT_EQ(end(step("get_ptp_pkt_stat"))["reply"][0], 120);
}

// Each kind of field as the step shows what it was given.
TEST_F(Story, StepsShowTheirFields) {
  const std::pair<const char *, const char *> cases[] = {
      {"set_ptp_pkt_encap", R"({"destIp":"224.0.1.129","destMac":"01:00:5e:00:01:81","dscp":46,"encapType":3,
        "srcIp":"10.3.0.1","srcMac":"00:1b:19:03:00:03","vlanId":100,"vlanPriority":5})"},
      {"set_ptp_port_cfg", R"({"annTimeoutMultiple":3,"ctrlType0Value":1,"ctrlType1Value":1,"ctrlType2Value":0,
        "ctrlType33Value":0,"domainNumber":24,"enable":1,"ifIndex":3,"portState":9,
        "rxSrcPortIdentity":"001b19.fffe.00a001-1"})"},
      {"set_ptp_port_pkt", R"({"clockAccuracy":33,"clockClass":6,"currentUtcOffset":37,"flagField":8,
        "grandmasterIdentity":"001b19.fffe.00a001","grandmasterPriority1":128,"grandmasterPriority2":128,
        "offsetScaledLogVariance":20061,"stepsRemoved":2,"timeSource":32})"},
  };
  for (const auto &[name, fields] : cases) EXPECT_EQ(step(name).at(0)["fields"], json::parse(fields)) << name;
}

TEST_F(Story, AFailingEngineCallIsReportedTwiceThenByTheService) {
  auto recs = step("set_ptp_port_asym");
  EXPECT_EQ(end(recs)["result"], 0xFFFFFFFBu);
  std::vector<std::string> story;
  for (const auto &j : recs) {
    if (j["kind"] == "log") story.push_back(j["level"].get<std::string>() + " " + j["text"].get<std::string>());
    if (j["kind"] == "debug") story.push_back("debug " + j["text"].get<std::string>().substr(20));
    if (j["kind"] == "call" && j["layer"] == "driver")
      story.push_back("oda " + j["text"].get<std::string>() + " = " + j["result"].dump());
  }
  EXPECT_THAT(story, ElementsAre("MSG 1588.(parameter in SetPtpCtrl: Unit=[1], Port=[5], Type=[5], Value=[100]).",
                                 "oda oda_1588_set_ptp_control(1, 5, 5, 100, 0) = 5",
                                 "debug Fe module error. (ErrCode=0xFFFFFFFB, Slot=1/3, Unit=1, Port=5, "
                                 "Reason=Failed to [1588]set ptp control.)",
                                 "debug Fe module error. (ErrCode=0xFFFFFFFB, Slot=1/3, Unit=1, Port=5, "
                                 "Reason=Failed to NP_1588_SetPtpCtrl.)",
                                 "ERROR [FWM_SRV_CLK] SetPtpPortAsym failed, Ret=4294967291"));
}

TEST_F(Story, TimelineHasATrackPerThreadAndASliceForEachEngineCall) {
  std::ifstream in(timelinePath_);
  json doc = json::parse(in);
  std::map<int, std::string> tracks;
  size_t odaSlices = 0, steps = 0;
  for (const auto &e : doc["traceEvents"]) {
    if (e["ph"] == "M" && e["name"] == "thread_name") tracks[e["tid"]] = e["args"]["name"];
    if (e["ph"] == "X" && e.value("cat", "") == "driver") {
      ++odaSlices;
      EXPECT_THAT(tracks.at(e["tid"]), ::testing::AnyOf("orchestrator", "reltmr"));
    }
    if (e["ph"] == "X" && e.value("cat", "") == "step") ++steps;
  }
  EXPECT_EQ(odaSlices, summary()["engineCalls"]);
  EXPECT_EQ(steps, summary()["steps"]);
  using ::testing::_, ::testing::Pair;
  EXPECT_THAT(tracks, ::testing::IsSupersetOf({Pair(_, "host"), Pair(_, "orchestrator"), Pair(_, "reltmr"),
                                               Pair(_, "CLK_FWM_BKF"), Pair(_, "ClkSrvIMAgentUpdateMasterIp")}));
}

// The library sends each acknowledgement from its channel task and the peer
// receives those bytes when they are sent; the capture holds the announces,
// framed as port 3 was programmed, and not the loss report.
TEST_F(Story, AcknowledgementsReachTheNegotiationPeer) {
  std::vector<std::string> acks, sent, received;
  for (const auto &j : lines_) {
    const std::string kind = j.value("kind", ""), at = std::to_string(j.value("t_ms", 0)) + " ";
    if (kind == "ack") {
      acks.push_back(at + j["text"].get<std::string>() + " accuracy " + j["ack"]["clockAccuracy"].dump() + " source " +
                     j["ack"]["timeSource"].dump());
      acks.push_back(j["bytes"]);
    }
    if (kind == "peer_rx") received.push_back(at + j["bytes"].get<std::string>());
    if (kind == "call" && j["text"].get<std::string>().starts_with("CLOCK_NegoinfoiNtfyCliMsgSend("))
      sent.push_back(at + j["bytes"].get<std::string>() + " " + j["thread"].get<std::string>() + " " +
                     j["layer"].get<std::string>());
  }
  EXPECT_THAT(
      acks,
      ElementsAre(
          "3000 ifIndex 3: GM 001b19.fffe.00a001 class 6 priority1 128 steps 1 from 001b19.fffe.00a001-1 accuracy 33 "
          "source 32",
          "000000000300000060000000000b00024000180000080000000000000000000000000000000000000000000001a000feff19"
          "1b000100000005010000000000000000000000002500008006215d4e80000000000001a000feff191b000100200000000000",
          "3500 ifIndex 3: GM 7c2e0d.fffe.1f0002 class 6 priority1 100 steps 2 from 001b19.fffe.00a001-1 accuracy 32 "
          "source 16",
          "000000000300000060000000000b00024000180000080000000000000000000000000000000000000000000001a000feff19"
          "1b000100000005010000000000000000000000002500006406205d4e80000000000002001ffeff0d2e7c0200100000000000",
          "4500 ifIndex 3: announce lost (no grandmaster) accuracy 0 source 0",
          "000000000300000060000000000b000240000000000000000000000000000000000000000000000000000000000000000000"
          "0000000000000500000000000000000000000000000000000000000000000000000000000000000000000000000000000000"));
  ASSERT_EQ(received.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(received[i], acks[2 * i].substr(0, 5) + acks[2 * i + 1]);
    EXPECT_EQ(sent.at(i), received[i] + " CLK_FWM_BKF platform");
  }

  if (!fwmtest::haveTool("tshark")) GTEST_SKIP() << "tshark is not installed";
  EXPECT_EQ(fwmtest::dissect(pcapPath_,
                             "frame.time_epoch eth.src vlan.priority vlan.id ip.src ip.dst ip.dsfield.dscp "
                             "ptp.v2.an.grandmasterclockidentity ptp.v2.an.priority1 "
                             "ptp.v2.an.localstepsremoved"),
            "1795334403.000000000,00:1b:19:00:a0:01,5,100,0.0.0.0,224.0.1.129,46,0x001b19fffe00a001,128,1\n"
            "1795334403.500000000,00:1b:19:00:a0:01,5,100,0.0.0.0,224.0.1.129,46,0x7c2e0dfffe1f0002,100,2\n");
}

// Every clksim, clkpeer, tshark and jq command of the README and the docs, run
// as written in a directory laid out like the repository (scripts/clksim.sh
// as it is, with the build left out: it runs the clksim under test), and
// once more from elsewhere; in a network namespace of the test's own.
TEST(Docs, EveryToolCommandRunsAsWritten) {
  if (!fwmtest::haveTool("tshark") || !fwmtest::haveTool("jq")) GTEST_SKIP() << "tshark or jq is not installed";
  if (fwmtest::runTool({"/usr/bin/unshare", "-rn", "true"}).exitCode != 0) GTEST_SKIP() << "no network namespaces";
  const std::regex inlined("`((bash scripts/clksim\\.sh|build/clksim/tools/clkpeer/clkpeer|tshark) [^`]*)`");
  const std::regex tool("^(bash scripts/clksim\\.sh|build/clksim/tools/clkpeer/clkpeer|tshark)\\b.*");
  std::vector<std::string> commands;
  for (const char *doc : {"/README.md", "/docs/clksim.md"}) {
    std::string joined;
    bool sh = false;
    for (const auto &line : fwmtest::splitLines(fwmtest::readFile(std::string(FWMCLK_SOURCE_DIR) + doc))) {
      if (line.rfind("```", 0) == 0) {
        sh = line == "```sh";
      } else if (sh && !line.empty() && line.back() == '\\') {
        joined += line.substr(0, line.size() - 1);
      } else if (sh) {
        std::string cmd = joined + line.substr(0, line.find("   #"));
        joined.clear();
        if (std::regex_match(cmd, tool)) commands.push_back(cmd);
      } else {
        for (std::sregex_iterator m(line.begin(), line.end(), inlined), end; m != end; ++m) commands.push_back((*m)[1]);
      }
    }
  }
  ASSERT_GE(commands.size(), 15u);

  // The layout, with a cmake that does nothing and the tools under test in the build.
  namespace fs = std::filesystem;
  const fs::path root = fwmtest::scratch("docs");
  fs::create_directories(root / "elsewhere");
  std::string script = fmt::format(
      R"(set -euo pipefail; trap 'echo "failed: $BASH_COMMAND" >&2' ERR; ip link set lo up; cd {}; peer=''
PATH=$PWD/scripts/bin:$PATH; mkdir -p build/clksim/tools/clkpeer build/clksim/tools/clksim scripts/bin
cp {}/scripts/clksim.sh scripts/; echo 'exit 0' >scripts/deps.sh; printf '#!/bin/sh\nexit 0\n' >scripts/bin/cmake
chmod +x scripts/bin/cmake; ln -s {} build/clksim/tools/clksim/clksim; ln -s {} build/clksim/tools/clkpeer/clkpeer
)",
      root.string(), FWMCLK_SOURCE_DIR, CLKSIM_PATH, CLKPEER_PATH);
  std::set<std::string> done;  // each command once; the peer's client for each peer
  for (size_t i = 0; i < commands.size(); ++i) {
    const std::string c = commands[i].substr(0, commands[i].find_last_not_of(' ') + 1);
    if (!done.insert(c).second && c.find("--peer") == std::string::npos) continue;
    if (c.rfind("build/clksim/tools/clkpeer/clkpeer", 0) == 0) {  // the peer in its own terminal
      script += "[ -z \"$peer\" ] || { kill $peer; wait $peer; }\n" + c + " >peer.out 2>peer.err & peer=$!\n" +
                "for i in $(seq 100); do grep -q listening peer.err && break; sleep 0.1; done\n";
      continue;
    }
    script += "{ " + c + "; } >out" + std::to_string(i) + "\n";
    if (c.find("| jq") != std::string::npos) script += "[ $(wc -l <out" + std::to_string(i) + ") = 2 ]\n";
  }
  script +=
      "kill $peer; wait $peer\ncd elsewhere; bash ../scripts/clksim.sh --dump-scenario >my.yaml\n"
      "bash ../scripts/clksim.sh my.yaml --pcap ../here.pcap >/dev/null; test -s ../here.pcap\n";
  auto o = fwmtest::runTool({"/usr/bin/unshare", "-rn", "/bin/bash", "-c", script}, std::chrono::seconds(120));
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_THAT(fwmtest::readFile(root / "peer.out"),
              HasSubstr("ack 3 (datagram 3): ifIndex 3: announce lost (no grandmaster)"));
  fs::remove_all(root);
}

// On the wall clock: where the next servo period ends after a late wake-up
// (the TE series keeps its grid), a stretch's TE figures, and what a servo
// needs to follow in each mode.
TEST(Timekeeping, LivePiecesAndWhatAServoFollows) {
  using K = clksim::Timekeeper;
  for (auto [now, at, missed] : {std::array<int64_t, 3>{1099, 1100, 0}, {1100, 1200, 1}, {1350, 1400, 3}}) {
    EXPECT_EQ(K::nextPeriod(1000, 100, now).atNs, at) << now;
    EXPECT_EQ(K::nextPeriod(1000, 100, now).missed, missed) << now;
  }
  const double te[] = {-3, 1, 4};
  EXPECT_EQ(K::stretchFigures(te), "mean 1 ns, RMS 3 ns, max|TE| 4 ns");
  EXPECT_EQ(K::stretchFigures({}), std::nullopt);
  clksim::TimeKeeping tk;
  tk.servos.resize(1);
  tk.servos[0].port = 3;
  const std::vector<clksim::WirePort> wire{{0, 3, "clk0"}}, other{{0, 2, "clk0"}};
  EXPECT_EQ(clksim::servoWithoutLink(tk, wire, true), std::nullopt);
  EXPECT_EQ(clksim::servoWithoutLink(tk, other, true),
            "the servo on 0:3 has nothing to follow on the wall clock: put its port on the wire (--live 0:3=IFACE)");
  EXPECT_EQ(clksim::servoWithoutLink(tk, wire, false), "the servo on 0:3 needs a 'network' (or its port on the wire)");
  tk.network.present = true;
  EXPECT_EQ(clksim::servoWithoutLink(tk, {}, false), std::nullopt);
}

// Another engine's offset, read reference - local - reference on a clock
// that moves by each read's cost: a bracket widened by a lost processor is
// passed over, a failed read or only wide brackets give nothing.
TEST(Timekeeping, AnEngineIsReadAgainstTheReferenceBetweenTwoReadings) {
  using K = clksim::Timekeeper;
  // Per row: each read's cost before it (ns; -1: that read fails), the offset, the reads made.
  const std::tuple<std::vector<int64_t>, std::optional<int64_t>, size_t> rows[] = {
      {{0}, 1000, 3},
      {{10, 10, 10}, 1000, 12},
      {{10, 10, 400'000, 10, 30, 10}, 1010, 12},
      {{10, 10, 10, 10, 600'000, 10}, 1000, 12},
      {{600'000}, std::nullopt, 12},
      {{10, -1, 10}, std::nullopt, 3}};
  for (const auto &[costs, offset, made] : rows) {
    int64_t now = 0;
    size_t reads = 0;
    auto read = [&](int64_t ahead) -> std::optional<int64_t> {
      const int64_t cost = costs[reads++ % costs.size()];
      return cost < 0 ? std::nullopt : std::optional<int64_t>((now += cost) + ahead);
    };
    EXPECT_EQ(K::crossOffset([&] { return read(0); }, [&] { return read(1000); }), offset) << made;
    EXPECT_EQ(reads, made);
  }
}

// The servo scenario's engine (+100 ppm, wander, 1 ms ahead) on variants of
// its link, virtual and seeded: the servo's states as it announced them and
// the time error judged after settling.
TEST(Timekeeping, TheServoLocksAndTheTimeErrorIsJudged) {
  struct Row {
    const char *name, *link, *settling, *steps;
    size_t samples;  // one every 62.5 ms
    std::vector<std::string> states;
    const char *verdict;
    int cteLo, cteHi;
  };
  const Row rows[] = {
      {"ideal", "delay: 2us", "20s", "  - advance: 40s\n", 640, {"jump", "locked"}, "C", -10, 10},
      {"one-way extra delay",
       "delay: 2us, extra: 1us",
       "20s",
       "  - advance: 40s\n",
       640,
       {"jump", "locked"},
       "none",
       -520,
       -480},
      {"asymmetry programmed",
       "delay: 2us, extra: 1us",
       "40s",
       "  - advance: 20s\n  - set_ptp_port_asym: {unit: 0, port: 3, asymmetry: 500}\n  - advance: 40s\n",
       960,
       {"jump", "locked"},
       "C",
       -10,
       10},
      // Before the frequency has settled: the drift in holdover is the residual's.
      {"outage",
       "delay: 2us, outages: [\"10s-40s\"]",
       "50s",
       "  - advance: 60s\n",
       960,
       {"jump", "locked", "holdover", "locked"},
       "",
       -100,
       100},
  };
  std::string yaml = fwmtest::readFile(std::string(CLKSIM_SCENARIOS_DIR) + "/servo.yaml");
  yaml = yaml.substr(0, yaml.find("  - advance:"));
  const std::regex held("after [0-9.]+ s of holdover TE (-?\\d+) ns, (-?\\d+) ns by the residual");
  const std::string timeline = writeTemp("servo.json", ""), report = writeTemp("servo.html", "");
  for (const auto &r : rows) {
    std::string text = std::regex_replace(yaml, std::regex("delay: 2us"), r.link);
    text = std::regex_replace(text, std::regex("settling: 60s"), std::string("settling: ") + r.settling);
    if (std::string_view(r.name) == "outage")
      text = std::regex_replace(text, std::regex("wander: [0-9.]+"), "wander: 0");
    // One run a row, and only the time keeping's records on the standard output.
    std::vector<std::string> argv{CLKSIM_PATH, "-f", "jsonl", "--only", "servo_state,servo_adjust,te_sample,te_judged"};
    if (&r == rows) argv.insert(argv.end(), {"--timeline", timeline, "--report", report});
    argv.push_back(writeTemp("servo.yaml", (text + r.steps).c_str()));
    const auto o = fwmtest::runTool(argv, std::chrono::minutes(4));
    ASSERT_EQ(o.exitCode, 0) << r.name << o.err;
    std::vector<std::string> states;
    std::map<std::string, std::vector<json>> kinds;
    for (const auto &line : fwmtest::splitLines(o.out)) {
      json j = json::parse(line);
      kinds[j["kind"].get<std::string>()].push_back(j.contains("fields") ? j["fields"] : j);
      if (j["kind"] == "servo_state") states.push_back(j["fields"]["servo_state"].get<std::string>());
      std::smatch m;
      const std::string said = j.value("text", "");
      if (std::regex_search(said, m, held)) {
        EXPECT_NEAR(std::stoi(m[1]), std::stoi(m[2]), 5) << r.name;
      }
      EXPECT_EQ(said.find("holdover TE") != std::string::npos, j["kind"] == "servo_state" && states.size() == 4);
    }
    EXPECT_EQ(states, r.states) << r.name;
    ASSERT_EQ(kinds["te_judged"].size(), 1u) << r.name;
    const json &judged = kinds["te_judged"][0];
    EXPECT_EQ(kinds["summary"][0]["timeError"], json::array({judged})) << r.name;
    EXPECT_GE(judged["cte_ns"], r.cteLo) << r.name;
    EXPECT_LE(judged["cte_ns"], r.cteHi) << r.name;
    if (*r.verdict) {
      EXPECT_EQ(judged["class"], r.verdict) << r.name;
      EXPECT_EQ(judged["classes"]["C"]["met"], judged["class"] == "C") << r.name;
    }
    const double window = judged["window_to_s"].get<double>() - judged["window_from_s"].get<double>();
    EXPECT_GE(judged["mtie_ns"].size(), 3u) << r.name;  // 1, 2, 5 s, ... as far as the window allows
    EXPECT_LE(judged["mtie_ns"].back()[0].get<double>(), window) << r.name;
    EXPECT_EQ(kinds["te_sample"].size(), r.samples) << r.name;
    // The first correction steps the engine by the offset it saw; every one sets its frequency.
    const json &first = kinds["servo_adjust"].at(0);
    EXPECT_EQ(first["step_ns"], -first["offset_ns"].get<int64_t>()) << r.name;
    EXPECT_EQ(kinds["servo_adjust"].back().count("freq_ppb"), 1u) << r.name;
  }
  const std::string tl = fwmtest::readFile(timeline), page = fwmtest::readFile(report);
  for (const char *want : {R"x("name":"unit 0 TE (ns)")x", R"x("name":"unit 0 frequency adjustment (ppb)")x",
                           R"x("name":"servo 0:3 locked")x", R"x("name":"time error of unit 0")x"})
    EXPECT_THAT(tl, HasSubstr(want));
  EXPECT_THAT(page, HasSubstr("<td class=verdict>C</tr>"));
  EXPECT_THAT(page, HasSubstr("<tr><td>unit 0<td>20.1 – 40.0<td>5.375<td>"));
}

// The boundary drills in virtual time: every decision the built-in peer
// made, when, from what the card's acknowledgements told it.
TEST(Boundary, DrillsDecideAsTheNetworkChanges) {
  auto parent = [](const char *from, int port, const char *gm, int cls, int p1) {
    return fmt::format(
        "parent 001b19.fffe.00{} on port {}, grandmaster 001b19.fffe.00{} class {} priority1 {}, "
        "stepsRemoved 0 (announced 1)",
        from, port, gm, cls, p1);
  };
  const std::string alone =
                        "1 MASTER (M2), 2 MASTER (M2); grandmaster: the card itself, 001b19.fffe.0c0001 class 248 "
                        "priority1 128",
                    onA = "1 SLAVE (S1), 2 MASTER (M3); " + parent("a0a1-1", 1, "a0a1", 6, 128);
  const std::pair<const char *, std::vector<std::string>> rows[] = {
      {"boundary-switch",
       {"0 " + alone, "2500 " + onA, "20500 1 MASTER (M3), 2 SLAVE (S1); " + parent("b0b1-1", 2, "b0b1", 6, 64),
        "40500 " + onA, "55500 " + alone}},
      {"boundary-passive",
       {"0 " + alone, "2500 1 MASTER (M3), 2 SLAVE (S1); " + parent("a0a1-2", 2, "a0a1", 6, 128),
        "2500 1 SLAVE (S1), 2 PASSIVE (P2); " + parent("a0a1-1", 1, "a0a1", 6, 128)}},
      {"boundary-master-only",
       {"0 " + alone, "2500 1 MASTER (M3), 2 SLAVE (S1); " + parent("b0b1-1", 2, "b0b1", 7, 128)}},
      // No identity: none before port 1 sends. The class announced follows the servo, the card's own candidate too;
      // the peer hears the master again.
      {"boundary-holdover",
       {"2500 " + onA, "2500 clock class 248 -> 6: locked to the grandmaster",
        "30000 the step at line 42 (set_ptp_port_cfg) set 0:4 (port 2) PASSIVE (7) over the orchestrator's MASTER (6): "
        "its next decision programs the port again",
        "40187 clock class 6 -> 135: 0.0 s in holdover, within its budget of 10 s",
        "45500 1 MASTER (M2), 2 MASTER (M2); grandmaster: the card itself, 001b19.fffe.0c0001 class 135 priority1 128",
        "50250 clock class 135 -> 165: 10.1 s in holdover, past its budget of 10 s",
        "50250 1 MASTER (M2), 2 MASTER (M2); grandmaster: the card itself, 001b19.fffe.0c0001 class 165 priority1 128",
        "70500 " + onA, "70500 clock class 165 -> 6: locked to the grandmaster"}},
  };
  for (const auto &[name, want] : rows) {
    auto o = fwmtest::runTool({CLKSIM_PATH, "-f", "jsonl", "--only", "decision,note", "-s", name});
    EXPECT_EQ(o.exitCode, 0) << o.err;
    std::vector<std::string> told;
    for (const auto &line : fwmtest::splitLines(o.out)) {
      const auto j = json::parse(line);
      const auto text = j.value("text", std::string());
      if (j["kind"] == "decision" || text.starts_with("orchestrator: clock class") ||
          text.starts_with("orchestrator: the step"))
        told.push_back(fmt::format("{} {}", j["t_ms"].get<uint64_t>(), text.substr(j["kind"] == "decision" ? 10 : 14)));
    }
    EXPECT_EQ(told, want) << name;
  }
}

// Whoever acts on the decisions gets each one, in order, on the host's
// thread between the time samples rather than inside the library's send.
TEST(Boundary, EveryDecisionReachesTheHook) {
  auto sc = std::get<clksim::Scenario>(
      clksim::loadScenario(clksim::findBuiltin("boundary-passive")->yaml, "boundary-passive"));
  clksim::Runner run(sc, {});
  std::vector<std::string> handed;
  run.onDecision([&](const fwmtools::bmca::Decision &d) {
    EXPECT_EQ(fwmsim::threadName(), "host");
    handed.push_back(fwmtools::decisionText(d).substr(0, 28));
  });
  EXPECT_EQ(run.run(), 0);
  EXPECT_THAT(handed, ElementsAre("1 MASTER (M2), 2 MASTER (M2)", "1 MASTER (M3), 2 SLAVE (S1);",
                                  "1 SLAVE (S1), 2 PASSIVE (P2)"));
}

}  // namespace
