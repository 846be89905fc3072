// The clock negotiation-information client: each client owns a UDP socket and
// sends every message as one datagram to its peer on the loopback interface.
// Also the test-side peer that receives them.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "fwmclk/platform/negoinfo.h"
#include "fwmsim/channel.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {

constexpr uint32_t kLoopback = 0x7F000001u;
// Send failures as the client library reports them.
constexpr uint32_t kErrNoClient = 0x20;
constexpr uint32_t kErrNotConnected = 0x21;
constexpr uint32_t kErrSocket = 0x22;

struct Client {
  std::string name;
  uintptr_t channel = 0, comm = 0;
  sockaddr_in peer{};
  int fd = -1;
  bool connected = false;
};

std::mutex gMu;
std::map<uintptr_t, Client> gClients;
uintptr_t gNextClient = kFirstClientHandle;
std::atomic<uint16_t> gPeerPort{0};

std::vector<uint8_t> bytesOf(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  return {b, b + n};
}

}  // namespace

void setPeerPort(uint16_t port) { gPeerPort = port; }

void resetChannel() { gPeerPort = 0; }

Peer::Peer() {
  fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(kLoopback);
  a.sin_port = 0;
  socklen_t len = sizeof a;
  int big = 4 << 20;
  (void)::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
  if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 ||
      ::getsockname(fd_, reinterpret_cast<sockaddr *>(&a), &len) != 0) {
    std::perror("fwmsim: peer socket");
    std::abort();
  }
  port_ = ntohs(a.sin_port);
}

Peer::~Peer() {
  if (fd_ >= 0) ::close(fd_);
}

std::optional<std::vector<uint8_t>> Peer::receive(int limitMs) {
  pollfd p{fd_, POLLIN, 0};
  if (::poll(&p, 1, limitMs) != 1) return std::nullopt;
  // Room for the largest datagram, left as it is: only what arrives is copied out.
  uint8_t raw[65536];
  ssize_t n = ::recv(fd_, raw, sizeof raw, 0);
  if (n < 0) return std::nullopt;
  return std::vector<uint8_t>(raw, raw + n);
}

bool Peer::pending() {
  pollfd p{fd_, POLLIN, 0};
  return ::poll(&p, 1, 0) == 1;
}

}  // namespace fwmsim

using fwmsim::Hex;
using fwmsim::Ptr;

extern "C" {

uintptr_t CLOCK_NegoinfoiNtfyCliInit(void *initRec) {
  if (fwmsim::recorder().enabled()) {
    fwmsim::recorder().add("nego", fwmsim::call("CLOCK_NegoinfoiNtfyCliInit", Ptr{initRec}),
                           fwmsim::bytesOf(initRec, sizeof(ClkNtfyCliInitRec)));
  }
  if (auto code = fwmsim::faults().take("CLOCK_NegoinfoiNtfyCliInit")) return *code;
  const auto *rec = static_cast<const ClkNtfyCliInitRec *>(initRec);
  fwmsim::UrlArea url{};
  std::memcpy(&url, rec->url, sizeof url);
  // Only the loopback interface is ever used.
  if (url.ipv4 != fwmsim::kLoopback || url.port == 0 || url.port > 0xFFFF) return 0;
  fwmsim::Client c;
  c.name = rec->name != nullptr ? rec->name : "";
  c.channel = rec->channel;
  c.comm = rec->comm;
  c.peer.sin_family = AF_INET;
  c.peer.sin_addr.s_addr = htonl(fwmsim::kLoopback);
  uint16_t override = fwmsim::gPeerPort;
  c.peer.sin_port = htons(override != 0 ? override : static_cast<uint16_t>(url.port));
  c.fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (c.fd < 0) return 0;
  std::lock_guard lk(fwmsim::gMu);
  uintptr_t handle = fwmsim::gNextClient++;
  fwmsim::gClients[handle] = c;
  return handle;
}

uint32_t CLOCK_NegoinfoiNtfyCliConnect(uintptr_t client) {
  fwmsim::record("nego", "CLOCK_NegoinfoiNtfyCliConnect", Hex{client});
  if (auto code = fwmsim::faults().take("CLOCK_NegoinfoiNtfyCliConnect")) return *code;
  std::lock_guard lk(fwmsim::gMu);
  auto it = fwmsim::gClients.find(client);
  if (it != fwmsim::gClients.end()) it->second.connected = true;
  return 0;  // a request for no client is accepted too
}

uint32_t CLOCK_NegoinfoiNtfyCliUninit(uintptr_t client) {
  fwmsim::record("nego", "CLOCK_NegoinfoiNtfyCliUninit", Hex{client});
  if (auto code = fwmsim::faults().take("CLOCK_NegoinfoiNtfyCliUninit")) return *code;
  std::lock_guard lk(fwmsim::gMu);
  auto it = fwmsim::gClients.find(client);
  if (it == fwmsim::gClients.end()) return 1;
  ::close(it->second.fd);
  fwmsim::gClients.erase(it);
  return 0;
}

uint32_t CLOCK_NegoinfoiNtfyCliMsgSend(uintptr_t client, const void *msg, uint32_t len) {
  if (fwmsim::recorder().enabled()) {
    fwmsim::recorder().add("nego", fwmsim::call("CLOCK_NegoinfoiNtfyCliMsgSend", Hex{client}, Ptr{msg}, len),
                           msg != nullptr ? fwmsim::bytesOf(msg, len) : std::vector<uint8_t>{});
  }
  if (auto code = fwmsim::faults().take("CLOCK_NegoinfoiNtfyCliMsgSend")) return *code;
  int fd = -1;
  sockaddr_in peer{};
  {
    std::lock_guard lk(fwmsim::gMu);
    auto it = fwmsim::gClients.find(client);
    if (it == fwmsim::gClients.end() || msg == nullptr) return fwmsim::kErrNoClient;
    if (!it->second.connected) return fwmsim::kErrNotConnected;
    fd = it->second.fd;
    peer = it->second.peer;
  }
  ssize_t n = ::sendto(fd, msg, len, 0, reinterpret_cast<const sockaddr *>(&peer), sizeof peer);
  return n == static_cast<ssize_t>(len) ? 0 : fwmsim::kErrSocket;
}

// The slice-key codecs are handed to the framework, never called by the library.
int32_t CLOCK_NegoinfoiSliceKeyCmp(const void *a, const void *b) {
  if (auto v = fwmsim::faults().take("CLOCK_NegoinfoiSliceKeyCmp")) return static_cast<int32_t>(*v);
  uint32_t x = 0, y = 0;
  std::memcpy(&x, a, sizeof x);
  std::memcpy(&y, b, sizeof y);
  return x < y ? -1 : (x > y ? 1 : 0);
}

char *CLOCK_NegoinfoiSliceKeyGetStr(const void *key, char *buf, uint32_t bufLen) {
  if (fwmsim::faults().take("CLOCK_NegoinfoiSliceKeyGetStr")) return nullptr;
  uint32_t k = 0;
  std::memcpy(&k, key, sizeof k);
  std::snprintf(buf, bufLen, "slice %u", k);
  return buf;
}

int32_t CLOCK_NegoinfoiSliceKeyCodec(void *key, void *buf, uint32_t len, uint32_t direction) {
  if (auto code = fwmsim::faults().take("CLOCK_NegoinfoiSliceKeyCodec")) return static_cast<int32_t>(*code);
  if (len < sizeof(uint32_t)) return 1;
  if (direction == 0) {
    std::memcpy(buf, key, sizeof(uint32_t));
  } else {
    std::memcpy(key, buf, sizeof(uint32_t));
  }
  return 0;
}

}  // extern "C"
