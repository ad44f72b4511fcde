// Small getters that hand the host values of the shared modem-data record.
#include <string.h>
#include <time.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/text.h"
#include "brio_common/shared_data.h"

constexpr char kLogTag[] = "briolib/src/brio_misc";

using namespace brio;

namespace {

constexpr time_t kRegistrationQueryPeriodSeconds = 61;

// When the registration was last asked for by the permission check, seconds of the monotonic clock; 0 never.
// Lives as long as the process. Guarded by the URC-data mutex.
time_t s_registration_query_time;

// Gate, then the argument.
uint32_t prv_check(const void* out) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  return out != nullptr ? BRIO_STATUS_OK : BRIO_STATUS_INVALID;
}

template <typename Field, typename Out>
uint32_t prv_get(Field brio_atcmd_data::*field, Out* out) {
  uint32_t status = prv_check(out);
  if (status != BRIO_STATUS_OK) return status;
  *out = static_cast<Out>(shared_value(field));
  return BRIO_STATUS_OK;
}

// MCC values of a network that is not known yet.
bool prv_is_placeholder(const char* mcc) {
  static constexpr const char* kPlaceholders[] = {BRIO_PLMN_UNKNOWN, "fff", "555"};
  for (const char* placeholder : kPlaceholders) {
    if (strncmp(mcc, placeholder, 3) == 0) return true;
  }
  return false;
}

void prv_refresh_placeholder_plmn() {
  char mcc[sizeof(g_brio_lib_atcmd_data.mcc)];
  {
    UrcDataLock lock;
    copy_text(mcc, g_brio_lib_atcmd_data.mcc);
  }
  if (!prv_is_placeholder(mcc)) return;
  uint32_t status = briolib_update_mcc_mnc();
  BLIB_PLAIN("OK to start PDP, MCC %s need to be updated: %d::\n", mcc, static_cast<int>(status));
  BLIB_D(BRIO_LOG_DEBUG, "Generating BRIO_EVENT_SERVING_PLMN_CHANGED event\n\n");
  briolib_exec_event_callback(BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
}

// Throttles the registration query, however often the host asks.
bool prv_registration_query_due() {
  timespec now;
  if (!clock_monotonic(&now)) return false;
  UrcDataLock lock;
  if (s_registration_query_time != 0 &&
      now.tv_sec - s_registration_query_time < kRegistrationQueryPeriodSeconds) {
    return false;
  }
  s_registration_query_time = now.tv_sec;
  return true;
}

}  // namespace

uint32_t brio_get_band_info(uint32_t* out) {
  return prv_get(&brio_atcmd_data::band, out);
}

uint32_t brio_get_wan_type(uint32_t* out) {
  return prv_get(&brio_atcmd_data::wan_type, out);
}

uint32_t brio_get_carrier_id(uint16_t* out) {
  return prv_get(&brio_atcmd_data::carrier_config, out);
}

uint32_t brio_get_mcc_mnc(char out[8]) {
  uint32_t status = prv_check(out);
  if (status != BRIO_STATUS_OK) return status;
  UrcDataLock lock;
  const brio_atcmd_data& data = g_brio_lib_atcmd_data;
  memcpy(out, data.mcc, sizeof(data.mcc));
  memcpy(out + sizeof(data.mcc), data.mnc, sizeof(data.mnc));
  // A host may have filled the whole fields.
  out[sizeof(data.mcc) - 1] = '\0';
  out[sizeof(data.mcc) + sizeof(data.mnc) - 1] = '\0';
  return BRIO_STATUS_OK;
}

uint32_t brio_get_roaming_status(uint32_t* out) {
  uint32_t status = prv_check(out);
  if (status != BRIO_STATUS_OK) return status;
  const uint8_t cs_reg_status = shared_value(&brio_atcmd_data::cs_reg_status);
  *out = is_registered(cs_reg_status) ? cs_reg_status : 0;
  return BRIO_STATUS_OK;
}

uint32_t brio_get_pdp_context_activation_allowed(uint32_t* attached, uint32_t* allowed) {
  if (attached == nullptr || allowed == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  if (is_registered(shared_value(&brio_atcmd_data::ps_reg_status))) {
    *attached = 1;
    *allowed = 1;
    prv_refresh_placeholder_plmn();
  } else {
    *attached = 0;
    *allowed = 0;
    if (prv_registration_query_due()) briolib_atcmd_query_reg_status();
  }
  return BRIO_STATUS_OK;
}
