// Scenario loading: what a wrong scenario is told (place and expectation),
// and where a right one puts each field in the record the library reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "builtin.hpp"
#include "fwmclk/fwmclk.h"
#include "fwmtools/cli.hpp"
#include "fwmtools/udp_peer.hpp"
#include "loader.hpp"
#include "subprocess.hpp"

namespace {

using ::testing::HasSubstr;

constexpr const char *kBoard = "board: {chipType: 40, engines: 2}\n";

std::string times(int n, std::string_view s) {
  std::string r;
  while (n-- > 0) r += s;
  return r;
}

struct BadCase {
  const char *label;
  std::string yaml;
  int line, column;
  const char *message;
  friend void PrintTo(const BadCase &c, std::ostream *os) { *os << c.label; }
};

class RefusedScenario : public ::testing::TestWithParam<BadCase> {};

TEST_P(RefusedScenario, SaysWhereAndWhatWasExpected) {
  const BadCase &c = GetParam();
  auto r = clksim::loadScenario(c.yaml, "bad.yaml");
  ASSERT_TRUE(std::holds_alternative<clksim::LoadError>(r)) << c.label;
  const auto &e = std::get<clksim::LoadError>(r);
  EXPECT_EQ(e.pos.line, c.line) << e.text();
  EXPECT_EQ(e.pos.column, c.column) << e.text();
  EXPECT_THAT(e.text(), HasSubstr(c.message));
  EXPECT_THAT(e.text(), HasSubstr("bad.yaml:" + std::to_string(c.line) + ":" + std::to_string(c.column) + ": error: "));
}

INSTANTIATE_TEST_SUITE_P(
    Loader, RefusedScenario,
    ::testing::Values(
        BadCase{"unknown operation", std::string(kBoard) + "steps:\n  - set_ptp_prot_cfg: {unit: 0, port: 3}\n", 3, 5,
                "unknown operation 'set_ptp_prot_cfg' (did you mean 'set_ptp_port_cfg'?)"},
        BadCase{"bad field", std::string(kBoard) + "steps:\n  - set_ptp_port_cfg: {unit: 0, port: 3, enabled: 1}\n", 3,
                42,
                "unknown field 'enabled' of set_ptp_port_cfg (did you mean 'enable'?); expected one of: unit, port, "
                "fwdTarget"},
        BadCase{"wrong type", std::string(kBoard) + "steps:\n  - set_ptp_port_cfg: {unit: 0, port: 3, enable: yes}\n",
                3, 50,
                "field 'enable' of set_ptp_port_cfg (ClkPtpPortCfg): expected an unsigned integer (decimal, 0x.. or "
                "0b..), got 'yes'"},
        BadCase{"missing board", "steps:\n  - advance: 1s\n", 1, 1, "missing 'board': the line card to simulate"},
        BadCase{"missing port", std::string(kBoard) + "steps:\n  - set_ptp_rx_ctl: {unit: 0, pktType: 2}\n", 3, 21,
                "set_ptp_rx_ctl: missing field 'port'"},
        BadCase{"too wide",
                std::string(kBoard) + "steps:\n  - set_ptp_port_cfg: {unit: 0, port: 3, ctrlType33Value: 70000}\n", 3,
                59, "does not fit (at most 65535)"},
        BadCase{"negative unsigned", std::string(kBoard) + "steps:\n  - set_ptp_glb_cfg: {slavePort: -1}\n", 3, 34,
                "expected an unsigned integer"},
        BadCase{"bad duration", std::string(kBoard) + "steps:\n  - advance: soon\n", 3, 14,
                "advance: expected a duration like 2s, 500ms or 1.5s, got 'soon'"},
        BadCase{"bad mac", std::string(kBoard) + "steps:\n  - set_ptp_pkt_encap: {unit: 0, port: 3, srcMac: 00:1b}\n",
                3, 51, "expected a MAC address like 00:1b:19:00:00:01"},
        BadCase{"bad identity",
                std::string(kBoard) + "steps:\n  - announce_received: {unit: 0, port: 3, grandmasterIdentity: 12.34}\n",
                3, 64, "expected a clock identity like 001b19.fffe.000001"},
        BadCase{"unknown board key", "board: {chipType: 40, cores: 2}\nsteps: []\n", 1, 23,
                "unknown field 'cores' of board"},
        BadCase{"engines above eight", "board: {engines: 9}\nsteps: []\n", 1, 18, "does not fit (at most 8)"},
        BadCase{"wire port without interface", "board: {wirePorts: [\"0:3\"]}\nsteps: []\n", 1, 21,
                "board field 'wirePorts': expected a list of UNIT:PORT=IFACE"},
        BadCase{"step not a pair", std::string(kBoard) + "steps:\n  - advance\n", 3, 5,
                "a step is one 'name: value' pair"},
        BadCase{"not yaml", std::string(kBoard) + "steps: [\n", 3, 1, "not valid YAML"},
        BadCase{"record for a query",
                std::string(kBoard) + "steps:\n  - get_ptp_pkt_stat: {unit: 0, port: 3, words: [1]}\n", 3, 42,
                "unknown field 'words' of get_ptp_pkt_stat"},
        BadCase{"fail without function", std::string(kBoard) + "steps:\n  - fail: {code: 3}\n", 3, 11,
                "fail: missing field 'function'"},
        BadCase{"notify word", std::string(kBoard) + "steps:\n  - notify: shutdown\n", 3, 13,
                "notify: expected startup, master_ip or an event number, got 'shutdown'"},
        BadCase{"log interval below -128",
                std::string(kBoard) + "steps:\n  - announce_received: {unit: 0, port: 3, logMessageInterval: -129}\n",
                3, 63, "logMessageInterval' of announce_received (ClkNpAnnFields): -129 does not fit (-128 to -1)"},
        BadCase{"fail of a function the board cannot fail",
                std::string(kBoard) + "steps:\n  - fail: {function: oda_1588_set_ptp_contrl}\n", 3, 22,
                "the board cannot fail 'oda_1588_set_ptp_contrl' (did you mean 'oda_1588_set_ptp_control'?)"},
        BadCase{"fail code meaning success",
                std::string(kBoard) + "steps:\n  - fail: {function: IM_Agent_ObjCreate, code: 0}\n", 3, 48,
                "code 0 means success for IM_Agent_ObjCreate"},
        BadCase{"fail count of entries never read",
                std::string(kBoard) + "steps:\n  - fail: {function: FWM_QUE_AsyRead, code: 1}\n", 3, 45,
                "FWM_QUE_AsyRead fails only with 0 or less (nothing read); 1 claims entries it never wrote"},
        BadCase{"fail handle claiming success",
                std::string(kBoard) + "steps:\n  - fail: {function: ORIN_MemAlloc, code: 3}\n", 3, 43,
                "ORIN_MemAlloc fails only with 0 (nothing made)"},
        BadCase{"octet that would wrap", "board: {selfIp: 4294967296.0.0.1}\nsteps: []\n", 1, 17,
                "expected an IPv4 address like 10.0.0.1"},
        BadCase{"mac octet that would wrap",
                std::string(kBoard) + "steps:\n  - set_ptp_pkt_encap: {unit: 0, port: 3, srcMac: 100:1b:19:0:0:1}\n", 3,
                51, "expected a MAC address like 00:1b:19:00:00:01"},
        BadCase{"duplicate key", "board: {chipType: 40, chipType: 41}\nsteps: []\n", 1, 23,
                "field 'chipType' of board given twice"},
        BadCase{"second document", std::string(kBoard) + "steps: []\n---\nname: x\n", 3, 1, "a second YAML document"},
        BadCase{"complex key", std::string(kBoard) + "steps:\n  - {[a]: 1}\n", 3, 6,
                "a step: a field name is a plain word, not a list"},
        BadCase{"empty file", "", 1, 1, "expected a scenario"},
        BadCase{"null record the library does not check",
                std::string(kBoard) + "steps:\n  - set_ssm_port_cfg: {unit: 0, port: 3, nullRecord: 1}\n", 3, 42,
                "unknown field 'nullRecord' of set_ssm_port_cfg"},
        BadCase{"advance beyond a day", std::string(kBoard) + "steps:\n  - advance: 1441min\n", 3, 14,
                "advance: 1441min is more than a day"},
        BadCase{"control characters", std::string(kBoard) + "steps:\n  - \"ad\\e[2Jvance\": 1s\n", 3, 5,
                "unknown operation 'ad\\x1b[2Jvance'"},
        BadCase{"nesting too deep",
                std::string(kBoard) + "# " + times(2000, "[") + "\nsteps: [\"" + times(2000, "{") + "\", " +
                    times(1000, "[ ") + "][",
                3, 4011, "nested more than 500 levels deep; a scenario nests its lists and mappings 5 levels at most"},
        BadCase{"block nesting too deep", std::string(kBoard) + "steps:\n  " + times(600, "- "), 3, 1000,
                "nested more than"}),
    [](const ::testing::TestParamInfo<BadCase> &p) {
      std::string n = p.param.label;
      for (char &ch : n)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
      return n;
    });

uint32_t word(const std::vector<uint8_t> &b, size_t at) {
  uint32_t v;
  std::memcpy(&v, b.data() + at, 4);
  return v;
}

const clksim::Request &firstRequest(const clksim::LoadResult &r) {
  const auto &sc = std::get<clksim::Scenario>(r);
  return std::get<clksim::Request>(sc.steps.at(0).body);
}

TEST(Loader, PlacesPortConfigurationFieldsWhereTheLibraryReadsThem) {
  auto r = clksim::loadScenario(std::string(kBoard) +
                                    "steps:\n  - set_ptp_port_cfg: {unit: 1, port: 5, fwdTarget: 7, enable: 1, "
                                    "portState: 9, stateFlag: 1, rxSrcPortIdentity: [1, 2, 0xfffffffe], "
                                    "ctrlType33Value: 0xbeef, ifIndex: 21}\n",
                                "ok.yaml");
  ASSERT_TRUE(std::holds_alternative<clksim::Scenario>(r)) << std::get<clksim::LoadError>(r).text();
  const auto &q = firstRequest(r);
  EXPECT_EQ(q.op->slot, 1);
  EXPECT_EQ(q.unit, 1u);
  EXPECT_EQ(q.port, 5u);
  EXPECT_EQ(q.arg, 7u);
  ASSERT_EQ(q.record.size(), sizeof(ClkPtpPortCfg));
  ClkPtpPortCfg cfg;
  std::memcpy(&cfg, q.record.data(), sizeof cfg);
  EXPECT_EQ(cfg.enable, 1u);
  EXPECT_EQ(cfg.portState, 0x80000009u);
  EXPECT_EQ(cfg.rxSrcPortIdentity[2], 0xFFFFFFFEu);
  EXPECT_EQ(cfg.ctrlType33Value, 0xBEEF);
  EXPECT_EQ(cfg.ifIndex, 21u);
}

TEST(Loader, DefaultsTheThirdArgumentPerOperation) {
  auto r = clksim::loadScenario(std::string(kBoard) +
                                    "steps:\n  - set_ptp_port_cfg: {unit: 0, port: 3}\n"
                                    "  - get_ptp_t2_sub_t1: {unit: 0, port: 3}\n",
                                "ok.yaml");
  const auto &sc = std::get<clksim::Scenario>(r);
  EXPECT_EQ(std::get<clksim::Request>(sc.steps[0].body).arg, 0xFFFFFFFFu);  // no forwarding target
  EXPECT_EQ(std::get<clksim::Request>(sc.steps[1].body).arg, 0u);           // read, not read-clear
}

TEST(Loader, EncodesAddressesSignedValuesAndIdentities) {
  auto r = clksim::loadScenario(
      std::string(kBoard) +
          "steps:\n  - set_ptp_pkt_encap: {unit: 0, port: 3, destMac: 01:00:5e:00:01:81, srcIp: 10.3.0.1}\n"
          "  - set_ptp_port_asym: {unit: 0, port: 3, asymmetry: -100}\n"
          "  - set_ptp_port_pkt: {unit: 0, port: 3, grandmasterIdentity: 001b19.fffe.00a001, clockClass: 248}\n"
          "  - announce_received: {unit: 0, port: 3, sourcePortIdentity: 7c2e0d.fffe.1f0002-9, flagField: 0x0208, "
          "logMessageInterval: -3}\n",
      "ok.yaml");
  ASSERT_TRUE(std::holds_alternative<clksim::Scenario>(r)) << std::get<clksim::LoadError>(r).text();
  const auto &sc = std::get<clksim::Scenario>(r);
  const auto &encap = std::get<clksim::Request>(sc.steps[0].body).record;
  EXPECT_EQ(std::vector<uint8_t>(encap.begin() + 20, encap.begin() + 26),
            (std::vector<uint8_t>{0x01, 0x00, 0x5e, 0x00, 0x01, 0x81}));
  EXPECT_EQ(word(encap, 40), 0x0A030001u);
  EXPECT_EQ(word(std::get<clksim::Request>(sc.steps[1].body).record, 0), 0xFFFFFF9Cu);
  const auto &ann = std::get<clksim::Request>(sc.steps[2].body).record;
  EXPECT_EQ(word(ann, 32), 0x001B19FFu);
  EXPECT_EQ(word(ann, 36), 0xFE00A001u);
  EXPECT_EQ(ann[28], 248);
  const auto &rx = std::get<clksim::AnnounceReceived>(sc.steps[3].body).fields;
  ClkNpAnnFields f;
  std::memcpy(&f, rx.data(), sizeof f);
  EXPECT_EQ(f.sourceClockIdentityHigh, 0x7C2E0DFFu);
  EXPECT_EQ(f.sourceClockIdentityLow, 0xFE1F0002u);
  EXPECT_EQ(f.sourcePortNumber, 9u);
  EXPECT_EQ(f.flagField, 0x0208);
  EXPECT_EQ(f.logMessageInterval, 0xFD);
}

TEST(Loader, ReadsDurations) {
  const std::pair<const char *, uint64_t> cases[] = {
      {"2s", 2000}, {"500ms", 500}, {"1.5s", 1500}, {"1min", 60000}, {"250", 250}};
  for (const auto &[text, ms] : cases) {
    uint64_t got = 0;
    EXPECT_TRUE(clksim::parseDuration(text, got)) << text;
    EXPECT_EQ(got, ms) << text;
  }
  uint64_t ignored;
  for (const char *bad : {"", "s", "2h", "-1s", "0.5ms"}) EXPECT_FALSE(clksim::parseDuration(bad, ignored)) << bad;
}

TEST(Loader, EveryBuiltInScenarioLoads) {
  ASSERT_NE(clksim::findBuiltin(clksim::kDefaultScenario), nullptr);
  for (const auto &b : clksim::builtinScenarios()) {
    auto r = clksim::loadScenario(b.yaml, std::string(b.name));
    EXPECT_TRUE(std::holds_alternative<clksim::Scenario>(r)) << b.name << ": " << std::get<clksim::LoadError>(r).text();
  }
}

}  // namespace

