// A library on a simulated modem below a temporary root directory.
#ifndef TESTS_SUPPORT_SIM_FIXTURE_H
#define TESTS_SUPPORT_SIM_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "kit/clock.h"
#include "kit/log.h"
#include "kit/process.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"

using modemsim::DeviceRoot;

// A test without its own SetUp starts with a closed library below root(), a modem with initial_state()
// on the ports, a fresh clock and an empty log. TearDown closes the library.
class SimFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  virtual modemsim::State initial_state() { return {}; }
  virtual void close_library() = 0;

  DeviceRoot& root() { return root_; }
  modemsim::Modem& modem() { return *modem_; }
  // The library's log mask, which its threads read at any time.
  static void set_log_mask(uint32_t bits);
  // Whether the closed library holds no more descriptors and threads than before it was first opened. Waits
  // up to ten seconds: a joined thread leaves /proc a little later, and the simulator opens descriptors of
  // its own for a moment.
  bool nothing_left_behind() const;

 private:
  DeviceRoot root_;
  std::unique_ptr<modemsim::Modem> modem_;
  long descriptors_before_ = 0, threads_before_ = 0;
};

#endif
