// The IEEE 1588 codec: exact bytes out, the same fields back, and every
// reason a received message is refused; frames built and parsed back. Then a
// slave port's receive path on the simulated wire.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "engine/link.hpp"
#include "fwmptp/announce.hpp"
#include "fwmptp/event.hpp"
#include "fwmptp/frame.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmsim/engine/wire.hpp"
#include "fwmsim/recorder.hpp"
#include "sample_announce.hpp"
#include "testkit.hpp"

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

constexpr fwmptp::PortIdentity kSource{0x001B19FFFE00A001, 5}, kRequesting{0x7C2E0DFFFE000300, 1};

fwmptp::EventMessage sampleEvent(uint8_t type) {
  fwmptp::EventMessage m{type,    0,      24, fwmptp::kFlagTwoStep,        0x18000,
                         kSource, 0x1234, -4, {0x000102030405, 999999999}, kRequesting};
  m.messageLength = static_cast<uint16_t>(fwmptp::eventSize(type));
  if (fwmptp::eventSize(type) == 44 || type == fwmptp::kMsgPdelayReq) m.requesting = {};  // only the answers carry one
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
    const auto wire = fwmptp::encodeEvent(m);
    EXPECT_EQ(fwmtest::hex(wire.view()), c.wire) << fwmptp::messageTypeName(c.type);
    Reject why = Reject::Short;
    EXPECT_EQ(fwmptp::decodeEvent(wire.view(), 24, &why), m) << fwmptp::messageTypeName(c.type);
    EXPECT_EQ(why, Reject::None);
  }
  EXPECT_EQ(fwmptp::encodeEvent(sampleEvent(fwmptp::kMsgAnnounce)).size, 0u);
  // The header alone, of a type the event decoder refuses: a Signaling message.
  auto signaling = sampleEvent(fwmptp::kMsgDelayResp);
  const auto wire = fwmptp::encodeEvent(signaling);
  Bytes b(wire.view().begin(), wire.view().end());
  b[0] = 0x0C, signaling.messageType = 0x0C, signaling.timestamp = {}, signaling.requesting = {};
  EXPECT_EQ(fwmptp::decodeHeader(b), signaling);
}

// The frame's headers whole (IPv4 and UDP checksums included), and the fields
// read back; a UDP port other than PTP's and a runt are no PTP frame.
TEST(Codec, FramesCarryThePayloadAsProgrammed) {
  fwmptp::FrameLayout udp{{0x01, 0x00, 0x5E, 0x00, 0x01, 0x81}, {2, 0, 0, 0, 0, 7}, 0x8100A064, true};
  udp.srcIp = 0xC0A84D01, udp.dstIp = fwmptp::kPrimaryGroup, udp.dscp = 46;
  auto check = [](const fwmptp::FrameLayout &layout, const std::string &headers, const std::string &parsed) {
    Bytes f = fwmptp::buildFrame(kSampleWire, layout);
    EXPECT_EQ(fwmtest::hex(f), headers + fwmtest::hex(kSampleWire));
    auto p = fwmptp::parseFrame(f);
    ASSERT_TRUE(p);
    EXPECT_EQ(fwmtest::hex(p->payload), fwmtest::hex(kSampleWire));
    std::ostringstream got;  // MACs, IPv4, VLAN TCI, addresses (hex); DSCP, UDP port
    got << fwmtest::hex(p->dstMac) << ' ' << fwmtest::hex(p->srcMac) << std::hex << ' ' << p->ipv4 << ' '
        << p->vlanTci.value_or(0) << ' ' << p->srcIp << ' ' << p->dstIp << std::dec << ' ' << +p->dscp << ' '
        << p->udpPort;
    EXPECT_EQ(got.str(), parsed);
  };
  check(udp, "01005e0001810200000000078100a064080045b8005c00004000011189aec0a84d01e0000181014001400048f169",
        "01005e000181 020000000007 1 a064 c0a84d01 e0000181 46 320");
  check({fwmptp::kPrimaryMac}, "011b1900000000000000000088f7", "011b19000000 000000000000 0 0 0 0 0 0");
  Bytes other = fwmptp::buildFrame(kSampleWire, udp);
  other[18 + 20 + 3] = 53;  // UDP to the DNS port: not PTP
  EXPECT_FALSE(fwmptp::parseFrame(other));
  EXPECT_FALSE(fwmptp::parseFrame(Bytes(13, 0)));
  EXPECT_EQ(fwmptp::internetChecksum(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xAB, 0xCF}), 0x5430);  // carries twice
}

