// The packet layer over real ttys: requests, statuses, the event road, closing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>

#include "base/log.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_blpkt.h"
#include "faults.h"
#include "support/pty_modem.h"

namespace {

using faults::Call;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

constexpr char kQueryPort[] = "/dev/ttyACM2";

// Copies the first line into the caller's text; gives the user value back as the status.
uint32_t copy_first_line(const ATResponse* response, void* user_data, uint16_t user_value) {
  const ATLine* line = response->intermediates;
  *static_cast<std::string*>(user_data) = line != nullptr ? line->line : "(none)";
  return user_value;
}

class Blpkt : public ::testing::Test {
 protected:
  void SetUp() override {
    test_clock::reset();
    log_capture::clear();
    faults::reset();
    faults::on_urc([this](char* line) {
      in_parser_ = true;
      while (stalled_) std::this_thread::yield();
      std::lock_guard<std::mutex> lock(mutex_);
      urcs_.push_back(line);
    });
  }
  void TearDown() override {
    stalled_ = false;
    close();
    faults::reset();
    test_clock::reset();
    brio::relaxed_store(g_brio_lib_log_mask, 0u);
  }

  void start() {
    ASSERT_EQ(blpkt_init(), 0u);
    ASSERT_EQ(pktio_init(kQueryPort, blpkt_handle_packet, nullptr), 0u);
  }
  static void close() {
    pktio_shutdown();
    blpkt_shutdown();
  }
  void urc(const std::string& line) { ASSERT_TRUE(write_all(modem_.urc(), "\r\n" + line + "\r\n")); }
  Lines urcs() {
    std::lock_guard<std::mutex> lock(mutex_);
    return urcs_;
  }
  bool wait_urcs(size_t count) {
    return eventually([&] { return urcs().size() >= count; });
  }

  PtyModem modem_;
  std::atomic<bool> stalled_{false};    // holds the event thread in the parser
  std::atomic<bool> in_parser_{false};  // it got there

 private:
  std::mutex mutex_;  // guards urcs_
  Lines urcs_;
};

}  // namespace

TEST_F(Blpkt, StatusTable) {
  modem_.script([](const std::string& command) -> std::string {
    if (command == "AT+ERR") return "\r\n+CME ERROR: 10\r\n";
    if (command == "AT+BARE") return "\r\nOK\r\n";
    return "\r\n+X: 5\r\n\r\nOK\r\n";
  });
  start();
  const struct {
    const char* command;
    recv_func callback;
    uint16_t user_value;
    uint32_t status;
    const char* line;  // what the callback saw
    const char* logged;
  } cases[] = {
      {"AT+X?", copy_first_line, 0, BLPKT_STATUS_SUCCESS, "+X: 5", nullptr},
      {"AT+BARE", copy_first_line, 0, BLPKT_STATUS_SUCCESS, "(none)", nullptr},
      {"AT+X?", nullptr, 0, BLPKT_STATUS_SUCCESS, "untouched", nullptr},
      {"AT+X?", copy_first_line, 5, 5, "+X: 5", "blpkt_recv:status=5:error in AT cmd AT+X? resp"},
      {"AT+X?", copy_first_line, 65535, 65535, "+X: 5", "error in AT cmd"},
      {"AT+X?", copy_first_line, 8, BLPKT_STATUS_SCAN_ABORTED, "+X: 5", "Aborting the manual nw scan"},
      {"AT+ERR", copy_first_line, 0, BLPKT_STATUS_ERROR, "untouched",
       "blpktstat:AT_err_string:+CME ERROR: 10:"},
      {nullptr, copy_first_line, 0, BLPKT_STATUS_BAD_REQUEST, "untouched",
       "BLPKT_STATUS_BAD_REQUEST:null AT param"},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    std::string line = "untouched";
    EXPECT_EQ(blpkt_atcmd_request_with_callback(c.command, SINGLELINE, "+X", c.callback, &line, c.user_value),
              c.status)
        << c.command;
    EXPECT_EQ(line, c.line) << c.command;
    if (c.logged != nullptr) {
      EXPECT_TRUE(log_capture::has(c.logged)) << c.logged;
    } else {
      EXPECT_EQ(log_capture::lines().size(), 0u) << c.command;
    }
  }
}

