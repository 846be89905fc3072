// The shared toolkit: the acknowledgement's bytes, the announce on the wire,
// and pcap files that a dissector reads back with the same values. Then
// clkpeer, built on it, as the negotiation peer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "fwmtools/ack_text.hpp"
#include "fwmtools/announce.hpp"
#include "fwmtools/pcap.hpp"
#include "fwmtools/sender.hpp"
#include "fwmtools/udp_peer.hpp"
#include "sample_announce.hpp"
#include "subprocess.hpp"
#include "testkit.hpp"

namespace {

using fwmtest::sampleAnnounce;
using Bytes = std::vector<uint8_t>;

// The root header (ifIndex, pktLen), then the image as the line card lays it
// out: header constants, the flag field's two octets in order, identities as
// native little-endian words. (clkpeer's test decodes these bytes back.)
TEST(Ack, MessageIsRootHeaderThenTheRecordUnchanged) {
  EXPECT_EQ(fwmtest::hex(fwmtools::encodeAck({0, 5, 96, sampleAnnounce()})),
            "000000000500000060000000000b00024000180002080000000000000000000000000000000000000000000001a000feff19"
            "1b000100000005010000000000000000000000002500006406215d4e80000000000002001ffeff0d2e7c0200200000000000");
}

TEST(Ack, DescribesTheAnnounceInIeee1588Terms) {
  EXPECT_THAT(
      fwmtools::describeAck({0, 3, 96, sampleAnnounce()}),
      ::testing::IsSupersetOf({"grandmaster 7c2e0d.fffe.1f0002  priority1 100  priority2 128",
                               "clockClass 6  clockAccuracy 0x21 (within 100 ns)  offsetScaledLogVariance 0x4e5d",
                               "stepsRemoved 2  timeSource 0x20 (GPS)  currentUtcOffset 37",
                               "sourcePortIdentity 001b19.fffe.00a001-1"}));
  auto handSet = sampleAnnounce();
  handSet.timeSource = 0x60;
  EXPECT_THAT(fwmtools::describeAck({0, 3, 96, handSet}), ::testing::Contains(::testing::HasSubstr("0x60 (HAND_SET)")));
}

TEST(Identity, PrintsAndParsesTheDottedForm) {
  EXPECT_EQ(fwmtools::clockIdentityText(0x001B19FFFE00A001ull), "001b19.fffe.00a001");
  EXPECT_EQ(fwmtools::parseClockIdentity("001b19.fffe.00a001"), 0x001B19FFFE00A001ull);
  EXPECT_EQ(fwmtools::parseClockIdentity("001B19FFFE00A001"), 0x001B19FFFE00A001ull);
  EXPECT_FALSE(fwmtools::parseClockIdentity("001b19.fffe.00a0"));
  EXPECT_FALSE(fwmtools::parseClockIdentity("001b19.fffe.00a0zz"));
  auto noMac = sampleAnnounce();  // without fffe in its middle an identity holds no MAC: a local one stands in
  noMac.sourceClockIdentity = 0x001B19FFFF00A001ull;
  EXPECT_EQ(fwmtools::senderFrame(noMac).srcMac, (std::array<uint8_t, 6>{2, 0, 0, 0, 0, 0}));
}

std::string writeSamplePcap(const char *name, const fwmtools::FrameAddressing &addr = {}) {
  std::string path = fwmtest::scratch(name);
  fwmtools::PcapWriter w;
  EXPECT_TRUE(w.open(path));
  // Loss reports are no announce and stay out: no grandmaster, or no source.
  fwmtools::Announce noGm = sampleAnnounce(), noSource = sampleAnnounce();
  noGm.grandmasterIdentity = 0;
  noSource.sourceClockIdentity = 0;
  EXPECT_FALSE(w.writeAnnounce(1704067200000000ull, noGm, addr));
  EXPECT_FALSE(w.writeAnnounce(1704067200000000ull, noSource, addr));
  EXPECT_TRUE(w.writeAnnounce(1704067200000000ull + 2500000, sampleAnnounce(), addr));
  EXPECT_TRUE(w.close());
  return path;
}

TEST(Pcap, FrameCarriesTheAnnounceToUdpPort320WithValidChecksums) {
  const std::string file = fwmtest::readFile(writeSamplePcap("frame.pcap"));
  EXPECT_EQ(fwmtest::hex(std::vector<uint8_t>(file.begin(), file.end())),
            "4d3cb2a1020004000000000000000000ffff000001000000"  // nanoseconds, Ethernet
            "820092650065cd1d6a0000006a000000"                  // at 2024-01-01 00:00:02.5, 106 bytes
            "01005e000181001b190000010800"                      // to the PTP group, IPv4
            "4500005c0001400001118e0e0a000001e0000181"          // TTL 1, UDP, header checksum
            "0140014000480843" +                                // port 320 to 320, checksum
                fwmtest::hex(fwmptp::encodeAnnounce(sampleAnnounce())));
}

// What a dissector reads, framed as a port can be programmed: Ethernet in a
// VLAN, and IPv4/UDP to the PTP multicast group (the default framing's bytes
// are pinned above).
TEST(Pcap, TsharkDissectsTheAnnounceAsFramed) {
  if (!fwmtest::haveTool("tshark")) GTEST_SKIP() << "tshark is not installed";
  fwmtools::FrameAddressing ethVlan{false, 0xA064, 0, {2, 0, 0, 0, 0, 7}, {0x01, 0x1b, 0x19, 0, 0, 0}, 0, 0};
  fwmtools::FrameAddressing udp{true,       std::nullopt, 46, {2, 0, 0, 0, 0, 7}, {1, 0, 0x5e, 0, 1, 0x81},
                                0x0A030001, 0xE0000181};
  // Every row ends with the announce's fields.
  const std::string ptp = ",0x0b,24,0x7c2e0dfffe1f0002,6,0x21,20061,100,128,2,0x20,0x001b19fffe00a001,1,37\n";
  const std::pair<fwmtools::FrameAddressing, std::string> cases[] = {
      {ethVlan, "1704067202.500000000,02:00:00:00:00:07,01:1b:19:00:00:00,5,100,0x88f7,,,,," + ptp},
      {udp, "1704067202.500000000,02:00:00:00:00:07,01:00:5e:00:01:81,,,,10.3.0.1,224.0.1.129,46,2,2" + ptp}};
  for (const auto &[addr, expected] : cases)
    EXPECT_EQ(
        fwmtest::dissect(writeSamplePcap("framed.pcap", addr),
                         "frame.time_epoch eth.src eth.dst vlan.priority vlan.id vlan.etype ip.src ip.dst "
                         "ip.dsfield.dscp ip.checksum.status udp.checksum.status ptp.v2.messagetype "
                         "ptp.v2.domainnumber ptp.v2.an.grandmasterclockidentity ptp.v2.an.grandmasterclockclass "
                         "ptp.v2.an.grandmasterclockaccuracy ptp.v2.an.grandmasterclockvariance ptp.v2.an.priority1 "
                         "ptp.v2.an.priority2 ptp.v2.an.localstepsremoved ptp.v2.timesource ptp.v2.clockidentity "
                         "ptp.v2.sourceportid ptp.v2.an.origincurrentutcoffset"),
        expected);
}

// clkpeer as the negotiation peer: it reports and skips what is not an
// acknowledgement and decodes what is; deciding, it tells the card alone at
// the start and each decision that changed (the loss changes nothing yet).
TEST(Clkpeer, SkipsMalformedDatagramsAndDecodesTheAcknowledgement) {
  const std::string pcap = fwmtest::scratch("peer.pcap");
  fwmtest::Child peer({CLKPEER_PATH, "--listen", "127.0.0.1:0", "--format", "jsonl", "--count", "2", "--idle-exit-ms",
                       "10000", "--pcap", pcap, "--decide", "--identity", "001b19.fffe.0c0001", "--port", "21"});
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
          R"j({"announcedStepsRemoved":0,"clockClass":248,"datagram":0,"grandmaster":"001b19.fffe.0c0001",)j"
          R"j("kind":"decision","local":true,"ports":[{"port":1,"reason":"M2","state":"MASTER"}],"priority1":128,)j"
          R"j("priority2":128,"stepsRemoved":0})j",
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
          R"j("sourcePortIdentity":"001b19.fffe.00a001-1","stepsRemoved":2,"timeSource":32})j",
          R"j({"announcedStepsRemoved":3,"clockClass":6,"datagram":8,"grandmaster":"7c2e0d.fffe.1f0002",)j"
          R"j("kind":"decision","local":false,"parent":"001b19.fffe.00a001-1","parentPort":1,"ports":[{"port":1,)j"
          R"j("reason":"S1","state":"SLAVE"}],"priority1":100,"priority2":128,"stepsRemoved":2})j"));
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
