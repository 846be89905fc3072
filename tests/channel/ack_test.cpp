// Announce acknowledgements: queued by any thread, encoded on the worker and
// received by the negotiation peer over the loopback interface, byte for byte.
#include <cstring>
#include <thread>

#include "channel_fixture.hpp"

namespace {

using chantest::channelBlocks;
using chantest::WorkerTest;
using testing::ElementsAre;
using testing::ElementsAreArray;

ClkAnnInfo annInfo(uint32_t ifIndex, uint32_t pktLen, uint8_t seed) {
  ClkAnnInfo info;
  info.ifIndex = ifIndex;
  info.pktLen = pktLen;
  for (size_t i = 0; i < sizeof info.annPkt; ++i) info.annPkt[i] = static_cast<uint8_t>(seed + i * 7);
  return info;
}

// What the peer must receive: a zero root header, then the record unchanged.
std::vector<uint8_t> wire(const ClkAnnInfo &info) {
  std::vector<uint8_t> out(4 + sizeof info, 0);
  std::memcpy(out.data() + 4, &info, sizeof info);
  return out;
}

std::string sendLine(uint32_t ifIndex, uint32_t ret) {
  return "MSG [FWM_SRV_BKF] CliMsgSend ifIndex=" + std::to_string(ifIndex) + " msgLen=100 ret=" + std::to_string(ret) +
         ".";
}

class AckTest : public WorkerTest {};

class AckBytes : public AckTest, public testing::WithParamInterface<std::pair<uint32_t, uint32_t>> {};

// A hundred bytes whatever pktLen says; the caller's record may go once queued.
TEST_P(AckBytes, RecordOnTheWire) {
  auto [ifIndex, pktLen] = GetParam();
  ClkAnnInfo info = annInfo(ifIndex, pktLen, static_cast<uint8_t>(ifIndex));
  const ClkAnnInfo sent = info;
  EXPECT_EQ(FWM_SRV_BKF_SendAckMsg(&info), 0u);
  std::memset(&info, 0xEE, sizeof info);
  fwmsim::clock().settle();

  auto event = chantest::lastEvent("CLOCK_NegoinfoiNtfyCliMsgSend(");
  EXPECT_EQ(event.text, "CLOCK_NegoinfoiNtfyCliMsgSend(0xC11E0001, &, 100)");
  EXPECT_EQ(event.thread, chantest::kWorker);
  EXPECT_THAT(event.bytes, ElementsAreArray(wire(sent)));
  auto got = peer.receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_THAT(*got, ElementsAreArray(wire(sent)));
  EXPECT_FALSE(peer.pending());
  EXPECT_THAT(newLines(), ElementsAre(sendLine(ifIndex, 0)));
  EXPECT_EQ(channelBlocks(), blocks);
  // The builder's record names the announce packet as the last field added.
  EXPECT_EQ(reinterpret_cast<const ClkBkfSimpoBuilder *>(chantest::handles().builder)->fieldIndex, 2u);
}

INSTANTIATE_TEST_SUITE_P(Channel, AckBytes,
                         testing::Values(std::pair<uint32_t, uint32_t>{5, 96}, std::pair<uint32_t, uint32_t>{0, 0},
                                         std::pair<uint32_t, uint32_t>{0xFFFFFFFFu, 0x12345678u},
                                         std::pair<uint32_t, uint32_t>{17, 88}));

TEST_F(AckTest, FailedSendLogsThreeLinesAndTheNextStillGoes) {
  fwmsim::faults().inject("CLOCK_NegoinfoiNtfyCliMsgSend", 42);
  ClkAnnInfo first = annInfo(1, 96, 1);
  ClkAnnInfo second = annInfo(2, 96, 2);
  FWM_SRV_BKF_SendAckMsg(&first);
  FWM_SRV_BKF_SendAckMsg(&second);
  fwmsim::clock().settle();
  EXPECT_THAT(newLines(), ElementsAre(sendLine(1, 42), "ERROR [FWM_SRV_BKF] SendAckMsgProc fail, ret=42.",
                                      "ERROR [FWM_SRV_BKF] msg proc fail, ret=1.", sendLine(2, 0)));
  auto got = peer.receive();
  ASSERT_TRUE(got.has_value());
  EXPECT_THAT(*got, ElementsAreArray(wire(second)));
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(channelBlocks(), blocks);
}

TEST_F(AckTest, RefusedPostStillAnswersZero) {
  ClkAnnInfo info = annInfo(3, 96, 3);
  fwmsim::memory().failAllocation(1);
  EXPECT_EQ(FWM_SRV_BKF_SendAckMsg(&info), 0u);
  fwmsim::clock().settle();
  EXPECT_THAT(newLines(), ElementsAre("ERROR [FWM_SRV_BKF] QueProcWrite failed, ret=1."));
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(channelBlocks(), blocks);
}

TEST_F(AckTest, RecordsFromAnotherThreadArriveInOrder) {
  constexpr uint32_t kCount = 200;
  std::thread poster([] {
    for (uint32_t i = 0; i < kCount; ++i) {
      ClkAnnInfo info = annInfo(i, 96, static_cast<uint8_t>(i));
      FWM_SRV_BKF_SendAckMsg(&info);
    }
  });
  poster.join();
  fwmsim::clock().settle();
  for (uint32_t i = 0; i < kCount; ++i) {
    auto got = peer.receive();
    ASSERT_TRUE(got.has_value()) << i;
    ASSERT_THAT(*got, ElementsAreArray(wire(annInfo(i, 96, static_cast<uint8_t>(i)))));
  }
  EXPECT_FALSE(peer.pending());
  EXPECT_EQ(channelBlocks(), blocks);
  EXPECT_THAT(fwmtest::agentLines(), testing::Not(testing::Contains(testing::StartsWith("ERROR"))));
}

}  // namespace