TEST_F(Blpkt, TimeOuts) {
  start();
  test_clock::scale_waits(0.02);
  auto begin = Clock::now();
  EXPECT_EQ(blpkt_atcmd_request_with_callback_timeout("AT+1", NO_RESULT, nullptr, nullptr, nullptr, 0, 1),
            1u);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(19));
  EXPECT_TRUE(log_capture::has("blpkt_recv:status=1:AT cmd AT+1 timed out"));
  // 0 does not wait: the queue has nothing, which is a failure of the queue.
  EXPECT_EQ(blpkt_atcmd_request_with_callback_timeout("AT+0", NO_RESULT, nullptr, nullptr, nullptr, 0, 0),
            2u);
  EXPECT_TRUE(log_capture::has("qget:status=3:q_get failed"));
  test_clock::fail_monotonic(true);
  EXPECT_EQ(blpkt_atcmd_request_with_callback("AT+C", NO_RESULT, nullptr, nullptr, nullptr, 0), 2u);
  EXPECT_TRUE(log_capture::has("qget:status=5:q_get failed"));
  test_clock::fail_monotonic(false);
  // The late answers find no command.
  write_all(modem_.query(), "\r\nOK\r\n");
  EXPECT_TRUE(log_capture::wait_for("NO_COMMAND:cleaning up!"));

  // Without limit, and the default of 20 seconds.
  modem_.script([](const std::string&) { return std::string("OK\r\n"); });
  EXPECT_EQ(blpkt_atcmd_request_with_callback_timeout("AT", NO_RESULT, nullptr, nullptr, nullptr, 0, -1), 0u);
  modem_.unplug();
  begin = Clock::now();
  blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(Blpkt, UnplugWhileARequestWaitsEndsInATimeOut) {
  start();
  test_clock::scale_waits(0.02);
  auto request = std::async(std::launch::async, [] {
    return blpkt_atcmd_request_with_callback("AT+COPS=?", MULTILINE, "+COPS", nullptr, nullptr, 0);
  });
  std::string got;
  ASSERT_TRUE(eventually([&] { return (got += modem_.received()) == "AT+COPS=?\r"; }));
  modem_.unplug();
  EXPECT_EQ(request.get(), static_cast<uint32_t>(BLPKT_STATUS_TIMEOUT));
  EXPECT_TRUE(log_capture::has("pausing read thread"));
  EXPECT_EQ(blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0), 2u);
  EXPECT_TRUE(log_capture::has("blpkt_send::can't send req packet"));
}

TEST_F(Blpkt, LostChannelEndsTheWaitingRequestAtOnce) {
  pktio_set_shutdown_callback([](void*) { blpkt_channel_lost(); }, nullptr);
  auto request = [] {
    return blpkt_atcmd_request_with_callback_timeout("AT+COPS=?", MULTILINE, "+COPS", nullptr, nullptr, 0,
                                                     300);
  };
  start();
  auto waiting = std::async(std::launch::async, request);
  std::string got;
  ASSERT_TRUE(eventually([&] { return (got += modem_.received()) == "AT+COPS=?\r"; }));
  auto begin = Clock::now();
  modem_.unplug();
  EXPECT_EQ(waiting.get(), static_cast<uint32_t>(BLPKT_STATUS_ERROR));
  EXPECT_EQ(request(), static_cast<uint32_t>(BLPKT_STATUS_ERROR));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  close();
  pktio_set_shutdown_callback(nullptr, nullptr);
}

