#include "soak_device.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "kit/clock.h"
#include "log_lines.h"

namespace {

constexpr char kNoise[] = "NOISE~";

std::atomic<long> s_handled{0};  // reports whose parser has returned
// Of the noise on the query port: the read thread has it, and has thrown it away.
std::atomic<bool> s_noise_read{false};
std::atomic<long> s_noise_dropped{0};

bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace

// The event thread passes two nulls; a response callback never does.
extern "C" uint32_t __real_at_parse(char* line, void* argument_a, void* argument_b);
extern "C" uint32_t __wrap_at_parse(char* line, void* argument_a, void* argument_b) {
  const uint32_t status = __real_at_parse(line, argument_a, argument_b);
  if (argument_a == nullptr && argument_b == nullptr) s_handled++;
  return status;
}

void bench::log_line(const char* line) {
  if (strstr(line, ":AT resp[") != nullptr && strstr(line, kNoise) != nullptr) s_noise_read = true;
  if (strstr(line, "NO_COMMAND:cleaning up!") != nullptr && s_noise_read.exchange(false)) s_noise_dropped++;
  // What is left of an answer behind rubbish never completes: the request need not wait for that.
  if (strstr(line, "process_line:ERROR:cleaning up!") != nullptr) test_clock::expire_wait();
}

namespace soak {

Tally g_tally;

void complain(long& count, const std::string& what) {
  constexpr int kPrinted = 30;
  constexpr int kHopeless = 200;
  static int s_complaints;
  count++;
  if (++s_complaints <= kPrinted) fprintf(stderr, "soak: %s\n", what.c_str());
  if (s_complaints == kHopeless) {
    fprintf(stderr, "soak: gives up: %ld wrong, %ld answers and %ld reports lost\n", g_tally.wrong,
            g_tally.lost_answers, g_tally.lost_reports);
    throw GaveUp();
  }
}

Device::Device() {
  State state;
  state.imsi = "234151234567890";
  state.iccid = "89441000301234567890";
  state.carrier_id = 202;  // with a proximity monitor
  state.apn = "internet";
  state.operator_numeric = state.plmn_text = "23415";
  const struct {
    const char* name;
    const char* numeric;
    int stat, rat;
  } operators[] = {{"Home", "23415", 1, 7},       {"Away, Inc.", "26201", 1, 2}, {"Old (2G)", "20404", 1, 0},
                   {"Not for us", "23410", 3, 7}, {"Edge", "310410", 1, 3},      {"Fast", "44010", 0, 7}};
  for (const auto& row : operators) {
    modemsim::Operator entry;
    entry.stat = row.stat;
    entry.long_name = row.name;
    entry.numeric = row.numeric;
    entry.rat = row.rat;
    state.operators.push_back(entry);
  }
  root_.rest_sensor();
  brio_set_root_dir(root_.dir().c_str());
  test_clock::stop();
  test_clock::manual_select(true);
  advance(1000);
  start_modem(state);
}

Device::~Device() = default;

void Device::start_modem(const State& state) {
  modem_ = std::make_unique<modemsim::Modem>(state);
  modem_->observe([this](const modemsim::Traffic& traffic) { observe(traffic); });
  if (!modem_->start(root_.dir())) {
    fprintf(stderr, "soak: the modem does not start: %s\n", modem_->error().c_str());
    abort();
  }
}

void Device::power_cycle() {
  State state = truth();
  state.echo = true;
  state.creg_mode = state.cgreg_mode = state.cops_format = 0;
  state.time_reports = state.reject_reports = state.bars_reports = state.bas_reports = state.trace_on = false;
  modem_.reset();
  start_modem(state);
}

void Device::advance(double seconds) {
  now_ += seconds;
  test_clock::advance(seconds);
  test_clock::set_wall(static_cast<std::time_t>(1800000000 + now_));
}

// Modem's thread.
void Device::observe(const modemsim::Traffic& traffic) {
  if (traffic.to_modem) {
    g_tally.commands++;
    if (traffic.bytes == "AT+GTBARS?") polls_++;
    if (traffic.bytes == "AT+GTBARS=1") reports_asked_ = true;
    if (traffic.bytes == "AT+GTBARS=0" && !opening_) reports_asked_ = false;
    if (expiring_ && traffic.bytes.compare(0, expiring_command_.size(), expiring_command_) == 0) {
      expiring_ = false;
      test_clock::expire_wait();
    }
    return;
  }
  // Nobody waits for what never comes.
  if (traffic.port == modemsim::Port::kQuery && traffic.bytes.empty()) test_clock::expire_wait();
  if (traffic.port != modemsim::Port::kUrc) return;
  for (const char c : traffic.bytes) {
    if (c != '\r' && c != '\n') {
      line_ += c;
    } else if (!line_.empty()) {
      line_.clear();
      if (listening_) {
        said_++;
        g_tally.reports++;
      }
    }
  }
}

void Device::expire(const std::string& command) {
  expiring_command_ = command;
  expiring_ = true;
}

void Device::listen(bool on) {
  listening_ = on;
  said_ = s_handled.load();
}

void Device::change(const std::function<void(State&)>& change) {
  modem_->update(change);
  settle();
}

void Device::report(const std::string& line) {
  modem_->urc(line);
  settle();
}

void Device::raw_report(const std::string& bytes) {
  modem_->raw(modemsim::Port::kUrc, bytes);
}

void Device::settle() {
  if (!listening_) return;
  modem_->wait_written();
  if (eventually([this] { return s_handled == said_; })) return;
  complain(g_tally.lost_reports, std::to_string(said_ - s_handled) + " reports were not handled");
  said_ = s_handled.load();
}

void Device::clear_query_port() {
  const uint32_t mask = g_brio_lib_log_mask;
  briolib_log_set_log_mask(mask | BRIO_LOG_AT_DETAIL);
  const long dropped = s_noise_dropped;
  modem_->wait_written();
  modem_->raw(modemsim::Port::kQuery, std::string("\r\n") + kNoise + "\r\n");
  if (!eventually([&] { return s_noise_dropped > dropped; })) {
    complain(g_tally.wrong, "noise on the query port was not thrown away");
  }
  briolib_log_set_log_mask(mask);
  test_clock::keep_wait();
}

}  // namespace soak
