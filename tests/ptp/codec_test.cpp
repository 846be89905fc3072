// The IEEE 1588 codec: exact bytes out, the same fields back, and every
// reason a received message is refused; frames built and parsed back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "sample_announce.hpp"

namespace {

using fwmptp::Reject;
using Bytes = std::vector<uint8_t>;

fwmptp::Announce sample() {
  auto a = fwmtest::sampleAnnounce();
  a.sequenceId = 0x1234;
  a.logMessageInterval = -3;
  return a;
}

const Bytes kSampleWire = {0x0B, 0x02, 0x00, 0x40, 24,   0,    0x02, 0x08, 0,    0,    0,    0,    0,
                           0,    0,    0,    0,    0,    0,    0,    0x00, 0x1B, 0x19, 0xFF, 0xFE, 0x00,
                           0xA0, 0x01, 0,    1,    0x12, 0x34, 5,    0xFD, 0,    0,    0,    0,    0,
                           0,    0,    0,    0,    0,    0,    37,   0,    100,  6,    0x21, 0x4E, 0x5D,
                           128,  0x7C, 0x2E, 0x0D, 0xFF, 0xFE, 0x1F, 0x00, 0x02, 0,    2,    0x20};

TEST(Codec, AnnounceEncodesToTheExactBytesAndDecodesBack) {
  auto wire = fwmptp::encodeAnnounce(sample());
  EXPECT_EQ(Bytes(wire.begin(), wire.end()), kSampleWire);
  Reject why = Reject::Short;
  EXPECT_EQ(fwmptp::decodeAnnounce(kSampleWire, 24, &why), sample());
  EXPECT_EQ(why, Reject::None);
  Bytes longer = kSampleWire;  // TLVs after the body and minor version 1 are fine
  longer[1] = 0x12;
  longer[3] = 0x48;
  longer.resize(0x48, 0xEE);
  EXPECT_TRUE(fwmptp::decodeAnnounce(longer, 24));
}

std::string hex(std::span<const uint8_t> b) {
  std::string s;
  for (uint8_t v : b) s += "0123456789abcdef"[v >> 4], s += "0123456789abcdef"[v & 15];
  return s;
}

fwmptp::EventMessage sampleEvent(uint8_t type) {
  fwmptp::EventMessage m{type,
                         0,
                         24,
                         fwmptp::kFlagTwoStep,
                         0x18000,
                         {0x001B19FFFE00A001, 5},
                         0x1234,
                         -4,
                         {0x000102030405, 999999999},
                         {0x7C2E0DFFFE000300, 1}};
  m.messageLength = static_cast<uint16_t>(fwmptp::eventSize(type));
  if (fwmptp::eventSize(type) == 44) m.requesting = {};  // only the answers carry one
  return m;
}

TEST(Codec, EveryRejectionSaysWhy) {
  const auto sync = fwmptp::encodeEvent(sampleEvent(fwmptp::kMsgSync));
  const auto resp = fwmptp::encodeEvent(sampleEvent(fwmptp::kMsgDelayResp));
  struct Case {
    const char *name;
    size_t size;  // bytes kept
    std::vector<std::pair<size_t, uint8_t>> set;
    Reject why;
    std::span<const uint8_t> base = kSampleWire;
    bool event = false;  // through the event decoder
  } cases[] = {
      {"empty", 0, {}, Reject::Short},
      {"header cut", 33, {}, Reject::Short},
      {"version 1", 64, {{1, 0x01}}, Reject::Version},
      {"length beyond the bytes", 63, {}, Reject::Length},
      {"length below a header", 64, {{3, 33}}, Reject::Length},
      {"announce of 44 bytes", 64, {{3, 44}}, Reject::Length},
      {"sync", 64, {{0, 0x00}, {3, 44}}, Reject::MessageType},
      {"delay request", 64, {{0, 0x01}}, Reject::MessageType},
      {"domain 0", 64, {{4, 0}}, Reject::Domain},
      {"event: sync cut in the body", 43, {}, Reject::Length, sync.view(), true},
      {"event: sync saying 43 bytes", 44, {{3, 43}}, Reject::Length, sync.view(), true},
      {"event: delay response of 44 bytes", 54, {{3, 44}}, Reject::Length, resp.view(), true},
      {"event: announce", 64, {}, Reject::MessageType, kSampleWire, true},
      {"event: signaling", 54, {{0, 0x0C}}, Reject::MessageType, resp.view(), true},
      {"event: header cut", 33, {}, Reject::Short, sync.view(), true},
      {"event: version 1", 44, {{1, 1}}, Reject::Version, sync.view(), true},
      {"event: domain 0", 54, {{4, 0}}, Reject::Domain, resp.view(), true},
  };
  for (const auto &c : cases) {
    Bytes b(c.base.begin(), c.base.begin() + static_cast<long>(c.size));
    for (auto [at, v] : c.set) b[at] = v;
    Reject why = Reject::None;
    EXPECT_FALSE(c.event ? fwmptp::decodeEvent(b, 24, &why).has_value()
                         : fwmptp::decodeAnnounce(b, 24, &why).has_value())
        << c.name;
    EXPECT_EQ(why, c.why) << c.name << ": " << fwmptp::rejectName(why);
  }
}

TEST(Codec, EventMessagesEncodeToTheExactBytesAndDecodeBack) {
  const std::string header = "18000200000000000001800000000000001b19fffe00a00100051234";
  struct Case {
    uint8_t type;
    std::string wire;
  } cases[] = {
      {fwmptp::kMsgSync, "0002002c" + header + "00fc0001020304053b9ac9ff"},
      {fwmptp::kMsgDelayReq, "0102002c" + header + "01fc0001020304053b9ac9ff"},
      {fwmptp::kMsgFollowUp, "0802002c" + header + "02fc0001020304053b9ac9ff"},
      {fwmptp::kMsgDelayResp, "09020036" + header + "03fc0001020304053b9ac9ff7c2e0dfffe0003000001"},
      {fwmptp::kMsgPdelayReq, "02020036" + header + "05fc0001020304053b9ac9ff00000000000000000000"},
      {fwmptp::kMsgPdelayResp, "03020036" + header + "05fc0001020304053b9ac9ff7c2e0dfffe0003000001"},
      {fwmptp::kMsgPdelayRespFollowUp, "0a020036" + header + "05fc0001020304053b9ac9ff7c2e0dfffe0003000001"},
  };
  for (const auto &c : cases) {
    auto m = sampleEvent(c.type);
    if (c.type == fwmptp::kMsgPdelayReq) m.requesting = {};
    const auto wire = fwmptp::encodeEvent(m);
    EXPECT_EQ(hex(wire.view()), c.wire) << fwmptp::messageTypeName(c.type);
    Reject why = Reject::Short;
    EXPECT_EQ(fwmptp::decodeEvent(wire.view(), 24, &why), m) << fwmptp::messageTypeName(c.type);
    EXPECT_EQ(why, Reject::None);
  }
  EXPECT_EQ(fwmptp::encodeEvent(sampleEvent(fwmptp::kMsgAnnounce)).size, 0u);
}

TEST(Codec, FramesCarryThePayloadAsProgrammed) {
  fwmptp::FrameLayout udp;
  udp.dstMac = {0x01, 0x00, 0x5E, 0x00, 0x01, 0x81};
  udp.srcMac = {0x02, 0, 0, 0, 0, 7};
  udp.ipv4 = true;
  udp.srcIp = 0xC0A84D01;
  udp.dstIp = fwmptp::kPrimaryGroup;
  udp.dscp = 46;
  udp.vlanTag = 0x8100A064;
  fwmptp::FrameLayout eth;
  eth.dstMac = fwmptp::kPrimaryMac;
  for (const auto &layout : {udp, eth}) {
    Bytes f = fwmptp::buildFrame(kSampleWire, layout);
    auto p = fwmptp::parseFrame(f);
    ASSERT_TRUE(p);
    EXPECT_EQ(Bytes(p->payload.begin(), p->payload.end()), kSampleWire);
    EXPECT_EQ(p->ipv4, layout.ipv4);
    EXPECT_EQ(p->srcMac, layout.srcMac);
    if (layout.ipv4) {
      EXPECT_EQ(p->vlanTci, 0xA064);
      EXPECT_EQ(p->srcIp, layout.srcIp);
      EXPECT_EQ(p->udpPort, 320);
      EXPECT_EQ(f[19], 46 << 2);  // DSCP in the TOS byte
      EXPECT_EQ(f[26], 1);        // TTL
      EXPECT_EQ(fwmptp::internetChecksum(std::span<const uint8_t>(f).subspan(18, 20)), 0);
    } else {
      EXPECT_EQ(Bytes(f.begin() + 12, f.begin() + 14), (Bytes{0x88, 0xF7}));
    }
  }
  Bytes other = fwmptp::buildFrame(kSampleWire, udp);
  other[18 + 20 + 3] = 53;  // UDP to the DNS port: not PTP
  EXPECT_FALSE(fwmptp::parseFrame(other));
  EXPECT_FALSE(fwmptp::parseFrame(Bytes(13, 0)));
}

}  // namespace
