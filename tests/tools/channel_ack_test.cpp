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
#include "sample_announce.hpp"
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

  const fwmtools::Announce a = fwmtest::sampleAnnounce();
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
