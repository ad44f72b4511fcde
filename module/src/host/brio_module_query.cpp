// What the host polls, apart from the serving and home network (brio_module_mcc.cpp).
#include <string.h>

#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "host/module_state.h"
#include "nipc/nipc.h"

using namespace brio;

namespace {

constexpr char kAppManager[] = "com.quarto.appmgrd";
constexpr char kActiveAppProperty[] = "activeApp";
constexpr char kReaderApp[] = "com.quarto.shelf.viewer";

constexpr int32_t kZoneUnknown = -1;
constexpr uint32_t kSecondsPerZoneUnit = 900;
// Neither the modem's answer nor the cache holds a date, so this is all that the host ever reads.
constexpr time_t kTimeUnknown = static_cast<time_t>(-1);

// Host values, indexed by the library's data service mode; what lies beyond is none (0).
constexpr uint32_t kHostServiceMode[] = {0, 3, 2, 1, 1, 4};
// Host values, indexed by the library's roaming value; what lies beyond is neither (8).
constexpr uint32_t kHostRoaming[] = {8, 0, 1};

static_assert(WABS_SCAN_BUFFER_SIZE == BRIO_SCAN_BUFFER_SIZE, "two headers that stand alone");

bool s_scan_runs = false;  // a thread is in wabs_do_manual_nw_scan; atomic

template <size_t N>
uint32_t prv_map(const uint32_t (&table)[N], uint32_t value, uint32_t otherwise) {
  return value < N ? table[value] : otherwise;
}

// Fills the whole buffer: the text, cut where needed, then zeros, the last byte always zero.
template <size_t N>
void prv_copy_out(char* buffer, uint32_t length, const char (&text)[N]) {
  if (length == 0) return;
  size_t count = strnlen(text, N);
  if (count > length - 1) count = length - 1;
  memcpy(buffer, text, count);
  memset(buffer + count, 0, length - count);
}

// What every query of one value checks first.
uint32_t prv_check_value(const void* out) {
  if (!module_is_open()) return WABS_STATUS_NOT_OPEN;
  return out == nullptr ? WABS_STATUS_NULL_POINTER : WABS_STATUS_OK;
}

// A query of a text, which is copied only to a buffer that its field fits.
template <size_t N>
uint32_t prv_get_text(char* buffer, uint32_t length, const char (&text)[N]) {
  const uint32_t check = prv_check_value(buffer);
  if (check != WABS_STATUS_OK) return check;
  if (length < N) return WABS_STATUS_BUFFER_TOO_SMALL;
  prv_copy_out(buffer, length, text);
  return WABS_STATUS_OK;
}

// True while the foreground application is the one that shows pages to a reader.
bool prv_reader_active() {
  char* active = nullptr;
  uint32_t status = NipcGetStringProperty(g_module.ipc, kAppManager, kActiveAppProperty, &active);
  bool reader = succeeded(kAppManager, status) && active != nullptr && strcmp(active, kReaderApp) == 0;
  NipcFreeString(active);
  return reader;
}

uint32_t prv_plain_result(uint32_t status) {
  return status == BRIO_STATUS_OK ? WABS_STATUS_OK : WABS_STATUS_LIBRARY_FAILURE;
}

uint32_t prv_scan_result(uint32_t status) {
  if (status == BRIO_STATUS_SCAN_ABORTED) return WABS_STATUS_SCAN_ABORTED;
  return prv_plain_result(status);
}

}  // namespace

