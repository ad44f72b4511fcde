// Serial ports, read thread and packet layer where sessions do not reach: threads that meet, a modem that
// stops reading, memory. Everything else: tests/sessions/channel.
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "channel/brio_blpkt.h"
#include "kit/calls.h"
#include "support/sim_fixture.h"

using process::eventually;

namespace {

using Clock = std::chrono::steady_clock;
using modemsim::Port;

constexpr char kQueryPort[] = "/dev/ttyACM2";

uint32_t request(const char* command, recv_func callback = nullptr, void* user_data = nullptr,
                 int32_t timeout = 20) {
  return blpkt_atcmd_request_with_callback_timeout(command, MULTILINE_NO_PREFIX, nullptr, callback, user_data,
                                                   0, timeout);
}

// Copies the first line into the caller's text.
uint32_t copy_line(const ATResponse* response, void* user_data, uint16_t) {
  const ATLine* line = response->intermediates;
  *static_cast<std::string*>(user_data) = line != nullptr ? line->line : "(none)";
  return 0;
}

class Channel : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    pktio_set_shutdown_callback([](void* self) { static_cast<Channel*>(self)->thread_ended(); }, this);
  }
  void TearDown() override {
    SimFixture::TearDown();
    pktio_set_shutdown_callback(nullptr, nullptr);
  }
  void close_library() override {
    pktio_shutdown();
    blpkt_shutdown();
  }
  modemsim::State initial_state() override {
    modemsim::State state;
    state.echo = false;
    return state;
  }

  void start(pktio_packet_cb take = blpkt_handle_packet) {
    ASSERT_EQ(blpkt_init(), 0u);
    ASSERT_EQ(pktio_init(kQueryPort, take, nullptr), 0u);
    ASSERT_TRUE(modem().wait_open(Port::kQuery) && modem().wait_open(Port::kUrc));
  }
  // From now on commands with this beginning get this answer, "" for none.
  void answer(const std::string& command, const std::string& reply, int delay_ms = 0) {
    modemsim::Fault fault;
    fault.command = command;
    fault.reply = reply;
    fault.replace = true;
    fault.delay = std::chrono::milliseconds(delay_ms);
    modem().fault(fault);
  }

  std::atomic<int> ends_{0};             // of the read thread
  std::atomic<bool> open_at_end_{true};  // the URC port, whenever the read thread ended

 private:
  void thread_ended() {
    if (!modem().is_open(Port::kUrc)) open_at_end_ = false;
    ends_++;
    blpkt_channel_lost();
  }
};

}  // namespace

TEST_F(Channel, ModemThatStopsReadingHoldsNeitherWriterNorClose) {
  EXPECT_EQ(pktio_at_send_cmd(nullptr, NO_RESULT, nullptr), 1u);
  // A port in the modem's place that is not served.
  int ends[2];
  char name[64];
  termios raw = {};
  cfmakeraw(&raw);
  root().remove(kQueryPort);
  ASSERT_EQ(openpty(&ends[0], &ends[1], name, &raw, nullptr) | symlink(name, root().path(kQueryPort).c_str()),
            0);
  const std::string command(500, 'x');
  const auto send = [&] { return pktio_at_send_cmd(command.c_str(), NO_RESULT, nullptr); };
  ASSERT_EQ(pktio_init(kQueryPort, blpkt_handle_packet, nullptr), 0u);
  test_clock::scale_waits(0.001);
  faults::fail("poll", EINTR);
  // The first refusal may be a short write; when a write finds no room at all, its wait ends by itself.
  ASSERT_TRUE(eventually([&] { return send(), log_capture::has("err Connection timed out:"); }));
  EXPECT_EQ(faults::fired("poll"), 1);
  test_clock::scale_waits(1);
  for (const bool thread_fails : {false, true}) {
    ASSERT_EQ(pktio_init(kQueryPort, blpkt_handle_packet, nullptr), 0u);
    ASSERT_TRUE(modem().wait_open(Port::kUrc));
    const long writes = faults::calls("write");
    auto writer = std::async(std::launch::async, send);
    ASSERT_TRUE(eventually([&] { return faults::calls("write") > writes; }));
    const auto begin = Clock::now();
    if (thread_fails) {
      faults::fail("select", EBADF);
      modem().urc("+CREG: 1");
    } else {
      pktio_shutdown();
    }
    EXPECT_EQ(writer.get(), 1u);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  }
  pktio_shutdown();
  for (const int end : ends) close(end);
  EXPECT_TRUE(nothing_left_behind());
}

