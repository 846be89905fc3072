// The toolkit against the library's own encoder: an announce handed to the
// channel arrives at a peer socket as 100 bytes that decode to the same
// announce, and clksim's trace recognises the send and decodes it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "fwmclk/fwmclk.h"
#include "fwmsim/channel.hpp"
#include "fwmtools/announce.hpp"
#include "fwmtools/udp_peer.hpp"
#include "testkit.hpp"
#include "trace.hpp"

namespace {

class ChannelAck : public fwmtest::BoardTest {};

TEST_F(ChannelAck, LibraryAcknowledgementDecodesToTheAnnounceItCarries) {
  fwmtest::adoptAgent();
  fwmtools::UdpSocket peer;
  ASSERT_TRUE(peer.bind({"127.0.0.1", 0}));
  fwmsim::setPeerPort(peer.localPort());
  FWM_SRV_CLK_CreateBkfTask();
  fwmsim::clock().settle();
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  ASSERT_NE(h.client, 0u);

  fwmtools::Announce a;
  a.messageType = 11;
  a.versionPtp = 2;
  a.messageLength = 64;
  a.domainNumber = 24;
  a.flagField = 0x0208;
  a.controlField = 5;
  a.grandmasterIdentity = 0x001B19FFFE00A001ull;
  a.sourceClockIdentity = 0x7C2E0DFFFE1F0002ull;
  a.sourcePortNumber = 1;
  a.clockClass = 6;
  a.stepsRemoved = 1;
  a.timeSource = 0x20;
  ClkAnnInfo info{};
  info.ifIndex = 3;
  info.pktLen = 96;
  auto image = fwmtools::encodeAnnounceImage(a);
  std::memcpy(info.annPkt, image.data(), sizeof info.annPkt);
  size_t mark = fwmsim::recorder().mark();
  EXPECT_EQ(FWM_SRV_BKF_SendAckMsg(&info), 0u);
  fwmsim::clock().settle();

  auto dgram = peer.receive(std::chrono::seconds(5));
  ASSERT_TRUE(dgram);
  auto ack = fwmtools::decodeAck(*dgram);
  ASSERT_TRUE(ack);
  EXPECT_EQ(ack->ifIndex, 3u);
  EXPECT_EQ(ack->pktLen, 96u);
  EXPECT_EQ(fwmtools::encodeAnnounceImage(ack->announce), image);

  // The send as the trace sees it: the client's call with the message bytes.
  auto events = fwmsim::recorder().events();
  std::vector<clksim::TraceRecord> sends;
  for (size_t i = mark; i < events.size(); ++i) {
    auto r = clksim::classify(events[i]);
    if (r.text.rfind("CLOCK_NegoinfoiNtfyCliMsgSend", 0) == 0) sends.push_back(r);
  }
  ASSERT_EQ(sends.size(), 1u);
  EXPECT_EQ(sends[0].thread, "CLK_FWM_BKF");
  EXPECT_EQ(sends[0].layer, clksim::Layer::Platform);
  EXPECT_EQ(sends[0].bytes, *dgram);
}

}  // namespace