TEST_F(Blpkt, AbortEndsTheWaitingRequestOrTheNextOne) {
  start();
  auto request = std::async(std::launch::async, [] {
    return blpkt_atcmd_request_with_callback_timeout("AT+COPS=?", MULTILINE, "+COPS", nullptr, nullptr, 0,
                                                     300);
  });
  std::string got;
  ASSERT_TRUE(eventually([&] { return (got += modem_.received()) == "AT+COPS=?\r"; }));
  EXPECT_EQ(blpkt_abort_manual_nw_scan(), 8u);
  EXPECT_EQ(request.get(), 8u);
  EXPECT_TRUE(log_capture::has("I blib:"));

  // Nothing waits: the status stays for the next request, a second one finds the slot taken.
  EXPECT_EQ(blpkt_abort_manual_nw_scan(), 8u);
  EXPECT_EQ(blpkt_abort_manual_nw_scan(), 2u);
  EXPECT_TRUE(log_capture::has("qresp:status=2:can't queue response"));
  EXPECT_EQ(blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0), 8u);
}

TEST_F(Blpkt, OutsideInitAndShutdownRequestsFail) {
  auto request = [] {
    return blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0);
  };
  EXPECT_EQ(request(), 2u);
  EXPECT_EQ(blpkt_abort_manual_nw_scan(), 2u);
  ASSERT_EQ(pktio_init(kQueryPort, blpkt_handle_packet, nullptr), 0u);
  EXPECT_EQ(request(), 2u);
  urc("+CREG: 1");
  EXPECT_TRUE(log_capture::wait_for("alloclog:payload_size:9:cant allocate log payload"));
  pktio_shutdown();
  start();
  close();
  close();
  EXPECT_EQ(request(), 2u);
}

TEST_F(Blpkt, HandlePacketRefusesWhatItDoesNotKnow) {
  ASSERT_EQ(blpkt_init(), 0u);
  blpkt_handle_packet(0, nullptr, nullptr);
  EXPECT_TRUE(log_capture::has("FATAL: resp is NULL"));
  blpkt_handle_packet(7, nullptr, nullptr);
  EXPECT_TRUE(log_capture::has("blpkt_handle_packet:callback type 7:callback type error"));
  log_capture::clear();
  blpkt_handle_packet(1, nullptr, nullptr);
  EXPECT_EQ(log_capture::lines().size(), 0u);
  // An answer whose text could not be kept, and one that nobody takes.
  ATResponse response = {1, nullptr, nullptr};
  blpkt_handle_packet(0, &response, nullptr);
  EXPECT_TRUE(log_capture::has("AT_err_string::"));
  blpkt_handle_packet(0, &response, nullptr);
  EXPECT_TRUE(log_capture::has("can't queue response"));
}

TEST_F(Blpkt, FailedInitTearsEverythingDown) {
  start();
  close();
  const size_t descriptors = open_descriptors();
  const size_t threads = thread_count();
  const struct {
    Call call;
    int skip;
    const char* line;
  } cases[] = {
      {Call::kCalloc, 0, "alloc2::can't allocate mempool"},
      {Call::kCalloc, 1, "alloc3::can't allocate event queue"},
      {Call::kCalloc, 2, "alloc4::can't allocate response queue"},
      {Call::kThread, 0, "createth:err=12:cant create thread"},
  };
  for (const auto& c : cases) {
    faults::fail(c.call, ENOMEM, c.skip);
    EXPECT_EQ(blpkt_init(), 2u) << c.line;
    EXPECT_TRUE(log_capture::has(c.line)) << c.line;
    EXPECT_EQ(blpkt_abort_manual_nw_scan(), 2u) << c.line;
    blpkt_shutdown();
  }
  faults::fail(Call::kThread, ENOMEM);
  EXPECT_EQ(brio_open(kQueryPort), BRIO_STATUS_FAILURE);
  EXPECT_TRUE(log_capture::has(":blpktinit:status=2:blpkt failed to initialize"));
  EXPECT_EQ(briolib_check_library_status(), BRIO_STATUS_NOT_OPEN);
  EXPECT_EQ(open_descriptors(), descriptors);
  ASSERT_TRUE(eventually([&] { return thread_count() <= threads; }));
  start();
  urc("+CREG: 1");
  EXPECT_TRUE(wait_urcs(1));
}

