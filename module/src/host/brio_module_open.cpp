// Opening and closing the module, and what it does with the events of the library and of the host.
#include <string.h>

#include "base/clock.h"
#include "base/own_threads.h"
#include "base/paths.h"
#include "brio/prox.h"
#include "host/module_state.h"
#include "nipc/nipc.h"
#include "services/carriers.h"

namespace brio {

ModuleState g_module;

bool succeeded(const char* parameter, uint32_t status) {
  if (status != 0) MODULE_E("brio:get:param=%s,error=%d:can't get parameter", parameter, status);
  return status == 0;
}

uint32_t log_return(const char* function, int line, uint32_t result) {
  if (module_log_on(WABS_LOG_FLOW)) module_debug(function, kSourceFile, line, "def:Return");
  return result;
}

namespace {

constexpr char kIpcService[] = "com.quarto.brio_module";

// Rounds that the wait for the SIM's status and the wait for its identity have together.
constexpr uint32_t kSimRounds = 4;
constexpr unsigned kSimStatusPauseMs = 5000;
constexpr unsigned kSimInfoPauseMs = 1000;

void prv_close_library() {
  if (!module_is_open()) return;
  brio_close();
  brio_trace_tst_stop();
  relaxed_store(g_module.library_open, uint8_t{0});
}

void prv_close_prox() {
  if (g_module.prox_open == 0) return;
  prox_close();
  g_module.prox_open = 0;
}

uint32_t prv_close_ipc() {
  if (g_module.ipc == nullptr) return WABS_STATUS_OK;
  uint32_t status = NipcClose(g_module.ipc);
  g_module.ipc = nullptr;
  return status;
}

void prv_start_trace() {
  uint32_t status = brio_trace_tst_log(kTraceFilterFile, kTraceLogPrefix);
  if (status == BRIO_STATUS_UNAVAILABLE) {
    MODULE_D_OF("wabs_open", WABS_LOG_VALUE, "brio:trace logging disabled");
  } else if (status != BRIO_STATUS_OK) {
    MODULE_W("brio:get:param=debug_config_file,warning=%d:can't get parameter", status);
  }
}

void prv_start_prox() {
  uint16_t carrier = kCarrierUnknown;
  brio_get_carrier_id(&carrier);
  if (carrier != kCarrierUnknown && !carrier_backs_off(carrier)) return;
  if (prox_open() == PROX_OK) {
    g_module.prox_open = 1;
  } else {
    // 1 whatever the status was: readers of the log know this line so.
    MODULE_E("brio:openlib:status=1:can't open prox library");
  }
}

// Waits for a SIM that can be used. `*rounds` counts the rounds of both waits.
bool prv_wait_sim_status(uint32_t* rounds) {
  uint32_t sim_status = SIM_NOT_READ;
  do {
    MODULE_D_OF("wabs_open", WABS_LOG_VALUE, "brio:getting SIM status, retry = %d", *rounds);
    uint32_t status = brio_get_wn3_sim_status(&sim_status);
    MODULE_D_OF("wabs_open", WABS_LOG_VALUE, "brio:SIM status=%d", sim_status);
    if (!succeeded("sim_status", status)) return false;
    if (sim_status != SIM_NOT_READ && sim_status != NO_SIM && sim_status != INVALID_OTHER) break;
    ++*rounds;
    sleep_milliseconds(kSimStatusPauseMs);
  } while (*rounds < kSimRounds);
  if (sim_status < WAITING_TO_ATTACH) {
    MODULE_E("brio:simstat:status=%d:bad sim status", sim_status);
    return false;
  }
  return true;
}

// Goes on with the rounds that the wait for the SIM's status has left; without one left nothing is read.
bool prv_wait_sim_info(uint32_t* rounds) {
  uint32_t status = BRIO_STATUS_OK;
  while (*rounds != kSimRounds) {
    status = brio_get_sim_info(&g_module.sim);
    if (status != BRIO_STATUS_UNAVAILABLE) break;
    sleep_milliseconds(kSimInfoPauseMs);
    ++*rounds;
  }
  return succeeded("sim_plmn_info", status);
}

// ---- The bridge from library events to the module's caches. Callbacks run on the thread that raises the
// event, mostly the library's event thread; they send nothing and take no lock.

// Number `index` of an event's record.
template <typename Number = int32_t>
Number prv_number(const void* data, size_t index = 0) {
  Number number;
  memcpy(&number, static_cast<const char*>(data) + index * sizeof(number), sizeof(number));
  return number;
}

uint32_t prv_bars_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:bars changed %d", prv_number(data));
  return 0;
}

uint32_t prv_pdp_activation_allowed_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) {
    MODULE_D(WABS_LOG_EVENT, "brio:pdp_activation_allowed changed attached=%d allowed=%d", prv_number(data),
             prv_number(data, 1));
  }
  return 0;
}

uint32_t prv_data_service_mode_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:data_service_mode changed %d", prv_number(data));
  return 0;
}

uint32_t prv_roaming_status_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:roaming_status changed %d", prv_number(data));
  return 0;
}

uint32_t prv_sim_plmn_info_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) {
    MODULE_D(WABS_LOG_EVENT, "brio:sim plmn info changed 0x%x", prv_number<uint16_t>(data));
  }
  return 0;
}

uint32_t prv_brio_event_plmn_change(uint32_t, uint32_t, const void*) {
  relaxed_store(g_module.cached_time_zone, -1);
  relaxed_store(g_module.mcc_mnc_refresh, 1u);
  MODULE_D(WABS_LOG_EVENT, "brio:serving plmn changed...Invalidating Cached TZ");
  return 0;
}

