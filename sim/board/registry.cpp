// The component registry and, behind it, the memory-partition entry and the
// debug framework that prints module lines.
#include <cstdarg>
#include <cstdio>

#include "fwmclk/platform/comp.h"
#include "fwmsim/board.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

std::vector<DebugLine> Registry::printed() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return lines;
}

std::vector<std::string> Registry::printedTexts() const {
  std::vector<std::string> out;
  for (auto &l : printed()) out.push_back(l.text);
  return out;
}

Registry &registry() {
  static auto *r = new Registry;
  return *r;
}

namespace {

uint32_t getMemPtNo(uint32_t module, const char *name) {
  record("comp", "GetMemPtNo", module, name);
  return registry().memPtNo;
}

uint32_t moduleReg(const char *name, uint32_t *id) {
  record("debug", "moduleReg", name, Ptr{id});
  Registry &r = registry();
  if (r.moduleRegResult != 0) return r.moduleRegResult;
  *id = r.moduleId;
  return 0;
}

void print(uint32_t id, uint32_t level, const char *fmt, ...) {
  char buf[2048];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  recorder().add("debug", call("print", id, level, fmt) + " " + buf);
  Registry &r = registry();
  std::lock_guard lk(r.mu);
  r.lines.push_back({id, level, buf});
}

}  // namespace
}  // namespace fwmsim

extern "C" uint32_t COMP_GetVTable(uint32_t component, uint32_t iface, void **table) {
  using namespace fwmsim;
  record("comp", "COMP_GetVTable", component, iface, Ptr{table});
  if (auto code = faults().take("COMP_GetVTable")) return *code;
  Registry &r = registry();
  std::lock_guard lk(r.mu);
  *table = nullptr;
  if (component != 1000) return 0;
  if (iface == 1004 && r.memTable) {
    r.memTbl = {};
    if (r.memPtNoEntry) r.memTbl[4] = reinterpret_cast<void *>(&getMemPtNo);
    *table = r.memTbl.data();
  } else if (iface == 1008 && r.debugTable) {
    r.dbgTbl = {};
    if (r.moduleRegEntry) r.dbgTbl[1] = reinterpret_cast<void *>(&moduleReg);
    if (r.printEntry) r.dbgTbl[5] = reinterpret_cast<void *>(&print);
    *table = r.dbgTbl.data();
  }
  return 0;
}
