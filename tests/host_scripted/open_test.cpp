// Opening and closing: order, shared retry counter, clean-up, optional steps.
#include "module_test.h"

namespace {

using Calls = std::vector<std::string>;

const Calls kOpenCalls = {"brio_open /dev/ttyACM2",
                          "brio_trace_tst_log /var/local/wan/debug/trace_filter.cfg /mnt/us/trace_log",
                          "brio_get_carrier_id",
                          "prox_open",
                          "brio_get_wn3_sim_status",
                          "brio_get_modem_info",
                          "callback 0",
                          "callback 1",
                          "callback 2",
                          "callback 3",
                          "callback 6",
                          "callback 5",
                          "callback 9",
                          "callback 7",
                          "brio_get_sim_info",
                          "brio_get_sim_static_info 0"};

// The calls of an open that ends with the last call of name `last`, and the clean-up behind it.
Calls calls_up_to(const std::string& last) {
  Calls calls;
  for (const std::string& call : kOpenCalls) {
    calls.push_back(call);
    if (call == last) break;
  }
  calls.insert(calls.end(), {"brio_close", "brio_trace_tst_stop", "prox_close"});
  return calls;
}

TEST_F(ModuleTest, OpensAndClosesInOrder) {
  g_library.carrier = 202;
  g_611_urc_on = 1;
  NipcStandinSetCloseStatus(9);
  EXPECT_EQ(wabs_is_blib_open(), 0u);
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(g_library.calls, kOpenCalls);
  EXPECT_EQ(wabs_is_blib_open(), 1u);
  EXPECT_EQ(g_611_urc_on, 0u);
  EXPECT_EQ(NipcStandinOpenHandles(), 1u);
  EXPECT_TRUE(test_clock::sleeps().empty());

  forget();
  EXPECT_EQ(wabs_close(), 9u);  // what the IPC service answered
  EXPECT_EQ(g_library.calls, (Calls{"prox_close", "brio_close", "brio_trace_tst_stop"}));
  EXPECT_EQ(wabs_is_blib_open(), 0u);
  EXPECT_EQ(NipcStandinOpenHandles(), 0u);

  forget();
  EXPECT_EQ(wabs_close(), 0u);
  EXPECT_TRUE(g_library.calls.empty());
}

TEST_F(ModuleTest, SecondOpenTearsDown) {
  g_library.carrier = 216;
  open();
  EXPECT_EQ(wabs_open(), WABS_STATUS_ALREADY_OPEN);
  EXPECT_EQ(g_library.calls, (Calls{"brio_close", "brio_trace_tst_stop", "prox_close"}));
  EXPECT_EQ(wabs_is_blib_open(), 0u);
  EXPECT_EQ(NipcStandinOpenHandles(), 0u);
  EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
}

TEST_F(ModuleTest, FailureAtEachStepUndoesEverything) {
  struct Case {
    const char* call;
    std::deque<uint32_t> statuses;
    const char* last;  // the last call of kOpenCalls, or null: nothing to clean up
    std::string line;
  };
  std::vector<Case> cases = {
      {"brio_open", {4}, nullptr, "E brio:openlib:status=4:can't open brio library"},
      {"brio_get_wn3_sim_status", {5}, "brio_get_wn3_sim_status", get_error("sim_status", 5)},
      {"brio_get_modem_info", {4}, "brio_get_modem_info", get_error("modeminfo", 4)},
      {"brio_get_sim_info", {4}, "brio_get_sim_info", get_error("sim_plmn_info", 4)},
  };
  const std::pair<const char*, const char*> callbacks[] = {{"callback 0", "bars"},
                                                           {"callback 1", "pdp_activation_allowed"},
                                                           {"callback 2", "data_service_mode"},
                                                           {"callback 3", "roaming_status"},
                                                           {"callback 6", "sim_plmn_info"},
                                                           {"callback 5", "plmn_change"},
                                                           {"callback 9", "time_info"},
                                                           {"callback 7", "tx_power_limit_change"}};
  std::deque<uint32_t> statuses = {6};
  for (const auto& [call, name] : callbacks) {
    const std::string line = std::string("E brio:cback:name=") + name + " status=6:can't set SDK callback";
    cases.push_back({"callback", statuses, call, line});
    statuses.push_front(0);
  }
  for (const Case& each : cases) {
    SCOPED_TRACE(each.line);
    g_library = ScriptedLibrary();
    g_library.carrier = 0xFFFF;
    g_library.statuses[each.call] = each.statuses;
    log_capture::clear();
    EXPECT_EQ(wabs_open(), WABS_STATUS_LIBRARY_FAILURE);
    EXPECT_EQ(g_library.calls, each.last != nullptr ? calls_up_to(each.last) : Calls{kOpenCalls[0]});
    EXPECT_TRUE(log_capture::has(each.line));
    EXPECT_EQ(wabs_is_blib_open(), 0u);
    EXPECT_EQ(NipcStandinOpenHandles(), 0u);
  }
}

TEST_F(ModuleTest, OptionalStepsOnlyLog) {
  struct Case {
    const char* call;
    uint32_t status;
    int priority;
    const char* line;
  };
  const Case cases[] = {
      {"brio_trace_tst_log", 7, 7, "D brio:trace logging disabled ("},
      {"brio_trace_tst_log", 3, 4, "W brio:get:param=debug_config_file,warning=3:can't get parameter"},
      {"prox_open", 5, 3, "E brio:openlib:status=1:can't open prox library"},
      {"brio_get_sim_static_info", 3, 3, "E brio:set:param=SIM static info,status=3:can't set"},
      {"NipcOpen", 0, 3, "E brio:get:param=Npic handle,error=0:can't get parameter"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.line);
    g_library = ScriptedLibrary();
    g_library.carrier = 202;
    g_library.statuses[each.call] = {each.status};
    NipcStandinFailOpen(std::string(each.call) == "NipcOpen");
    log_capture::clear();
    EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
    bool found = false;
    for (const auto& line : log_capture::lines()) {
      if (line.text.rfind(each.line, 0) != 0) continue;
      found = true;
      EXPECT_EQ(line.priority, each.priority);
    }
    EXPECT_TRUE(found);
    g_library.calls.clear();
    EXPECT_EQ(wabs_close(), 0u);
    EXPECT_EQ(g_library.count("prox_close"), std::string(each.call) == "prox_open" ? 0u : 1u);
  }
}

TEST_F(ModuleTest, ProximityMonitorRunsOnSarCarriers) {
  struct Case {
    uint32_t status;
    uint16_t carrier;
    bool runs;
  };
  for (const Case& each : {Case{0, 202, true}, Case{0, 216, true}, Case{0, 0xFFFF, true}, Case{4, 201, true},
                           Case{0, 201, false}, Case{0, 0, false}}) {
    SCOPED_TRACE(each.carrier);
    g_library = ScriptedLibrary();
    g_library.statuses["brio_get_carrier_id"] = {each.status};
    g_library.carrier = each.carrier;
    ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
    EXPECT_EQ(wabs_close(), 0u);
    EXPECT_EQ(g_library.count("prox_open"), each.runs ? 1u : 0u);
    EXPECT_EQ(g_library.count("prox_close"), each.runs ? 1u : 0u);
  }
}

TEST_F(ModuleTest, EverySimStatus) {
  for (uint32_t status = 0; status <= 12; status++) {
    SCOPED_TRACE(status);
    g_library = ScriptedLibrary();
    g_library.sim_status = {status};
    test_clock::reset();
    log_capture::clear();
    bool waits = status == SIM_NOT_READ || status == NO_SIM || status == INVALID_OTHER;
    bool passes = status >= WAITING_TO_ATTACH;
    EXPECT_EQ(wabs_open(), passes ? WABS_STATUS_OK : WABS_STATUS_LIBRARY_FAILURE);
    EXPECT_EQ(g_library.count("brio_get_wn3_sim_status"), waits ? 4u : 1u);
    EXPECT_EQ(test_clock::sleeps(), waits ? std::vector<unsigned>(4, 5000) : std::vector<unsigned>());
    EXPECT_EQ(g_library.count("brio_get_sim_info"), passes ? 1u : 0u);
    EXPECT_EQ(log_capture::has("E brio:simstat:status=" + std::to_string(status) + ":bad sim status"),
              !passes);
    EXPECT_TRUE(log_capture::has("D brio:getting SIM status, retry = 0 (prv_wait_sim_status:brio_module:"));
    EXPECT_EQ(log_capture::count("D brio:getting SIM status, retry = 3 ("), waits ? 1u : 0u);
    EXPECT_TRUE(log_capture::has("D brio:SIM status=" + std::to_string(status) + " ("));
    EXPECT_EQ(wabs_close(), 0u);
  }
}

TEST_F(ModuleTest, BothSimWaitsShareFourRounds) {
  struct Case {
    std::deque<uint32_t> sim_status;
    std::deque<uint32_t> info;
    uint32_t result;
    size_t info_reads;
    std::vector<unsigned> sleeps;
  };
  const Case cases[] = {
      {{0, 1, 11}, {0}, 0, 1, {5000, 5000}},
      {{0, 6, 11}, {7, 0}, 0, 2, {5000, 5000, 1000}},
      {{0, 0, 11}, {7, 7}, 2, 2, {5000, 5000, 1000, 1000}},
      {{0, 0, 0, 11}, {7}, 2, 1, {5000, 5000, 5000, 1000}},
      {{11}, {7, 7, 7, 0}, 0, 4, {1000, 1000, 1000}},
      {{11}, {7}, 2, 4, {1000, 1000, 1000, 1000}},
      {{11}, {7, 4}, 2, 2, {1000}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(::testing::PrintToString(each.sim_status) + ::testing::PrintToString(each.info));
    g_library = ScriptedLibrary();
    g_library.sim_status = each.sim_status;
    g_library.statuses["brio_get_sim_info"] = each.info;
    test_clock::reset();
    log_capture::clear();
    EXPECT_EQ(wabs_open(), each.result);
    EXPECT_EQ(g_library.count("brio_get_sim_info"), each.info_reads);
    EXPECT_EQ(test_clock::sleeps(), each.sleeps);
    EXPECT_EQ(log_capture::has(get_error("sim_plmn_info", each.info.back())), each.result != 0);
    EXPECT_EQ(wabs_close(), 0u);
  }
}

TEST_F(ModuleTest, LifecycleEntries) {
  uint32_t flags = 0;
  EXPECT_EQ(wabs_get_module_flags(&flags), WABS_STATUS_OK);
  EXPECT_EQ(flags, 1u);
  EXPECT_EQ(wabs_get_module_flags(nullptr), WABS_STATUS_NULL_POINTER);
  for (auto entry : {wabs_enable_logging, wabs_log_message, wabs_try_to_use_home_network,
                     wabs_originate_call_test, wabs_stop_call_test}) {
    EXPECT_EQ(entry(), WABS_STATUS_OK);
  }
  EXPECT_EQ(wabs_update_prl(), WABS_STATUS_NOT_OPEN);
  EXPECT_TRUE(log_capture::lines().empty());
  open();
  EXPECT_EQ(wabs_update_prl(), WABS_STATUS_OK);
  EXPECT_TRUE(g_library.calls.empty());

  void* event = NipcStandinCreateEvent("com.quarto.power", "suspend");
  EXPECT_EQ(wabs_report_event(event), 0u);
  EXPECT_TRUE(
      log_capture::has("D brio:event com.quarto.power suspend occurred (wabs_report_event:brio_module:"));
  EXPECT_EQ(wabs_report_event(nullptr), 0u);
  NipcStandinFreeEvent(event);
}

// Each bit of the mask lets its own lines through, at its own priority.
TEST_F(ModuleTest, LogMaskGatesEachKind) {
  struct Case {
    uint32_t bit;
    int priority;
    std::vector<const char*> lines;
  };
  const Case cases[] = {
      {WABS_LOG_FLOW, 7, {"D def:Enter (wabs_open:brio_module:", "D def:Return (wabs_open:brio_module:"}},
      {WABS_LOG_VALUE, 7, {"D brio:getting SIM status, retry = 0 (", "D brio:SIM status=2 ("}},
      {WABS_LOG_EVENT, 7, {}},
      {WABS_LOG_NOTICE, 5, {}},
      {WABS_LOG_WARNING, 4, {"W brio:get:param=debug_config_file"}},
      {WABS_LOG_ERROR, 3, {"E brio:simstat:status=2:bad sim status"}},
      {~(WABS_LOG_FLOW | WABS_LOG_VALUE | WABS_LOG_EVENT | WABS_LOG_NOTICE | WABS_LOG_WARNING |
         WABS_LOG_ERROR),
       0,
       {}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.bit);
    g_library = ScriptedLibrary();
    g_library.statuses["brio_trace_tst_log"] = {4};
    g_library.sim_status = {PIN_LOCKED};
    wabs_set_log_mask(each.bit);
    EXPECT_EQ(gBrioModuleLogMask, each.bit);
    log_capture::clear();
    EXPECT_EQ(wabs_open(), WABS_STATUS_LIBRARY_FAILURE);
    auto lines = log_capture::lines();
    ASSERT_EQ(lines.size(), each.lines.size());
    for (size_t i = 0; i < lines.size(); i++) {
      EXPECT_EQ(lines[i].text.rfind(each.lines[i], 0), 0u) << lines[i].text;
      EXPECT_EQ(lines[i].priority, each.priority);
    }
  }
}

}  // namespace