TEST_F(Blpkt, ReportsArriveWholeAndInOrder) {
  start();
  Lines sent;
  for (size_t length : {1, 63, 64, 127, 128, 1023, 1024, 1655, 1656, BRIO_LINE_DATA_MAX - 1}) {
    sent.push_back(std::string(length, static_cast<char>('a' + sent.size())));
    ASSERT_TRUE(write_all(modem_.urc(), sent.back() + "\r"));
    ASSERT_TRUE(wait_urcs(sent.size())) << length;
  }
  EXPECT_EQ(urcs(), sent);
}

TEST_F(Blpkt, StalledEventThreadDropsTheNewestReports) {
  start();
  stalled_ = true;
  urc("stall");
  ASSERT_TRUE(eventually([&] { return in_parser_.load(); }));
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_EVENT);
  Lines expected = {"stall"};
  // The event thread holds the first one; the queue takes 20 more.
  for (int i = 1; i <= 21; i++) {
    urc("+U: " + std::to_string(i));
    if (i <= 20) expected.push_back("+U: " + std::to_string(i));
    const char* outcome =
        i <= 20 ? "Added to s_blpkt_log_event_queue" : "qlog:status:2:cant add log to queue";
    ASSERT_TRUE(log_capture::wait_for(outcome, i <= 20 ? static_cast<size_t>(i) : 1)) << i;
  }
  stalled_ = false;
  ASSERT_TRUE(wait_urcs(21));
  EXPECT_EQ(urcs(), expected);

  // Blocks of one size run out before the queue does; the others still serve.
  stalled_ = true;
  for (int i = 0; i < 16; i++) urc(std::string(100, 'm'));
  ASSERT_TRUE(log_capture::wait_for("cant allocate log payload"));
  EXPECT_EQ(log_capture::count("alloclog:payload_size:101:"), 1u);
  urc("short");
  stalled_ = false;
  ASSERT_TRUE(wait_urcs(21 + 15 + 1));
  EXPECT_EQ(urcs().back(), "short");
}

TEST_F(Blpkt, ReportsNeedNoHeap) {
  start();
  urc("+CREG: 1");
  ASSERT_TRUE(wait_urcs(1));
  auto allocations = [] {
    return faults::calls(Call::kMalloc) + faults::calls(Call::kCalloc) + faults::calls(Call::kStrdup);
  };
  const long before = allocations();
  for (size_t i = 1; i <= 200; i++) {
    ASSERT_TRUE(write_all(modem_.urc(),
                          "\r\n+CREG: 1\r\n\r\n+GTBARS: 3\r\n\r\n+CGREG: 5,\"1A2B\",\"01C2D3E4\",7\r\n"));
    ASSERT_TRUE(wait_urcs(1 + 3 * i));
  }
  EXPECT_EQ(allocations(), before);
}

TEST_F(Blpkt, RequestsOfManyThreadsGetTheirOwnAnswers) {
  modem_.script([](const std::string& command) { return "\r\n+N: " + command.substr(5) + "\r\n\r\nOK\r\n"; });
  start();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([t] {
      for (int i = 0; i < 250; i++) {
        std::string id = std::to_string(t) + "-" + std::to_string(i);
        std::string line;
        ASSERT_EQ(blpkt_atcmd_request_with_callback(("AT+N=" + id).c_str(), SINGLELINE, "+N", copy_first_line,
                                                    &line, 0),
                  0u);
        ASSERT_EQ(line, "+N: " + id);
      }
    });
  }
  for (int i = 0; i < 100; i++) urc("+CREG: 1");
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(log_capture::has("cleaning up"));
}

TEST_F(Blpkt, CallersMayBracketRequestsWithTheSendMutex) {
  modem_.script([](const std::string&) { return std::string("OK\r\n"); });
  start();
  ASSERT_EQ(blpkt_acquire_send_mutex(), 0u);
  auto request = std::async(std::launch::async, [] {
    return blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0);
  });
  EXPECT_EQ(request.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  EXPECT_EQ(blpkt_release_send_mutex(), 0u);
  EXPECT_EQ(request.get(), 0u);
}

