// What a request leaves to its caller when threads meet in the open library. All else: tests/sessions.
#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "support/sim_fixture.h"

using process::eventually;

namespace {

class Requests : public SimFixture {
 protected:
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
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  log_capture::on_line("MS_INFO::1.", [] {
    test_clock::expire_wait();
    EXPECT_TRUE(log_capture::wait_for("AT cmd AT+COPS=? timed out"));
  });
  char buffer[30] = "untouched";
  EXPECT_EQ(brio_atcmd_scan_network(buffer, sizeof buffer), 5u);
  EXPECT_STREQ(buffer, "untouched");
}

// Between its requests, and after the last one.
TEST_F(Requests, AbortEndsAScanThatDoesNotWait) {
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_DEBUG | BRIO_LOG_REQUEST);
  for (const char* line :
       {"Start sending [AT+COPS=2]", "Start sending [AT+COPS=?]", "Exit sending [AT+COPS=?]"}) {
    log_capture::on_line(line, [] { EXPECT_EQ(brio_abort_manual_nw_scan(), 8u); });
    char buffer[30] = "untouched";
    EXPECT_EQ(brio_atcmd_scan_network(buffer, sizeof buffer), 8u) << line;
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(brio_atcmd_set_auto_mode(), 0u) << line;
  }
}

TEST_F(Requests, AbortThatMeetsTheTimeOutLeavesNoStatusBehind) {
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  modemsim::Fault silent;
  silent.command = "AT+COPS=?", silent.silent = true;
  modem().fault(silent);
  log_capture::on_line("AT cmd AT+COPS=? timed out", [] { EXPECT_EQ(brio_abort_manual_nw_scan(), 8u); });
  char buffer[30] = "untouched";
  auto scan = std::async(std::launch::async, brio_atcmd_scan_network, buffer, sizeof buffer);
  ASSERT_TRUE(modem().wait_command("AT+COPS=?"));
  test_clock::expire_wait();
  EXPECT_EQ(scan.get(), 8u);
  EXPECT_EQ(brio_atcmd_set_auto_mode(), 0u);
}

// Not that of a thread whose own scan is over, and not one that begins while the aborted scan still waits.
TEST_F(Requests, AbortEndsNoOtherRequest) {
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  char own[30];
  EXPECT_EQ(brio_atcmd_scan_network(own, sizeof own), 0u);
  const pid_t requester = gettid();
  std::atomic<bool> held{false};
  auto scan = std::async(std::launch::async, [&] {
    EXPECT_EQ(blpkt_acquire_send_mutex(), 0u);
    held = true;
    EXPECT_TRUE(eventually([requester] { return process::waits(requester); }));
    char buffer[30];
    auto later = std::async(std::launch::async, brio_atcmd_scan_network, buffer, sizeof buffer);
    EXPECT_TRUE(eventually([] { return brio_abort_manual_nw_scan() == 8; }));
    EXPECT_EQ(blpkt_release_send_mutex(), 0u);
    return later.get();
  });
  while (!held) std::this_thread::yield();
  EXPECT_EQ(brio_atcmd_set_auto_mode(), 0u);
  EXPECT_EQ(scan.get(), 8u);
}

// The file was read before that report; the event thread has just not continued yet.
TEST_F(Requests, RefreshReportedBehindTheAnswerReadsAgain) {
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_EVENT | BRIO_LOG_REQUEST);
  const char refresh[] = "+STKPCI: 0,\"D009810301010082028182\"";
  log_capture::on_line("Exit sending [AT+CRSM", [&] {
    modem().urc(refresh);
    EXPECT_TRUE(log_capture::wait_for("Added to s_blpkt_log_event_queue", 2));
  });
  modem().urc(refresh);
  EXPECT_TRUE(modem().wait_command("AT+CRSM=176,12258,0,0,0", 2));
}

namespace {

// What a host may try in a callback on a thread of the library, and what each call returns.
using Statuses = std::vector<uint32_t>;
Statuses try_to_close() {
  blpkt_shutdown();
  pktio_shutdown();
  prox_close();
  brio_trace_tst_stop();
  return {brio_close(),
          brio_open("/dev/ttyACM2"),
          wabs_close(),
          wabs_open(),
          prox_open(),
          blpkt_init(),
          pktio_init("/dev/ttyACM2", blpkt_handle_packet, nullptr)};
}
const Statuses kNoClose = {2, 2, 2, 2, 3, 2, 1};
Statuses try_to_send() {
  sim_card_status card;
  return {brio_get_sim_status(&card),
          blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0),
          blpkt_abort_manual_nw_scan(), blpkt_acquire_send_mutex()};
}
const Statuses kNotOpen = {1, 3, 2, EDEADLK}, kNoRequest = {4, 3, 2, EDEADLK};

