// Device management and the board's reset.
#include "fwmsim/board.hpp"

#include "fwmclk/platform/devm.h"
#include "fwmsim/channel.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

Board &board() {
  static auto *b = new Board;
  return *b;
}

Orchestrator &orchestrator() {
  static auto *o = new Orchestrator;
  return *o;
}

namespace {
std::mutex gAddrMu;

uint32_t queryAddress(AddressSource &src, uint32_t *out) {
  std::lock_guard lk(gAddrMu);
  if (src.unknownQueries > 0) {
    --src.unknownQueries;
    *out = 0;
    return 0;
  }
  if (src.failedQueries > 0) {
    --src.failedQueries;
    return 1;
  }
  *out = src.address;
  return 0;
}
}  // namespace

static std::vector<void (*)()> &resetHooks() {
  static std::vector<void (*)()> hooks;
  return hooks;
}

void resetBoard() {
  board() = Board{};
  faults().clear();
  recorder().clear();
  recorder().setEnabled(true);
  {
    std::lock_guard lk(agent().mu);
    agent().existingHandle = 0;
    agent().initFailures = 0;
    agent().deliveries.clear();
    agent().debug.clear();
    agent().initRecord.clear();
    agent().mainIp = 0;
  }
  {
    Registry &r = registry();
    std::lock_guard lk(r.mu);
    r.memTable = r.memPtNoEntry = r.debugTable = r.moduleRegEntry = r.printEntry = true;
    r.memPtNo = 7;
    r.moduleRegResult = 0;
    r.moduleId = 17;
    r.lines.clear();
  }
  orchestrator() = Orchestrator{};
  resetChannel();
  for (auto hook : resetHooks()) hook();
}

bool onBoardReset(void (*hook)()) {
  resetHooks().push_back(hook);
  return true;
}

}  // namespace fwmsim

using fwmsim::board;
using fwmsim::record;

extern "C" {

// These have no failure of their own; a fault answers a value the board was not set up with.
uint32_t FWM_Srv_Get_ChipType(void) {
  record("devm", "FWM_Srv_Get_ChipType");
  return fwmsim::faults().take("FWM_Srv_Get_ChipType").value_or(board().chipType);
}

uint32_t FWM_Srv_Get_FeNum(void) {
  record("devm", "FWM_Srv_Get_FeNum");
  return fwmsim::faults().take("FWM_Srv_Get_FeNum").value_or(board().feNum);
}

uint32_t FWM_Srv_Get_ChassisId(void) {
  record("devm", "FWM_Srv_Get_ChassisId");
  return fwmsim::faults().take("FWM_Srv_Get_ChassisId").value_or(board().chassisId);
}

uint32_t FWM_Srv_Get_Slotid(uint32_t chassisId) {
  record("devm", "FWM_Srv_Get_Slotid", chassisId);
  return fwmsim::faults().take("FWM_Srv_Get_Slotid").value_or(board().slotId);
}

uint32_t DEVM_GetSelfBoardIp(uint32_t *ipv4) {
  record("devm", "DEVM_GetSelfBoardIp", fwmsim::Ptr{ipv4});
  if (auto code = fwmsim::faults().take("DEVM_GetSelfBoardIp")) return *code;
  return fwmsim::queryAddress(board().selfIp, ipv4);
}

uint32_t DEVM_GetMasterBoardIp(uint32_t *ipv4) {
  record("devm", "DEVM_GetMasterBoardIp", fwmsim::Ptr{ipv4});
  if (auto code = fwmsim::faults().take("DEVM_GetMasterBoardIp")) return *code;
  return fwmsim::queryAddress(board().masterIp, ipv4);
}

}  // extern "C"
