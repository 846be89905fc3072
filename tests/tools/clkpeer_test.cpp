// clkpeer as the negotiation peer: it reports and skips what is not an
// acknowledgement and decodes what is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "fwmtools/announce.hpp"
#include "fwmtools/udp_peer.hpp"
#include "subprocess.hpp"

namespace {

using nlohmann::json;

TEST(Clkpeer, SkipsMalformedDatagramsAndDecodesTheAcknowledgement) {
  const std::string pcap = ::testing::TempDir() + "/" + std::to_string(::getpid()) + "-peer.pcap";
  fwmtest::Child peer({CLKPEER_PATH, "--listen", "127.0.0.1:0", "--format", "jsonl", "--count", "2", "--idle-exit-ms",
                       "10000", "--pcap", pcap});
  auto ready = peer.errLine(std::chrono::seconds(20));
  ASSERT_TRUE(ready);
  const std::string prefix = "clkpeer: listening on 127.0.0.1:";
  ASSERT_EQ(ready->rfind(prefix, 0), 0u) << *ready;
  fwmtools::Endpoint to{"127.0.0.1", static_cast<uint16_t>(std::stoi(ready->substr(prefix.size())))};

  fwmtools::Ack ack;
  ack.ifIndex = 21;
  ack.pktLen = 96;
  ack.announce.messageType = 11;
  ack.announce.versionPtp = 2;
  ack.announce.grandmasterIdentity = 0x001B19FFFE00A001ull;
  ack.announce.clockClass = 248;
  ack.announce.sourceClockIdentity = 0x7C2E0DFFFE1F0002ull;
  ack.announce.sourcePortNumber = 3;
  auto good = fwmtools::encodeAck(ack);
  std::vector<uint8_t> notAnnounce(good.begin(), good.end());
  notAnnounce[13] = 9;
  fwmtools::Ack lossAck = ack;
  lossAck.announce.grandmasterIdentity = lossAck.announce.sourceClockIdentity = 0;
  auto loss = fwmtools::encodeAck(lossAck);

  fwmtools::UdpSocket sender;
  ASSERT_TRUE(sender.bind({"127.0.0.1", 0}));
  const std::vector<std::vector<uint8_t>> datagrams = {{},
                                                       {0x01, 0x02, 0x03},
                                                       std::vector<uint8_t>(good.begin(), good.begin() + 99),
                                                       std::vector<uint8_t>(3000, 0xFF),
                                                       notAnnounce,
                                                       std::vector<uint8_t>(loss.begin(), loss.end()),
                                                       std::vector<uint8_t>(good.begin(), good.end())};
  for (const auto &d : datagrams) ASSERT_TRUE(sender.sendTo(to, d.data(), d.size()));

  auto o = peer.finish(std::chrono::seconds(20));
  EXPECT_EQ(o.exitCode, 0) << o.err;
  auto lines = fwmtest::splitLines(o.out);
  ASSERT_EQ(lines.size(), 7u) << o.out;
  const char *reasons[] = {"length 0, an acknowledgement is 100 bytes", "length 3, an acknowledgement is 100 bytes",
                           "length 99, an acknowledgement is 100 bytes", "length 3000, an acknowledgement is 100 bytes",
                           "message type 9, not an announce (11)"};
  for (size_t i = 0; i < 5; ++i) {
    auto j = json::parse(lines[i]);
    EXPECT_EQ(j["kind"], "skipped");
    EXPECT_EQ(j["datagram"], i + 1);
    EXPECT_EQ(j["reason"], reasons[i]);
  }
  EXPECT_EQ(json::parse(lines[5])["grandmasterIdentity"], "000000.0000.000000");
  auto a = json::parse(lines[6]);
  EXPECT_EQ(a["kind"], "ack");
  EXPECT_EQ(a["ifIndex"], 21);
  EXPECT_EQ(a["clockClass"], 248);
  EXPECT_EQ(a["grandmasterIdentity"], "001b19.fffe.00a001");
  EXPECT_EQ(a["sourcePortIdentity"], "7c2e0d.fffe.1f0002-3");
  EXPECT_THAT(o.err, ::testing::HasSubstr("clkpeer: 7 datagrams, 2 acknowledgements, 5 skipped"));

  // The capture holds the one announce, dated when it arrived (not 1970).
  std::ifstream in(pcap, std::ios::binary);
  std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), {});
  ASSERT_EQ(file.size(), 24u + 16u + 106u);
  const int64_t seconds = file[24] | file[25] << 8 | file[26] << 16 | int64_t{file[27]} << 24;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(std::chrono::floor<std::chrono::seconds>(now).count()),
              600.0);
}

}  // namespace