// A slave port's receive path: each bad event message is counted under its
// reason, recorded with why, and changes no measurement; good ones measure
// exactly.
namespace stat = fwmsim::stat;
constexpr fwmptp::PortIdentity kMaster{0x7C2E0DFFFE000100, 1}, kSelf{0x001B19FFFE000003, 3};

struct In {
  uint8_t type;
  uint16_t seq;
  fwmptp::Timestamp time{};  // in the message
  timespec stamp{};          // when it arrived
  size_t keep = 0;           // bytes kept of the message; 0: all
  int64_t correction = 0;
  uint8_t domain = 24;
  fwmptp::PortIdentity requesting = kSelf;
};

Bytes frameOf(const In &in) {
  fwmptp::EventMessage m{in.type, 0, in.domain, 0, in.correction, kMaster, in.seq, 0, in.time, in.requesting};
  if (in.type == fwmptp::kMsgSync && in.time == fwmptp::Timestamp{}) m.flagField = fwmptp::kFlagTwoStep;
  auto e = fwmptp::encodeEvent(m);
  auto payload = e.view().first(in.keep ? in.keep : e.size);
  return fwmptp::buildFrame(payload, fwmptp::FrameLayout{});
}

TEST(WirePort, BadEventMessagesAreCountedAndIgnoredGoodOnesMeasure) {
  struct Case {
    const char *name;
    std::vector<In> in;
    std::vector<std::pair<size_t, uint32_t>> counted;
    const char *last;                   // the last record: why it was dropped, or what it measured
    std::array<uint32_t, 6> t2SubT1{};  // and the t4 - t3 record stays zero
  } cases[] = {
      {"truncated", {{0, 1, {}, {5, 0}, 43}}, {{stat::kMalformed, 1}}, "Sync wrong length"},
      {"other domain", {{0, 1, {}, {5, 0}, 0, 0, 25}}, {{stat::kForeign, 1}}, "Sync other domain"},
      {"no stamp", {{0, 1}}, {{stat::kNoTimestamp, 1}}, "Sync without a time stamp"},
      {"no Sync", {{8, 7, {100, 0}}}, {{stat::kFollowUpNoSync, 1}}, "Follow_Up seq 7 without a Sync"},
      {"other Sync",
       {{0, 5, {}, {100, 2000}}, {8, 6, {100, 500}}},
       {{stat::kSyncRx, 1}, {stat::kBadSequence, 1}},
       "Follow_Up seq 6, Sync seq 5 awaited it"},
      {"other port",
       {{9, 3, {100, 0}, {}, 0, 0, 24, kMaster}},
       {{stat::kOtherRequester, 1}},
       "Delay_Resp for 7c2e0d.fffe.000100-1"},
      {"not awaited", {{9, 3, {100, 0}}}, {{stat::kBadSequence, 1}}, "Delay_Resp seq 3, no Delay_Req awaited"},
      {"not asked", {{3, 3, {}, {100, 0}}}, {{stat::kForeign, 1}}, "Pdelay_Resp not awaited"},
      {"not answered", {{2, 4, {}, {100, 0}}}, {{stat::kForeign, 1}}, "Pdelay_Req not answered here"},
      {"two-step",
       {{0, 5, {}, {100, 2000}, 0, 0x10000}, {8, 5, {100, 500}, {}, 0, 0x20000}},
       {{stat::kSyncRx, 1}, {stat::kFollowUpRx, 1}},
       "t2-t1 1497 ns seq 5",
       {1, 0, 1497, 1497, 1497, 5}},
      {"one-step",
       {{0, 8, {99, 999999000}, {100, 1000}}, {0, 9, {100, 0}, {100, 5000}}},
       {{stat::kSyncRx, 2}},
       "t2-t1 5000 ns seq 9",
       {2, 0, 5000, 2000, 5000, 9}},
  };
  uint32_t port = 0;
  for (const auto &c : cases) {
    fwmsim::engine().with(0, ++port, [](fwmsim::OdaPort &p) {
      p.portEnable = 1, p.state = 9, p.domainNumber = 24, p.identityTx = {0x001B19FF, 0xFE000003, 3};
      p.rxEnable[fwmsim::kOdaPktSync] = p.rxEnable[fwmsim::kOdaPktDelayResp] = p.rxEnable[fwmsim::kOdaPktPdelay] = 1;
    });
    for (const auto &in : c.in)
      fwmsim::wire().deliver(0, port, frameOf(in), in.stamp.tv_sec ? std::optional(in.stamp) : std::nullopt);
    const auto p = fwmsim::engine().port(0, port);
    std::array<uint32_t, stat::kWords> want{};
    for (auto [word, n] : c.counted) want[word] = n;
    EXPECT_EQ(std::to_array(p.pktStat.word), want) << c.name;
    EXPECT_EQ(fwmsim::recorder().texts("wire").back(), (c.t2SubT1[0] ? "measure 0/" : "rx 0/") + std::to_string(port) +
                                                           (c.t2SubT1[0] ? " injected " : " injected dropped: ") +
                                                           c.last)
        << c.name;
    EXPECT_EQ(std::to_array(p.t2SubT1.word), c.t2SubT1) << c.name;
    EXPECT_EQ(std::to_array(p.t4SubT3.word), (std::array<uint32_t, 6>{})) << c.name;
    EXPECT_EQ(p.timestamps.word[fwmsim::ts::kSyncFlags], c.t2SubT1[0] ? 1u + 2 * (c.in[1].type == 8) : 0u) << c.name;
  }
  // The last Sync's pair: t1 from the message, t2 when it arrived.
  const auto w = std::to_array(fwmsim::engine().port(0, port).timestamps.word);
  EXPECT_EQ((std::array{w[0], w[1], w[2], w[3], w[4], w[5], w[6]}),
            (std::array<uint32_t, 7>{0, 100, 0, 0, 100, 5000, 9}));
}

