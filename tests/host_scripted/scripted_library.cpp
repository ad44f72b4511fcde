#include "scripted_library.h"

#include <algorithm>
#include <cstring>

#include "brio/brio_module.h"
#include "brio/prox.h"

ScriptedLibrary g_library;

size_t ScriptedLibrary::count(const std::string& call) const {
  return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
}

namespace {

uint32_t next(std::deque<uint32_t>& answers) {
  if (answers.empty()) return 0;
  uint32_t answer = answers.front();
  if (answers.size() > 1) answers.pop_front();
  return answer;
}

// Writes the call down; its status.
uint32_t called(const std::string& name, const std::string& arguments = "") {
  g_library.calls.push_back(arguments.empty() ? name : name + " " + arguments);
  return next(g_library.statuses[name]);
}

template <typename T>
uint32_t answer(const char* name, T* out, T value) {
  uint32_t status = called(name);
  if (status == 0) *out = value;
  return status;
}

template <size_t N>
void fill(char (&field)[N], const std::string& text) {
  strncpy(field, text.c_str(), N);
}

}  // namespace

extern "C" {

uint32_t __wrap_brio_open(const char* port) {
  return called("brio_open", port);
}
uint32_t __wrap_brio_close() {
  return called("brio_close");
}
uint32_t __wrap_brio_trace_tst_log(const char* filter, const char* prefix) {
  return called("brio_trace_tst_log", std::string(filter) + " " + prefix);
}
void __wrap_brio_trace_tst_stop() {
  called("brio_trace_tst_stop");
}
uint32_t __wrap_prox_open() {
  return called("prox_open");
}
void __wrap_prox_close() {
  called("prox_close");
}

uint32_t __wrap_brio_get_carrier_id(uint16_t* out) {
  return answer("brio_get_carrier_id", out, g_library.carrier);
}
uint32_t __wrap_brio_get_wn3_sim_status(uint32_t* out) {
  uint32_t status = called("brio_get_wn3_sim_status");
  if (status == 0) *out = next(g_library.sim_status);
  return status;
}
uint32_t __wrap_brio_get_modem_info(modem_info* record) {
  uint32_t status = called("brio_get_modem_info");
  if (status != 0) return status;
  fill(record->fw_ver, g_library.firmware);
  fill(record->imei, g_library.imei);
  return 0;
}
uint32_t __wrap_brio_set_callback_for_event_id(uint32_t id, brio_event_callback callback) {
  g_library.callbacks[id] = callback;
  return called("callback", std::to_string(id));
}
uint32_t __wrap_brio_get_sim_info(sim_identity* block) {
  uint32_t status = called("brio_get_sim_info");
  if (status != 0) return status;
  fill(block->iccid, g_library.iccid);
  fill(block->imsi, g_library.imsi);
  return 0;
}
uint32_t __wrap_brio_get_sim_static_info(int32_t force) {
  return called("brio_get_sim_static_info", std::to_string(force));
}

uint32_t __wrap_brio_get_pdp_context_activation_allowed(uint32_t* attached, uint32_t* allowed) {
  uint32_t status = called("brio_get_pdp_context_activation_allowed");
  if (status == 0) *attached = *allowed = g_library.attached;
  return status;
}
uint32_t __wrap_brio_check_for_fatal_failure() {
  return called("brio_check_for_fatal_failure");
}
uint32_t __wrap_brio_get_bars(uint32_t* out, int32_t mode) {
  uint32_t status = called("brio_get_bars", std::to_string(mode));
  if (status == 0) *out = g_library.bars;
  return status;
}
uint32_t __wrap_brio_get_network_time(network_time* record) {
  return answer("brio_get_network_time", record, g_library.time);
}
uint32_t __wrap_brio_get_data_service_mode(uint32_t* out) {
  return answer("brio_get_data_service_mode", out, g_library.service_mode);
}
uint32_t __wrap_brio_get_roaming_status(uint32_t* out) {
  return answer("brio_get_roaming_status", out, g_library.roaming);
}
uint32_t __wrap_brio_get_mcc_mnc(char* out) {
  uint32_t status = called("brio_get_mcc_mnc");
  if (status != 0) return status;
  strncpy(out, g_library.mcc.c_str(), 4);
  strncpy(out + 4, g_library.mnc.c_str(), 4);
  if (g_library.while_asked_for_plmn) g_library.while_asked_for_plmn();
  return 0;
}
uint32_t __wrap_brio_get_sim_plmn_info(sim_plmn_data* record, uint32_t size) {
  uint32_t status = called("brio_get_sim_plmn_info", std::to_string(size));
  if (status != 0) return status;
  fill(record->home_mcc, g_library.home_mcc);
  fill(record->home_mnc, g_library.home_mnc);
  return 0;
}

uint32_t __wrap_brio_atcmd_scan_network(char*, uint16_t size) {
  g_library.scan_size = size;
  return called("brio_atcmd_scan_network");
}
uint32_t __wrap_brio_abort_manual_nw_scan() {
  return called("brio_abort_manual_nw_scan");
}
uint32_t __wrap_brio_atcmd_set_auto_mode() {
  return called("brio_atcmd_set_auto_mode");
}
uint32_t __wrap_brio_atcmd_scan_abort() {
  return called("brio_atcmd_scan_abort");
}
uint32_t __wrap_brio_get_current_network() {
  return called("brio_get_current_network");
}
uint32_t __wrap_brio_module_get_log_string(char* buffer, uint32_t* size, uint32_t mode) {
  g_library.page_buffer = buffer;
  g_library.page_capacity = *size;
  return called("brio_module_get_log_string", std::to_string(mode));
}
uint32_t __wrap_brio_module_exit_logging() {
  return called("brio_module_exit_logging");
}

}  // extern "C"
