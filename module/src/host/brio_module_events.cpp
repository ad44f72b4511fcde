// The bridge from library events to the module's caches. Callbacks run on the thread that raises the event,
// mostly the library's event thread; they send nothing and take no lock.
#include <string.h>

#include "host/module_state.h"
#include "nipc/nipc.h"

namespace brio {
namespace {

// 32-bit word `index` of an event's record.
int32_t prv_word(const void* data, size_t index) {
  int32_t word;
  memcpy(&word, static_cast<const char*>(data) + index * sizeof(word), sizeof(word));
  return word;
}

uint32_t prv_bars_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:bars changed %d", prv_word(data, 0));
  return 0;
}

uint32_t prv_pdp_activation_allowed_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) {
    MODULE_D(WABS_LOG_EVENT, "brio:pdp_activation_allowed changed attached=%d allowed=%d", prv_word(data, 0),
             prv_word(data, 1));
  }
  return 0;
}

uint32_t prv_data_service_mode_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:data_service_mode changed %d", prv_word(data, 0));
  return 0;
}

uint32_t prv_roaming_status_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) MODULE_D(WABS_LOG_EVENT, "brio:roaming_status changed %d", prv_word(data, 0));
  return 0;
}

uint32_t prv_sim_plmn_info_callback(uint32_t, uint32_t, const void* data) {
  if (data != nullptr) {
    uint16_t field;
    memcpy(&field, data, sizeof(field));
    MODULE_D(WABS_LOG_EVENT, "brio:sim plmn info changed 0x%x", field);
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
  int32_t zone = prv_word(data, 2);
  relaxed_store(g_module.cached_time_zone, zone);
  MODULE_D(WABS_LOG_EVENT, "brio:TIME ZONE FROM EVENT: %d", zone);
  return 0;
}

uint32_t prv_tx_power_limit_change_callback(uint32_t, uint32_t, const void*) {
  MODULE_D(WABS_LOG_EVENT, "brio:tx power limit changed");
  return 0;
}

}  // namespace

const EventCallback kEventCallbacks[kEventCallbackCount] = {
    {BRIO_EVENT_BARS_CHANGED, "bars", prv_bars_callback},
    {BRIO_EVENT_PDP_ACTIVATION_ALLOWED, "pdp_activation_allowed", prv_pdp_activation_allowed_callback},
    {BRIO_EVENT_DATA_SERVICE_MODE, "data_service_mode", prv_data_service_mode_callback},
    {BRIO_EVENT_ROAMING_STATUS, "roaming_status", prv_roaming_status_callback},
    {BRIO_EVENT_SIM_PLMN_INFO, "sim_plmn_info", prv_sim_plmn_info_callback},
    {BRIO_EVENT_SERVING_PLMN_CHANGED, "plmn_change", prv_brio_event_plmn_change},
    {BRIO_EVENT_TIME_INFO, "time_info", prv_brio_event_time_info},
    {BRIO_EVENT_TX_POWER_LIMIT_CHANGE, "tx_power_limit_change", prv_tx_power_limit_change_callback},
};

}  // namespace brio

using namespace brio;

uint32_t wabs_report_event(const void* event) {
  if (event == nullptr) return WABS_STATUS_OK;
  const char* name = NipcGetEventName(event);
  const char* source = NipcGetEventSource(event);
  MODULE_D(WABS_LOG_VALUE, "brio:event %s %s occurred", source != nullptr ? source : "",
           name != nullptr ? name : "");
  return WABS_STATUS_OK;
}