namespace {

std::string writeTemp(const std::string &name, const char *text) {
  std::string path = ::testing::TempDir() + "/" + std::to_string(::getpid()) + "-" + name;
  std::ofstream(path) << text;
  return path;
}

// Every exit code of the table, from both tools, as --help and the docs state it.
TEST(Cli, ExitCodesAreTheOnesOfTheTable) {
  const std::string bad = writeTemp("bad.yaml", "board: {chipType: 40}\nsteps:\n  - set_ptp_glb_cfg: {slavePort: x}\n");
  const std::string early = writeTemp("early.yaml", "board: {chipType: 40}\nsteps:\n  - set_ptp_glb_cfg: {}\n");
  const std::string unsent =
      writeTemp("unsent.yaml",
                "board: {chipType: 40}\nsteps:\n  - fail: {function: CLOCK_NegoinfoiNtfyCliMsgSend, code: 7}\n"
                "  - notify: startup\n  - set_ptp_port_cfg: {unit: 0, port: 3, enable: 1, portState: 9, ifIndex: 3}\n"
                "  - announce_received: {unit: 0, port: 3, clockClass: 6}\n  - advance: 3s\n");
  fwmtools::UdpSocket busy;
  ASSERT_TRUE(busy.bind({"127.0.0.1", 0}));
  const std::string taken = "127.0.0.1:" + std::to_string(busy.localPort());
  struct Case {
    char tool;         // 's' clksim, 'p' clkpeer
    std::string args;  // separated by spaces
    int code;
    std::string err;       // what standard error says (a part of it)
    std::string out = "";  // a part of standard output; "" = nothing ran
  };
  const std::string s = CLKSIM_PATH, p = CLKPEER_PATH;
  const Case cases[] = {
      {'s', "--list-scenarios", 0, "", "mira-story"},
      {'p', "--listen 127.0.0.1:0 --idle-exit-ms 1", 0, "0 datagrams"},
      {'s', early, 1, "", "0 requests (0 failed, 1 more could not be made)"},
      {'s', unsent, 0, "", "] ack      not sent (CLOCK_NegoinfoiNtfyCliMsgSend returned 7): ifIndex 3: announce lost"},
      {'s', bad, 2, bad + ":3:34: error: field 'slavePort' of set_ptp_glb_cfg (ClkPtpGlbCfg): expected an unsigned"},
      {'s', "/nonexistent/scenario.yaml", 2, "/nonexistent/scenario.yaml: error: cannot read the file\n"},
      {'s', "--builtin no-such-story", 2, "clksim: no built-in scenario 'no-such-story' (see --list-scenarios)\n"},
      {'s', "--dump-scenario no-such-story", 2, "clksim: no built-in scenario 'no-such-story'"},
      {'s', "--peer 127.0.0.1", 2, "clksim: --peer 127.0.0.1: expected HOST:PORT, e.g. 127.0.0.1:39011\n"},
      {'s', "--peer 10.0.0.1:39011", 2, "clksim: --peer 10.0.0.1:39011: the negotiation client reaches 127.0.0.1 only"},
      {'s', "--bogus", 2, "The following argument was not expected: --bogus"},
      {'s', "-f xml", 2, "--format: xml not in {text,jsonl}"},
      {'s', "--timeline /nonexistent/t.json", 3,
       "clksim: --timeline /nonexistent/t.json: cannot create the file: No such"},
      {'s', "--pcap /nonexistent/a.pcap", 3,
       "clksim: --pcap /nonexistent/a.pcap: cannot create the file: No such file"},
      {'s', "--pcap /dev/full", 3, "clksim: --pcap /dev/full: cannot write the file: No space left on device\n"},
      {'s', "--timeline /dev/full", 3, "clksim: --timeline /dev/full: writing the file failed\n", "summary: 40 steps"},
      {'p', "--listen 127.0.0.1:notaport", 2, "clkpeer: --listen 127.0.0.1:notaport: expected HOST:PORT\n"},
      {'p', "--port 39011", 2, "The following arguments were not expected: 39011 --port"},
      {'p', "--count x", 2, "Could not convert: --count = x"},
      {'p', "--pcap /nonexistent/a.pcap", 3, "clkpeer: --pcap /nonexistent/a.pcap: cannot create the file"},
      {'p', "--listen " + taken, 4, "clkpeer: "},
      {'s', "--live 8:3=lo", 2, "clksim: --live 8:3=lo: expected UNIT:PORT=IFACE with unit 0..7, e.g. 0:3=veth0\n"},
      {'s', "--live 0:3=nosuch9", 2, "clksim: wire port 0:3=nosuch9: no network interface named 'nosuch9'\n"},
  };
  std::set<std::pair<std::string, int>> seen;
  for (const auto &c : cases) {
    std::vector<std::string> argv = {c.tool == 's' ? s : p};
    std::istringstream words(c.args);
    argv.insert(argv.end(), std::istream_iterator<std::string>(words), {});
    auto o = fwmtest::runTool(argv);
    EXPECT_EQ(o.exitCode, c.code) << c.args << ": " << o.err;
    EXPECT_THAT(o.err, HasSubstr(c.err)) << c.args;
    if (c.out.empty()) {
      EXPECT_EQ(o.out, "") << c.args;
    }
    EXPECT_THAT(o.out, HasSubstr(c.out)) << c.args;
    seen.insert({argv[0], o.exitCode});
  }
  std::ifstream in(std::string(FWMCLK_SOURCE_DIR) + "/docs/clksim.md");
  const std::string docs((std::istreambuf_iterator<char>(in)), {});
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

TEST(Cli, DumpsTheStoryAsTheFileInScenarios) {
  const std::string story = std::string(CLKSIM_SCENARIOS_DIR) + "/mira-story.yaml";
  std::ifstream in(story);
  std::string file((std::istreambuf_iterator<char>(in)), {});
  auto o = fwmtest::runTool({CLKSIM_PATH, "--dump-scenario"});
  EXPECT_EQ(o.exitCode, 0);
  EXPECT_EQ(o.out, file);
  auto checked = fwmtest::runTool({CLKSIM_PATH, "--check", story});
  EXPECT_EQ(checked.exitCode, 0);
  EXPECT_THAT(checked.out, ::testing::HasSubstr("40 steps, good"));
}

}  // namespace
