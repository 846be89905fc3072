// The built-in story, read back from clksim's JSON lines: start-up, the
// requests and the engine calls they make, the failures and their report
// lines, and the acknowledgements the negotiation peer receives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "subprocess.hpp"

namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// One run of the story for the whole suite: the process is the expensive part.
class Story : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Each test case is a process of its own and they run side by side.
    const std::string stem = ::testing::TempDir() + "/story-" + std::to_string(::getpid());
    pcapPath_ = stem + ".pcap";
    timelinePath_ = stem + ".json";
    auto o = fwmtest::runTool({CLKSIM_PATH, "--format", "jsonl", "--pcap", pcapPath_, "--timeline", timelinePath_});
    exitCode_ = o.exitCode;
    err_ = o.err;
    for (const auto &l : fwmtest::splitLines(o.out)) lines_.push_back(json::parse(l));
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
  static inline int exitCode_ = -1;
  static inline std::string err_, pcapPath_, timelinePath_;
};

TEST_F(Story, RunsToTheEndWithAScenarioHeaderAndASummary) {
  EXPECT_EQ(exitCode_, 0) << err_;
  ASSERT_GE(lines_.size(), 3u);
  EXPECT_EQ(lines_.front(), json::parse(R"({"kind": "scenario", "name": "mira-story", "source": "builtin:mira-story",
      "steps": 40, "board": {"chassis": 1, "chipType": 40, "coldAgent": false, "engines": 2,
                             "masterIp": 167772414, "selfIp": 167772163, "slot": 3}})"));
  const json want = json::parse(R"({"kind": "summary", "requests": 13, "failedRequests": 2, "feModuleErrors": 4,
                                    "virtualMs": 5500, "acks": 3, "peerReceived": 3})");
  for (const auto &[key, value] : want.items()) EXPECT_EQ(summary()[key], value) << key;
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
  std::vector<std::string> names;
  for (const auto &[tid, name] : tracks) names.push_back(name);
  EXPECT_THAT(
      names, ::testing::IsSupersetOf({"host", "orchestrator", "reltmr", "CLK_FWM_BKF", "ClkSrvIMAgentUpdateMasterIp"}));
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
            "1795334403.000000000,00:1b:19:03:00:03,5,100,10.3.0.1,224.0.1.129,46,0x001b19fffe00a001,128,1\n"
            "1795334403.500000000,00:1b:19:03:00:03,5,100,10.3.0.1,224.0.1.129,46,0x7c2e0dfffe1f0002,100,2\n");
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
    std::ifstream in(std::string(FWMCLK_SOURCE_DIR) + doc);
    std::string line, joined;
    bool sh = false;
    while (std::getline(in, line)) {
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
  const fs::path root = ::testing::TempDir() + "/docs-" + std::to_string(::getpid());
  fs::create_directories(root / "elsewhere");
  std::string script = "set -euo pipefail; trap 'echo \"failed: $BASH_COMMAND\" >&2' ERR; ip link set lo up; cd " +
                       root.string() + "; peer=''; PATH=$PWD/scripts/bin:$PATH\n" +
                       "mkdir -p build/clksim/tools/clkpeer build/clksim/tools/clksim scripts/bin; cp " +
                       FWMCLK_SOURCE_DIR + "/scripts/clksim.sh scripts/; echo 'exit 0' >scripts/deps.sh\n" +
                       "printf '#!/bin/sh\\nexit 0\\n' >scripts/bin/cmake; chmod +x scripts/bin/cmake; ln -s " +
                       CLKSIM_PATH + " build/clksim/tools/clksim/clksim; ln -s " + CLKPEER_PATH +
                       " build/clksim/tools/clkpeer/clkpeer\n";
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

}  // namespace
