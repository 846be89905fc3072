// Shared by the channel tests: the channel's call log per thread, its memory
// accounting, and fixtures with a peer and a running worker.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "fwmclk/fwmclk.h"
#include "fwmsim/channel.hpp"
#include "testkit.hpp"

namespace chantest {

constexpr uint32_t kMemHandle = 0xFFFFFFFFu;
constexpr uint8_t kMemPtNo = 0xFF;
inline const std::string kWorker = "CLK_FWM_BKF";
inline const std::string kTaskOk = "MSG [FWM_SRV_BKF] CreateBkfTask success.";

// Blocks held from the channel's memory handle and partition.
inline size_t channelBlocks() { return fwmsim::memory().outstanding(kMemHandle, kMemPtNo); }

// Calls to the channel's platform (and test handlers) made on `thread` since `mark`.
inline std::vector<std::string> callsOn(const std::string &thread, size_t mark) {
  static const std::set<std::string> kFacilities = {"mesh", "que", "bkf", "nego", "quay", "orin", "test"};
  std::vector<std::string> out;
  auto events = fwmsim::recorder().events();
  for (size_t i = mark; i < events.size(); ++i) {
    if (events[i].thread == thread && kFacilities.count(events[i].facility) != 0) out.push_back(events[i].text);
  }
  return out;
}

// The last recorded event whose call text starts with `prefix`.
inline fwmsim::Event lastEvent(const std::string &prefix) {
  auto events = fwmsim::recorder().events();
  for (auto it = events.rbegin(); it != events.rend(); ++it) {
    if (it->text.rfind(prefix, 0) == 0) return *it;
  }
  ADD_FAILURE() << "no call " << prefix;
  return {};
}

// Expected calls with "{fd}" and "{q}" standing for the worker's epoll and queue.
inline std::vector<std::string> withIds(std::vector<std::string> calls, const std::string &fd, uint32_t queue) {
  for (auto &s : calls)
    for (const auto &[key, value] : {std::pair<std::string, std::string>{"{fd}", fd}, {"{q}", std::to_string(queue)}})
      for (size_t at = s.find(key); at != std::string::npos; at = s.find(key, at + value.size()))
        s.replace(at, key.size(), value);
  return calls;
}

inline std::string hexArg(const void *p) { return fwmsim::arg(fwmsim::Hex{reinterpret_cast<uintptr_t>(p)}); }

inline ClkBkfHandle handles() {
  ClkBkfHandle h;
  FWM_SRV_CLK_GetBkfHdl(&h);
  return h;
}

// A board with the log agent ready and the negotiation peer listening.
class ChannelTest : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    fwmtest::adoptAgent();
    fwmsim::setPeerPort(peer.port());
  }

  void startWorker() {
    FWM_SRV_CLK_CreateBkfTask();
    fwmsim::clock().settle();
  }

  fwmsim::Peer peer;
};

// The worker is running and the channel is ready; accounting starts here.
class WorkerTest : public ChannelTest {
 protected:
  void SetUp() override {
    ChannelTest::SetUp();
    startWorker();
    ASSERT_NE(handles().client, 0u);
    fd = g_clkBkfEpollFd;
    queue = g_ClkBkfQueueProcID;
    blocks = channelBlocks();
    lineMark = fwmtest::agentLines().size();
    mark = fwmsim::recorder().mark();
  }

  // Log lines delivered since SetUp.
  std::vector<std::string> newLines() const {
    auto all = fwmtest::agentLines();
    return {all.begin() + static_cast<std::ptrdiff_t>(lineMark), all.end()};
  }

  std::string fdArg() const { return std::to_string(fd); }
  std::string queueArg() const { return std::to_string(queue); }
  std::string waitCall() const { return "MESH_EpollWait(" + fdArg() + ", &, 32, -1)"; }

  int32_t fd = -1;
  uint32_t queue = 0;
  size_t blocks = 0;
  size_t lineMark = 0;
  size_t mark = 0;
};

}  // namespace chantest
