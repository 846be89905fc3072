// The simulated engine's wire ports: one epoll thread over their links.
#include "fwmsim/engine/wire.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fwmsim/recorder.hpp"
#include "port.hpp"

namespace fwmsim {

namespace {

constexpr auto kIdleRecheck = std::chrono::milliseconds(50);  // how soon a newly enabled port starts sending

struct WireState {
  std::mutex mu;  // the ports and the thread's lifecycle
  std::vector<std::unique_ptr<WirePort>> ports;
  std::vector<std::unique_ptr<WirePort>> injected;  // ports on no link (Wire::deliver)
  int epfd = -1, stopFd = -1;
  std::thread thread;
  WireCounters counters;

  void run();
};

// The socket ports' schedules run on the steady clock.
WireTime steadyNow() { return std::chrono::steady_clock::now().time_since_epoch(); }

WireState &state() {
  static auto *s = new WireState;  // the thread may outlive main's objects
  return *s;
}

void WireState::run() {
  setThreadName("wire");
  epoll_event events[64];
  while (true) {
    const WireTime now = steadyNow();
    auto next = now + kIdleRecheck;
    {
      std::lock_guard lk(mu);
      for (auto &p : ports) {
        const Programmed g = programmed(p->unit, p->port);
        next = std::min(next, p->rx.supervise(g, now, p->tx.service(g, now)));
      }
    }
    auto waitMs = std::chrono::ceil<std::chrono::milliseconds>(next - steadyNow()).count();
    int n = ::epoll_wait(epfd, events, 64, static_cast<int>(std::max<int64_t>(waitMs, 0)));
    std::lock_guard lk(mu);
    for (int i = 0; i < n; ++i) {
      if (events[i].data.ptr == nullptr) return;  // the stop event
      auto &p = *static_cast<WirePort *>(events[i].data.ptr);
      static_cast<Link &>(*p.link).receive(
          [&](std::span<const uint8_t> frame, const Stamp &stamp) {
            p.rx.handle(frame, stamp, p.link->hardwareStamps());
          },
          (events[i].events & EPOLLERR) != 0);
    }
  }
}

}  // namespace

std::optional<std::string> Wire::checkInterface(const std::string &iface) { return Link::check(iface); }

bool Wire::attach(uint32_t unit, uint32_t portNo, const std::string &iface, std::string *why) {
  if (auto bad = checkInterface(iface)) {
    if (why) *why = *bad;
    return false;
  }
  auto link = std::make_unique<Link>(iface);
  if (!link->open(why)) return false;
  WireState &s = state();
  const int fd = link->fd();
  auto p = std::make_unique<WirePort>(unit, portNo, std::move(link), s.counters);
  std::lock_guard lk(s.mu);
  if (s.epfd < 0) {
    s.epfd = ::epoll_create1(EPOLL_CLOEXEC);
    s.stopFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.ptr = nullptr;
    ::epoll_ctl(s.epfd, EPOLL_CTL_ADD, s.stopFd, &ev);
  }
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.ptr = p.get();
  ::epoll_ctl(s.epfd, EPOLL_CTL_ADD, fd, &ev);
  s.ports.push_back(std::move(p));
  if (!s.thread.joinable()) s.thread = std::thread([&s] { s.run(); });
  return true;
}

void Wire::stop() {
  WireState &s = state();
  if (s.thread.joinable()) {
    uint64_t one = 1;
    (void)::write(s.stopFd, &one, sizeof one);
    s.thread.join();
  }
  std::lock_guard lk(s.mu);
  s.ports.clear();
  s.injected.clear();
  if (s.epfd >= 0) ::close(s.epfd);
  if (s.stopFd >= 0) ::close(s.stopFd);
  s.epfd = s.stopFd = -1;
}

namespace {

// The port (unit, port), attached or handed to; s.mu held.
WirePort &portAt(WireState &s, uint32_t unit, uint32_t portNo) {
  auto at = [&](std::vector<std::unique_ptr<WirePort>> &v) {
    auto it = std::find_if(v.begin(), v.end(), [&](auto &p) { return p->unit == unit && p->port == portNo; });
    return it != v.end() ? it->get() : nullptr;
  };
  WirePort *p = at(s.ports);
  if (!p) p = at(s.injected);
  if (!p) {
    s.injected.push_back(std::make_unique<WirePort>(unit, portNo, std::make_unique<NoLink>(), s.counters));
    p = s.injected.back().get();
  }
  return *p;
}

}  // namespace

void Wire::deliver(uint32_t unit, uint32_t portNo, std::span<const uint8_t> frame, std::optional<timespec> stamp) {
  WireState &s = state();
  std::lock_guard lk(s.mu);
  WirePort *p = &portAt(s, unit, portNo);
  const Stamp when =
      stamp ? Stamp(fwmptp::Timestamp{static_cast<uint64_t>(stamp->tv_sec), static_cast<uint32_t>(stamp->tv_nsec)})
            : std::nullopt;
  p->rx.handle(frame, when, p->link->hardwareStamps());
}

AnnounceOffer Wire::offerAnnounce(uint32_t unit, uint32_t portNo, const ClkNpAnnFields &fields) {
  WireState &s = state();
  std::lock_guard lk(s.mu);
  return portAt(s, unit, portNo).rx.offer(fields);
}

AnnounceOffer Wire::offerTimeout(uint32_t unit, uint32_t portNo) {
  WireState &s = state();
  std::lock_guard lk(s.mu);
  return portAt(s, unit, portNo).rx.offerTimeout();
}

WireTotals Wire::totals() const {
  WireState &s = state();
  const WireCounters &c = s.counters;
  return {c.sent.load(), c.received.load(), c.dropped.load(), c.timeouts.load()};
}

Wire &wire() {
  static Wire w;
  return w;
}

}  // namespace fwmsim
