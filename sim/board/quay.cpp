// The dead-loop monitor: set-up, thread registration and the per-message
// processing marks, all recorded. A registration of the calling thread's own
// kernel id is recorded as "self" so that call logs stay stable across runs.
#include <sys/syscall.h>
#include <unistd.h>

#include "fwmclk/platform/quay.h"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

extern "C" {

uint32_t QUAY_InitDeadloopMonitor(void) {
  fwmsim::record("quay", "QUAY_InitDeadloopMonitor");
  if (auto code = fwmsim::faults().take("QUAY_InitDeadloopMonitor")) return *code;
  return 0;
}

uint32_t regDeadloopMon(uint32_t tid, uint32_t t1, uint32_t t2, uint32_t t3, uint32_t t4) {
  // The board's own question, not the library's: never failed.
  const bool self = tid == static_cast<uint32_t>(::gettid());
  const std::string who = self ? std::string("self") : fwmsim::arg(tid);
  fwmsim::recorder().add("quay", fwmsim::callText("regDeadloopMon", {who, fwmsim::arg(t1), fwmsim::arg(t2),
                                                                     fwmsim::arg(t3), fwmsim::arg(t4)}));
  if (auto code = fwmsim::faults().take("regDeadloopMon")) return *code;
  return 0;
}

void dm_opers(uint32_t phase) { fwmsim::record("quay", "dm_opers", phase); }

}  // extern "C"
