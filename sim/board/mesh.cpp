// The epoll-style event layer on real epoll instances. Each instance also has
// a wake eventfd through which records injected by tests (and by the
// framework's own processing) reach the thread that waits on it.
//
// Busy accounting: a thread inside MESH_EpollWait is quiet; every hand-off it
// takes (a queue entry, an injected record) stays busy until the thread next
// enters MESH_EpollWait, i.e. until it has been handled.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>

#include "fwmsim/channel.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"
#include "mesh_internal.hpp"

namespace fwmsim {

namespace {

struct Source {
  MESH_EPOLL_HANDLER handler;
  uintptr_t context;
};

struct Instance {
  int fd = -1;
  int wakeFd = -1;
  std::mutex mu;
  std::deque<std::vector<MESH_EPOLL_EVENT>> injected;
  std::map<int, Source> sources;
};

std::mutex gMu;
std::map<int32_t, std::shared_ptr<Instance>> gInstances;
std::vector<int32_t> gCreated;

thread_local bool tlInEventLoop = false;
thread_local int tlTaken = 0;

std::shared_ptr<Instance> instance(int32_t epfd) {
  std::lock_guard lk(gMu);
  auto it = gInstances.find(epfd);
  return it == gInstances.end() ? nullptr : it->second;
}

void drain(int fd) {
  uint64_t v = 0;
  while (::read(fd, &v, sizeof v) == static_cast<ssize_t>(sizeof v)) {
  }
}

struct Closure {
  std::function<void()> fn;
};

uint32_t runClosure(uintptr_t context, uint32_t, uint32_t) {
  std::unique_ptr<Closure> c(reinterpret_cast<Closure *>(context));
  c->fn();
  return 0;
}

// Takes one injected batch, if any; each record is a hand-off to this thread.
int32_t takeInjected(Instance &inst, MESH_EPOLL_EVENT *out, int32_t max) {
  std::lock_guard lk(inst.mu);
  if (inst.injected.empty()) return -1;
  std::vector<MESH_EPOLL_EVENT> batch = std::move(inst.injected.front());
  inst.injected.pop_front();
  int32_t n = 0;
  for (const auto &r : batch) {
    if (n == max) break;
    out[n++] = r;
  }
  tlTaken += n;
  return n;
}

}  // namespace

namespace detail {

bool meshAddSource(int32_t epfd, int srcFd, MESH_EPOLL_HANDLER handler, uintptr_t context) {
  auto inst = instance(epfd);
  if (!inst) return false;
  std::lock_guard lk(inst->mu);
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.fd = srcFd;
  if (epoll_ctl(inst->fd, EPOLL_CTL_ADD, srcFd, &ev) != 0) return false;
  inst->sources[srcFd] = Source{handler, context};
  return true;
}

void meshRemoveSource(int32_t epfd, int srcFd) {
  auto inst = instance(epfd);
  if (!inst) return;
  std::lock_guard lk(inst->mu);
  (void)epoll_ctl(inst->fd, EPOLL_CTL_DEL, srcFd, nullptr);
  inst->sources.erase(srcFd);
}

void handOffTaken() {
  if (tlInEventLoop) {
    ++tlTaken;
  } else {
    clock().busyDec();
  }
}

}  // namespace detail

void injectEvents(int32_t epfd, const std::vector<MESH_EPOLL_EVENT> &records) {
  auto inst = instance(epfd);
  if (!inst || records.empty() || records.size() > 32) {
    std::fprintf(stderr, "fwmsim: cannot inject %zu records into epoll %d\n", records.size(), epfd);
    std::abort();
  }
  std::lock_guard lk(inst->mu);
  for (size_t i = 0; i < records.size(); ++i) clock().busyInc();
  inst->injected.push_back(records);
  uint64_t one = 1;
  (void)::write(inst->wakeFd, &one, sizeof one);
}

void runOnWorker(int32_t epfd, std::function<void()> fn) {
  auto *c = new Closure{std::move(fn)};
  injectEvents(epfd, {MESH_EPOLL_EVENT{EPOLLIN, runClosure, 0, reinterpret_cast<uintptr_t>(c)}});
}

bool epollOpen(int32_t epfd) { return instance(epfd) != nullptr; }

std::vector<int32_t> epollsCreated() {
  std::lock_guard lk(gMu);
  return gCreated;
}

WorkerHold::WorkerHold(int32_t epfd) : state_(std::make_shared<State>()) {
  runOnWorker(epfd, [s = state_] {
    std::unique_lock lk(s->mu);
    s->parked = true;
    s->cv.notify_all();
    s->cv.wait(lk, [&] { return s->released; });
  });
  std::unique_lock lk(state_->mu);
  state_->cv.wait(lk, [this] { return state_->parked; });
}

WorkerHold::~WorkerHold() { release(); }

void WorkerHold::release() {
  std::lock_guard lk(state_->mu);
  state_->released = true;
  state_->cv.notify_all();
}

}  // namespace fwmsim

