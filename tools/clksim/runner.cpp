#include "runner.hpp"

#include "measure.hpp"

#include <fmt/format.h>

#include <atomic>
#include <cstring>
#include <utility>

#include "call_results.hpp"
#include "engine_bridge.hpp"
#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/engine/rtc.hpp"
#include "fwmsim/engine/wire.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"
#include "fwmtools/ack_text.hpp"
#include "fwmtools/udp_peer.hpp"

namespace clksim {

namespace {

constexpr std::string_view kSendCall = "CLOCK_NegoinfoiNtfyCliMsgSend";

std::string hex32(uint32_t v) { return fmt::format("{:#x}", v); }

std::string requestTarget(const Request &r) {
  const OpDesc &op = *r.op;
  std::string rec = !op.record ? "" : r.nullRecord ? "NULL" : fmt::format("&{}", op.record->type);
  switch (op.shape) {
    case CallShape::Record:
      return fmt::format("{}({})", op.function, rec);
    case CallShape::UnitPortArgRecord:
    case CallShape::UnitPortArgReply:
      return fmt::format("{}({}, {}, {}, {})", op.function, r.unit, r.port,
                         r.arg == 0xFFFFFFFFu ? hex32(r.arg) : std::to_string(r.arg), rec);
    case CallShape::UnitPortRecord:
    case CallShape::UnitPortReply:
      return fmt::format("{}({}, {}, {})", op.function, r.unit, r.port, rec);
    case CallShape::UnitPort:
      return fmt::format("{}({}, {})", op.function, r.unit, r.port);
  }
  return std::string(op.function);
}

// Calls slot `op.slot` of the table the library registered, with the
// signature the slot has in ClkSrvOrchIntf.
uint32_t callSlot(const ClkSrvOrchIntf &t, const Request &r, void *rec) {
  const uint32_t u = r.unit, p = r.port, a = r.arg;
  switch (r.op->slot) {
    case 0:
      return t.setPtpGlbCfg(static_cast<ClkPtpGlbCfg *>(rec));
    case 1:
      return t.setPtpPortCfg(u, p, a, static_cast<ClkPtpPortCfg *>(rec));
    case 2:
      return t.setPtpPktEncap(u, p, a, static_cast<ClkPtpPktEncap *>(rec));
    case 3:
      return t.setPtpRxCtl(u, p, static_cast<ClkPtpRxCtl *>(rec));
    case 4:
      return t.setPtpTxCtl(u, p, static_cast<ClkPtpTxCtl *>(rec));
    case 5:
      return t.setPtpRxSrcPortId(u, p, static_cast<ClkPtpRxSrcPortId *>(rec));
    case 6:
      return t.setPtpTxSrcPortId(u, p, static_cast<ClkPtpTxSrcPortId *>(rec));
    case 7:
      return t.setPtpPortAsym(u, p, static_cast<ClkPtpPortAsym *>(rec));
    case 8:
      return t.setPtpPortPkt(u, p, static_cast<ClkPtpAnnPkt *>(rec));
    case 9:
      return t.setPtpAnnClr(u, p);
    case 10:
      return t.getPtpTimestamp(u, p, static_cast<ClkPtpTimestamp *>(rec));
    case 11:
      return t.getPtpT2SubT1(u, p, a, static_cast<ClkPtpDfxDelay *>(rec));
    case 12:
      return t.getPtpT4SubT3(u, p, a, static_cast<ClkPtpDfxDelay *>(rec));
    case 13:
      return t.getPtpPktStat(u, p, a, static_cast<ClkPtpPktStat *>(rec));
    case 14:
      return t.setSsmPortCfg(u, p, static_cast<ClkSsmPortCfg *>(rec));
    default:
      return 1;
  }
}

const char *alarmName(AlarmEvent a) { return a == AlarmEvent::Timeout ? "announce timeout" : "alarms cleared"; }

const char *dataName(EngineData d) {
  switch (d) {
    case EngineData::Timestamps:
      return "timestamps";
    case EngineData::T2SubT1:
      return "t2 - t1 delays";
    case EngineData::T4SubT3:
      return "t4 - t3 delays";
    case EngineData::PktStat:
      return "packet statistics";
  }
  return "?";
}

}  // namespace

void Runner::emit(TraceRecord r) {
  std::lock_guard lk(mu_);
  r.seq = ++seq_;
  r.step = step_;
  if (r.stampUs == 0) order(r);
  for (auto *o : observers_) o->record(r);
}

void Runner::note(std::string text, Layer layer) {
  TraceRecord r;
  r.kind = TraceKind::Note;
  r.layer = layer;
  r.timeMs = fwmsim::clock().nowMs();
  r.thread = fwmsim::threadName();
  r.text = std::move(text);
  emit(std::move(r));
}

namespace {
std::atomic<Runner *> gRunning{nullptr};
}  // namespace

void platformCallBegin() {
  if (Runner *r = gRunning.load()) r->callBegin();
}

void platformCallEnd(std::optional<CallResult> result) {
  if (Runner *r = gRunning.load()) r->callEnd(result);
}

void Runner::callBegin() {
  std::lock_guard lk(mu_);
  held_[std::this_thread::get_id()].open.push_back(-1);
}

// A call that blocked is shown where it returned, with when it began, so
// that no output steps back in time.
void Runner::dateBlocked(TraceRecord &call) {
  const uint64_t now = fwmsim::clock().nowMs();
  if (now > call.timeMs) call.sinceMs = std::exchange(call.timeMs, now), order(call);
}

void Runner::order(TraceRecord &r) {
  if (r.timeMs != orderMs_) orderMs_ = r.timeMs, orderWithin_ = 0;
  r.stampUs = r.timeMs * 1000 + std::min<uint64_t>(orderWithin_++, 999);
}

void Runner::callEnd(std::optional<CallResult> result) {
  std::lock_guard lk(mu_);
  auto it = held_.find(std::this_thread::get_id());
  if (it == held_.end() || it->second.open.empty()) return;
  Held &h = it->second;
  const long at = h.open.back();
  h.open.pop_back();
  if (at >= 0) {
    TraceRecord &call = h.records[static_cast<size_t>(at)];
    call.returned = result;
    dateBlocked(call);
  }
  if (!h.open.empty()) return;
  std::vector<TraceRecord> done;
  done.swap(h.records);
  for (auto &r : done) publish(std::move(r));
}

void Runner::onEvent(const fwmsim::Event &e) {
  std::lock_guard lk(mu_);
  TraceRecord r = classify(e);
  order(r);
  if (auto it = held_.find(std::this_thread::get_id()); it != held_.end() && !it->second.open.empty()) {
    Held &h = it->second;
    if (r.kind == TraceKind::Call && h.open.back() < 0) h.open.back() = static_cast<long>(h.records.size());
    h.records.push_back(std::move(r));
    return;
  }
  publish(std::move(r));
}

void Runner::publish(TraceRecord r) {
  bool isSend = r.kind == TraceKind::Call && std::string_view(r.text).substr(0, kSendCall.size()) == kSendCall;
  // The peer reads as soon as a datagram is there (a send the board records
  // before making it shows at the thread's next event).
  drainPeer(std::chrono::milliseconds(0));
  emit(r);
  if (!isSend) return;
  TraceRecord a;
  a.kind = TraceKind::Ack;
  a.layer = Layer::Channel;
  a.timeMs = r.timeMs;
  a.thread = r.thread;
  a.bytes = r.bytes;
  fwmtools::DecodeError why;
  a.ack = fwmtools::decodeAck(a.bytes, &why);
  if (a.ack)
    if (auto it = ports_.find(a.ack->ifIndex); it != ports_.end()) {
      a.frame = portFraming(it->second.first, it->second.second);
    }
  if (r.returned && r.returned->value != 0) a.returned = r.returned;
  if (a.ack && !ackNotSent(a))
    if (auto it = ports_.find(a.ack->ifIndex); it != ports_.end())
      lastAcks_[it->second] = {a.timeMs, fwmtools::summarizeAck(*a.ack)};
  a.text = a.ack ? fwmtools::summarizeAck(*a.ack) : "undecodable acknowledgement: " + why.reason;
  if (ackNotSent(a)) {
    a.text = fmt::format("not sent ({} returned {}): {}", kSendCall, a.returned->value, a.text);
  } else if (opt_.peer && !fwmtools::someoneListens(*opt_.peer)) {
    a.unheard = true;
    a.text = fmt::format("not delivered (nobody listens on {}:{}): {}", opt_.peer->host, opt_.peer->port, a.text);
  } else if (peerRouted_) {
    // Only what reached the socket is waited for; an external peer is not read here.
    ++acksSent_;
    unreceivedSentMs_.push_back(a.timeMs);
  }
  emit(std::move(a));
  drainPeer(std::chrono::milliseconds(0));
}

void Runner::setUpBoard() {
  fwmsim::resetBoard();
  fwmsim::clock().setMode(opt_.realtime ? fwmsim::Clock::Mode::Real : fwmsim::Clock::Mode::Virtual);
  fwmsim::Board &b = fwmsim::board();
  b.chipType = sc_.board.chipType;
  b.feNum = sc_.board.engines;
  b.chassisId = sc_.board.chassis;
  b.slotId = sc_.board.slot;
  b.selfIp.address = sc_.board.selfIp;
  b.masterIp.address = sc_.board.masterIp;
  if (!sc_.board.coldAgent) fwmsim::agent().existingHandle = 0x00A6E0F0u;
  for (size_t i = 0; i < sc_.board.logLevels.size(); ++i)
    g_clkSrvImAgentDiagSwitch[i] = sc_.board.logLevels[i] ? 1u : 0u;
}

void Runner::portTable() {
  for (const PortKey &key : portsOf(sc_)) {
    TraceRecord r;
    r.kind = TraceKind::Port;
    r.layer = Layer::Sim;
    r.timeMs = fwmsim::clock().nowMs();
    r.thread = "host";
    std::optional<LastAck> last;
    {
      std::lock_guard lk(mu_);
      if (auto it = lastAcks_.find(key); it != lastAcks_.end()) last = it->second;
    }
    r.fields = portRow(key, last);
    emit(std::move(r));
  }
}

void Runner::drainPeer(std::chrono::milliseconds wait) {
  std::lock_guard lk(mu_);
  if (!peerRouted_ || !peerSocket_.valid()) return;
  // The client sends synchronously, so what was sent is already queued on
  // our socket; wait a little only while sent acknowledgements are missing.
  // Between steps everything is read; as things happen only what was shown
  // as sent, so that no datagram is shown received before it was sent.
  while (wait.count() != 0 || !unreceivedSentMs_.empty()) {
    auto waitNow = acksReceived_ < acksSent_ ? wait : std::chrono::milliseconds(0);
    auto d = peerSocket_.receive(waitNow);
    if (!d) return;
    TraceRecord r;
    r.kind = TraceKind::PeerRx;
    r.layer = Layer::Channel;
    r.thread = "peer";
    // Loopback delivery takes no board time: received when it was sent.
    r.timeMs = fwmsim::clock().nowMs();
    if (!unreceivedSentMs_.empty()) {
      r.timeMs = unreceivedSentMs_.front();
      unreceivedSentMs_.pop_front();
    }
    r.bytes = *d;
    fwmtools::DecodeError why;
    r.ack = fwmtools::decodeAck(*d, &why);
    ++acksReceived_;
    r.text = r.ack ? "negotiation peer received " + fwmtools::summarizeAck(*r.ack)
                   : "negotiation peer skipped a datagram: " + why.reason;
    const std::optional<fwmtools::Ack> ack = r.ack;
    const uint64_t at = r.timeMs;
    emit(std::move(r));
    if (ack) decideOn(*ack, at);
  }
}

bool Runner::request(const Request &r, const Step &s) {
  const auto &regs = fwmsim::orchestrator().registrations;
  if (regs.empty() || regs.back().size() != FWM_CLK_ORCH_SLOT_NUM) {
    note("no operation table registered with the orchestrator yet (the host has not sent event 1 'startup')",
         Layer::Orchestrator);
    TraceRecord end;  // no call, so no result
    end.kind = TraceKind::StepEnd;
    end.layer = Layer::Orchestrator;
    end.stepName = std::string(r.op->name);
    end.target = requestTarget(r);
    end.timeMs = fwmsim::clock().nowMs();
    end.thread = "orchestrator";
    emit(std::move(end));
    return false;
  }
  ClkSrvOrchIntf table;
  std::memcpy(&table, regs.back().data(), sizeof table);
  std::vector<uint8_t> rec = r.record;
  void *p = r.nullRecord || rec.empty() ? nullptr : rec.data();
  fwmsim::setThreadName("orchestrator");
  uint32_t ret = callSlot(table, r, p);
  fwmsim::clock().settle();
  fwmsim::setThreadName("host");
  if (r.op->slot == 1 && p && rec.size() >= sizeof(ClkPtpPortCfg)) {
    uint32_t ifIndex;
    std::memcpy(&ifIndex, rec.data() + offsetof(ClkPtpPortCfg, ifIndex), sizeof ifIndex);
    std::lock_guard lk(mu_);
    routePort(ifIndex, r.unit, r.port);
  }
  TraceRecord end;
  end.kind = TraceKind::StepEnd;
  end.layer = Layer::Orchestrator;
  end.stepName = std::string(r.op->name);
  end.target = requestTarget(r);
  end.result = ret;
  end.timeMs = fwmsim::clock().nowMs();
  end.thread = "orchestrator";
  if (isReply(r.op->shape) && p)
    for (size_t i = 0; i + 4 <= rec.size(); i += 4)
      end.replyWords.push_back(static_cast<uint32_t>(rec[i] | rec[i + 1] << 8 | rec[i + 2] << 16 | rec[i + 3] << 24));
  if (ret == 0) end.decoded = decodeMeasurement(end.stepName, end.replyWords);
  end.text = ret == 0 ? "0" : fmt::format("{} ({:#x})", ret, ret);
  emit(std::move(end));
  if (r.op->slot == 1 && ret == 0 && keeper_ && p && r.record.size() >= sizeof(ClkPtpPortCfg)) {
    ClkPtpPortCfg asked;
    std::memcpy(&asked, r.record.data(), sizeof asked);
    keeper_->stepConfigured(r.unit, r.port, asked, fmt::format("the step at line {} ({})", s.pos.line, s.name));
  }
  return true;
}

bool Runner::runStep(const Step &s) {
  TraceRecord b;
  b.kind = TraceKind::StepBegin;
  b.stepName = s.name;
  b.pos = s.pos;
  b.timeMs = fwmsim::clock().nowMs();
  b.thread = "host";
  bool ok = true;
  std::visit(
      [&](const auto &body) {
        using T = std::decay_t<decltype(body)>;
        if constexpr (std::is_same_v<T, Request>) {
          b.layer = Layer::Orchestrator;
          b.thread = "orchestrator";
          b.target = requestTarget(body);
          b.fields = body.fields;
          emit(b);
          ok = request(body, s);
          return;
        } else if constexpr (std::is_same_v<T, Advance>) {
          b.text = "advance " + formatDuration(body.ms);
          emit(b);
          if (keeper_) {
            keeper_->advance(body.ms);
          } else {
            fwmsim::clock().advance(body.ms);
            fwmsim::clock().settle();
          }
        } else if constexpr (std::is_same_v<T, Notify>) {
          b.target = fmt::format("FWM_Srv_Clk_Notify({})", body.event);
          emit(b);
          int32_t ret = FWM_Srv_Clk_Notify(body.event);
          fwmsim::clock().settle();
          // The tables are filled now; the engine's clock slots go in beside the library's.
          if (body.event == FWM_CLK_EVENT_STARTUP && ret == 0) fwmsim::installEngineClockSlots(g_fnNpClkDriver);
          b.result = static_cast<uint32_t>(ret);
        } else if constexpr (std::is_same_v<T, Note>) {
          b.text = body.text;
          emit(b);
        } else if constexpr (std::is_same_v<T, Ports>) {
          b.text = "the ports at a glance";
          emit(b);
          portTable();
        } else if constexpr (std::is_same_v<T, Fail>) {
          emit(b);
          note(applyFail(body).note);
        } else if constexpr (std::is_same_v<T, AnnounceReceived>) {
          b.target = fmt::format("announce received on unit {} port {}", body.unit, body.port);
          b.fields = body.shown;
          emit(b);
          note(applyAnnounce(body).note);
        } else if constexpr (std::is_same_v<T, AnnounceAlarm>) {
          b.target = fmt::format("{} on unit {} port {}", alarmName(body.what), body.unit, body.port);
          emit(b);
          note(applyAlarm(body).note);
        } else if constexpr (std::is_same_v<T, EngineValues>) {
          b.target = fmt::format("engine {} for unit {} port {}", dataName(body.what), body.unit, body.port);
          emit(b);
          note(applyValues(body).note);
        }
        TraceRecord e;
        e.kind = TraceKind::StepEnd;
        e.layer = b.layer;
        e.stepName = s.name;
        e.target = b.target;
        e.result = b.result;
        e.timeMs = fwmsim::clock().nowMs();
        e.thread = "host";
        emit(std::move(e));
      },
      s.body);
  drainPeer(std::chrono::milliseconds(opt_.realtime ? 500 : 200));
  deliverDecisions();
  return ok;
}

int Runner::run() {
  if (opt_.freshBoard) setUpBoard();
  for (auto *o : observers_) o->begin(sc_);
  fwmsim::recorder().setSink([this](const fwmsim::Event &e) { onEvent(e); });
  gRunning = this;
  fwmtools::Endpoint peer{"127.0.0.1", 0};
  std::string err;
  if (opt_.peer) {
    peer = *opt_.peer;
  } else if (peerSocket_.bind(peer, &err)) {
    peer.port = peerSocket_.localPort();
  } else {
    note("built-in negotiation peer unavailable: " + err);
  }
  if (peer.port != 0) {
    BridgeResult routed = routeNegotiationClient(peer);
    peerRouted_ = routed.applied && !opt_.peer;
    if (!routed.note.empty()) note(routed.note);
  }
  const TimeKeeping &tk = sc_.board.time;
  if (tk.boundary.present) own_ = std::make_unique<OwnClock>(tk.boundary);
  if (tk.network.present || !tk.clocks.empty() || !tk.servos.empty())
    keeper_ = std::make_unique<Timekeeper>(
        tk, opt_.realtime,
        [this](TraceKind kind, std::string text, std::vector<FieldValue> f) {
          TraceRecord r;
          r.kind = kind;
          r.timeMs = fwmsim::clock().nowMs();
          r.thread = fwmsim::threadName();
          r.text = std::move(text);
          r.fields = std::move(f);
          emit(std::move(r));
        },
        own_.get());
  if (keeper_) keeper_->betweenSamples = [this] { deliverDecisions(); };
  setUpNegotiator();
  int rc = 0;
  for (const auto &w : opt_.wirePorts) {
    std::string why;
    if (!fwmsim::wire().attach(w.unit, w.port, w.iface, &why)) {
      note(fmt::format("wire port {}:{}={} not attached: {}", w.unit, w.port, w.iface, why));
      rc = 1;
    } else {
      note(fmt::format("wire port: unit {} port {} on {}", w.unit, w.port, w.iface));
    }
  }
  for (const auto &s : sc_.steps) {
    {
      std::lock_guard lk(mu_);
      ++step_;
    }
    if (!runStep(s)) rc = 1;
  }
  fwmsim::clock().settle();
  fwmsim::wire().stop();
  drainPeer(std::chrono::milliseconds(opt_.realtime ? 500 : 200));
  {
    // Calls still running (a worker waiting for events) are shown without a result.
    std::lock_guard lk(mu_);
    gRunning = nullptr;
    for (auto &[thread, h] : held_) {
      std::vector<TraceRecord> rest;
      rest.swap(h.records);
      for (auto &r : rest) {
        if (r.kind == TraceKind::Call && !r.returned) dateBlocked(r);
        publish(std::move(r));
      }
    }
  }
  if (keeper_) timeErrors_ = keeper_->finish();
  keeper_.reset();
  fwmsim::recorder().setSink(nullptr);
  portTable();
  for (auto *o : observers_) o->end();
  return rc;
}

}  // namespace clksim
