/*
 * What hosts call, declared once more with the widths that they were built with: a header that departs from
 * them does not compile with this file.
 */
#include "brio/brio.h"
#include "brio/brio_module.h"
#include "brio/prox.h"
#include "brio/wabs.h"

extern uint32_t gBrioModuleLogMask;
extern uint32_t g_611_urc_on;
extern uint32_t g_brio_lib_log_mask;
extern brio_atcmd_data g_brio_lib_atcmd_data;
extern uint32_t s_pdp_event[2];
extern uint32_t s_prev_pdp_event[2];
extern int32_t g_pre_sar_mode;

uint32_t wabs_open(void);
uint32_t wabs_close(void);
uint32_t wabs_is_blib_open(void);
uint32_t wabs_get_module_flags(uint32_t*);
void wabs_set_log_mask(uint32_t);
uint32_t wabs_report_event(const void*);
uint32_t wabs_enable_logging(void);
uint32_t wabs_log_message(void);
uint32_t wabs_try_to_use_home_network(void);
uint32_t wabs_originate_call_test(void);
uint32_t wabs_stop_call_test(void);
uint32_t wabs_update_prl(void);
uint32_t wabs_get_bars(uint32_t*);
uint32_t wabs_get_data_service_mode(uint32_t*);
uint32_t wabs_get_roaming_status(uint32_t*);
uint32_t wabs_get_rssi(int32_t*);
uint32_t wabs_get_module_time(time_t*, int32_t*);
uint32_t wabs_get_imsi(char*, uint32_t);
uint32_t wabs_get_radio_serial_number(char*, uint32_t);
uint32_t wabs_get_radio_cert_param1(char*, uint32_t);
uint32_t wabs_get_radio_cert_param2(char*, uint32_t);
uint32_t wabs_get_realm(char*, uint32_t);
uint32_t wabs_get_firmware_version(char*, uint32_t);
uint32_t wabs_get_radio_phone_number(char*);
uint32_t wabs_get_log_string(char*, int32_t, uint32_t);
uint32_t wabs_exit_611_logging(void);
uint32_t wabs_abort_manual_nw_scan(void);
uint32_t wabs_set_auto_mode(void);
uint32_t wabs_send_abort_cmd(void);
uint32_t wabs_get_current_network(void);
uint32_t wabs_do_manual_nw_scan(char*, uint32_t);
uint32_t wabs_get_mcc_mnc(uint32_t*, uint32_t*);
uint32_t wabs_get_hplmn_mcc_mnc(uint32_t*, uint32_t*);
uint32_t brio_module_get_log_string(char*, uint32_t*, uint32_t);
uint32_t brio_module_exit_logging(void);
void mask_band(char*);
void mask_ip_address(char*);
uint32_t prox_open(void);
void prox_close(void);

uint32_t brio_open(const char*);
void brio_set_root_dir(const char*);
uint32_t brio_close(void);
uint32_t brio_log_startup_status(void);
uint32_t brio_check_for_fatal_failure(void);
uint32_t brio_set_callback_for_event_id(uint32_t, uint32_t (*)(uint32_t, uint32_t, const void*));
uint32_t brio_atcmd_enable_urc(uint32_t);
uint32_t brio_atcmd_scan_network(char*, uint16_t);
uint32_t brio_atcmd_scan_abort(void);
uint32_t brio_abort_manual_nw_scan(void);
uint32_t brio_atcmd_set_auto_mode(void);
uint32_t brio_get_current_network(void);
uint32_t brio_clear_sms(void);
uint32_t brio_get_network_time(network_time*);
uint32_t brio_get_data_service_mode(uint32_t*);
uint32_t brio_get_roaming_status(uint32_t*);
uint32_t brio_get_band_info(uint32_t*);
uint32_t brio_get_wan_type(uint32_t*);
uint32_t brio_get_curr_lte_ant(uint32_t*);
uint32_t brio_get_wn3_sim_status(uint32_t*);
uint32_t brio_get_carrier_id(uint16_t*);
uint32_t brio_get_mcc_mnc(char[8]);
uint32_t brio_get_pdp_context_activation_allowed(uint32_t*, uint32_t*);
uint32_t brio_get_bas_status(bas_status*);
uint32_t brio_set_lte_ant(uint32_t);
uint32_t brio_get_bars(uint32_t*, int32_t);
uint32_t brio_set_bars_table(const void*);
uint32_t brio_set_bars_update_period(uint32_t);
uint32_t brio_get_sim_status(sim_card_status*);
uint32_t brio_get_sim_info(sim_identity*);
uint32_t brio_get_sim_plmn_info(sim_plmn_data*, uint32_t);
uint32_t brio_get_sim_static_info(int32_t);
uint32_t brio_get_modem_info(modem_info*);
uint32_t brio_copy_modem_info(modem_info*);
uint32_t brio_set_sar_pwr(uint32_t);
uint32_t brio_set_fake_security_mode(uint32_t);
uint32_t brio_clear_mru(void);
uint32_t brio_turn_off_rf(void);
uint32_t brio_carrier_selection(void);
uint32_t brio_trace_tst_log(const char*, const char*);
void brio_trace_tst_stop(void);
