// The host module above operations that answer as told, for what no modem brings about: the order of the
// calls, statuses that no operation gives today, dates that the network's time does not hold. This program is
// linked with --wrap for each operation below.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/wabs.h"
#include "nipc/nipc_standin.h"
#include "support/log_capture.h"
#include "support/test_clock.h"

namespace {

using Calls = std::vector<std::string>;
using Answers = std::map<std::string, std::deque<uint32_t>>;

Calls s_calls;      // "+" in front: the module counted as open then
Answers s_answers;  // next statuses of a call, the last one stays; none: 0
std::deque<uint32_t> s_sim = {SIM_STATUS_OK};
network_time s_time;
std::deque<const char*> s_plmn = {
    "310\0"
    "410",
    "262\0"
    "01\0"};
std::map<uint32_t, brio_event_callback> s_callbacks;

uint32_t next(std::deque<uint32_t>& all) {
  const uint32_t first = all.empty() ? 0 : all.front();
  if (all.size() > 1) all.pop_front();
  return first;
}

uint32_t called(const std::string& name, const std::string& argument = "") {
  s_calls.push_back((wabs_is_blib_open() != 0 ? "+" : "-") + name + (argument.empty() ? "" : " ") + argument);
  return next(s_answers[name]);
}

}  // namespace

#define PLAIN(name)          \
  uint32_t __wrap_##name() { \
    return called(#name);    \
  }
