// Shared fixture of the test suite: a fresh simulated board per test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "fwmsim/board.hpp"
#include "fwmsim/clock.hpp"
#include "fwmsim/faults.hpp"
#include "fwmsim/recorder.hpp"

namespace fwmtest {

class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override { fwmsim::resetBoard(); }
  void TearDown() override { fwmsim::clock().settle(); }
};

// Call texts recorded for one facility since `mark`.
std::vector<std::string> callsSince(size_t mark, const std::string &facility);

// Log lines the agent received, as "LEVEL text".
std::vector<std::string> agentLines();

// Leaves a non-zero pattern in the stack below the caller, so that a record
// the library forgets to clear before use shows it.
void dirtyStack();

// Makes the log agent ready at once (an existing agent adopted), so that log
// lines are delivered.
void adoptAgent(uint32_t handle = 0x00A6E0F0u);

// Bytes as lower-case hex, two digits each: a golden of a record or message.
std::string hex(std::span<const uint8_t> bytes);

}  // namespace fwmtest