// A live link on the loopback of a network namespace of the test's own:
// down, then up; a frame from one packet socket to another, stamped both ways.
TEST(WirePort, LiveLinkStampsAFrameBothWays) {
  if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) GTEST_SKIP() << "no netns";
  ::alarm(20);  // a socket that never answers ends the test instead of hanging it
  EXPECT_EQ(fwmsim::Link::check("lo"), "network interface 'lo' is down (ip link set lo up)");
  ifreq up{};
  std::memcpy(up.ifr_name, "lo", 3);
  up.ifr_flags = IFF_UP;
  ASSERT_EQ(::ioctl(::socket(AF_INET, SOCK_DGRAM, 0), SIOCSIFFLAGS, &up), 0);
  EXPECT_EQ(fwmsim::Link::check("lo"), std::nullopt);
  fwmsim::Link a("lo"), b("lo");
  std::string why;
  const bool opened = a.open(&why) && b.open(&why);
  // User-mode emulation (the armhf suite) does not carry SO_TIMESTAMPING to the host kernel.
  if (!opened && why.ends_with(std::strerror(ENOPROTOOPT))) GTEST_SKIP() << why;
  ASSERT_TRUE(opened) << why;
  EXPECT_EQ(a.ip(), 0x7F000001u);
  const auto ns = [](const fwmptp::Timestamp &t) { return t.seconds * 1'000'000'000u + t.nanoseconds; };
  const Bytes frame = fwmptp::buildFrame(fwmptp::encodeEvent(sampleEvent(fwmptp::kMsgSync)).view(), {});
  const uint64_t before = ns(a.trueNow());
  // A loaded machine may return a stamp later than the sender waits: that
  // frame goes unstamped, and the next is tried.
  auto sent = a.send(frame, true);
  size_t sends = 1;
  for (; sends < 5 && sent.ok && !sent.stamp; ++sends) sent = a.send(frame, true);
  ASSERT_TRUE(sent.ok && sent.stamp);
  std::vector<std::pair<Bytes, uint64_t>> got;  // without the copies of the frames going out
  pollfd in{b.fd(), POLLIN, 0};
  for (int i = 0; got.size() < sends && i < 50 && ::poll(&in, 1, 100) >= 0; ++i)
    b.receive([&](auto f, const auto &t) { got.emplace_back(Bytes(f.begin(), f.end()), t ? ns(*t) : 0); }, false);
  ASSERT_EQ(got.size(), sends);
  EXPECT_EQ(got.back().first, frame);
  const uint64_t tx = ns(*sent.stamp), rx = got.back().second;
  EXPECT_TRUE(before <= tx && tx <= rx && rx <= ns(a.trueNow())) << before << " " << tx << " " << rx;
}

}  // namespace