TEST_F(Blpkt, CloseDoesNotWaitForARequestOfTheEventThread) {
  std::atomic<uint32_t> status{99};
  faults::on_urc([&](char*) {
    status = blpkt_atcmd_request_with_callback("AT+CRSM=176", SINGLELINE, "+CRSM", nullptr, nullptr, 0);
  });
  start();
  urc("+STKPCI: 2");
  std::string got;
  ASSERT_TRUE(eventually([&] { return (got += modem_.received()) == "AT+CRSM=176\r"; }));
  auto begin = Clock::now();
  close();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(status, static_cast<uint32_t>(BLPKT_STATUS_ERROR));
}

TEST_F(Blpkt, CloseMeetsRequestsAbortsAndALostPort) {
  start();
  close();
  const size_t descriptors = open_descriptors();
  for (int i = 0; i < 60; i++) {
    start();
    std::atomic<bool> done{false};
    std::vector<std::thread> callers;
    for (int t = 0; t < 3; t++) {
      callers.emplace_back([&] {
        do {
          uint32_t status = blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0);
          ASSERT_TRUE(status == BLPKT_STATUS_ERROR || status == BLPKT_STATUS_SCAN_ABORTED) << status;
        } while (!done);
      });
    }
    std::thread aborter([&] {
      while (!done) {
        blpkt_abort_manual_nw_scan();
        std::this_thread::yield();
      }
    });
    urc("+CREG: 1");
    auto begin = Clock::now();
    if (i % 3 == 0) faults::fail(Call::kSelect, EBADF);  // the read thread ends by itself meanwhile
    std::thread second_closer(close);
    close();
    second_closer.join();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    done = true;
    for (auto& caller : callers) caller.join();
    aborter.join();
    faults::fail(Call::kSelect, 0, 0, 0);
    ASSERT_EQ(open_descriptors(), descriptors);
  }
}

// The read thread has the final line in its hands when the time-out strikes: the callback of the request that
// has returned does not run any more, and the status waits for the next request.
TEST_F(Blpkt, AnswerOfARequestThatHasReturnedReachesNoCallback) {
  static std::atomic<bool> s_final_taken, s_returned;
  s_final_taken = s_returned = false;
  modem_.script([](const std::string&) { return std::string("+X: 1\r\nOK\r\n"); });
  ASSERT_EQ(blpkt_init(), 0u);
  pktio_packet_cb late = [](uint32_t kind, void* data, void* context) {
    s_final_taken = true;
    while (!s_returned) std::this_thread::yield();
    blpkt_handle_packet(kind, data, context);
  };
  ASSERT_EQ(pktio_init(kQueryPort, late, nullptr), 0u);
  test_clock::scale_waits(0.2);
  std::string line = "untouched";
  EXPECT_EQ(
      blpkt_atcmd_request_with_callback_timeout("AT+X?", SINGLELINE, "+X", copy_first_line, &line, 5, 1), 1u);
  EXPECT_TRUE(s_final_taken);
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_REQUEST);
  s_returned = true;
  ASSERT_TRUE(log_capture::wait_for("prv_convert_and_queue_resp_packet 0"));
  EXPECT_EQ(line, "untouched");
  EXPECT_EQ(blpkt_atcmd_request_with_callback("AT+Y?", SINGLELINE, "+X", nullptr, nullptr, 0), 0u);
}

// The callback already runs when the time-out strikes: the request does not return under its hands.
TEST_F(Blpkt, RequestWaitsForItsRunningCallback) {
  struct Reply {
    std::atomic<bool> started{false};
    bool finished = false;
  } reply;
  modem_.script([](const std::string&) { return std::string("OK\r\n"); });
  start();
  test_clock::scale_waits(0.05);
  recv_func slow = [](const ATResponse*, void* user_data, uint16_t) -> uint32_t {
    static_cast<Reply*>(user_data)->started = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    static_cast<Reply*>(user_data)->finished = true;
    return 6;
  };
  EXPECT_EQ(blpkt_atcmd_request_with_callback_timeout("AT", NO_RESULT, nullptr, slow, &reply, 0, 1), 1u);
  EXPECT_TRUE(reply.started);
  EXPECT_TRUE(reply.finished);
  // Nothing is flushed: the next request gets what the first one no longer took.
  EXPECT_EQ(blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0), 6u);
}

