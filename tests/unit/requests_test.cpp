// What a request leaves to its caller, where threads meet in the open library. All else: tests/sessions.
#include <string>

#include "brio/brio.h"
#include "support/sim_fixture.h"

namespace {

class Requests : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  }
  void close_library() override { brio_close(); }
  modemsim::State initial_state() override {
    modemsim::State state;
    state.operators = {{1, "A", "a", "310410"}};
    return state;
  }
};

}  // namespace

// The time-out strikes while the answer is being listed.
TEST_F(Requests, ScanThatFailsLeavesTheBufferAlone) {
  log_capture::on_line("MS_INFO::1.", [] {
    test_clock::expire_wait();
    EXPECT_TRUE(log_capture::wait_for("AT cmd AT+COPS=? timed out"));
  });
  char buffer[30] = "untouched";
  EXPECT_EQ(brio_atcmd_scan_network(buffer, sizeof buffer), 5u);
  EXPECT_STREQ(buffer, "untouched");
}
