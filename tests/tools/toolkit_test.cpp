// The shared toolkit: the acknowledgement's bytes, the announce on the wire,
// and pcap files that a dissector reads back with the same values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fwmtools/ack_text.hpp"
#include "fwmtools/announce.hpp"
#include "fwmtools/pcap.hpp"
#include "sample_announce.hpp"
#include "subprocess.hpp"
#include "testkit.hpp"

namespace {

using fwmtest::sampleAnnounce;
using fwmtools::Announce;

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
}

TEST(Identity, PrintsAndParsesTheDottedForm) {
  EXPECT_EQ(fwmtools::clockIdentityText(0x001B19FFFE00A001ull), "001b19.fffe.00a001");
  EXPECT_EQ(fwmtools::parseClockIdentity("001b19.fffe.00a001"), 0x001B19FFFE00A001ull);
  EXPECT_EQ(fwmtools::parseClockIdentity("001B19FFFE00A001"), 0x001B19FFFE00A001ull);
  EXPECT_FALSE(fwmtools::parseClockIdentity("001b19.fffe.00a0"));
  EXPECT_FALSE(fwmtools::parseClockIdentity("001b19.fffe.00a0zz"));
}

std::string writeSamplePcap(const char *name, const fwmtools::FrameAddressing &addr = {}) {
  std::string path = ::testing::TempDir() + "/" + std::to_string(::getpid()) + "-" + name;
  fwmtools::PcapWriter w;
  EXPECT_TRUE(w.open(path));
  // Loss reports are no announce and stay out: no grandmaster, or no source.
  Announce noGm = sampleAnnounce(), noSource = sampleAnnounce();
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
            "d4c3b2a1020004000000000000000000ffff000001000000"  // microseconds, Ethernet
            "8200926520a107006a0000006a000000"                  // at 2024-01-01 00:00:02.5, 106 bytes
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

}  // namespace