// The request's time-out and the answer meet a thousand times. Once a request has returned, its reply record
// is the caller's again: whoever writes into it then is caught by the check below and by the sanitizers.
TEST_F(Blpkt, LateAnswersNeverTouchTheCallersMemory) {
  struct Reply {
    unsigned char bytes[64];
  };
  std::atomic<long> delay_us{2000};
  modem_.script([&](const std::string& command) -> std::string {
    if (command == "AT+LAST") return "\r\n+LAST: 1\r\n\r\nOK\r\n";
    std::this_thread::sleep_for(std::chrono::microseconds(delay_us));
    return "\r\n+R: 1\r\n\r\nOK\r\n";
  });
  start();
  test_clock::scale_waits(0.002);
  int answered = 0;
  int timed_out = 0;
  for (int i = 0; i < 1000; i++) {
    auto reply = std::make_unique<Reply>();
    memset(reply->bytes, 0x11, sizeof(reply->bytes));
    recv_func fill = [](const ATResponse*, void* user_data, uint16_t) -> uint32_t {
      for (unsigned char& byte : static_cast<Reply*>(user_data)->bytes) byte = 0x22;
      return 0;
    };
    uint32_t status =
        blpkt_atcmd_request_with_callback_timeout("AT+R?", SINGLELINE, "+R", fill, reply.get(), 0, 1);
    memset(reply->bytes, 0x33, sizeof(reply->bytes));
    ASSERT_TRUE(status == BLPKT_STATUS_SUCCESS || status == BLPKT_STATUS_TIMEOUT) << status;
    // Steers the answer towards the deadline, from both sides.
    if (status == BLPKT_STATUS_SUCCESS) {
      answered++;
      delay_us += 40;
    } else {
      timed_out++;
      delay_us = delay_us > 40 ? delay_us - 40 : 0;
    }
    std::this_thread::yield();
    for (unsigned char byte : reply->bytes) ASSERT_EQ(byte, 0x33);
  }
  EXPECT_GT(answered, 100);
  EXPECT_GT(timed_out, 100);
  RecordProperty("answered", answered);
  RecordProperty("timed_out", timed_out);

  // The channel still works: once what is left over of the race has passed, a request gets its own answer.
  test_clock::scale_waits(0.01);
  std::string line;
  for (int i = 0; i < 20 && line != "+LAST: 1"; i++) {
    line.clear();
    blpkt_atcmd_request_with_callback("AT+LAST", SINGLELINE, "+LAST", copy_first_line, &line, 0);
  }
  EXPECT_EQ(line, "+LAST: 1");
}

TEST_F(Blpkt, DebugLinesFollowTheirBits) {
  modem_.script([](const std::string&) { return std::string("OK\r\n"); });
  const struct {
    uint32_t bit;
    std::vector<const char*> lines;
  } cases[] = {
      {BRIO_LOG_DEBUG, {":>>>>>Start sending [AT]<<<<<"}},
      {BRIO_LOG_REQUEST, {":<<<<<Exit sending [AT] ret[0]>>>>>", "prv_convert_and_queue_resp_packet 0"}},
      {BRIO_LOG_EVENT,
       {"pthread create: s_blpkt_event_thread status:0", "Added to s_blpkt_log_event_queue",
        "prv_event_thread payload size =  9", "payload pointer to be freed["}},
  };
  size_t reports = 0;
  for (const auto& c : cases) {
    brio::relaxed_store(g_brio_lib_log_mask, c.bit);
    start();
    EXPECT_EQ(blpkt_atcmd_request_with_callback("AT", NO_RESULT, nullptr, nullptr, nullptr, 0), 0u);
    urc("+CREG: 1");
    EXPECT_TRUE(wait_urcs(++reports));
    close();
    for (const auto& other : cases) {
      for (const char* line : other.lines) {
        EXPECT_EQ(log_capture::has(line), other.bit == c.bit) << line << " with bit " << c.bit;
      }
    }
    log_capture::clear();
  }
}
