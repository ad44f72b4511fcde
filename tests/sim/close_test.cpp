// Calls that meet a close under way: the event thread is held in a callback, so that the close waits for it.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/sim_fixture.h"

namespace {

std::mutex s_gate_mutex;
std::condition_variable s_gate_changed;
bool s_gate_entered = false;
bool s_gate_released = false;

uint32_t wait_at_gate(uint32_t, uint32_t, const void*) {
  std::unique_lock<std::mutex> lock(s_gate_mutex);
  s_gate_entered = true;
  s_gate_changed.notify_all();
  s_gate_changed.wait(lock, [] { return s_gate_released; });
  return 0;
}

using CloseTest = SimFixture;

TEST_F(CloseTest, CallsThatMeetAClose) {
  open_ready();
  brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, wait_at_gate);
  modem().urc("+CTZV: -28,\"26/03/07,09:05:00\"");
  {
    std::unique_lock<std::mutex> lock(s_gate_mutex);
    s_gate_changed.wait(lock, [] { return s_gate_entered; });
  }
  std::thread closer([] { EXPECT_EQ(brio_close(), 0u); });
  EXPECT_TRUE(eventually([] { return briolib_check_library_status() == 3; }));
  EXPECT_TRUE(log_capture::has("modem indicated a failure[0][1]") ||
              log_capture::has("modem indicated a failure[1][1]"));
  EXPECT_EQ(open(), 2u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 3u) << "the second close leaves it to the first";
  {
    std::lock_guard<std::mutex> lock(s_gate_mutex);
    s_gate_released = true;
    s_gate_changed.notify_all();
  }
  closer.join();
  EXPECT_EQ(briolib_check_library_status(), 1u);
  brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, nullptr);
  EXPECT_EQ(open(), 0u);
}

}  // namespace
