// clkpeer as the negotiation peer: it reports and skips what is not an
// acknowledgement and decodes what is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "fwmtools/announce.hpp"
#include "fwmtools/udp_peer.hpp"
#include "sample_announce.hpp"
#include "subprocess.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(Clkpeer, SkipsMalformedDatagramsAndDecodesTheAcknowledgement) {
  const std::string pcap = ::testing::TempDir() + "/" + std::to_string(::getpid()) + "-peer.pcap";
  fwmtest::Child peer({CLKPEER_PATH, "--listen", "127.0.0.1:0", "--format", "jsonl", "--count", "2", "--idle-exit-ms",
                       "10000", "--pcap", pcap});
  auto ready = peer.errLine(std::chrono::seconds(20));
  ASSERT_TRUE(ready);
  const std::string prefix = "clkpeer: listening on 127.0.0.1:";
  ASSERT_EQ(ready->rfind(prefix, 0), 0u) << *ready;
  fwmtools::Endpoint to{"127.0.0.1", static_cast<uint16_t>(std::stoi(ready->substr(prefix.size())))};

  // What is not an acknowledgement: no bytes, one too few or too many, a
  // sync, PTP version 1.
  const fwmtools::Ack ack{0, 21, 96, fwmtest::sampleAnnounce()};
  const auto good = fwmtools::encodeAck(ack);
  auto with = [&](size_t at, uint8_t value) {
    Bytes b(good.begin(), good.end());
    b[at] = value;
    return b;
  };
  fwmtools::Ack lossAck = ack;
  lossAck.announce.grandmasterIdentity = lossAck.announce.sourceClockIdentity = 0;
  const auto loss = fwmtools::encodeAck(lossAck);
  fwmtools::UdpSocket sender;
  ASSERT_TRUE(sender.bind({"127.0.0.1", 0}));
  auto cut = [&](size_t n) { return Bytes(good.begin(), good.begin() + static_cast<long>(n)); };
  const std::vector<Bytes> datagrams = {
      cut(0),  cut(99), Bytes(101, 0), Bytes(3000, 0xFF), with(13, 0), with(15, 1), Bytes(loss.begin(), loss.end()),
      cut(100)};
  for (const auto &d : datagrams) ASSERT_TRUE(sender.sendTo(to, d.data(), d.size()));

  auto o = peer.finish(std::chrono::seconds(20));
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_THAT(
      fwmtest::splitLines(o.out),
      ::testing::ElementsAre(
          R"j({"datagram":1,"kind":"skipped","reason":"length 0, an acknowledgement is 100 bytes"})j",
          R"j({"datagram":2,"kind":"skipped","reason":"length 99, an acknowledgement is 100 bytes"})j",
          R"j({"datagram":3,"kind":"skipped","reason":"length 101, an acknowledgement is 100 bytes"})j",
          R"j({"datagram":4,"kind":"skipped","reason":"length 3000, an acknowledgement is 100 bytes"})j",
          R"j({"datagram":5,"kind":"skipped","reason":"message type 0, not an announce (11)"})j",
          R"j({"datagram":6,"kind":"skipped","reason":"PTP version 1, not 2"})j",
          R"j({"clockAccuracy":33,"clockClass":6,"currentUtcOffset":37,"datagram":7,"domainNumber":24,"flagField":520,)j"
          R"j("grandmasterIdentity":"000000.0000.000000","grandmasterPriority1":100,"grandmasterPriority2":128,"ifIndex":21,)j"
          R"j("kind":"ack","logMessageInterval":1,"offsetScaledLogVariance":20061,"pktLen":96,"sequenceId":0,)j"
          R"j("sourcePortIdentity":"000000.0000.000000-1","stepsRemoved":2,"timeSource":32})j",
          R"j({"clockAccuracy":33,"clockClass":6,"currentUtcOffset":37,"datagram":8,"domainNumber":24,"flagField":520,)j"
          R"j("grandmasterIdentity":"7c2e0d.fffe.1f0002","grandmasterPriority1":100,"grandmasterPriority2":128,"ifIndex":21,)j"
          R"j("kind":"ack","logMessageInterval":1,"offsetScaledLogVariance":20061,"pktLen":96,"sequenceId":0,)j"
          R"j("sourcePortIdentity":"001b19.fffe.00a001-1","stepsRemoved":2,"timeSource":32})j"));
  EXPECT_THAT(o.err, ::testing::HasSubstr("clkpeer: 8 datagrams, 2 acknowledgements, 6 skipped"));

  // The capture holds the one announce, dated when it arrived (not 1970).
  const std::string text = fwmtest::readFile(pcap);
  const std::vector<uint8_t> file(text.begin(), text.end());
  ASSERT_EQ(file.size(), 24u + 16u + 106u);
  const int64_t seconds = file[24] | file[25] << 8 | file[26] << 16 | int64_t{file[27]} << 24;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(std::chrono::floor<std::chrono::seconds>(now).count()),
              600.0);
}

}  // namespace
