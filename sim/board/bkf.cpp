// The message-channel framework: keeps the hooks and the epoll descriptor of
// its initialisation record, opens channels, fills peer addresses, and starts
// and stops timers through the library's hooks from the worker's thread, as
// its own processing there would.
#include <cstring>

#include "fwmclk/platform/bkf.h"
#include "fwmsim/channel.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {

std::vector<uint8_t> bytesOf(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  return {b, b + n};
}

// Runs `fn` on the framework's thread (the worker) and waits until the board is quiet.
void onFrameworkThread(std::function<void()> fn) {
  int32_t epfd = framework().initRecord().epollFd;
  runOnWorker(epfd, std::move(fn));
  clock().settle();
}

}  // namespace

Framework &framework() {
  static auto *f = new Framework;
  return *f;
}

bool Framework::up() const {
  std::lock_guard lk(mu);
  return isUp;
}

ClkBkfCommInitRec Framework::initRecord() const {
  std::lock_guard lk(mu);
  return rec;
}

std::string Framework::componentName() const {
  std::lock_guard lk(mu);
  return name;
}

std::vector<std::string> Framework::channels() const {
  std::lock_guard lk(mu);
  return opened;
}

void *Framework::startTimerOnce(ClkBkfTimerCallback cb, uint32_t lengthMs, uintptr_t param) {
  ClkBkfCommInitRec r = initRecord();
  void *timer = nullptr;
  onFrameworkThread([&] { timer = r.timerStartOnce(static_cast<uint32_t>(kCommHandle), cb, lengthMs, param); });
  return timer;
}

void *Framework::startTimerLoop(ClkBkfTimerCallback cb, uint32_t lengthMs, uintptr_t param) {
  ClkBkfCommInitRec r = initRecord();
  void *timer = nullptr;
  onFrameworkThread([&] { timer = r.timerStartLoop(static_cast<uint32_t>(kCommHandle), cb, lengthMs, param); });
  return timer;
}

void Framework::stopTimer(void *timer) { stopTimer(static_cast<uint32_t>(kCommHandle), timer); }

void Framework::stopTimer(uint32_t fw, void *timer) {
  ClkBkfCommInitRec r = initRecord();
  onFrameworkThread([&] { r.timerStop(fw, timer); });
}

}  // namespace fwmsim

using fwmsim::Hex;
using fwmsim::Ptr;

extern "C" {

uintptr_t BKF_CommInit(void *initRec) {
  if (fwmsim::recorder().enabled()) {
    fwmsim::recorder().add("bkf", fwmsim::call("BKF_CommInit", Ptr{initRec}),
                           fwmsim::bytesOf(initRec, sizeof(ClkBkfCommInitRec)));
  }
  if (auto code = fwmsim::faults().take("BKF_CommInit")) return *code;
  auto &f = fwmsim::framework();
  std::lock_guard lk(f.mu);
  if (f.isUp) return 0;
  std::memcpy(&f.rec, initRec, sizeof f.rec);
  f.name = f.rec.name != nullptr ? f.rec.name : "";
  f.rec.name = nullptr;  // it pointed at the caller's stack
  f.isUp = true;
  return fwmsim::kCommHandle;
}

uint32_t BKF_CommUninit(uintptr_t comm) {
  fwmsim::record("bkf", "BKF_CommUninit", Hex{comm});
  if (auto code = fwmsim::faults().take("BKF_CommUninit")) return *code;
  auto &f = fwmsim::framework();
  std::lock_guard lk(f.mu);
  if (!f.isUp || comm != fwmsim::kCommHandle) return 1;
  for (void *state : f.channelStates) f.rec.memFree(0, state);
  f.channelStates.clear();
  f.isUp = false;
  return 0;
}

uintptr_t BKF_MeshCliChInit(uintptr_t comm, void *chRec) {
  if (fwmsim::recorder().enabled()) {
    fwmsim::recorder().add("bkf", fwmsim::call("BKF_MeshCliChInit", Hex{comm}, Ptr{chRec}),
                           fwmsim::bytesOf(chRec, sizeof(ClkBkfChInitRec)));
  }
  if (auto code = fwmsim::faults().take("BKF_MeshCliChInit")) return *code;
  auto &f = fwmsim::framework();
  std::lock_guard lk(f.mu);
  const auto *rec = static_cast<const ClkBkfChInitRec *>(chRec);
  if (!f.isUp || comm != fwmsim::kCommHandle || rec->name == nullptr) return 0;
  // The framework keeps its channel state in memory lent by its user.
  void *state = f.rec.memAlloc != nullptr ? f.rec.memAlloc(0, fwmsim::kChannelStateSize) : nullptr;
  if (state == nullptr) return 0;
  f.channelStates.push_back(state);
  f.opened.emplace_back(rec->name);
  return fwmsim::kChannelHandle;
}

uint32_t BKF_UrlMeshSet(void *url, uint32_t ipv4, uint32_t port, const char *name) {
  fwmsim::record("bkf", "BKF_UrlMeshSet", Ptr{url}, Hex{ipv4}, port, name);
  if (auto code = fwmsim::faults().take("BKF_UrlMeshSet")) return *code;
  if (url == nullptr || name == nullptr || std::strlen(name) >= sizeof(fwmsim::UrlArea::name)) return 1;
  fwmsim::UrlArea area{};
  area.ipv4 = ipv4;
  area.port = port;
  std::strcpy(area.name, name);
  std::memcpy(url, &area, sizeof area);
  return 0;
}

}  // extern "C"
