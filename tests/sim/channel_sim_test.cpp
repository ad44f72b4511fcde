// The AT channel on a simulated modem: joined and split writes, long runs of requests and reports, storms.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_log_bits.h"
#include "brio/briolib.h"
#include "support/sim_fixture.h"

namespace {

constexpr int kFiles = 64;
constexpr int kFirstFile = 28416;

// Contents of a file on the card: its number, as often as it is long.
std::string file_contents(int number) {
  char digits[8];
  snprintf(digits, sizeof(digits), "%02X", number);
  std::string contents;
  for (int i = 0; i <= number; i++) contents += digits;
  return contents;
}

uint32_t copy_line(const ATResponse* response, void* user_data, uint16_t) {
  const ATLine* line = response->intermediates;
  *static_cast<std::string*>(user_data) =
      line != nullptr && line->next == nullptr ? line->line : "(not one line)";
  return 0;
}

// Reports carry a running number as their time of day; the event thread checks the order.
std::atomic<int> s_reports_seen{0};
std::atomic<int> s_last_report{-1};
std::atomic<int> s_out_of_order{0};

uint32_t take_time(uint32_t, uint32_t, const void* data) {
  const network_time* time = static_cast<const network_time*>(data);
  int number = (time->hour * 60 + time->minute) * 60 + time->second;
  if (number <= s_last_report) s_out_of_order++;
  s_last_report = number;
  s_reports_seen++;
  return 0;
}

std::string time_report(int number) {
  char text[64];
  snprintf(text, sizeof(text), "+CTZV: -28,\"26/03/07,%02d:%02d:%02d\"", number / 3600, number / 60 % 60,
           number % 60);
  return text;
}

class ChannelSim : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    s_reports_seen = 0;
    s_last_report = -1;
    s_out_of_order = 0;
    brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, take_time);
  }
  void TearDown() override {
    close_library();
    brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, nullptr);
    SimFixture::TearDown();
  }
  modemsim::State initial_state() override {
    modemsim::State state;
    for (int i = 0; i < kFiles; i++) state.files[kFirstFile + i] = file_contents(i);
    return state;
  }

  // Reads one file of the card; whether the answer is this file's.
  static bool read_file(int number) {
    char command[32];
    snprintf(command, sizeof(command), "AT+CRSM=176,%d,0,0,0", kFirstFile + number);
    std::string line;
    uint32_t status = blpkt_atcmd_request_with_callback(command, SINGLELINE, "+CRSM", copy_line, &line, 0);
    bool good = status == 0 && line == "+CRSM: 144,0,\"" + file_contents(number) + "\"";
    if (!good) ADD_FAILURE() << command << ": " << status << " " << line;
    return good;
  }
};

}  // namespace

TEST_F(ChannelSim, OpensAndReadsAtEveryChunkSize) {
  int reports = 0;
  for (size_t chunk = 1; chunk <= 40; chunk++) {
    SCOPED_TRACE("pieces of " + std::to_string(chunk));
    modem().chunk(chunk);
    ASSERT_EQ(open(), 0u);
    uint32_t bars = 99;
    EXPECT_EQ(brio_get_bars(&bars, 0), 0u);
    EXPECT_EQ(bars, 4u);
    EXPECT_TRUE(read_file(static_cast<int>(chunk)));
    modem().urc(time_report(reports++));
    modem().urc(time_report(reports++));
    EXPECT_TRUE(eventually([&] { return s_reports_seen == reports; }));
    EXPECT_EQ(brio_close(), 0u);
  }
  EXPECT_EQ(s_out_of_order, 0);
  EXPECT_FALSE(log_capture::has("cleaning up"));
  EXPECT_FALSE(log_capture::has("timed out"));
}

// No answer lost, mixed or late, memory flat, no descriptor leaked.
TEST_F(ChannelSim, TenThousandReportsAndTenThousandRequests) {
  constexpr int kEach = 10000;
  constexpr int kOutstanding = 5;  // with another report beside each the event queue is never full
  open_ready();
  std::atomic<bool> failed{false};
  std::atomic<int> sent{0};

  auto run = [&](unsigned seed) {
    std::thread reporter([&, seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < kEach && !failed; i++) {
        // Other reports in between, of all lengths that the pool serves with more than two blocks.
        if (random() % 4 == 0) modem().urc("+NOISE: " + std::string(random() % 1500, 'n'));
        modem().urc(time_report(sent++));
        if (!eventually([&] { return sent - s_reports_seen <= kOutstanding; })) failed = true;
      }
    });
    std::thread second([&, seed] {
      std::mt19937 random(seed + 1);
      for (int i = 0; i < kEach / 2 && !failed; i++)
        failed = failed || !read_file(static_cast<int>(random() % kFiles));
    });
    std::mt19937 random(seed + 2);
    for (int i = 0; i < kEach / 2 && !failed; i++)
      failed = failed || !read_file(static_cast<int>(random() % kFiles));
    second.join();
    reporter.join();
    if (!eventually([&] { return s_reports_seen == sent; })) failed = true;
    modem().clear_commands();
    log_capture::clear();
  };

  auto heap = [] {
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  // The first run also brings what the test itself keeps, such as the list of commands, to its size.
  run(1);
  ASSERT_FALSE(failed);
  const size_t descriptors = open_descriptors();
  const size_t heap_before = heap();
  run(2);
  ASSERT_FALSE(failed);
  EXPECT_EQ(s_reports_seen, 2 * kEach);
  EXPECT_EQ(s_out_of_order, 0);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_LT(heap(), heap_before + 64 * 1024);
}

TEST_F(ChannelSim, ReportStormDropsReportsButNoAnswers) {
  constexpr int kStorm = 5000;
  open_ready();
  std::thread storm([&] {
    for (int i = 0; i < kStorm; i++) modem().urc(time_report(i));
  });
  for (int i = 0; i < 500; i++) ASSERT_TRUE(read_file(i % kFiles));
  storm.join();
  ASSERT_TRUE(modem().wait_written());
  // Every report was either parsed or dropped with a line in the log.
  EXPECT_TRUE(eventually([&] {
    size_t dropped =
        log_capture::count("cant add log to queue") + log_capture::count("cant allocate log payload");
    return static_cast<size_t>(s_reports_seen) + dropped == static_cast<size_t>(kStorm);
  })) << s_reports_seen;
  EXPECT_EQ(s_out_of_order, 0);
}

TEST_F(ChannelSim, JunkOversizedLinesAndStrayAnswersPassWithoutHarm) {
  open_ready();
  const std::string long_junk(3000, 'j');
  const std::string junk[] = {std::string("\0\0\r\n\0", 5), "OK\r\nERROR\r\n", long_junk + "\r\n",
                              "+CRSM: 144,0,\"DEAD\"\r\n\r\nOK\r\n", "\r\r\n\n> "};
  for (const auto& bytes : junk) {
    modem().raw(modemsim::Port::kQuery, bytes);
    modem().raw(modemsim::Port::kUrc, bytes + "\r\n");
    ASSERT_TRUE(modem().wait_written());
    const int expected = s_last_report + 1;
    modem().urc(time_report(expected));
    ASSERT_TRUE(eventually([&] { return s_last_report == expected; }));
  }
  set_log_mask(BRIO_LOG_AT_DETAIL);
  modem().raw(modemsim::Port::kQuery, "\r\nlast of it\r\n");
  ASSERT_TRUE(log_capture::wait_for("AT resp[last of it"));
  set_log_mask(0);
  for (int i = 0; i < 20; i++) ASSERT_TRUE(read_file(i));
}
