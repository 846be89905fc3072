#include "engine_bridge.hpp"

#include <fmt/format.h>

#include "fwmsim/faults.hpp"

namespace clksim {

namespace {

constexpr const char *kNoEngineModel = "the engine model is not part of this build; step ignored";

}  // namespace

BridgeResult applyFail(const Fail &f) {
  fwmsim::faults().inject(f.function, f.code, f.times < 0 ? fwmsim::Faults::kAlways : f.times, f.skip);
  std::string times = f.times < 0 ? "every call" : f.times == 1 ? "the next call" : fmt::format("{} calls", f.times);
  std::string skip = f.skip ? fmt::format(" after {} good ones", f.skip) : "";
  return {true, fmt::format("{} fails with code {} ({}): {}{}", f.function, static_cast<int32_t>(f.code), f.code, times,
                            skip)};
}

BridgeResult applyAnnounce(const AnnounceReceived &) { return {false, kNoEngineModel}; }

BridgeResult applyAlarm(const AnnounceAlarm &) { return {false, kNoEngineModel}; }

BridgeResult applyValues(const EngineValues &) { return {false, kNoEngineModel}; }

BridgeResult routeNegotiationClient(const fwmtools::Endpoint &peer) {
  return {false, fmt::format("the simulated negotiation client cannot reach {}:{} in this build; acknowledgements "
                             "are decoded from the client's send calls only",
                             peer.host, peer.port)};
}

void resetEngines(uint32_t) {}

}  // namespace clksim
