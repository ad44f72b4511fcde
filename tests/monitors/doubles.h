// Stand-ins below the proximity monitor and the trace capture: an open library whose requests succeed on
// carrier 202, and system calls that fail on purpose. Everything else is real.
#ifndef TESTS_MONITORS_DOUBLES_H
#define TESTS_MONITORS_DOUBLES_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>

#include "lab/calls.h"
#include "support/sim_fixture.h"

namespace doubles {

// SAR commands wait until they are let go.
void hold_sar(bool hold);
bool wait_sar_held();

}  // namespace doubles

// A device without library, its threads and descriptors counted.
class MonitorTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  void count_what_is_open();
  void expect_nothing_left() const;

  DeviceRoot root_;
  long descriptors_ = 0, threads_ = 0;
};

#endif
