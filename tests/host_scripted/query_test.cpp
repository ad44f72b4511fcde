// Queries: statuses, units, buffers, lines.
#include <cstdlib>
#include <cstring>

#include "module_test.h"

namespace {

constexpr char kReader[] = "com.quarto.shelf.viewer";

// Every operation that asks whether the module is open, with outputs that must stay as they are.
TEST_F(ModuleTest, ClosedAndNullOutputs) {
  uint32_t word = 77;
  int32_t rssi = 77;
  char text[32] = "left";
  struct Case {
    const char* name;
    uint32_t (*call)(uint32_t* word, int32_t* rssi, char* text);
    bool checks_null;
  };
#define QUERY(expression, checks_null)                                                                             \
  {                                                                                                                \
#expression, [](uint32_t* w, int32_t* r, char* t) -> uint32_t { (void)w, (void)r, (void)t; return expression; }, \
   checks_null \
  }
  const Case cases[] = {
      QUERY(wabs_get_bars(w), true),
      QUERY(wabs_get_data_service_mode(w), true),
      QUERY(wabs_get_roaming_status(w), true),
      QUERY(wabs_get_rssi(r), true),
      QUERY(wabs_get_imsi(t, 32), true),
      QUERY(wabs_get_radio_serial_number(t, 32), true),
      QUERY(wabs_get_radio_cert_param1(t, 32), true),
      QUERY(wabs_get_radio_cert_param2(t, 32), true),
      QUERY(wabs_get_realm(t, 32), true),
      QUERY(wabs_get_radio_phone_number(t), true),
      QUERY(wabs_get_firmware_version(nullptr, 0), true),
      QUERY(wabs_do_manual_nw_scan(t, 32), false),
      QUERY(wabs_abort_manual_nw_scan(), false),
      QUERY(wabs_set_auto_mode(), false),
      QUERY(wabs_send_abort_cmd(), false),
      QUERY(wabs_get_current_network(), false),
  };
#undef QUERY
  for (const Case& each : cases) {
    EXPECT_EQ(each.call(&word, &rssi, text), WABS_STATUS_NOT_OPEN) << each.name;
    EXPECT_EQ(each.call(nullptr, nullptr, nullptr), WABS_STATUS_NOT_OPEN) << each.name;
  }
  EXPECT_EQ(word, 77u);
  EXPECT_EQ(rssi, 77);
  EXPECT_STREQ(text, "left");
  EXPECT_TRUE(g_library.calls.empty());

  open();
  for (const Case& each : cases) {
    if (each.checks_null) {
      EXPECT_EQ(each.call(nullptr, nullptr, nullptr), WABS_STATUS_NULL_POINTER) << each.name;
    }
  }
  EXPECT_TRUE(g_library.calls.empty());
}

// Library statuses and values on one side, host codes and lines on the other.
TEST_F(ModuleTest, MapsStatusesAndValues) {
  open();
  uint32_t value = 0;
  const uint32_t service_modes[][2] = {{0, 0}, {1, 3}, {2, 2}, {3, 1},
                                       {4, 1}, {5, 4}, {6, 0}, {0xFFFFFFFF, 0}};
  for (const auto& [library, host] : service_modes) {
    g_library.service_mode = library;
    EXPECT_EQ(wabs_get_data_service_mode(&value), WABS_STATUS_OK);
    EXPECT_EQ(value, host) << library;
  }
  EXPECT_TRUE(log_capture::has("D brio:getting data service mode (wabs_get_data_service_mode:brio_module:"));
  EXPECT_TRUE(log_capture::has("D brio:data service mode = 5 ("));
  const uint32_t roaming[][2] = {{0, 8}, {1, 0}, {2, 1}, {3, 8}, {0xFFFFFFFF, 8}};
  for (const auto& [library, host] : roaming) {
    g_library.roaming = library;
    EXPECT_EQ(wabs_get_roaming_status(&value), WABS_STATUS_OK);
    EXPECT_EQ(value, host) << library;
  }
  g_library.statuses["brio_get_data_service_mode"] = {3};
  EXPECT_EQ(wabs_get_data_service_mode(&value), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_TRUE(log_capture::has(get_error("dsm", 3)));
  g_library.statuses["brio_get_roaming_status"] = {3};
  EXPECT_EQ(wabs_get_roaming_status(&value), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_TRUE(log_capture::has(get_error("roaming_status", 3)));

  char buffer[64];
  for (uint32_t status = 0; status <= 9; status++) {
    SCOPED_TRACE(status);
    for (const char* call :
         {"brio_atcmd_scan_network", "brio_abort_manual_nw_scan", "brio_atcmd_set_auto_mode",
          "brio_atcmd_scan_abort", "brio_get_current_network"}) {
      g_library.statuses[call] = {status};
    }
    uint32_t plain = status == 0 ? 0 : 2;
    EXPECT_EQ(wabs_do_manual_nw_scan(buffer, sizeof(buffer)), status == 5 ? 14 : status == 8 ? 15 : plain);
    EXPECT_EQ(wabs_abort_manual_nw_scan(), status == 8 ? 15 : plain);
    EXPECT_EQ(wabs_set_auto_mode(), plain);
    EXPECT_EQ(wabs_send_abort_cmd(), plain);
    EXPECT_EQ(wabs_get_current_network(), plain);
  }
  const uint32_t lengths[][2] = {{0, 0}, {64, 64}, {65535, 65535}, {65536, 65535}, {0xFFFFFFFF, 65535}};
  for (const auto& [length, size] : lengths) {
    wabs_do_manual_nw_scan(buffer, length);
    EXPECT_EQ(g_library.scan_size, size);
  }
}

TEST_F(ModuleTest, BarsRule) {
  struct Case {
    const char* name;
    std::map<std::string, std::deque<uint32_t>> statuses;
    uint32_t attached;
    uint32_t library_bars;
    uint32_t result;
    uint32_t bars;
    std::vector<std::string> calls;
    std::string line;
  };
  const std::string pdp = "brio_get_pdp_context_activation_allowed";
  const std::string fatal = "brio_check_for_fatal_failure";
  const Case cases[] = {
      {"query fails", {{pdp, {3}}}, 1, 3, 2, 77, {pdp}, get_error("pdpa", 3)},
      {"detached",
       {{fatal, {3}}},
       0,
       3,
       0,
       0xFFFFFFFF,
       {pdp},
       "D brio:pdp activation state attached: 0,allowed: 0 ("},
      {"fatal",
       {{fatal, {3}}},
       1,
       3,
       2,
       77,
       {pdp, fatal},
       "E brio:fatalfailure::modem must be reset because fatal failure has occurred"},
      {"fatal query fails", {{fatal, {4}}}, 1, 3, 2, 77, {pdp, fatal}, get_error("fatalstatus", 4)},
      {"bars fail",
       {{"brio_get_bars", {7}}},
       1,
       3,
       2,
       77,
       {pdp, fatal, "brio_get_bars 0"},
       get_error("bars", 7)},
      {"none", {}, 1, 0, 0, 1, {pdp, fatal, "brio_get_bars 0"}, "D brio:bars:1 (wabs_get_bars:brio_module:"},
      {"five",
       {},
       1,
       5,
       0,
       5,
       {pdp, fatal, "brio_get_bars 0"},
       "D brio:getting bars (wabs_get_bars:brio_module:"},
  };
  open();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    forget();
    g_library.statuses = each.statuses;
    g_library.attached = each.attached;
    g_library.bars = each.library_bars;
    uint32_t reads = NipcStandinReadCount();
    uint32_t bars = 77;
    EXPECT_EQ(wabs_get_bars(&bars), each.result);
    EXPECT_EQ(bars, each.bars);
    EXPECT_EQ(g_library.calls, each.calls);
    EXPECT_TRUE(log_capture::has(each.line));
    // The foreground application is asked for when the bars are, not before.
    EXPECT_EQ(NipcStandinReadCount() - reads, each.calls.size() == 3 ? 1u : 0u);
  }
}

TEST_F(ModuleTest, ActiveApplicationRule) {
  struct Case {
    const char* application;  // null: nobody has set it
    uint32_t read_status;
    bool ipc;
    const char* mode;
    uint32_t logged;  // status of the failed read
  };
  const Case cases[] = {
      {kReader, 0, true, "1", 0},
      {"com.quarto.shelf", 0, true, "0", 0},
      {"com.quarto.shelf.viewer2", 0, true, "0", 0},
      {"", 0, true, "0", 0},
      {nullptr, 0, true, "0", NIPC_STANDIN_NO_PROPERTY},
      {kReader, 5, true, "0", 5},  // a failed read that hands out a text all the same
      {kReader, 0, false, "0", NIPC_STANDIN_BAD_HANDLE},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(::testing::Message()
                 << (each.application != nullptr ? each.application : "none") << each.read_status);
    NipcStandinReset();
    if (each.application != nullptr) {
      NipcStandinSetProperty("com.quarto.appmgrd", "activeApp", each.application);
    }
    NipcStandinFailOpen(!each.ipc);
    ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
    forget();
    NipcStandinFailReads(each.read_status);
    uint32_t bars = 0;
    EXPECT_EQ(wabs_get_bars(&bars), WABS_STATUS_OK);
    EXPECT_EQ(g_library.calls.back(), std::string("brio_get_bars ") + each.mode);
    EXPECT_EQ(NipcStandinUnfreedStrings(), 0u);
    EXPECT_EQ(log_capture::has("E brio:get:param=com.quarto.appmgrd"), each.logged != 0);
    if (each.logged != 0) {
      EXPECT_TRUE(log_capture::has(get_error("com.quarto.appmgrd", each.logged)));
    }
    EXPECT_EQ(wabs_close(), 0u);
  }
}

TEST_F(ModuleTest, ModuleTime) {
  setenv("TZ", "UTC", 1);
  open();
  time_t utc = 5;
  int32_t offset = 5;
  EXPECT_EQ(wabs_get_module_time(nullptr, &offset), WABS_STATUS_NULL_POINTER);
  EXPECT_EQ(wabs_get_module_time(&utc, nullptr), WABS_STATUS_NULL_POINTER);

  // The zone at load is 0, as if known.
  g_library.time.time_zone = -28;
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
  EXPECT_EQ(offset, 0);
  EXPECT_EQ(utc, static_cast<time_t>(-1));
  EXPECT_TRUE(log_capture::has("D brio:localTimeOffset=0 (wabs_get_module_time:brio_module:"));

  // A change of network forgets it: the modem's counts.
  g_library.callbacks[BRIO_EVENT_SERVING_PLMN_CHANGED](BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
  EXPECT_EQ(offset, -25200);
  g_library.statuses["brio_get_network_time"] = {5};
  utc = 5;
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_TRUE(log_capture::has(get_error("local_time", 5)));
  g_library.statuses["brio_get_network_time"] = {7};
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_NO_NETWORK_TIME);
  EXPECT_TRUE(log_capture::has("D brio:Network time not provided (wabs_get_module_time:brio_module:"));
  EXPECT_EQ(utc, 5);

  // A reported zone is held; the network's time may fail then.
  network_time reported = {};
  reported.time_zone = 8;
  g_library.callbacks[BRIO_EVENT_TIME_INFO](BRIO_EVENT_TIME_INFO, 4, &reported);
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
  EXPECT_EQ(offset, 7200);
  EXPECT_EQ(utc, static_cast<time_t>(-1));

  struct Date {
    network_time time;
    time_t utc;
  };
  const Date dates[] = {
      {{3, 7, 9, 5, 0, 255, 26, 0, -1}, 1772874300},  // 2026-03-07 09:05:00
      {{3, 7, 9, 5, 0, 255, 2026, 0, -1}, 1772874300}, {{12, 31, 23, 59, 59, 255, 99, 0, -1}, 4102444799},
      {{0, 7, 9, 5, 0, 255, 26, 0, -1}, -1},           {{13, 7, 9, 5, 0, 255, 26, 0, -1}, -1},
      {{3, 7, 255, 255, 255, 255, 26, 0, -1}, -1},     {{255, 255, 255, 255, 255, 255, 0xFFFF, 0, -1}, -1},
  };
  g_library.statuses.clear();
  for (const Date& each : dates) {
    g_library.time = each.time;
    EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
    EXPECT_EQ(utc, each.utc) << int(each.time.month) << " " << each.time.year;
    EXPECT_EQ(offset, 7200);
  }

  // Neither needs the module open.
  wabs_close();
  EXPECT_EQ(wabs_get_module_time(&utc, &offset), WABS_STATUS_OK);
}

// Texts with every byte of their field used, short and long buffers, and what the log shows of them.
TEST_F(ModuleTest, TextQueries) {
  g_library.imsi = "3104101234567890";           // 16 digits: no terminator in the field
  g_library.iccid = "890141032111185107201234";  // 24
  g_library.imei = "3569380356438091";           // 16
  g_library.firmware = std::string(33, 'f');
  open();
  struct Case {
    uint32_t (*call)(char*, uint32_t);
    uint32_t least;
    std::string text;
    std::string line;
  };
  const Case cases[] = {
      {wabs_get_imsi, 16, g_library.imsi, "D brio:IMSI updated (wabs_get_imsi:brio_module:"},
      {wabs_get_radio_cert_param2, 16, g_library.imsi, "D brio:IMSI updated ("},
      {wabs_get_radio_serial_number, 16, g_library.imei, "D brio:imei=" + g_library.imei + " ("},
      {wabs_get_realm, 16, g_library.imei, "D brio:imei=" + g_library.imei + " ("},
      {wabs_get_radio_cert_param1, 24, g_library.iccid, "D brio:iccid=***********************"},
      {wabs_get_firmware_version, 0, g_library.firmware, ""},
  };
  for (const Case& each : cases) {
    for (uint32_t length : {0u, 1u, 7u, 15u, 16u, 17u, 23u, 24u, 33u, 34u, 64u}) {
      SCOPED_TRACE(each.text + " " + std::to_string(length));
      log_capture::clear();
      char buffer[66];
      memset(buffer, 'x', sizeof(buffer));
      uint32_t expected = length < each.least ? WABS_STATUS_BUFFER_TOO_SMALL : WABS_STATUS_OK;
      EXPECT_EQ(each.call(buffer, length), expected);
      std::string written(buffer, sizeof(buffer));
      std::string image(sizeof(buffer), 'x');
      if (expected == WABS_STATUS_OK && length > 0) {
        std::string cut = each.text.substr(0, length - 1);
        image = cut + std::string(length - cut.size(), '\0') + std::string(sizeof(buffer) - length, 'x');
      }
      EXPECT_EQ(written, image);
      if (length == 64) {
        EXPECT_TRUE(log_capture::has(each.line));
      }
      EXPECT_FALSE(log_capture::has(g_library.imsi.substr(0, 10)));
      EXPECT_FALSE(log_capture::has(g_library.iccid.substr(0, 10)));
    }
  }

  char text[32] = "left";
  int32_t rssi = 5;
  EXPECT_EQ(wabs_get_radio_phone_number(text), WABS_STATUS_OK);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(wabs_get_rssi(&rssi), WABS_STATUS_OK);
  EXPECT_EQ(rssi, 0);
  EXPECT_TRUE(log_capture::has("D brio:rssi=0 (wabs_get_rssi:brio_module:"));

  wabs_close();
  EXPECT_EQ(wabs_get_firmware_version(text, sizeof(text)), WABS_STATUS_NOT_OPEN);
  EXPECT_STREQ(text, "norvik");
  EXPECT_EQ(wabs_get_firmware_version(text, 4), WABS_STATUS_NOT_OPEN);
  EXPECT_STREQ(text, "nor");
}

TEST_F(ModuleTest, DiagnosticPagePassesThrough) {
  g_library.statuses["brio_module_get_log_string"] = {0};
  char page[16];
  memset(page, 'x', sizeof(page));
  EXPECT_EQ(wabs_get_log_string(page, 12, 1), 0u);  // the module is closed
  EXPECT_EQ(std::string(page, sizeof(page)), std::string(12, '\0') + "xxxx");
  EXPECT_EQ(g_library.page_buffer, page);
  EXPECT_EQ(g_library.page_capacity, 12u);
  EXPECT_EQ(g_library.calls.back(), "brio_module_get_log_string 1");
  for (int32_t size : {0, -1, INT32_MIN}) {
    memset(page, 'x', sizeof(page));
    wabs_get_log_string(page, size, 2);
    EXPECT_EQ(std::string(page, sizeof(page)), std::string(16, 'x'));
    EXPECT_EQ(g_library.page_capacity, 0u);
  }
  wabs_get_log_string(nullptr, 4000, 0);
  EXPECT_EQ(g_library.page_buffer, nullptr);
  EXPECT_EQ(g_library.page_capacity, 0u);
  g_library.statuses["brio_module_exit_logging"] = {6};
  EXPECT_EQ(wabs_exit_611_logging(), 6u);
}

TEST_F(ModuleTest, EventLines) {
  open();
  const uint32_t words[4] = {4, 1, 0xFFFFFFE4u, 0};
  const uint16_t field = 0x6F62;
  struct Case {
    uint32_t id;
    uint32_t size;
    const void* data;
    const char* line;
  };
  const Case cases[] = {
      {0, 4, words, "D brio:bars changed 4 (prv_bars_callback:brio_module:"},
      {1, 8, words,
       "D brio:pdp_activation_allowed changed attached=4 allowed=1 (prv_pdp_activation_allowed_callback:"},
      {2, 4, words, "D brio:data_service_mode changed 4 (prv_data_service_mode_callback:brio_module:"},
      {3, 4, words, "D brio:roaming_status changed 4 (prv_roaming_status_callback:brio_module:"},
      {6, 2, &field, "D brio:sim plmn info changed 0x6f62 (prv_sim_plmn_info_callback:brio_module:"},
      {5, 0, nullptr,
       "D brio:serving plmn changed...Invalidating Cached TZ (prv_brio_event_plmn_change:brio_module:"},
      {9, 4, words, "D brio:TIME ZONE FROM EVENT: -28 (prv_brio_event_time_info:brio_module:"},
      {7, 0, nullptr, "D brio:tx power limit changed (prv_tx_power_limit_change_callback:brio_module:"},
  };
  for (uint32_t mask : {0xFFFFFFFFu, WABS_LOG_EVENT, ~WABS_LOG_EVENT}) {
    wabs_set_log_mask(mask);
    for (const Case& each : cases) {
      log_capture::clear();
      EXPECT_EQ(g_library.callbacks[each.id](each.id, each.size, each.data), 0u);
      EXPECT_EQ(log_capture::count(each.line), (mask & WABS_LOG_EVENT) != 0 ? 1u : 0u) << each.line;
      EXPECT_EQ(g_library.callbacks[each.id](each.id, 0, nullptr),
                0u);  // an event without its data is harmless
    }
  }
}

}  // namespace
