// Event queues of the forwarding-management process: bounded multi-producer
// queues of pointer-sized entries, each signalled through an eventfd in
// semaphore mode (one count per entry) that can be registered on an epoll
// instance; and epoll tasks on simulated threads.
#include <sys/eventfd.h>
#include <unistd.h>

#include <deque>
#include <map>

#include "fwmclk/platform/fwm_que.h"
#include "fwmsim/board.hpp"
#include "fwmsim/channel.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"
#include "mesh_internal.hpp"

namespace fwmsim {

namespace {

struct Queue {
  QueueInfo info;
  int efd = -1;
  std::mutex mu;
  std::deque<uintptr_t> entries;
};

std::mutex gMu;
std::map<uint32_t, std::shared_ptr<Queue>> gQueues;
uint32_t gNextQueue = 0x51;

std::shared_ptr<Queue> queue(uint32_t id) {
  std::lock_guard lk(gMu);
  auto it = gQueues.find(id);
  return it == gQueues.end() ? nullptr : it->second;
}

}  // namespace

std::optional<QueueInfo> queueInfo(uint32_t id) {
  auto q = queue(id);
  if (!q) return std::nullopt;
  std::lock_guard lk(q->mu);
  QueueInfo info = q->info;
  info.entries = q->entries.size();
  return info;
}

}  // namespace fwmsim

using fwmsim::Ptr;
using fwmsim::record;

extern "C" {

uint32_t FWM_QUE_CreateNew(const char *name, uint32_t mode, uint32_t depth, uint32_t entrySize) {
  record("que", "FWM_QUE_CreateNew", name, mode, depth, entrySize);
  if (auto code = fwmsim::faults().take("FWM_QUE_CreateNew")) return *code;
  auto q = std::make_shared<fwmsim::Queue>();
  q->info = fwmsim::QueueInfo{name, mode, depth, entrySize, -1, 0};
  q->efd = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
  if (q->efd < 0 || depth == 0) return 0;
  std::lock_guard lk(fwmsim::gMu);
  uint32_t id = fwmsim::gNextQueue++;
  fwmsim::gQueues[id] = q;
  return id;
}

uint32_t FWM_QUE_EpollReg(uint32_t queueId, int32_t epollFd, MESH_EPOLL_HANDLER handler) {
  record("que", "FWM_QUE_EpollReg", queueId, epollFd, Ptr{reinterpret_cast<const void *>(handler)});
  if (auto code = fwmsim::faults().take("FWM_QUE_EpollReg")) return *code;
  auto q = fwmsim::queue(queueId);
  if (!q) return 1;
  if (!fwmsim::detail::meshAddSource(epollFd, q->efd, handler, queueId)) return 2;
  std::lock_guard lk(q->mu);
  q->info.epollFd = epollFd;
  return 0;
}

uint32_t FWM_QUE_Destory(uint32_t queueId) {
  record("que", "FWM_QUE_Destory", queueId);
  if (auto code = fwmsim::faults().take("FWM_QUE_Destory")) return *code;
  std::shared_ptr<fwmsim::Queue> q;
  {
    std::lock_guard lk(fwmsim::gMu);
    auto it = fwmsim::gQueues.find(queueId);
    if (it == fwmsim::gQueues.end()) return 1;
    q = it->second;
    fwmsim::gQueues.erase(it);
  }
  std::lock_guard lk(q->mu);
  if (q->info.epollFd >= 0) fwmsim::detail::meshRemoveSource(q->info.epollFd, q->efd);
  // Entries nobody will read any more are no longer work for the board.
  for (size_t i = 0; i < q->entries.size(); ++i) fwmsim::clock().busyDec();
  q->entries.clear();
  ::close(q->efd);
  return 0;
}

uint32_t FWM_QUE_AsyWrite(uint32_t queueId, uintptr_t *entries, uint32_t count) {
  record("que", "FWM_QUE_AsyWrite", queueId, Ptr{entries}, count);
  if (auto code = fwmsim::faults().take("FWM_QUE_AsyWrite")) return *code;
  auto q = fwmsim::queue(queueId);
  if (!q || entries == nullptr) return 0;
  uint32_t n = 0;
  {
    std::lock_guard lk(q->mu);
    for (; n < count && q->entries.size() < q->info.depth; ++n) {
      // Busy before the reader can see it: the board is not quiet until it is handled.
      fwmsim::clock().busyInc();
      q->entries.push_back(entries[n]);
    }
  }
  // Signalled once the lock is free again, so that the woken reader does not
  // run straight into it; a reader takes an entry only with its count (below).
  if (n > 0) {
    uint64_t v = n;
    (void)::write(q->efd, &v, sizeof v);
  }
  return n;
}

int32_t FWM_QUE_AsyRead(uint32_t queueId, uintptr_t *entries, uint32_t count) {
  record("que", "FWM_QUE_AsyRead", queueId, Ptr{entries}, count);
  if (auto code = fwmsim::faults().take("FWM_QUE_AsyRead")) return static_cast<int32_t>(*code);
  auto q = fwmsim::queue(queueId);
  if (!q || entries == nullptr) return -1;
  std::lock_guard lk(q->mu);
  int32_t n = 0;
  for (; static_cast<uint32_t>(n) < count && !q->entries.empty(); ++n) {
    // An entry whose count is not written yet waits for the next read.
    uint64_t v = 0;
    if (::read(q->efd, &v, sizeof v) != static_cast<ssize_t>(sizeof v)) break;
    entries[n] = q->entries.front();
    q->entries.pop_front();
    fwmsim::detail::handOffTaken();
  }
  return n;
}

uint32_t FwmEpollTaskCreate(const char *name, uint32_t *taskId, FWM_EPOLL_TASK_ENTRY entry, uint32_t arg) {
  record("que", "FwmEpollTaskCreate", name, Ptr{taskId}, Ptr{reinterpret_cast<const void *>(entry)}, arg);
  if (auto code = fwmsim::faults().take("FwmEpollTaskCreate")) return *code;
  *taskId = fwmsim::addTask(name);
  fwmsim::clock().spawn(name, [entry] { (void)entry(); });
  return 0;
}

}  // extern "C"