std::mutex s_mutex;  // guards s_statuses
std::vector<Statuses> s_statuses;
uint32_t note_statuses(uint32_t, uint32_t, const void*) {
  const Statuses close = try_to_close(), send = try_to_send();
  std::lock_guard<std::mutex> lock(s_mutex);
  s_statuses.push_back(close);
  s_statuses.push_back(send);
  return 0;
}
std::vector<Statuses> noted() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_statuses;
}

}  // namespace

// In callbacks on the read and the event thread while the library opens, on the event thread with the record
// locked and without when it is open, and on the monitor's thread.
TEST_F(Requests, LibrarysOwnThreadsAreRefused) {
  for (const uint32_t event : {BRIO_EVENT_PDP_ACTIVATION_ALLOWED, BRIO_EVENT_TIME_INFO}) {
    ASSERT_EQ(brio_set_callback_for_event_id(event, note_statuses), 0u);
  }
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_REQUEST);
  log_capture::on_line("Exit sending [AT+CGREG?]", [&] {
    modem().urc("+CTZV: -24,\"26/03/07,09:05:00\"");
    EXPECT_TRUE(eventually([] { return noted().size() == 4; }));
  });
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  modem().urc("+CGREG: 0");
  modem().urc("+CTZV: -28,\"26/03/07,09:05:00\"");
  ASSERT_TRUE(eventually([] { return noted().size() == 8; }));
  EXPECT_EQ(noted(), (std::vector<Statuses>{kNoClose, kNotOpen, kNoClose, kNotOpen, kNoClose, kNoRequest,
                                            kNoClose, kNoRequest}));

  brio::relaxed_store(gBrioModuleLogMask, ~0u);
  root().rest_sensor();
  test_clock::manual_select(true);
  Statuses statuses;
  log_capture::on_line("Offset[", [&] { statuses = try_to_close(); });
  ASSERT_EQ(prox_open(), 0u);
  ASSERT_TRUE(test_clock::tick());
  EXPECT_EQ(statuses, kNoClose);
  prox_close();
  sim_card_status card;
  EXPECT_EQ(brio_get_sim_status(&card), 0u);
}

namespace {

bool child_is_refused() {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    const bool refused = try_to_close() == kNoClose && try_to_send() == kNotOpen &&
                         pktio_at_send_cmd("AT+EVIL", NO_RESULT, nullptr) == 1;
    const char* const names[] = {"pktio_at_send_cmd", "blpkt_init",     "blpkt_shutdown",
                                 "pktio_init",        "pktio_shutdown", "blpkt_abort_manual_nw_scan",
                                 "brio_open",         "brio_close",     "brio_trace_tst_stop",
                                 "wabs_open",         "wabs_close",     "prox_open",
                                 "prox_close"};
    const auto named = [](std::string name) { return log_capture::has(name + "::refused on a thread"); };
    _exit(refused && std::all_of(std::begin(names), std::end(names), named) ? 0 : 1);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

// A child that closes or uses what its parent has open, or opens just then, changes nothing there: channel,
// trace and monitor go on.
TEST_F(Requests, ForkedChildLeavesTheParentsLibraryAlone) {
  root().rest_sensor();
  root().write("/var/local/wan/debug/trace_filter.cfg", "AT+TRACE=1\n");
  modem().with_state([](modemsim::State& state) { state.carrier_id = 202, state.imsi = "234151234567890"; });
  test_clock::manual_select(true);
  briolib_log_set_log_mask(BRIO_LOG_CONFIG);
  bool refused_before_threads = false;
  log_capture::on_line("No log config", [&] { refused_before_threads = child_is_refused(); });
  ASSERT_EQ(wabs_open(), 0u);
  EXPECT_TRUE(refused_before_threads);
  ASSERT_TRUE(test_clock::tick());
  const long threads = process::threads();
  EXPECT_TRUE(child_is_refused());
  uint32_t bars = 0;
  EXPECT_EQ(wabs_get_bars(&bars), 0u);
  EXPECT_FALSE(modem().wait_command("AT+EVIL", 1, modemsim::Milliseconds(0)));
  EXPECT_TRUE(test_clock::tick());
  EXPECT_EQ(process::threads(), threads);
  EXPECT_EQ(root().read("/sys/devices/virtual/proximity/proximity0/prox_ctrl0"), "77");
  EXPECT_EQ(wabs_close(), 0u);
  EXPECT_TRUE(nothing_left_behind());
}

// The event thread waits for the mutex, and the close for the event thread.
TEST_F(Requests, CloseGivesUpAForgottenSendMutex) {
  briolib_log_set_log_mask(BRIO_LOG_REG | BRIO_LOG_PORT);
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  uint32_t status_meanwhile = 0;
  log_capture::on_line("exiting read thread", [&] { status_meanwhile = briolib_check_library_status(); });
  ASSERT_EQ(blpkt_acquire_send_mutex(), 0u);
  modem().urc("+STKPCI: 0,\"D009810301010082028182\"");
  ASSERT_TRUE(log_capture::wait_for("Refresh command for USIM"));
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(status_meanwhile, 3u);
  EXPECT_EQ(blpkt_release_send_mutex(), uint32_t{EPERM});
}