extern "C" {
PLAIN(brio_close)
PLAIN(prox_open)
PLAIN(brio_trace_tst_stop)
PLAIN(prox_close)
PLAIN(brio_check_for_fatal_failure)
PLAIN(brio_atcmd_scan_network)
PLAIN(brio_abort_manual_nw_scan)
PLAIN(brio_atcmd_set_auto_mode)
PLAIN(brio_atcmd_scan_abort)
PLAIN(brio_get_current_network)
PLAIN(brio_get_bars)
PLAIN(brio_get_modem_info)
PLAIN(brio_get_sim_info)
uint32_t __wrap_brio_open(const char* port) {
  return called("brio_open", port);
}
uint32_t __wrap_brio_trace_tst_log(const char* filter, const char* prefix) {
  return called("brio_trace_tst_log", std::string(filter) + " " + prefix);
}
uint32_t __wrap_brio_get_carrier_id(uint16_t*) {
  return called("brio_get_carrier_id");
}
uint32_t __wrap_brio_get_wn3_sim_status(uint32_t* status) {
  *status = next(s_sim);
  return called("brio_get_wn3_sim_status");
}
uint32_t __wrap_brio_set_callback_for_event_id(uint32_t id, brio_event_callback callback) {
  s_callbacks[id] = callback;
  return called("callback", std::to_string(id));
}
uint32_t __wrap_brio_get_mcc_mnc(char* out) {
  memcpy(out, s_plmn.front(), 8);
  s_plmn.pop_front();  // the network changes while it is asked for
  return s_callbacks[BRIO_EVENT_SERVING_PLMN_CHANGED](BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
}
uint32_t __wrap_brio_get_sim_static_info(int32_t force) {
  return called("brio_get_sim_static_info", std::to_string(force));
}
uint32_t __wrap_brio_get_pdp_context_activation_allowed(uint32_t* attached, uint32_t*) {
  *attached = 1;
  return 0;
}
uint32_t __wrap_brio_get_network_time(network_time* record) {
  *record = s_time;
  return called("brio_get_network_time");
}
void* __real_NipcOpen(const char* service);
void* __wrap_NipcOpen(const char* service) {
  called("NipcOpen", service);
  return __real_NipcOpen(service);
}
uint32_t __real_NipcClose(void* handle);
uint32_t __wrap_NipcClose(void* handle) {
  called("NipcClose");
  return __real_NipcClose(handle);
}
}

namespace {

// clang-format off
const Calls kOpen = {
    "-brio_open /dev/ttyACM2", "-brio_trace_tst_log /var/local/wan/debug/trace_filter.cfg /mnt/us/trace_log",
    "+brio_get_carrier_id", "+prox_open", "+brio_get_wn3_sim_status", "+brio_get_modem_info",
    "+callback 0", "+callback 1", "+callback 2", "+callback 3", "+callback 6", "+callback 5", "+callback 9",
    "+callback 7", "+brio_get_sim_info", "+brio_get_sim_static_info 0", "+NipcOpen com.quarto.brio_module"};
// clang-format on
const Calls kClose = {"+prox_close", "+brio_close", "+brio_trace_tst_stop", "-NipcClose"};
const Calls kUndo = {"+brio_close", "+brio_trace_tst_stop", "-prox_close", "-NipcClose"};

TEST(HostCalls, OpenAndCloseInOrder) {
  g_611_urc_on = 1;
  EXPECT_EQ(wabs_open(), 0u);
  EXPECT_EQ(s_calls, kOpen);
  EXPECT_EQ(g_611_urc_on, 0u);
  s_calls.clear();
  NipcStandinSetCloseStatus(9);
  EXPECT_EQ(wabs_close(), 9u);  // what the IPC service answered
  EXPECT_EQ(s_calls, kClose);
  EXPECT_EQ(wabs_close(), 0u);
  EXPECT_EQ(s_calls, kClose);
  EXPECT_EQ(wabs_open(), 0u);
  s_calls.clear();
  EXPECT_EQ(wabs_open(), WABS_STATUS_ALREADY_OPEN);
  EXPECT_EQ(s_calls, kUndo);
  EXPECT_EQ(NipcStandinOpenHandles(), 0u);
}

// An open that fails ends with its call number `steps` (0: the whole open) and undoes what was done.
TEST(HostCalls, StatusesOfAnOpen) {
  struct Case {
    std::deque<uint32_t> sim;
    std::string call;
    std::deque<uint32_t> answers;
    size_t steps, reads;  // reads of SIM status and SIM information together
    std::vector<unsigned> sleeps;
    std::string line;
  };
  const std::string kInfo = "brio_get_sim_info",
                    kNotReady = "param=sim_plmn_info,error=7:can't get parameter";
  std::vector<Case> cases = {
      {{11}, "brio_open", {4}, 1, 0, {}, "E brio:openlib:status=4:can't open brio library"},
      {{11}, "prox_open", {5}, 0, 2, {}, "E brio:openlib:status=1:can't open prox library"},
      // Both waits share four rounds.
      {{0, 1, 11}, kInfo, {0}, 0, 4, {5000, 5000}, "D brio:getting SIM status, retry = 2 ("},
      {{0, 6, 11}, kInfo, {7, 0}, 0, 5, {5000, 5000, 1000}, ""},
      {{0, 0, 11}, kInfo, {7}, 15, 5, {5000, 5000, 1000, 1000}, kNotReady},
      {{0, 0, 0, 11}, kInfo, {7}, 15, 5, {5000, 5000, 5000, 1000}, kNotReady},
      {{11}, kInfo, {7, 7, 7, 0}, 0, 5, {1000, 1000, 1000}, ""},
      {{11}, kInfo, {7}, 15, 5, {1000, 1000, 1000, 1000}, kNotReady},
      {{11}, kInfo, {7, 4}, 15, 3, {1000}, "param=sim_plmn_info,error=4:can't get parameter"},
  };
  for (uint32_t status = 0; status <= 12; status++) {
    const bool waits = status == 0 || status == 1 || status == 6, passes = status >= 7;
    const std::string line =
        passes ? "D brio:SIM status=" : "E brio:simstat:status=" + std::to_string(status) + ":bad sim status";
    cases.push_back({{status},
                     "",
                     {},
                     passes ? 0U : 5U,
                     waits    ? 4U
                     : passes ? 2U
                              : 1U,
                     std::vector<unsigned>(waits ? 4 : 0, 5000),
                     line});
  }
  const char* names[] = {"bars",           "pdp_activation_allowed", "data_service_mode",
                         "roaming_status", "sim_plmn_info",          "plmn_change",
                         "time_info",      "tx_power_limit_change"};
  for (size_t i = 0; i < 8; i++) {
    std::deque<uint32_t> answers(i, 0);
    answers.push_back(6);
    cases.push_back({{11},
                     "callback",
                     answers,
                     7 + i,
                     1,
                     {},
                     std::string("E brio:cback:name=") + names[i] + " status=6:can't set SDK callback"});
  }
  wabs_set_log_mask(0xFFFFFFFFu);
  for (const Case& each : cases) {
    SCOPED_TRACE(each.line + ::testing::PrintToString(each.sim) + ::testing::PrintToString(each.answers));
    s_sim = each.sim;
    s_answers = {{each.call, each.answers}};
    s_calls.clear();
    log_capture::clear();
    test_clock::reset();
    EXPECT_EQ(wabs_open(), each.steps == 0 ? WABS_STATUS_OK : WABS_STATUS_LIBRARY_FAILURE);
    size_t reads = 0;
    for (const auto& call : s_calls) reads += call == "+brio_get_wn3_sim_status" || call == "+" + kInfo;
    EXPECT_EQ(reads, each.reads);
    EXPECT_EQ(test_clock::sleeps(), each.sleeps);
    EXPECT_TRUE(log_capture::has(each.line));
    if (each.steps == 0) {
      EXPECT_EQ(wabs_close(), 0u);
      EXPECT_EQ(s_calls.end()[-4] == kClose[0], each.call != "prox_open");
    } else if (each.steps > 1) {
      EXPECT_EQ(Calls(s_calls.end() - 4, s_calls.end()),
                (Calls{kOpen[each.steps - 1], kUndo[0], kUndo[1], kUndo[2]}));
    }
    EXPECT_EQ(wabs_is_blib_open() + NipcStandinOpenHandles(), 0u);
  }
}

TEST(HostCalls, StatusesOfQueries) {
  ASSERT_EQ(wabs_open(), 0u);
  wabs_set_log_mask(0xFFFFFFFFu);
  for (uint32_t status = 0; status <= 9; status++) {
    for (const char* call :
         {"brio_atcmd_scan_network", "brio_abort_manual_nw_scan", "brio_atcmd_set_auto_mode",
          "brio_atcmd_scan_abort", "brio_get_current_network"}) {
      s_answers[call] = {status};
    }
    const uint32_t plain = status == 0 ? 0 : 2;
    EXPECT_EQ(wabs_do_manual_nw_scan(nullptr, 0), status == 5 ? 14 : status == 8 ? 15 : plain);
    EXPECT_EQ(wabs_abort_manual_nw_scan(), status == 8 ? 15 : plain);
    for (auto* call : {wabs_set_auto_mode, wabs_send_abort_cmd, wabs_get_current_network}) {
      EXPECT_EQ(call(), plain);
    }
  }
  for (const auto& [status, line] : std::map<uint32_t, std::string>{
           {3, "E brio:fatalfailure::modem must be reset because fatal failure has occurred"},
           {4, "E brio:get:param=fatalstatus,error=4:can't get parameter"}}) {
    s_answers["brio_check_for_fatal_failure"] = {status};
    s_calls.clear();
    uint32_t bars = 77;
    EXPECT_EQ(wabs_get_bars(&bars), WABS_STATUS_LIBRARY_FAILURE);
    EXPECT_EQ(s_calls, Calls{"+brio_check_for_fatal_failure"});  // no bars were asked for
    EXPECT_TRUE(log_capture::has(line));
  }
  void* event = NipcStandinCreateEvent("com.quarto.power", "suspend");
  EXPECT_EQ(wabs_report_event(event) + wabs_report_event(nullptr), 0u);
  EXPECT_TRUE(
      log_capture::has("D brio:event com.quarto.power suspend occurred (wabs_report_event:brio_module:"));
  NipcStandinFreeEvent(event);
  // Buffers are filled to their end; what has no size is not written.
  std::string page(16000, 'x');
  wabs_get_log_string(page.data(), -1, 1);
  wabs_get_log_string(nullptr, 4000, 1);
  EXPECT_EQ(page, std::string(16000, 'x'));
  EXPECT_EQ(wabs_get_log_string(page.data(), 15000, 1), 0u);
  EXPECT_EQ(page.substr(14000), std::string(1000, '\0') + std::string(1000, 'x'));
  EXPECT_EQ(wabs_get_firmware_version(page.data(), 15999), 0u);
  EXPECT_EQ(page, std::string(15999, '\0') + "x");
}

TEST(HostCalls, DatesOfTheNetworksTime) {
  setenv("TZ", "UTC", 1);
  const std::pair<network_time, int64_t> dates[] = {
      {{3, 7, 9, 5, 0, 255, 26, 0, -1}, 1772874300},  // 2026-03-07 09:05:00
      {{3, 7, 9, 5, 0, 255, 2026, 0, -1}, 1772874300}, {{12, 31, 23, 59, 59, 255, 99, 0, -1}, 4102444799},
      {{0, 7, 9, 5, 0, 255, 26, 0, -1}, -1},           {{13, 7, 9, 5, 0, 255, 26, 0, -1}, -1},
      {{3, 7, 255, 255, 255, 255, 26, 0, -1}, -1},     {{255, 255, 255, 255, 255, 255, 0xFFFF, 0, -1}, -1}};
  time_t utc = 5;
  int32_t offset = 5;
  for (const auto& [time, expected] : dates) {
    s_time = time;
    EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
    // A time that does not fit is as good as unknown.
    const bool fits = expected <= std::numeric_limits<time_t>::max();
    EXPECT_EQ(utc, fits ? expected : -1) << int{time.month} << " " << time.year;
  }
  ASSERT_EQ(wabs_open(), 0u);
  wabs_set_log_mask(WABS_LOG_FLOW);
  s_callbacks[BRIO_EVENT_SERVING_PLMN_CHANGED](BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
  s_answers["brio_get_network_time"] = {BRIO_STATUS_UNAVAILABLE};
  utc = 5;
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_NO_NETWORK_TIME);
  EXPECT_EQ(utc, 5);
  EXPECT_TRUE(log_capture::has("D brio:Network time not provided (wabs_get_module_time:brio_module:"));
}

TEST(HostCalls, ChangeWhileAskingIsNotLost) {
  brio_set_root_dir("/nonexistent");
  ASSERT_EQ(wabs_open(), 0u);
  for (const auto& [expected_mcc, expected_mnc] : {std::pair{310U, 410U}, std::pair{262U, 1U}}) {
    uint32_t mcc = 0, mnc = 0;
    EXPECT_EQ(wabs_get_mcc_mnc(&mcc, &mnc), WABS_STATUS_OK);
    EXPECT_EQ(mcc, expected_mcc);
    EXPECT_EQ(mnc, expected_mnc);
  }
}

}  // namespace
