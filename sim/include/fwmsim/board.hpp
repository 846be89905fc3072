// The simulated line card: board facts answered by the device-management
// queries, the OS layer's handles, memory partitions and tasks, the log agent,
// the component registry with the debug framework, the orchestrator and the
// control-packet security module.
//
// Configure it before the library is started; what the library did is in the
// recorder, and what the host-side facilities received is kept here.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fwmsim {

// A board address that may not be known for the first few queries.
struct AddressSource {
  uint32_t address = 0;
  int unknownQueries = 0;  // this many queries answer 0 first
  int failedQueries = 0;   // then this many fail with code 1
};

struct Board {
  uint32_t chipType = 40;
  uint32_t feNum = 2;
  uint32_t chassisId = 1;
  uint32_t slotId = 3;
  AddressSource selfIp{0x0A000001u};
  AddressSource masterIp{0x0A0000FEu};
};

Board &board();

// Memory partitions of the OS layer, with accounting so that a test can prove
// every block came back, and allocation failures on demand.
class Memory {
 public:
  void *alloc(uint32_t handle, uint8_t partition, uint32_t size);
  uint32_t release(uint32_t owner, void *block);
  // Blocks still held, in all or for one (handle, partition).
  size_t outstanding() const;
  size_t outstanding(uint32_t handle, uint8_t partition) const;
  uint64_t allocations() const;
  // The nth allocation from now (1 = the next) fails, and `count` after it.
  void failAllocation(int nth, int count = 1);

 private:
  struct Block {
    uint32_t handle;
    uint8_t partition;
    uint32_t size;
  };
  // The blocks held, by address: an open-addressed table, so that taking and
  // returning a block costs no allocation of its own and no tree walk.
  struct Slot {
    const void *block = nullptr;  // nullptr: never used; kGone: used before
    Block info{};
  };
  size_t slotOf(const void *block) const;
  void grow();
  mutable std::mutex mu_;
  std::vector<Slot> slots_ = std::vector<Slot>(1024);
  size_t live_ = 0;
  size_t used_ = 0;  // live and formerly used slots
  uint64_t allocations_ = 0;
  int failIn_ = 0;
  int failCount_ = 0;
};

Memory &memory();

// Named handles of the OS layer.
uint32_t handleNamed(const std::string &name);  // 0 when none was created

// Tasks created through the OS layer (ORIN_TaskCreate) or the epoll layer.
struct TaskInfo {
  std::string name;
  uint32_t id;
};
std::vector<TaskInfo> tasks();
uint32_t addTask(std::string name);  // registers a task and returns its id

// The log-and-diagnosis agent.
struct LogDelivery {
  std::string tag, level, text;  // text up to its terminator
  uint16_t tagLen = 0, levelLen = 0, textLen = 0;
  uint32_t handle = 0;
};

class Agent {
 public:
  uint32_t existingHandle = 0;           // what IM_Agent_GetHandle answers
  uint32_t createdHandle = 0x00A6E001u;  // what a successful IM_Agent_Init answers
  int initFailures = 0;                  // IM_Agent_Init answers 0 this many times first

  std::vector<LogDelivery> delivered() const;
  std::vector<std::string> debugLines() const;  // IM_Agent_Debug output
  std::vector<uint8_t> lastInitRecord() const;  // the record of the last IM_Agent_Init (72 bytes on the target)
  uint32_t mainBoardIp() const;
  size_t liveObjects() const;  // created and neither sent nor freed

  // Used by the platform functions.
  std::mutex mu;
  std::vector<LogDelivery> deliveries;
  std::vector<std::string> debug;
  std::vector<uint8_t> initRecord;
  uint32_t mainIp = 0;
  size_t objects = 0;
};

Agent &agent();

// Component registry with the memory-partition table (1000/1004) and the debug
// framework table (1000/1008).
struct DebugLine {
  uint32_t id;
  uint32_t level;
  std::string text;  // as the framework formatted it
};

class Registry {
 public:
  bool memTable = true;          // lookup 1000/1004 yields a table
  bool memPtNoEntry = true;      // its entry 4 is present
  uint32_t memPtNo = 7;          // what the entry answers
  bool debugTable = true;        // lookup 1000/1008 yields a table
  bool moduleRegEntry = true;    // its entry 1 is present
  uint32_t moduleRegResult = 0;  // what the entry answers
  uint32_t moduleId = 17;        // the id it assigns
  bool printEntry = true;        // its entry 5 is present

  std::vector<DebugLine> printed() const;
  std::vector<std::string> printedTexts() const;

  std::mutex mu;
  std::vector<DebugLine> lines;
  std::array<void *, 8> memTbl{};
  std::array<void *, 8> dbgTbl{};
};

Registry &registry();

// The orchestrator's copy of the operation table and the security module's rule.
struct Orchestrator {
  std::vector<std::vector<void *>> registrations;  // each registration's 15 slots
  std::vector<std::vector<uint8_t>> rules;         // each rule record as received (396 bytes)
  uint32_t regResult = 0;
};

Orchestrator &orchestrator();

// Puts the board back to its defaults (facts, faults, recorder, accounting),
// then runs every reset hook: what is plugged into the board (the engine)
// resets itself without the board knowing it.
void resetBoard();
// Adds `hook` to what resetBoard runs; returns true, for static registration.
bool onBoardReset(void (*hook)());

}  // namespace fwmsim
