// Runs a scenario on the simulated board: the host's lifecycle events, the
// orchestrator's requests through the operation table the library
// registered, engine events and the passing of time. Everything the library
// does reaches the observers as one ordered trace.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "fwmtools/negotiator.hpp"
#include "fwmtools/udp_peer.hpp"
#include "keeper.hpp"
#include "port_table.hpp"
#include "scenario.hpp"
#include "trace.hpp"

namespace clksim {

struct RunOptions {
  bool realtime = false;                   // real threads on the wall clock instead of virtual time
  std::optional<fwmtools::Endpoint> peer;  // an external negotiation peer; none = the built-in one
  std::vector<WirePort> wirePorts;         // engine ports on the network (checked by the caller)
  bool freshBoard = true;                  // false: go on from where the last run left the board
};

class Runner {
 public:
  Runner(const Scenario &sc, RunOptions opt) : sc_(sc), opt_(std::move(opt)) {}
  void addObserver(TraceObserver *o) { observers_.push_back(o); }
  // 0 when every step could be made; 1 when one could not (e.g. a request
  // before the library registered its operations).
  int run();

  // A platform call starts / returns on this thread (see call_results.hpp).
  void callBegin();
  void callEnd(std::optional<CallResult> result);

  // With a `boundary` in the scenario the built-in peer decides from every
  // acknowledgement it receives; each changed decision is traced at once and
  // handed to `hook` at the next point where the orchestrator may call the
  // library (after a step, between time samples): never from inside the
  // library's own send.
  void onDecision(std::function<void(const fwmtools::bmca::Decision &)> hook) { onDecision_ = std::move(hook); }

  // After run(): each judged engine's time error, for the report.
  const std::vector<fwmtools::timing::EngineTe> &timeErrors() const { return timeErrors_; }

 private:
  void setUpBoard();
  void emit(TraceRecord r);  // under mu_
  void note(std::string text, Layer layer = Layer::Sim);
  void onEvent(const fwmsim::Event &e);
  void publish(TraceRecord r);          // under mu_
  void dateBlocked(TraceRecord &call);  // under mu_
  void order(TraceRecord &r);           // under mu_
  bool runStep(const Step &s);
  bool request(const Request &r, const Step &s);
  void drainPeer(std::chrono::milliseconds wait);  // under mu_
  void portTable();
  // The built-in peer's deciding (peer_decide.cpp).
  void setUpNegotiator();
  // The port an ifIndex names, for the acknowledgements and the boundary's peer; under mu_.
  void routePort(uint32_t ifIndex, uint32_t unit, uint32_t port);
  void decideOn(const fwmtools::Ack &ack, uint64_t timeMs);               // under mu_
  void tellDecision(const fwmtools::bmca::Decision &d, uint64_t timeMs);  // under mu_
  std::optional<fwmtools::bmca::Decision> redecide();                     // under mu_
  void deliverDecisions();

  const Scenario &sc_;
  RunOptions opt_;
  std::vector<TraceObserver *> observers_;
  std::recursive_mutex mu_;
  uint64_t seq_ = 0;
  uint64_t orderMs_ = UINT64_MAX, orderWithin_ = 0;
  size_t step_ = 0;
  size_t acksSent_ = 0, acksReceived_ = 0;
  std::deque<uint64_t> unreceivedSentMs_;  // send times of acknowledgements on their way
  std::map<std::pair<uint32_t, uint32_t>, LastAck> lastAcks_;
  std::map<uint32_t, std::pair<uint32_t, uint32_t>> ports_;  // ifIndex -> unit, port, from the port configurations
  fwmtools::UdpSocket peerSocket_;
  bool peerRouted_ = false;
  std::optional<fwmtools::Negotiator> negotiator_;
  std::unique_ptr<OwnClock> own_;  // a boundary card only
  std::function<void(const fwmtools::bmca::Decision &)> onDecision_;
  std::vector<fwmtools::bmca::Decision> undelivered_;  // decided, not yet handed to onDecision_
  std::unique_ptr<Timekeeper> keeper_;                 // with clocks or a network only
  std::vector<fwmtools::timing::EngineTe> timeErrors_;
  // Per thread, the records of platform calls that have not returned yet;
  // `open` indexes each running call's own record (-1: not recorded yet).
  struct Held {
    std::vector<TraceRecord> records;
    std::vector<long> open;
  };
  std::map<std::thread::id, Held> held_;
};

}  // namespace clksim