uint32_t wabs_get_bars(uint32_t* bars) {
  MODULE_ENTER();
  uint32_t check = prv_check_value(bars);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);

  uint32_t attached = 0;
  uint32_t allowed = 0;
  uint32_t status = brio_get_pdp_context_activation_allowed(&attached, &allowed);
  if (!succeeded("pdpa", status)) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  MODULE_D(WABS_LOG_FLOW, "brio:pdp activation state attached: %d,allowed: %d", attached, allowed);
  if (attached == 0) {
    *bars = WABS_BARS_NOT_ATTACHED;
    MODULE_RETURN(WABS_STATUS_OK);
  }

  status = brio_check_for_fatal_failure();
  if (status == BRIO_STATUS_FATAL) {
    MODULE_E("brio:fatalfailure::modem must be reset because fatal failure has occurred");
    MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  }
  if (!succeeded("fatalstatus", status)) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);

  MODULE_D(WABS_LOG_FLOW, "brio:getting bars");
  status = brio_get_bars(bars, prv_reader_active() ? 1 : 0);
  if (!succeeded("bars", status)) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  if (*bars == 0) *bars = 1;  // an attached modem never shows none
  MODULE_D(WABS_LOG_VALUE, "brio:bars:%d", *bars);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_module_time(time_t* utc, int32_t* offset_seconds) {
  MODULE_ENTER();
  if (utc == nullptr || offset_seconds == nullptr) MODULE_RETURN(WABS_STATUS_NULL_POINTER);

  int32_t zone = relaxed_load(g_module.cached_time_zone);
  if (zone == kZoneUnknown) {
    network_time record = {};
    uint32_t status = brio_get_network_time(&record);
    if (status == BRIO_STATUS_UNAVAILABLE) {
      MODULE_D(WABS_LOG_FLOW, "brio:Network time not provided");
      MODULE_RETURN(WABS_STATUS_NO_NETWORK_TIME);
    }
    if (!succeeded("local_time", status)) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
    zone = record.time_zone;
  }
  *utc = kTimeUnknown;
  // Unsigned, so that a zone beyond reason wraps.
  *offset_seconds = static_cast<int32_t>(static_cast<uint32_t>(zone) * kSecondsPerZoneUnit);
  MODULE_D(WABS_LOG_EVENT, "brio:localTimeOffset=%d", *offset_seconds);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_data_service_mode(uint32_t* mode) {
  MODULE_ENTER();
  uint32_t check = prv_check_value(mode);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);
  MODULE_D(WABS_LOG_FLOW, "brio:getting data service mode");
  uint32_t value = 0;
  if (!succeeded("dsm", brio_get_data_service_mode(&value))) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  MODULE_D(WABS_LOG_FLOW, "brio:data service mode = %d", value);
  *mode = prv_map(kHostServiceMode, value, 0);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_roaming_status(uint32_t* status) {
  MODULE_ENTER();
  uint32_t check = prv_check_value(status);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);
  uint32_t value = 0;
  const uint32_t library_status = brio_get_roaming_status(&value);
  if (!succeeded("roaming_status", library_status)) MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  *status = prv_map(kHostRoaming, value, 8);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_rssi(int32_t* rssi) {
  MODULE_ENTER();
  uint32_t check = prv_check_value(rssi);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);
  *rssi = 0;  // the host reads bars; the signal itself is on the diagnostic page
  MODULE_D(WABS_LOG_VALUE, "brio:rssi=%d", *rssi);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_imsi(char* buffer, uint32_t length) {
  MODULE_ENTER();
  const uint32_t status = prv_get_text(buffer, length, g_module.sim.imsi);
  if (status == WABS_STATUS_OK) MODULE_D(WABS_LOG_VALUE, "brio:IMSI updated");
  MODULE_RETURN(status);
}

uint32_t wabs_get_radio_serial_number(char* buffer, uint32_t length) {
  MODULE_ENTER();
  const uint32_t status = prv_get_text(buffer, length, g_module.modem.imei);
  if (status == WABS_STATUS_OK) MODULE_D(WABS_LOG_VALUE, "brio:imei=%s", buffer);
  MODULE_RETURN(status);
}

uint32_t wabs_get_radio_cert_param1(char* buffer, uint32_t length) {
  MODULE_ENTER();
  const uint32_t status = prv_get_text(buffer, length, g_module.sim.iccid);
  if (status != WABS_STATUS_OK) MODULE_RETURN(status);
  char masked[sizeof(g_module.sim.iccid)];
  prv_copy_out(masked, sizeof(masked), g_module.sim.iccid);
  MODULE_D(WABS_LOG_VALUE, "brio:iccid=%s", briolib_obfuscate_numeral(masked, '*'));
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_radio_cert_param2(char* buffer, uint32_t length) {
  MODULE_ENTER();
  MODULE_RETURN(wabs_get_imsi(buffer, length));
}

uint32_t wabs_get_realm(char* buffer, uint32_t length) {
  MODULE_ENTER();
  MODULE_RETURN(wabs_get_radio_serial_number(buffer, length));
}

uint32_t wabs_get_radio_phone_number(char* buffer) {
  MODULE_ENTER();
  uint32_t check = prv_check_value(buffer);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);
  buffer[0] = '\0';
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_firmware_version(char* buffer, uint32_t length) {
  MODULE_ENTER();
  if (buffer != nullptr) prv_copy_out(buffer, length, "norvik");
  uint32_t check = prv_check_value(buffer);
  if (check != WABS_STATUS_OK) MODULE_RETURN(check);
  prv_copy_out(buffer, length, g_module.modem.fw_ver);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_update_prl(void) {
  return module_is_open() ? WABS_STATUS_OK : WABS_STATUS_NOT_OPEN;
}

uint32_t wabs_get_log_string(char* buffer, int32_t size, uint32_t mode) {
  MODULE_ENTER();
  uint32_t capacity = buffer != nullptr && size > 0 ? static_cast<uint32_t>(size) : 0;
  if (capacity > 0) memset(buffer, 0, capacity);
  MODULE_RETURN(brio_module_get_log_string(buffer, &capacity, mode));
}

uint32_t wabs_exit_611_logging(void) {
  MODULE_ENTER();
  MODULE_RETURN(brio_module_exit_logging());
}

uint32_t wabs_do_manual_nw_scan(char* buffer, uint32_t length) {
  MODULE_ENTER();
  if (!module_is_open()) MODULE_RETURN(WABS_STATUS_NOT_OPEN);
  // A second scan would hold its caller for the rest of the first one and its own.
  if (__atomic_exchange_n(&s_scan_runs, true, __ATOMIC_ACQUIRE)) MODULE_RETURN(WABS_STATUS_SCAN_RUNNING);
  uint16_t size = length > UINT16_MAX ? UINT16_MAX : static_cast<uint16_t>(length);
  uint32_t status = brio_atcmd_scan_network(buffer, size);
  __atomic_store_n(&s_scan_runs, false, __ATOMIC_RELEASE);
  MODULE_RETURN(status == BRIO_STATUS_TIMEOUT ? uint32_t{WABS_STATUS_SCAN_RUNNING} : prv_scan_result(status));
}

uint32_t wabs_abort_manual_nw_scan(void) {
  MODULE_ENTER();
  if (!module_is_open()) MODULE_RETURN(WABS_STATUS_NOT_OPEN);
  MODULE_RETURN(prv_scan_result(brio_abort_manual_nw_scan()));
}

uint32_t wabs_set_auto_mode(void) {
  MODULE_ENTER();
  if (!module_is_open()) MODULE_RETURN(WABS_STATUS_NOT_OPEN);
  MODULE_RETURN(prv_plain_result(brio_atcmd_set_auto_mode()));
}

uint32_t wabs_send_abort_cmd(void) {
  MODULE_ENTER();
  if (!module_is_open()) MODULE_RETURN(WABS_STATUS_NOT_OPEN);
  MODULE_RETURN(prv_plain_result(brio_atcmd_scan_abort()));
}

uint32_t wabs_get_current_network(void) {
  MODULE_ENTER();
  if (!module_is_open()) MODULE_RETURN(WABS_STATUS_NOT_OPEN);
  MODULE_RETURN(prv_plain_result(brio_get_current_network()));
}
