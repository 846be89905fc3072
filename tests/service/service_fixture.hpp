// A started board whose operation table the tests use as the orchestrator
// does: only through the slots it received.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fwmclk/fwmclk.h"
#include "testkit.hpp"

namespace fwmtest {

// Faults for one row: `fn` fails `code` once, after `skip` good calls.
struct Fault {
  const char *fn;
  uint32_t code;
  int skip = 0;
};

// One call through the slots: what it answers, the engine-driver calls it
// makes ("; "-separated, without the "oda_1588_" prefix) and the lines it logs.
struct Step {
  const char *name;
  std::function<uint32_t(const ClkSrvOrchIntf *)> call;
  std::vector<Fault> faults;
  uint32_t ret;
  std::string calls;
  std::vector<std::string> lines;
};

class ServiceTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    adoptAgent();
    ASSERT_EQ(FWM_Srv_Clk_Notify(FWM_CLK_EVENT_STARTUP), 0);
    ASSERT_FALSE(fwmsim::orchestrator().registrations.empty());
    orch = reinterpret_cast<const ClkSrvOrchIntf *>(fwmsim::orchestrator().registrations.back().data());
    mark();
  }

  // Forgets what happened so far.
  void mark() {
    callMark_ = fwmsim::recorder().mark();
    lineMark_ = agentLines().size();
  }

  // Engine-driver calls since the mark.
  std::vector<std::string> engine() const { return callsSince(callMark_, "oda"); }

  // Log lines since the mark, without the NP layer's parameter lines and
  // without the announce supervision's, which the Mira hook sets going on
  // other threads and which have tests of their own.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    auto all = agentLines();
    for (size_t i = lineMark_; i < all.size(); ++i) {
      const std::string &l = all[i];
      if (l.rfind("MSG 1588.(parameter in ", 0) == 0 || l.find("[FWM_SRV_BKF]") != std::string::npos ||
          l.find("[FWM_SRV] PtpAddPort") != std::string::npos)
        continue;
      out.push_back(l);
    }
    return out;
  }

  // The engine-driver calls since the mark as one line: one golden row per request.
  std::string calls() const {
    std::string out;
    for (std::string c : engine()) {
      if (c.rfind("oda_1588_", 0) == 0) c.erase(0, 9);
      out += (out.empty() ? "" : "; ") + c;
    }
    return out;
  }

  // Runs one row from a fresh mark with its faults armed.
  void run(const Step &s) {
    fwmsim::faults().clear();
    for (const Fault &f : s.faults) fwmsim::faults().inject(f.fn, f.code, 1, f.skip);
    mark();
    EXPECT_EQ(s.call(orch), s.ret) << s.name;
    EXPECT_EQ(calls(), s.calls) << s.name;
    EXPECT_EQ(lines(), s.lines) << s.name;
  }

  void run(const char *name, std::function<uint32_t(const ClkSrvOrchIntf *)> call, std::vector<Fault> faults,
           uint32_t ret, std::string calls, std::vector<std::string> lines) {
    run(Step{name, std::move(call), std::move(faults), ret, std::move(calls), std::move(lines)});
  }

  const ClkSrvOrchIntf *orch = nullptr;

 private:
  size_t callMark_ = 0;
  size_t lineMark_ = 0;
};

}  // namespace fwmtest
