// The OS abstraction layer: named handles, memory partitions, tasks, relative
// timers on the board clock, and system time.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "fwmclk/platform/orin.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {
std::mutex gHandleMu;
std::map<std::string, uint32_t> gHandles;
uint32_t gNextHandle = 0x100;
std::vector<TaskInfo> gTasks;
uint32_t gNextTask = 0x2001;
}  // namespace

uint32_t handleNamed(const std::string &name) {
  std::lock_guard lk(gHandleMu);
  auto it = gHandles.find(name);
  return it == gHandles.end() ? 0 : it->second;
}

std::vector<TaskInfo> tasks() {
  std::lock_guard lk(gHandleMu);
  return gTasks;
}

uint32_t addTask(std::string name) {
  std::lock_guard lk(gHandleMu);
  uint32_t id = gNextTask++;
  gTasks.push_back({std::move(name), id});
  return id;
}

namespace {
// Marks a slot whose block was returned: a lookup goes on past it.
const void *const kGone = &kGone;

size_t hashOf(const void *block, size_t slots) {
  const auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(block));
  return static_cast<size_t>((bits >> 4) * 0x9E3779B97F4A7C15ull) & (slots - 1);
}
}  // namespace

// The slot that holds `block`, or the empty slot where a lookup for it ends.
size_t Memory::slotOf(const void *block) const {
  for (size_t i = hashOf(block, slots_.size());; i = (i + 1) & (slots_.size() - 1)) {
    if (slots_[i].block == block || slots_[i].block == nullptr) return i;
  }
}

// Keeps at least half of the table never used, so that every lookup ends.
void Memory::grow() {
  std::vector<Slot> previous(live_ * 4 > slots_.size() ? slots_.size() * 2 : slots_.size());
  previous.swap(slots_);
  used_ = live_;
  for (const Slot &s : previous) {
    if (s.block != nullptr && s.block != kGone) slots_[slotOf(s.block)] = s;
  }
}

void *Memory::alloc(uint32_t handle, uint8_t partition, uint32_t size) {
  std::lock_guard lk(mu_);
  ++allocations_;
  if (failIn_ > 0 && --failIn_ == 0) {
    if (--failCount_ > 0) failIn_ = 1;
    return nullptr;
  }
  void *p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) return nullptr;
  // A partition hands a block back as its last owner left it: never zeroed.
  std::memset(p, 0xA5, size == 0 ? 1 : size);
  if ((used_ + 1) * 2 > slots_.size()) grow();
  Slot &s = slots_[slotOf(p)];
  used_ += s.block == nullptr ? 1 : 0;
  s = Slot{p, Block{handle, partition, size}};
  ++live_;
  return p;
}

uint32_t Memory::release(uint32_t owner, void *block) {
  std::lock_guard lk(mu_);
  if (block == nullptr) return 1;
  Slot &s = slots_[slotOf(block)];
  if (s.block != block) return 1;
  // The owner word is a handle in one use and a partition in another.
  if (owner != s.info.handle && owner != s.info.partition) return 2;
  s.block = kGone;
  --live_;
  std::free(block);
  return 0;
}

size_t Memory::outstanding() const {
  std::lock_guard lk(mu_);
  return live_;
}

size_t Memory::outstanding(uint32_t handle, uint8_t partition) const {
  std::lock_guard lk(mu_);
  size_t n = 0;
  for (const Slot &s : slots_) {
    const bool held = s.block != nullptr && s.block != kGone;
    n += (held && s.info.handle == handle && s.info.partition == partition) ? 1 : 0;
  }
  return n;
}

uint64_t Memory::allocations() const {
  std::lock_guard lk(mu_);
  return allocations_;
}

void Memory::failAllocation(int nth, int count) {
  std::lock_guard lk(mu_);
  failIn_ = nth;
  failCount_ = count;
}

Memory &memory() {
  static auto *m = new Memory;
  return *m;
}

}  // namespace fwmsim

using fwmsim::Hex;
using fwmsim::Ptr;
using fwmsim::record;

