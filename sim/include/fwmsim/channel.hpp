// The machinery under the negotiation-information channel: the event layer on
// real epoll instances, bounded event queues signalled through eventfds, epoll
// tasks on simulated threads, the message-channel framework, the dead-loop
// monitor and the negotiation-information client, which sends each message as
// one UDP datagram over the loopback interface.
//
// Hand-offs to a worker count as busy on the board clock until the worker has
// handled them and waits again, so `clock().settle()` after a post returns
// once the worker is done with it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fwmclk/channel.h"
#include "fwmclk/platform/mesh.h"

namespace fwmsim {

// ---- Event layer -----------------------------------------------------------

// The next MESH_EpollWait on `epfd` returns exactly these records (at most
// 32), as the platform would for sources the library does not own.
void injectEvents(int32_t epfd, const std::vector<MESH_EPOLL_EVENT> &records);
// Runs `fn` on the thread that waits on `epfd`, from inside its event loop.
void runOnWorker(int32_t epfd, std::function<void()> fn);
bool epollOpen(int32_t epfd);
// Descriptors of the instances MESH_EpollCreate made, in order.
std::vector<int32_t> epollsCreated();

// Parks the thread that waits on `epfd` inside its event loop until released,
// so that a test can fill its queue. Do not settle the clock while holding.
class WorkerHold {
 public:
  explicit WorkerHold(int32_t epfd);  // returns once the worker is parked
  ~WorkerHold();
  WorkerHold(const WorkerHold &) = delete;
  WorkerHold &operator=(const WorkerHold &) = delete;
  void release();

 private:
  struct State {
    std::mutex mu;
    std::condition_variable cv;
    bool parked = false;
    bool released = false;
  };
  std::shared_ptr<State> state_;
};

// ---- Event queues ------------------------------------------------------------

struct QueueInfo {
  std::string name;
  uint32_t mode = 0, depth = 0, entrySize = 0;
  int32_t epollFd = -1;  // where it is registered
  size_t entries = 0;    // waiting to be read
};
std::optional<QueueInfo> queueInfo(uint32_t id);  // nullopt once destroyed

// ---- Message-channel framework ----------------------------------------------

// The handles the framework gives out.
constexpr uintptr_t kCommHandle = 0xB0C0001u;
constexpr uintptr_t kChannelHandle = 0xC4A0001u;
constexpr uintptr_t kFirstClientHandle = 0xC11E0001u;
// Each open channel holds a block of this size from the framework's memory hook
// until the framework is uninitialised.
constexpr uint32_t kChannelStateSize = 32;

// The address area BKF_UrlMeshSet fills in the client's record.
struct UrlArea {
  uint32_t ipv4;
  uint32_t port;
  char name[20];
};
static_assert(sizeof(UrlArea) == CLK_BKF_URL_LEN);

class Framework {
 public:
  bool up() const;
  ClkBkfCommInitRec initRecord() const;  // as received by BKF_CommInit
  std::string componentName() const;
  std::vector<std::string> channels() const;  // names opened, in order

  // What the framework's own processing does on the worker: calls the
  // library's timer hooks there. Each returns once the worker has made the
  // call and the board is quiet again; call from the test's thread.
  void *startTimerOnce(ClkBkfTimerCallback cb, uint32_t lengthMs, uintptr_t param);
  void *startTimerLoop(ClkBkfTimerCallback cb, uint32_t lengthMs, uintptr_t param);
  void stopTimer(void *timer);
  void stopTimer(uint32_t fw, void *timer);  // with an explicit framework argument

  // Used by the platform functions.
  mutable std::mutex mu;
  bool isUp = false;
  ClkBkfCommInitRec rec{};
  std::string name;
  std::vector<std::string> opened;
  std::vector<void *> channelStates;
};

Framework &framework();

// ---- Negotiation-information client ---------------------------------------------

// Sends go to this loopback port instead of the one in the client's address
// (0 = use the address's port), so parallel tests never share a port.
void setPeerPort(uint16_t port);

// The negotiation peer: a UDP socket bound to 127.0.0.1 on a port of its own.
class Peer {
 public:
  Peer();
  ~Peer();
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;
  uint16_t port() const { return port_; }
  // The next datagram, waiting at most `limitMs` of real time; nullopt if none.
  std::optional<std::vector<uint8_t>> receive(int limitMs = 5000);
  // True when a datagram is waiting now.
  bool pending();

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

// Sim state back to defaults; part of resetBoard().
void resetChannel();

}  // namespace fwmsim