// A caller may bracket requests with the send mutex: the others wait. A thread that sends without a pause
// takes turns with one that waits already.
TEST_F(Channel, RequestsAreServedInTheirOrder) {
  start();
  for (int i = 0; i < 20; i++) {
    modem().clear_commands();
    ASSERT_EQ(blpkt_acquire_send_mutex(), 0u);
    const auto send_on_a_thread = [](const char* command, int times) {
      static std::atomic<pid_t> s_id;
      s_id = 0;
      std::thread thread([=] {
        s_id = gettid();
        for (int left = times; left > 0; left--) EXPECT_EQ(request(command), 0u);
      });
      EXPECT_TRUE(eventually([] { return s_id != 0 && process::waits(s_id); }));
      return thread;
    };
    std::thread first = send_on_a_thread("AT+CREG?", 3), second = send_on_a_thread("AT+CGREG?", 1);
    EXPECT_TRUE(modem().commands().empty());
    EXPECT_EQ(blpkt_release_send_mutex(), 0u);
    first.join();
    second.join();
    ASSERT_EQ(modem().commands(),
              (std::vector<std::string>{"AT+CREG?", "AT+CGREG?", "AT+CREG?", "AT+CREG?"}));
  }
}

// The read thread ends once, with the ports still open. An init without a shutdown ends the earlier one
// first.
TEST_F(Channel, CloseMeetsRequestsAbortsAndALostPort) {
  answer("", "");
  for (int i = 0, starts = 0; i < 60; i++) {
    start();
    if (i % 4 == 0) start();
    starts += i % 4 == 0 ? 2 : 1;
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
      threads.emplace_back([&done, t] {
        while (!done) {
          const uint32_t status = t == 0 ? blpkt_abort_manual_nw_scan() : request("AT");
          ASSERT_TRUE(status == BLPKT_STATUS_ERROR || status == BLPKT_STATUS_SCAN_ABORTED) << status;
        }
      });
    }
    if (i % 3 == 0) faults::fail("select", EBADF);  // the read thread ends by itself meanwhile
    modem().urc("+CREG: 1");
    const auto begin = Clock::now();
    std::thread second_closer([this] { close_library(); });
    close_library();
    second_closer.join();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    ASSERT_EQ(ends_, starts);
    done = true;
    for (auto& thread : threads) thread.join();
    faults::stop();
  }
  EXPECT_TRUE(open_at_end_);
  EXPECT_TRUE(nothing_left_behind());
}

// The read thread is handling the final line when the time-out strikes. The callback of the request that
// has returned does not run any more; that of the next one, if it waits already, does not run on this answer.
// That request takes the success as an error: its record was not filled.
TEST_F(Channel, AnswerOfARequestThatHasReturnedReachesNoCallback) {
  static std::atomic<bool> s_pass, s_held;
  const pktio_packet_cb late = [](uint32_t kind, void* data, void* context) {
    s_held = true;
    test_clock::expire_wait();
    while (!s_pass) std::this_thread::yield();
    blpkt_handle_packet(kind, data, context);
  };
  answer("AT+A", "+X: 1\r\nOK\r\n");
  answer("AT+B", "");
  set_log_mask(BRIO_LOG_REQUEST);
  for (const bool next_waits : {false, true}) {
    s_pass = s_held = false;
    log_capture::clear();
    modem().clear_commands();
    start(late);
    std::string first = "untouched", second = "untouched";
    EXPECT_EQ(request("AT+A", copy_line, &first), 1u);
    EXPECT_TRUE(s_held);
    if (!next_waits) {
      s_pass = true;
      ASSERT_TRUE(log_capture::wait_for("prv_convert_and_queue_resp_packet 0"));
    }
    auto next = std::async(std::launch::async, request, "AT+B", copy_line, &second, 20);
    ASSERT_TRUE(modem().wait_command("AT+B"));
    s_pass = true;
    EXPECT_EQ(next.get(), 2u);
    EXPECT_EQ(first + " " + second, "untouched untouched");
    close_library();
  }
}