extern "C" {

uint32_t ORIN_HandleInitialize(const char *name, uint32_t *handle) {
  record("orin", "ORIN_HandleInitialize", name, Ptr{handle});
  if (auto code = fwmsim::faults().take("ORIN_HandleInitialize")) return *code;
  std::lock_guard lk(fwmsim::gHandleMu);
  auto [it, fresh] = fwmsim::gHandles.try_emplace(name, fwmsim::gNextHandle);
  if (fresh) ++fwmsim::gNextHandle;
  *handle = it->second;
  return 0;
}

void *ORIN_MemAlloc(uint32_t handle, uint8_t partition, uint32_t size) {
  record("orin", "ORIN_MemAlloc", Hex{handle}, partition, size);
  if (fwmsim::faults().take("ORIN_MemAlloc")) return nullptr;
  return fwmsim::memory().alloc(handle, partition, size);
}

uint32_t ORIN_MemFree(uint32_t owner, void *block) {
  record("orin", "ORIN_MemFree", Hex{owner}, Ptr{block});
  // A refused release keeps the block: the partition stays short of it.
  if (auto code = fwmsim::faults().take("ORIN_MemFree")) return *code;
  return fwmsim::memory().release(owner, block);
}

uint32_t ORIN_SystimeGet(ORIN_SYSTIME *sysTime) {
  record("orin", "ORIN_SystimeGet", Ptr{sysTime});
  if (auto code = fwmsim::faults().take("ORIN_SystimeGet")) return *code;
  time_t t = static_cast<time_t>(fwmsim::clock().wallSeconds());
  struct tm tm {};
  gmtime_r(&t, &tm);
  sysTime->year = static_cast<uint16_t>(tm.tm_year + 1900);
  sysTime->month = static_cast<uint8_t>(tm.tm_mon + 1);
  sysTime->day = static_cast<uint8_t>(tm.tm_mday);
  sysTime->hour = static_cast<uint8_t>(tm.tm_hour);
  sysTime->minute = static_cast<uint8_t>(tm.tm_min);
  sysTime->second = static_cast<uint8_t>(tm.tm_sec);
  sysTime->week = static_cast<uint8_t>(tm.tm_wday);
  sysTime->millisecond = static_cast<uint32_t>(fwmsim::clock().nowMs() % 1000);
  return 0;
}

uint32_t ORIN_TaskCreate(const char *name, uint32_t *taskId, ORIN_TASK_ENTRY entry, uint32_t a1, uint32_t a2,
                         uint32_t a3, uint32_t args[4]) {
  record("orin", "ORIN_TaskCreate", name, Ptr{taskId}, Ptr{reinterpret_cast<const void *>(entry)}, a1, a2, a3, args[0],
         args[1], args[2], args[3]);
  if (auto code = fwmsim::faults().take("ORIN_TaskCreate")) return *code;
  *taskId = fwmsim::addTask(name);
  fwmsim::clock().spawn(name, [entry] { entry(); });
  return 0;
}

uint32_t ORIN_ReltmrCbkStart(uint32_t *timer, uint32_t memHandle, uint32_t length, uint32_t reserved, uintptr_t param,
                             uint32_t mode, ORIN_RELTMR_CALLBACK callback) {
  record("orin", "ORIN_ReltmrCbkStart", Ptr{timer}, Hex{memHandle}, length, reserved, Hex{param}, mode,
         Ptr{reinterpret_cast<const void *>(callback)});
  if (auto code = fwmsim::faults().take("ORIN_ReltmrCbkStart")) return *code;
  // The id is known only once the timer exists; the callback reads it through a shared cell.
  auto cell = std::make_shared<std::atomic<uint32_t>>(0);
  uint32_t id =
      fwmsim::clock().startTimer(length, mode == 1, [cell, param, callback] { callback(param, cell->load()); });
  cell->store(id);
  *timer = id;
  return 0;
}

uint32_t ORIN_ReltmrStop(uint32_t *timer) {
  record("orin", "ORIN_ReltmrStop", Ptr{timer});
  if (auto code = fwmsim::faults().take("ORIN_ReltmrStop")) return *code;
  return fwmsim::clock().stopTimer(*timer) ? 0 : 1;
}

}  // extern "C"
