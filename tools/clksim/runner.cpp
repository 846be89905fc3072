#include "runner.hpp"

#include <fmt/format.h>

#include <cstring>

#include "engine_bridge.hpp"
#include "fwmclk/fwmclk.h"
#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"
#include "fwmtools/ack_text.hpp"

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

void Runner::onEvent(const fwmsim::Event &e) {
  std::lock_guard lk(mu_);
  TraceRecord r = classify(e);
  bool isSend = r.kind == TraceKind::Call && std::string_view(e.text).substr(0, kSendCall.size()) == kSendCall;
  emit(r);
  if (!isSend) return;
  TraceRecord a;
  a.kind = TraceKind::Ack;
  a.layer = Layer::Channel;
  a.timeMs = e.vtimeMs;
  a.thread = e.thread;
  a.bytes = e.bytes;
  fwmtools::DecodeError why;
  a.ack = fwmtools::decodeAck(e.bytes, &why);
  ++acksSent_;
  a.text = a.ack ? fwmtools::summarizeAck(*a.ack) : "undecodable acknowledgement: " + why.reason;
  emit(std::move(a));
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

void Runner::drainPeer(std::chrono::milliseconds wait) {
  if (!peerRouted_ || !peerSocket_.valid()) return;
  // The client sends synchronously, so what was sent is already queued on
  // our socket; wait a little only while sent acknowledgements are missing.
  while (true) {
    auto waitNow = acksReceived_ < acksSent_ ? wait : std::chrono::milliseconds(0);
    auto d = peerSocket_.receive(waitNow);
    if (!d) return;
    TraceRecord r;
    r.kind = TraceKind::PeerRx;
    r.layer = Layer::Channel;
    r.thread = "peer";
    r.timeMs = fwmsim::clock().nowMs();
    r.bytes = *d;
    fwmtools::DecodeError why;
    r.ack = fwmtools::decodeAck(*d, &why);
    ++acksReceived_;
    r.text = r.ack ? "negotiation peer received " + fwmtools::summarizeAck(*r.ack)
                   : "negotiation peer skipped a datagram: " + why.reason;
    emit(std::move(r));
  }
}

bool Runner::request(const Request &r) {
  const auto &regs = fwmsim::orchestrator().registrations;
  if (regs.empty() || regs.back().size() != FWM_CLK_ORCH_SLOT_NUM) {
    note("no operation table registered with the orchestrator yet (the host has not sent event 1 'startup')",
         Layer::Orchestrator);
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
  end.text = ret == 0 ? "0" : fmt::format("{} ({:#x})", ret, ret);
  emit(std::move(end));
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
          ok = request(body);
          return;
        } else if constexpr (std::is_same_v<T, Advance>) {
          b.text = "advance " + formatDuration(body.ms);
          emit(b);
          fwmsim::clock().advance(body.ms);
          fwmsim::clock().settle();
        } else if constexpr (std::is_same_v<T, Notify>) {
          b.target = fmt::format("FWM_Srv_Clk_Notify({})", body.event);
          emit(b);
          int32_t ret = FWM_Srv_Clk_Notify(body.event);
          fwmsim::clock().settle();
          b.result = static_cast<uint32_t>(ret);
        } else if constexpr (std::is_same_v<T, Note>) {
          b.text = body.text;
          emit(b);
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
  return ok;
}

int Runner::run() {
  if (opt_.freshBoard) setUpBoard();
  for (auto *o : observers_) o->begin(sc_);
  fwmsim::recorder().setSink([this](const fwmsim::Event &e) { onEvent(e); });
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
  int rc = 0;
  for (const auto &s : sc_.steps) {
    {
      std::lock_guard lk(mu_);
      ++step_;
    }
    if (!runStep(s)) rc = 1;
  }
  fwmsim::clock().settle();
  fwmsim::recorder().setSink(nullptr);
  for (auto *o : observers_) o->end();
  return rc;
}

}  // namespace clksim
