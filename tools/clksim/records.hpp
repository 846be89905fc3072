// The orchestrator's request records and the engine's announce record as
// data: each field a name, a kind, a byte offset and a width. A scenario names
// fields; this table turns the names into bytes. Adding a record or a field is
// a table entry, not code.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace clksim {

// A code and what people call it.
struct CodeName {
  uint32_t code;
  std::string_view name;
};
using CodeNames = std::span<const CodeName>;

enum class FieldKind : uint8_t {
  U8,
  S8,  // a log interval: -128 to 127, or its octet 0x80 to 0xff
  U16,
  U32,
  S32,
  Bits,          // part of a u32: (word >> shift) & mask
  Mac,           // 6 bytes, "00:1b:19:00:00:01"
  Ipv4,          // u32 in host order, "10.0.0.1" or a number
  Words,         // `count` consecutive u32
  ClockId,       // 64-bit identity as two u32: high word at `offset`, low word at `offset2`
  PortIdentity,  // "clockid-port": ClockId at offset/offset2, port number (u32) at `offset3`
  PortIdWords,   // three u32 (clock high, clock low, port), or "clockid-port"
  Interval,      // u32 interval code 0..20, or the duration it stands for ("125ms")
};

struct FieldDesc {
  std::string_view name;
  FieldKind kind;
  uint16_t offset;
  uint16_t count = 1;    // Words: number of words
  uint16_t offset2 = 0;  // ClockId/PortIdentity: low word
  uint16_t offset3 = 0;  // PortIdentity: port number
  uint8_t shift = 0;     // Bits
  uint32_t mask = 0;     // Bits
  std::string_view help = {};
  CodeNames names = {};  // U32/Bits: names accepted for the codes and shown beside them
};

struct RecordDesc {
  std::string_view type;  // the C record's name
  uint16_t size;
  std::span<const FieldDesc> fields;
  const FieldDesc *find(std::string_view name) const;
};

// How an operation is called; the slot's C signature follows from it.
enum class CallShape : uint8_t {
  Record,             // f(rec)
  UnitPortArgRecord,  // f(unit, port, arg, rec)
  UnitPortRecord,     // f(unit, port, rec)
  UnitPort,           // f(unit, port)
  UnitPortArgReply,   // f(unit, port, arg, reply)
  UnitPortReply,      // f(unit, port, reply)
};

struct OpDesc {
  std::string_view name;      // scenario name, e.g. "set_ptp_port_cfg"
  uint8_t slot;               // position in ClkSrvOrchIntf
  std::string_view function;  // the library's name for people
  CallShape shape;
  std::string_view argName;  // the third argument's name where the shape has one
  uint32_t argDefault;
  const RecordDesc *record;  // request (or reply) record, null for none
  // The library refuses a null record; where it does not, the orchestrator
  // never passes one and neither may a scenario.
  bool nullChecked = true;
};

std::span<const OpDesc> operations();
const OpDesc *findOperation(std::string_view name);

// The engine's announce field record (88 bytes) as an announce event fills it.
const RecordDesc &announceFieldsRecord();

// A field of a filled record as JSON text (numbers as numbers, addresses and
// identities as their usual text), and as people read a named code or an
// interval ("9 SLAVE", "1 (15.6 ms)").
std::string fieldJson(const FieldDesc &f, std::span<const uint8_t> bytes);
std::string fieldText(const FieldDesc &f, std::span<const uint8_t> bytes);

bool isReply(CallShape s);
bool hasUnitPort(CallShape s);

}  // namespace clksim
