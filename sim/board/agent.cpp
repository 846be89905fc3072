// The log-and-diagnosis agent: log objects built parameter by parameter and
// delivered on send, the agent's own debug print, and its lifecycle.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fwmclk/diag.h"
#include "fwmclk/platform/im_agent.h"
#include "fwmsim/board.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmsim {

namespace {
struct LogObject {
  uint32_t handle;
  std::vector<std::vector<uint8_t>> params;
};

std::string textOf(const std::vector<uint8_t> &bytes) {
  auto end = std::find(bytes.begin(), bytes.end(), uint8_t{0});
  return {bytes.begin(), end};
}
}  // namespace

std::vector<LogDelivery> Agent::delivered() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return deliveries;
}

std::vector<std::string> Agent::debugLines() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return debug;
}

std::vector<uint8_t> Agent::lastInitRecord() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return initRecord;
}

uint32_t Agent::mainBoardIp() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return mainIp;
}

size_t Agent::liveObjects() const {
  std::lock_guard lk(const_cast<std::mutex &>(mu));
  return objects;
}

Agent &agent() {
  static auto *a = new Agent;
  return *a;
}

}  // namespace fwmsim

using fwmsim::agent;
using fwmsim::Hex;
using fwmsim::Ptr;
using fwmsim::record;

extern "C" {

uint32_t IM_Agent_GetHandle(void) {
  record("agent", "IM_Agent_GetHandle");
  if (fwmsim::faults().take("IM_Agent_GetHandle")) return 0;
  std::lock_guard lk(agent().mu);
  return agent().existingHandle;
}

uint32_t IM_Agent_Init(void *para) {
  record("agent", "IM_Agent_Init", Ptr{para});
  std::lock_guard lk(agent().mu);
  const auto *bytes = static_cast<const uint8_t *>(para);
  agent().initRecord.assign(bytes, bytes + sizeof(ClkImAgentInitPara));
  if (fwmsim::faults().take("IM_Agent_Init")) return 0;
  if (agent().initFailures > 0) {
    --agent().initFailures;
    return 0;
  }
  // From now on the process has an agent, and says so to whoever asks.
  agent().existingHandle = agent().createdHandle;
  return agent().createdHandle;
}

uint32_t IM_Agent_SetMainBoardIP(uint32_t handle, uint32_t ipv4) {
  record("agent", "IM_Agent_SetMainBoardIP", Hex{handle}, Hex{ipv4});
  if (auto code = fwmsim::faults().take("IM_Agent_SetMainBoardIP")) return *code;
  std::lock_guard lk(agent().mu);
  agent().mainIp = ipv4;
  return 0;
}

uint32_t IM_Agent_UnInit(uint32_t handle) {
  record("agent", "IM_Agent_UnInit", Hex{handle});
  if (auto code = fwmsim::faults().take("IM_Agent_UnInit")) return *code;
  std::lock_guard lk(agent().mu);
  if (agent().existingHandle == handle) agent().existingHandle = 0;
  return 0;
}

uint32_t IM_Agent_ObjCreate(uint32_t kind, uint32_t id, void **obj, uint32_t handle) {
  record("agent", "IM_Agent_ObjCreate", kind, Hex{id}, Ptr{obj}, Hex{handle});
  if (auto code = fwmsim::faults().take("IM_Agent_ObjCreate")) return *code;
  *obj = new fwmsim::LogObject{handle, {}};
  std::lock_guard lk(agent().mu);
  ++agent().objects;
  return 0;
}

uint32_t IM_Agent_AddPara(void *obj, uint32_t type, uint16_t len, const void *data, uint32_t handle) {
  const auto *bytes = static_cast<const uint8_t *>(data);
  std::vector<uint8_t> param(bytes, bytes + len);
  if (fwmsim::recorder().enabled()) {
    fwmsim::recorder().add(
        "agent", fwmsim::call("IM_Agent_AddPara", Ptr{obj}, type, len, fwmsim::textOf(param).c_str(), Hex{handle}),
        param);
  }
  if (auto code = fwmsim::faults().take("IM_Agent_AddPara")) return *code;
  static_cast<fwmsim::LogObject *>(obj)->params.push_back(std::move(param));
  return 0;
}

uint32_t IM_Agent_Send(void *obj, uint32_t handle) {
  record("agent", "IM_Agent_Send", Ptr{obj}, Hex{handle});
  auto *o = static_cast<fwmsim::LogObject *>(obj);
  auto code = fwmsim::faults().take("IM_Agent_Send");
  std::lock_guard lk(agent().mu);
  --agent().objects;
  if (!code && o->params.size() == 3) {
    fwmsim::LogDelivery d;
    d.tag = fwmsim::textOf(o->params[0]);
    d.level = fwmsim::textOf(o->params[1]);
    d.text = fwmsim::textOf(o->params[2]);
    d.tagLen = static_cast<uint16_t>(o->params[0].size());
    d.levelLen = static_cast<uint16_t>(o->params[1].size());
    d.textLen = static_cast<uint16_t>(o->params[2].size());
    d.handle = handle;
    // What an operator would read off the agent, as one event.
    if (fwmsim::recorder().enabled()) fwmsim::recorder().add("log", d.level + " " + d.text);
    if (fwmsim::recorder().keeping()) agent().deliveries.push_back(std::move(d));
  }
  delete o;  // the agent owns a sent object, whatever became of it
  return code.value_or(0);
}

uint32_t IM_Agent_ObjFree(void *obj, uint32_t handle) {
  record("agent", "IM_Agent_ObjFree", Ptr{obj}, Hex{handle});
  // A refused free leaves the object with the agent, which cleans up after itself.
  delete static_cast<fwmsim::LogObject *>(obj);
  std::lock_guard lk(agent().mu);
  --agent().objects;
  return fwmsim::faults().take("IM_Agent_ObjFree").value_or(0);
}

int32_t IM_Agent_Debug(const void *rec8, const char *name, uint32_t id, const char *fmt, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  const auto *w = static_cast<const uint32_t *>(rec8);
  record("agent", "IM_Agent_Debug", Hex{w[0]}, Hex{w[1]}, name, Hex{id}, fmt, static_cast<const char *>(buf));
  if (auto code = fwmsim::faults().take("IM_Agent_Debug")) return static_cast<int32_t>(*code);
  std::lock_guard lk(agent().mu);
  if (fwmsim::recorder().keeping()) agent().debug.emplace_back(buf);
  return 0;
}

}  // extern "C"