// The event's size is that of a word, its data a whole network_time: the zone is its third word.
uint32_t prv_brio_event_time_info(uint32_t, uint32_t, const void* data) {
  if (data == nullptr) return 0;
  int32_t zone = prv_number(data, 2);
  relaxed_store(g_module.cached_time_zone, zone);
  MODULE_D(WABS_LOG_EVENT, "brio:TIME ZONE FROM EVENT: %d", zone);
  return 0;
}

uint32_t prv_tx_power_limit_change_callback(uint32_t, uint32_t, const void*) {
  MODULE_D(WABS_LOG_EVENT, "brio:tx power limit changed");
  return 0;
}

struct EventCallback {
  uint32_t id;
  const char* name;
  brio_event_callback callback;
};
// In the order of registration.
constexpr EventCallback kEventCallbacks[] = {
    {BRIO_EVENT_BARS_CHANGED, "bars", prv_bars_callback},
    {BRIO_EVENT_PDP_ACTIVATION_ALLOWED, "pdp_activation_allowed", prv_pdp_activation_allowed_callback},
    {BRIO_EVENT_DATA_SERVICE_MODE, "data_service_mode", prv_data_service_mode_callback},
    {BRIO_EVENT_ROAMING_STATUS, "roaming_status", prv_roaming_status_callback},
    {BRIO_EVENT_SIM_PLMN_INFO, "sim_plmn_info", prv_sim_plmn_info_callback},
    {BRIO_EVENT_SERVING_PLMN_CHANGED, "plmn_change", prv_brio_event_plmn_change},
    {BRIO_EVENT_TIME_INFO, "time_info", prv_brio_event_time_info},
    {BRIO_EVENT_TX_POWER_LIMIT_CHANGE, "tx_power_limit_change", prv_tx_power_limit_change_callback},
};

bool prv_register_callbacks() {
  for (const EventCallback& event : kEventCallbacks) {
    uint32_t status = brio_set_callback_for_event_id(event.id, event.callback);
    if (status != BRIO_STATUS_OK) {
      MODULE_E("brio:cback:name=%s status=%d:can't set SDK callback", event.name, status);
      return false;
    }
  }
  return true;
}

void prv_open_ipc() {
  g_module.ipc = NipcOpen(kIpcService);
  if (g_module.ipc == nullptr) MODULE_E("brio:get:param=Npic handle,error=0:can't get parameter");
}

uint32_t prv_open() {
  // A second open tears the module down: hosts call open and close in pairs.
  if (module_is_open()) return WABS_STATUS_ALREADY_OPEN;

  uint32_t status = brio_open(kQueryPort);
  if (status != BRIO_STATUS_OK) {
    MODULE_E("brio:openlib:status=%d:can't open brio library", status);
    return WABS_STATUS_LIBRARY_FAILURE;
  }
  prv_start_trace();
  relaxed_store(g_module.mcc_mnc_refresh, 1u);
  relaxed_store(g_module.library_open, uint8_t{1});
  relaxed_store(g_611_urc_on, 0u);
  prv_start_prox();

  uint32_t rounds = 0;
  if (!prv_wait_sim_status(&rounds) || !succeeded("modeminfo", brio_get_modem_info(&g_module.modem)) ||
      !prv_register_callbacks() || !prv_wait_sim_info(&rounds)) {
    return WABS_STATUS_LIBRARY_FAILURE;
  }
  status = brio_get_sim_static_info(0);
  if (status != BRIO_STATUS_OK) MODULE_E("brio:set:param=SIM static info,status=%d:can't set", status);
  prv_open_ipc();
  return WABS_STATUS_OK;
}

}  // namespace
}  // namespace brio

using namespace brio;

uint32_t wabs_open(void) {
  MODULE_ENTER();
  if (refused_here("wabs_open")) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  uint32_t status = prv_open();
  if (status != WABS_STATUS_OK) {
    prv_close_library();
    prv_close_prox();
    prv_close_ipc();
  }
  MODULE_RETURN(status);
}

uint32_t wabs_close(void) {
  MODULE_ENTER();
  if (refused_here("wabs_close")) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  prv_close_prox();
  prv_close_library();
  MODULE_RETURN(prv_close_ipc());
}

uint32_t wabs_is_blib_open(void) {
  return module_is_open() ? 1 : 0;
}

uint32_t wabs_get_module_flags(uint32_t* flags) {
  if (flags == nullptr) return WABS_STATUS_NULL_POINTER;
  *flags = 1;
  return WABS_STATUS_OK;
}

uint32_t wabs_enable_logging(void) {
  return WABS_STATUS_OK;
}

uint32_t wabs_log_message(void) {
  return WABS_STATUS_OK;
}

uint32_t wabs_try_to_use_home_network(void) {
  return WABS_STATUS_OK;
}

uint32_t wabs_originate_call_test(void) {
  return WABS_STATUS_OK;
}

uint32_t wabs_stop_call_test(void) {
  return WABS_STATUS_OK;
}

uint32_t wabs_report_event(const void* event) {
  if (event == nullptr) return WABS_STATUS_OK;
  const char* name = NipcGetEventName(event);
  const char* source = NipcGetEventSource(event);
  MODULE_D(WABS_LOG_VALUE, "brio:event %s %s occurred", source != nullptr ? source : "",
           name != nullptr ? name : "");
  return WABS_STATUS_OK;
}
