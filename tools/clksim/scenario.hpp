// A scenario: the board, then a timeline of steps. Loaded and checked in full
// before anything runs (loader.hpp); run by the runner (runner.hpp).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "records.hpp"
#include "timekeeping.hpp"

namespace clksim {

struct SourcePos {
  std::string file;
  int line = 0;  // 1-based; 0 = unknown
  int column = 0;
};

// A port of the simulated engine attached to a network interface ("0:3=veth0").
struct WirePort {
  uint32_t unit = 0;
  uint32_t port = 0;
  std::string iface;
  bool operator==(const WirePort &) const = default;
};

struct BoardSetup {
  uint32_t chipType = 40;
  uint32_t engines = 2;
  uint32_t chassis = 1;
  uint32_t slot = 3;
  uint32_t selfIp = 0x0A000001u;
  uint32_t masterIp = 0x0A0000FEu;
  bool coldAgent = false;  // no log agent in the process yet: the library starts one
  // Diagnostic log levels switched on (DEBUG 0 .. PROCINIT 5).
  std::array<bool, 6> logLevels{false, true, true, true, true, true};
  std::vector<WirePort> wirePorts;  // run on the wall clock, these ports on the network
  TimeKeeping time;
};

// One field as the scenario wrote it, kept for the trace.
struct FieldValue {
  std::string name;
  std::string text;
  std::string json;  // the value as JSON, one type per field (a number, a string or a list); empty: `text`
};

// An orchestrator request through the registered operation table.
struct Request {
  const OpDesc *op = nullptr;
  uint32_t unit = 0, port = 0, arg = 0;
  bool nullRecord = false;
  std::vector<uint8_t> record;  // request bytes, or the reply's initial bytes
  std::vector<FieldValue> fields;
};

struct Advance {
  uint64_t ms = 0;
};

// FWM_Srv_Clk_Notify from the host.
struct Notify {
  int32_t event = 1;
};

struct Note {
  std::string text;
};

// A result code injected into a named platform or engine-driver function.
struct Fail {
  std::string function;
  uint32_t code = 1;
  int times = 1;  // -1 = always
  int skip = 0;
};

// Engine-side happenings, through the engine model.
struct AnnounceReceived {
  uint32_t unit = 0, port = 0;
  std::array<uint8_t, 88> fields{};  // ClkNpAnnFields as received
  std::vector<FieldValue> shown;
};

enum class AlarmEvent : uint8_t { Timeout, Cleared };
struct AnnounceAlarm {
  uint32_t unit = 0, port = 0;
  AlarmEvent what = AlarmEvent::Timeout;
};

enum class EngineData : uint8_t { Timestamps, T2SubT1, T4SubT3, PktStat };
struct EngineValues {
  uint32_t unit = 0, port = 0;
  EngineData what = EngineData::Timestamps;
  std::vector<uint32_t> words;
};

// The per-port table, now (it is also shown when the run ends).
struct Ports {};

using StepBody =
    std::variant<Request, Advance, Notify, Note, Fail, AnnounceReceived, AnnounceAlarm, EngineValues, Ports>;

struct Step {
  SourcePos pos;
  std::string name;  // the key the scenario used
  StepBody body;
};

struct Scenario {
  std::string name;
  std::string description;
  std::string source;  // file name or "builtin:NAME"
  BoardSetup board;
  std::vector<Step> steps;
};

// Durations as scenarios write them: "2s", "500ms", "1.5s", "1min", or a number of ms.
bool parseDuration(std::string_view text, uint64_t &ms);
std::string formatDuration(uint64_t ms);

}  // namespace clksim
