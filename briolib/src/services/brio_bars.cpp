// Signal bars. The modem computes them: they are polled at most once in 91 s, and while they are low the
// modem reports each change by itself.
#include <pthread.h>
#include <string.h>

#include "base/clock.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "channel/request.h"
#include "parse/signal.h"
#include "reports/report_table.h"

constexpr char kLogTag[] = "briolib/src/brio_bars";

using namespace brio;

namespace {

constexpr int64_t kPollPeriodSeconds = 91;
constexpr size_t kShortestLine = 8;

enum ReadingMode : int32_t { kReadingApplication = 1, kPlainRead = 2 };

// Last answer to a poll. Every value is cut to 8 bits, also a negative one: this is meant, unlike in an
// unsolicited report.
struct BarsReply {
  uint8_t rat;
  uint8_t rssi;
  uint8_t ecno;
  uint8_t bars;
};

// State of the one host thread that asks for bars. The read thread fills the reply while that thread waits.
BarsReply s_reply;
timespec s_last_poll;
bool s_low_signal_reports;

// Guards the count of short messages that need clearing.
pthread_mutex_t s_bars_mutex = PTHREAD_MUTEX_INITIALIZER;
uint32_t s_need_clear_sms = 255;

uint32_t recv_func_at_req_get_bars(const ATResponse* response, void* data, uint16_t /*user_value*/) {
  char* line = answer_line(response);
  if (line == nullptr) {
    BLIB_E("recv_func_at_req_get_bars:at_resp is invalid:\n");
    return BRIO_STATUS_INVALID;
  }
  if (strlen(line) < kShortestLine) {
    BLIB_E("recv_func_at_req_get_bars:resp is invalid:\n");
    return BRIO_STATUS_INVALID;
  }
  BLIB_D(BRIO_LOG_DEBUG, "recv_func_at_req_get_bars callback called %s\n", line);
  auto* reply = static_cast<BarsReply*>(data);
  if (reply == nullptr) {
    BLIB_E("recv_func_at_req_get_bars:data is invalid:\n");
    return BRIO_STATUS_INVALID;
  }
  const parse::BarsReport report = parse::parse_bars(line, true);
  if (report.rat) reply->rat = static_cast<uint8_t>(*report.rat);
  if (report.bars) reply->bars = static_cast<uint8_t>(*report.bars);
  if (report.rssi) reply->rssi = static_cast<uint8_t>(*report.rssi);
  if (report.ecno) reply->ecno = static_cast<uint8_t>(*report.ecno);
  return BRIO_STATUS_OK;
}

// Polls the modem and stores what is valid. 0, or 7 with the shared record unchanged. The period until the
// next poll begins with the answer.
uint32_t prv_poll() {
  uint32_t status = query("AT+GTBARS?", SINGLELINE, "+GTBARS", recv_func_at_req_get_bars, &s_reply);
  if (status != BLPKT_STATUS_SUCCESS) return BRIO_STATUS_UNAVAILABLE;
  timespec now;
  if (clock_monotonic(&now)) s_last_poll = now;
  if (s_reply.bars == kBarsUnknown) return BRIO_STATUS_OK;
  UrcDataLock lock;
  g_brio_lib_atcmd_data.signal_b = s_reply.ecno;
  g_brio_lib_atcmd_data.signal_a = s_reply.rssi;
  g_brio_lib_atcmd_data.bars = s_reply.bars;
  relaxed_store<uint8_t>(g_cached_bars_valid, 1);
  return BRIO_STATUS_OK;
}

// Whether the last poll is at least 91 s away, in either direction. False when the clock cannot be read.
bool prv_poll_due() {
  timespec now;
  if (!clock_monotonic(&now)) return false;
  int64_t seconds = static_cast<int64_t>(now.tv_sec) - static_cast<int64_t>(s_last_poll.tv_sec);
  return seconds >= kPollPeriodSeconds || seconds <= -kPollPeriodSeconds;
}

void prv_report_low_signal(bool on) {
  if (s_low_signal_reports == on) return;
  const uint32_t status = briolib_atcmd_enable_urc(on ? kBarsReportsOn : kBarsReportsOff);
  if (status == BRIO_STATUS_OK) s_low_signal_reports = on;
}

// Both under the lock: a report of a modem that is registered nowhere clears both.
bool prv_take_cached_bars() {
  UrcDataLock lock;
  if (relaxed_load(g_cached_bars_valid) == 0) return false;
  s_reply.bars = g_brio_lib_atcmd_data.bars;
  return true;
}

uint32_t prv_get_bars(uint32_t* out, int32_t mode) {
  if (out == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;

  if (!prv_take_cached_bars()) {
    status = prv_poll();
    if (status != BRIO_STATUS_OK) return status;
  } else {
    if (mode == kReadingApplication || mode == kPlainRead) {
      *out = s_reply.bars;
      if (mode == kReadingApplication) {
        BLIB_D(BRIO_LOG_DEBUG, "Reading mode,reporting: bars[%d]\n", s_reply.bars);
        prv_report_low_signal(false);
      }
      return BRIO_STATUS_OK;
    }
    // While the modem reports by itself, its reports keep the record current.
    if (!s_low_signal_reports && prv_poll_due()) {
      status = prv_poll();
      if (status != BRIO_STATUS_OK) return status;
    }
  }

  prv_report_low_signal(s_reply.bars <= 1);
  BLIB_D(BRIO_LOG_DEBUG, "bars[%d]rssi[%d]ecno[%d]rat[%d]\n", s_reply.bars, s_reply.rssi, s_reply.ecno,
         s_reply.rat);
  *out = s_reply.bars == kBarsUnknown ? 0u : s_reply.bars;
  return BRIO_STATUS_OK;
}

}  // namespace

uint32_t brio_get_bars(uint32_t* out, int32_t mode) {
  uint32_t status = prv_get_bars(out, mode);
  if (status != BRIO_STATUS_OK) BLIB_E("brio_get_bars:failed to get signal bars ret %d:\n", status);
  return status;
}

uint32_t brio_set_bars_table(const void* /*table*/) {
  return BRIO_STATUS_OK;
}

uint32_t brio_set_bars_update_period(uint32_t period) {
  if (period == 1 || period == 2 || period > 255) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  BLIB_E("brio_set_bars_update_period:ERR: NOT SUPPORTED IN BRIOLIB:\n");
  return BRIO_STATUS_OK;
}

void briolib_parse_gtbars(char* payload) {
  if (payload == nullptr || strlen(payload) < kShortestLine) {
    BLIB_E("briolib_parse_gtbars:URC payload is invalid:\n");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "gtbars: %s\n", payload);
  const parse::BarsReport report = parse::parse_bars(payload, false);
  if (report.rat) BLIB_D(BRIO_LOG_PARSE, "gtbars urc rat[%d]\n", *report.rat);
  UrcDataLock lock;
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  const uint8_t previous = data.bars;
  if (report.bars) data.bars = static_cast<uint8_t>(*report.bars);
  if (report.rssi) data.signal_a = static_cast<uint32_t>(*report.rssi);
  if (report.ecno) data.signal_b = static_cast<uint32_t>(*report.ecno);
  if (data.bars != previous) {
    int32_t bars = data.bars;
    briolib_exec_event_callback(BRIO_EVENT_BARS_CHANGED, sizeof(bars), &bars);
  }
}

namespace brio {

void briolib_need_clear_sms() {
  MutexGuard guard(s_bars_mutex);
  s_need_clear_sms++;
}

uint32_t briolib_sms_to_clear() {
  MutexGuard guard(s_bars_mutex);
  return s_need_clear_sms;
}

}  // namespace brio
