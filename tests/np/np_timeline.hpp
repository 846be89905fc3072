// What the NP layer and the adapter did, in order, as one list: engine-driver
// calls as recorded, debug-print lines as "DBG <message>" (time stamp and line
// end checked and removed) and delivered log lines as "LOG <LEVEL> <text>".
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fwmclk/diag.h"
#include "fwmclk/np.h"
#include "testkit.hpp"

namespace nptest {

class Timeline {
 public:
  Timeline() : mark_(fwmsim::recorder().mark()), delivered_(fwmsim::agent().delivered().size()) {}

  std::vector<std::string> lines() const {
    const auto deliveries = fwmsim::agent().delivered();
    size_t next = delivered_;
    std::vector<std::string> out;
    const auto events = fwmsim::recorder().events();
    for (size_t i = mark_; i < events.size(); ++i) {
      const auto &e = events[i];
      if (e.facility == "oda") {
        out.push_back(e.text);
      } else if (e.facility == "debug" && e.text.rfind("print(", 0) == 0) {
        out.push_back("DBG " + message(e.text));
      } else if (e.facility == "agent" && e.text.rfind("IM_Agent_Send(", 0) == 0 && next < deliveries.size()) {
        out.push_back("LOG " + deliveries[next].level + " " + deliveries[next].text);
        ++next;
      }
    }
    return out;
  }

 private:
  // "print(id, level, fmt) 2026-11-22 08:00:00 <message>\r\n" -> "<message>"
  static std::string message(const std::string &text) {
    // Every line of the NP layer goes to the registered module at debug level 2.
    EXPECT_EQ(text.rfind("print(17, 2, ", 0), 0u) << text;
    const std::string stamp = ") 2026-11-22 08:00:00 ";
    const size_t at = text.find(stamp);
    EXPECT_NE(at, std::string::npos) << text;
    if (at == std::string::npos) return text;
    std::string body = text.substr(at + stamp.size());
    EXPECT_GE(body.size(), 2u);
    EXPECT_EQ(body.substr(body.size() - 2), "\r\n");
    return body.substr(0, body.size() - 2);
  }

  size_t mark_;
  size_t delivered_;
};

// A board whose log agent and debug framework deliver, with empty driver tables.
class NpBoard : public fwmtest::BoardTest {
 protected:
  void SetUp() override {
    fwmtest::BoardTest::SetUp();
    std::memset(g_fnNpClkDriver, 0, sizeof g_fnNpClkDriver);
    fwmtest::adoptAgent();
    (void)FWM_SRV_CLK_InitDbg();
  }
};

// The report line for a code, unit, port and reason on the default board (chassis 1, slot 3).
inline std::string report(const char *hex, uint32_t unit, uint32_t port, const std::string &reason) {
  return "DBG Fe module error. (ErrCode=0x" + std::string(hex) + ", Slot=1/3, Unit=" + std::to_string(unit) +
         ", Port=" + std::to_string(port) + ", Reason=Failed to " + reason + ".)";
}

}  // namespace nptest
