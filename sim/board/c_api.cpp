// C entry points onto the simulated board for hosts written in C.
#include "fwmsim/c_api.h"

#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

extern "C" {

void *fwmsim_registered_orch_table(void) {
  auto &regs = fwmsim::orchestrator().registrations;
  return regs.empty() ? nullptr : static_cast<void *>(regs.back().data());
}

size_t fwmsim_call_count(const char *facility) { return fwmsim::recorder().texts(facility).size(); }

void fwmsim_inject_fault(const char *fn, uint32_t code, int times) { fwmsim::faults().inject(fn, code, times); }

void fwmsim_settle(void) { fwmsim::clock().settle(); }

}  // extern "C"
