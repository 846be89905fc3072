// What a run produces: one ordered stream of trace records that every output
// (terminal text, JSON lines, timeline, pcap, summary) observes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fwmtools/announce.hpp"
#include "fwmtools/pcap.hpp"
#include "scenario.hpp"

namespace fwmsim {
struct Event;
}

namespace clksim {

// The layers a request passes through, top to bottom; platform calls and the
// channel sit beside them.
enum class Layer : uint8_t { Orchestrator, Service, Np, Driver, Platform, Channel, Sim };

const char *layerName(Layer l);
// Indentation depth for people: orchestrator 0, service 1, NP 2, engine driver 3.
int layerDepth(Layer l);

enum class TraceKind : uint8_t {
  StepBegin,  // a scenario step starts (request, event, advance, ...)
  StepEnd,    // ... and ends, with its result
  Call,       // a platform or engine-driver call the library made
  Log,        // a diagnostic log line delivered to the log agent
  Debug,      // a line printed through the debug framework
  Ack,        // an acknowledgement sent to the negotiation peer, decoded
  PeerRx,     // the negotiation peer received an acknowledgement
  Note,       // narration, or what the simulator did on the scenario's behalf
  Wire,       // a wire port sent, received or dropped a packet, or timed out
  Port,       // one port at a glance (its values in `fields`)
  // Keeping time (values in `fields`): an engine's time error, sampled
  // against the truth; a servo's adjustment of its engine's clock; a servo's
  // change of state; an engine's time error judged at the end of the run.
  TeSample,
  ServoAdjust,
  ServoState,
  TeJudged,
  Decision,  // the built-in peer decided differently (values in `fields`)
};

const char *kindName(TraceKind k);

// What a platform or engine-driver call returned.
struct CallResult {
  int64_t value = 0;
  bool pointer = false;  // value 0: NULL, 1: a pointer
};

struct TraceRecord {
  TraceKind kind = TraceKind::Note;
  uint64_t seq = 0;
  uint64_t timeMs = 0;  // board clock
  // When it happened, in microseconds: the board's millisecond and the order
  // within it across threads (a record held back and shown later keeps it).
  uint64_t stampUs = 0;
  std::string thread;
  Layer layer = Layer::Sim;
  std::string facility;  // the simulated platform's facility
  std::string level;     // log level name for Log records
  std::string text;
  size_t step = 0;  // index of the scenario step it belongs to (1-based; 0 = before the first)
  // StepBegin / StepEnd
  std::string stepName;
  std::string target;  // e.g. FWM_SRV_CLK_SetPtpPortCfg(0, 3, 0xffffffff, &rec)
  std::vector<FieldValue> fields;
  std::optional<uint32_t> result;
  std::vector<uint32_t> replyWords;
  std::vector<FieldValue> decoded;  // the reply's words as the engine defines them (measurement queries)
  // Call: what it returned (none for a void function, or one still running at the end);
  // Ack: what the send returned, when it failed
  std::optional<CallResult> returned;
  bool unheard = false;
  // Call: when a call that blocked began; the record itself is dated when it returned
  // (or when the run ended, still waiting).
  std::optional<uint64_t> sinceMs;  // Ack: sent to an external peer where no socket was bound
  SourcePos pos;
  // Call with bytes / Ack / PeerRx
  std::vector<uint8_t> bytes;
  std::optional<fwmtools::Ack> ack;
  // Ack: how the acknowledged port frames PTP packets, as its engine was
  // programmed (none when the port's encapsulation is unknown).
  std::optional<fwmtools::FrameAddressing> frame;
  // Wire: the announce the frame in `bytes` carries
  std::optional<fwmtools::Announce> announce;
};

// An acknowledgement whose send failed.
inline bool ackNotSent(const TraceRecord &r) {
  return r.kind == TraceKind::Ack && r.returned && r.returned->value != 0;
}

// "0", "-1", "&" or "NULL".
std::string resultText(const CallResult &r);

// Turns a recorder event into a trace record (layer, kind, level).
TraceRecord classify(const fwmsim::Event &e);

class TraceObserver {
 public:
  virtual ~TraceObserver() = default;
  virtual void begin(const Scenario &) {}
  virtual void record(const TraceRecord &r) = 0;
  virtual void end() {}
  // After end(): why the output is incomplete (a write failed), or empty.
  virtual std::string error() const { return {}; }
};

struct Summary {
  size_t steps = 0, requests = 0, failedRequests = 0, requestsNotMade = 0, engineCalls = 0, platformCalls = 0,
         logLines = 0, errorLines = 0, debugLines = 0, feModuleErrors = 0, acks = 0, peerReceived = 0, wireSent = 0,
         wireReceived = 0, wireDropped = 0, wireTimeouts = 0, acksUnheard = 0;
  uint64_t virtualMs = 0;
  bool realtime = false;
  std::vector<TraceRecord> judged;  // TeJudged, one per engine
};

class SummaryObserver : public TraceObserver {
 public:
  void record(const TraceRecord &r) override;
  Summary &summary() { return s_; }

 private:
  Summary s_;
};

}  // namespace clksim