using fwmsim::Ptr;
using fwmsim::record;

extern "C" {

int32_t MESH_EpollCreate(void) {
  record("mesh", "MESH_EpollCreate");
  if (auto code = fwmsim::faults().take("MESH_EpollCreate")) return static_cast<int32_t>(*code);
  auto inst = std::make_shared<fwmsim::Instance>();
  inst->fd = epoll_create1(EPOLL_CLOEXEC);
  inst->wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (inst->fd < 0 || inst->wakeFd < 0) return -1;
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.fd = inst->wakeFd;
  (void)epoll_ctl(inst->fd, EPOLL_CTL_ADD, inst->wakeFd, &ev);
  std::lock_guard lk(fwmsim::gMu);
  fwmsim::gInstances[inst->fd] = inst;
  fwmsim::gCreated.push_back(inst->fd);
  return inst->fd;
}

int32_t MESH_Close(int32_t fd) {
  record("mesh", "MESH_Close", fd);
  if (auto code = fwmsim::faults().take("MESH_Close")) return static_cast<int32_t>(*code);
  std::shared_ptr<fwmsim::Instance> inst;
  {
    std::lock_guard lk(fwmsim::gMu);
    auto it = fwmsim::gInstances.find(fd);
    if (it == fwmsim::gInstances.end()) return -1;
    inst = it->second;
    fwmsim::gInstances.erase(it);
  }
  ::close(inst->wakeFd);
  ::close(inst->fd);
  return 0;
}

int32_t MESH_EpollWait(int32_t fd, MESH_EPOLL_EVENT *events, int32_t maxEvents, int32_t timeoutMs) {
  record("mesh", "MESH_EpollWait", fd, Ptr{events}, maxEvents, timeoutMs);
  fwmsim::tlInEventLoop = true;
  // Everything taken since the last wait has been handled by now.
  for (; fwmsim::tlTaken > 0; --fwmsim::tlTaken) fwmsim::clock().busyDec();
  // A failed wait returns at once, with the caller still at work.
  if (auto code = fwmsim::faults().take("MESH_EpollWait")) return static_cast<int32_t>(*code);
  auto inst = fwmsim::instance(fd);
  if (!inst || events == nullptr || maxEvents <= 0) return -1;

  fwmsim::clock().busyDec();
  int32_t n = 0;
  for (;;) {
    n = fwmsim::takeInjected(*inst, events, maxEvents);
    if (n >= 0) break;
    epoll_event ready[32];
    int r = epoll_wait(inst->fd, ready, std::min(maxEvents, 32), timeoutMs);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      n = r;
      break;
    }
    std::lock_guard lk(inst->mu);
    n = 0;
    for (int i = 0; i < r; ++i) {
      int src = ready[i].data.fd;
      if (src == inst->wakeFd) {
        fwmsim::drain(src);
        continue;
      }
      auto it = inst->sources.find(src);
      if (it == inst->sources.end()) continue;
      events[n++] =
          MESH_EPOLL_EVENT{ready[i].events, it->second.handler, static_cast<uint32_t>(src), it->second.context};
    }
    if (n > 0) break;
  }
  fwmsim::clock().busyInc();
  return n;
}

}  // extern "C"