// The callback already runs when the time-out strikes: the request does not return before it ends.
TEST_F(Channel, RequestWaitsForItsRunningCallback) {
  std::atomic<bool> finished{false};
  start();
  const recv_func slow = [](const ATResponse*, void* user_data, uint16_t) -> uint32_t {
    test_clock::expire_wait();
    if (!log_capture::wait_for("AT cmd AT timed out")) return 7;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    *static_cast<std::atomic<bool>*>(user_data) = true;
    return 6;
  };
  EXPECT_EQ(request("AT", slow, &finished), 1u);
  EXPECT_TRUE(finished);
  EXPECT_EQ(request("AT"), 6u) << "nothing is flushed: what the first one no longer took";
}

TEST_F(Channel, HalfALineEndsWithTheChannel) {
  start();
  modem().raw(Port::kUrc, "+HALF");
  EXPECT_EQ(request("AT") | request("AT"), 0u);  // the read thread has taken it
  close_library();
  start();
  modem().urc("+WHOLE: 1");
  EXPECT_TRUE(log_capture::wait_for("avail WHOLE"));
  EXPECT_FALSE(log_capture::has("HALF"));
}

// An abort and an answer that meet yield one status, that of the first. The other one runs no callback
// and waits for no later request.
TEST_F(Channel, AbortAndAnswerThatMeetAreOneStatus) {
  static std::atomic<bool> s_held, s_pass, s_passed;
  start([](uint32_t kind, void* data, void* context) {
    s_held = true;
    while (!s_pass) std::this_thread::yield();
    blpkt_handle_packet(kind, data, context);
    s_passed = true;
  });
  const auto pass = [] {
    s_pass = true;
    EXPECT_TRUE(eventually([] { return s_passed.load(); }));
  };
  const auto next_has_its_own_answer = [] {
    std::string line;
    EXPECT_EQ(request("AT+B", copy_line, &line), 0u);
    EXPECT_EQ(line, "+X: 2");
  };
  answer("AT+A", "+X: 1\r\nOK\r\n");
  answer("AT+B", "+X: 2\r\nOK\r\n");
  for (const bool over : {false, true}) {
    s_held = s_pass = s_passed = false;
    // The aborted request has its status and has not returned yet.
    log_capture::on_line("Aborting the manual nw scan", [&] { over ? void() : pass(); });
    std::string line = "untouched";
    auto aborted = std::async(std::launch::async, request, "AT+A", copy_line, &line, 20);
    ASSERT_TRUE(eventually([] { return s_held.load(); }));
    EXPECT_EQ(blpkt_abort_manual_nw_scan(), 8u);
    EXPECT_EQ(aborted.get(), 8u);
    if (over) pass();
    EXPECT_EQ(line, "untouched");
    next_has_its_own_answer();
  }
  log_capture::on_line("blpkt_recv:status=5", [] { EXPECT_EQ(blpkt_abort_manual_nw_scan(), 2u); });
  const recv_func refuse = [](const ATResponse*, void*, uint16_t) -> uint32_t { return 5; };
  EXPECT_EQ(request("AT+A", refuse), 5u);
  EXPECT_TRUE(log_capture::has("can't queue response"));
  next_has_its_own_answer();
}
