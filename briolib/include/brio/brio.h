/*
 * Public operations of the modem library.
 *
 * Every operation first asks the status gate (briolib_check_library_status) and returns its non-zero value
 * unchanged, unless it says otherwise: BRIO_STATUS_NOT_OPEN (1) or BRIO_STATUS_FATAL (3). "Request failures"
 * are BRIO_STATUS_FAILURE (4, error answer or broken channel) and BRIO_STATUS_TIMEOUT (5). Operations that
 * send a command block until the answer or the time-out (20 s unless stated). Only one command is outstanding
 * at a time; callers are served in the order in which they came. With a status other than 0 an operation
 * leaves its outputs as they were, unless it says otherwise.
 *
 * A response or event callback runs on a thread of the library. What would wait for that thread is refused
 * there with an error line: brio_open and brio_close return BRIO_STATUS_BUSY (2), operations that send a
 * command a request failure (4, or what they return for any failed request), brio_abort_manual_nw_scan 4.
 *
 * The same is refused in a child of fork() whose parent has the library open, with gated operations
 * returning 1: the child has no part in it.
 */
#ifndef BRIO_BRIO_H
#define BRIO_BRIO_H

#include <stdint.h>

#include "brio/brio_export.h"
#include "brio/brio_log_bits.h"
#include "brio/brio_types.h"

BRIO_EXTERN_C_BEGIN

/* The modem library's log mask (brio_log_bits.h), 0 at load. A plain word: set it with
 * briolib_log_set_log_mask. */
extern BRIO_API uint32_t g_brio_lib_log_mask;
/* The shared modem-data record, guarded by the URC-data mutex. */
extern BRIO_API brio_atcmd_data g_brio_lib_atcmd_data;
/* PS attachment, current and previous: two equal words, 1 while registered for PS, else 0. */
extern BRIO_API uint32_t s_pdp_event[2];
extern BRIO_API uint32_t s_prev_pdp_event[2];
/* SAR mode that the proximity monitor applied last (enum brio_sar_mode); 0 at load. */
extern BRIO_API int32_t g_pre_sar_mode;

/* ---- Life
 * -------------------------------------------------------------------------------------------------------- */

/*
 * Prepends `dir` to every device path (ports, state files, sysfs, /proc/net/dev); null or "" is the device
 * itself. The text is copied. Only while the library is closed. Below it ports, sysfs and /proc/net/dev may
 * be links, state files may not.
 */
BRIO_API void brio_set_root_dir(const char* dir);
/*
 * Opens the modem on `query_port` ("/dev/ttyACM2"). 0; 2 while open or closing and where it is refused
 * (above); 4 when the packet layer or the ports cannot be opened; 5 when the modem does not accept "ATE0" or
 * "AT+CFUN=1". Not gated. A failed open leaves nothing behind and may be retried. Blocks for the whole
 * command sequence. A port that is lost after "AT+CFUN=1" does not fail the open: the status gate returns 3
 * afterwards, as whenever a port is lost, until brio_close and another brio_open.
 */
BRIO_API uint32_t brio_open(const char* query_port);
/*
 * Closes the library; 0, harmless when it is not open; 2 on a thread of the library, which stays open. A
 * close that meets another one returns at once. Not gated.
 */
BRIO_API uint32_t brio_close(void);
/* The status gate's value, nothing else. */
BRIO_API uint32_t brio_log_startup_status(void);
/* Always 0: a hook that inspects nothing. Not gated. */
BRIO_API uint32_t brio_check_for_fatal_failure(void);
/*
 * Registers the callback of one event (null clears it). 0, or 6 when `id` is above 9. No lock: register
 * before the library reports, and leave the table alone while it is open. wabs_open registers for all events
 * that there are (0 to 3, 5 to 7 and 9) and replaces what was there. Not gated.
 */
BRIO_API uint32_t brio_set_callback_for_event_id(uint32_t id, brio_event_callback callback);

/* ---- Registration and network
 * ------------------------------------------------------------------------------------ */

/*
 * Switches groups of unsolicited results: 0 start-up set, 1 BAS reports on, 2 BAS reports off, 3 bars reports
 * on, 4 bars reports off; other modes do nothing. 0 or request failures. Modes 0 and 1 are gated; 2 and above
 * are not, since they are used on the way down.
 */
BRIO_API uint32_t brio_atcmd_enable_urc(uint32_t mode);

/* Holds every list of brio_atcmd_scan_network: the longest line of the query port and what entries grow. */
#define BRIO_SCAN_BUFFER_SIZE 3072
/*
 * Scans for operators ("AT+COPS=?", up to 300 s) after de-registering; the modem stays off the network
 * afterwards, whatever the status, until brio_atcmd_set_auto_mode. `buffer` receives a NUL-terminated list of
 * at most 31 entries, at most `size` bytes with the NUL:
 *
 *   stat,mcc,mnc,rat,"",long name,short name;
 *
 * stat is 0 unknown, 1 available, 2 current; rat 0..7 of 3GPP TS 27.007. The names stand as the modem sent
 * them, with their quotes, within which "," and ";" may occur; the short name is "" unless the long one is.
 * Forbidden operators are not listed.
 *
 * The buffer stays untouched when no entry fits and when the status is not 0. Entries that do not fit are
 * left out with a log line. 0; 6 for a null buffer; 4, also when nothing valid was found; 5 after 300 s (80 s
 * more when the de-registration is not answered); 8 when aborted.
 */
BRIO_API uint32_t brio_atcmd_scan_network(char* buffer, uint16_t size);
/* Sends "^" to stop the modem's search, once no request is outstanding any more: abort a running scan first.
 * 0 or request failures. Any thread. */
BRIO_API uint32_t brio_atcmd_scan_abort(void);
/*
 * Ends a running scan: 8, and the scan returns 8, too. 4, and nothing happens, when none runs, which is also
 * once its answer or its 300 s have come. Any thread but the library's own (4).
 */
BRIO_API uint32_t brio_abort_manual_nw_scan(void);
/* Automatic network selection ("AT+COPS=0"). 0 or request failures. */
BRIO_API uint32_t brio_atcmd_set_auto_mode(void);
/* Refreshes the record of the current network, which the next scan to end marks. 0. Any thread. */
BRIO_API uint32_t brio_get_current_network(void);
/*
 * Asks for the network's time zone ("AT+CCLK?"). Fills `record` with zeros and the zone (time_zone, quarter
 * hours). 0; 6 for null; 5 for any failed request, or when the modem gave no zone.
 */
BRIO_API uint32_t brio_get_network_time(network_time* record);
/* 0 none or unknown, 1 GSM, 2 EDGE class, 3 UMTS family, 5 LTE. 0; 6 for null (before the gate). */
BRIO_API uint32_t brio_get_data_service_mode(uint32_t* out);
/* 2 roaming, 1 home, 0 anything else, of the CS registration. 0; 6 for null. */
BRIO_API uint32_t brio_get_roaming_status(uint32_t* out);
/* Band number of the last registration report, 0 unknown. 0; 6 for null. */
BRIO_API uint32_t brio_get_band_info(uint32_t* out);
/* WAN type of the shared record. 0; 6 for null. */
BRIO_API uint32_t brio_get_wan_type(uint32_t* out);
/* Carrier configuration number of the modem, 0xFFFF unknown. 0; 6 for null. */
BRIO_API uint32_t brio_get_carrier_id(uint16_t* out);
/* MCC text in bytes 0..3, MNC text in bytes 4..7, "FFF" unknown. 0; 6 for null. */
BRIO_API uint32_t brio_get_mcc_mnc(char out[8]);
/*
 * Both outputs become 1 while registered for PS, else 0. Refreshes a placeholder MCC and raises event 5; asks
 * for the registration at most once in 61 s while not registered. 0; 6 for null.
 */
BRIO_API uint32_t brio_get_pdp_context_activation_allowed(uint32_t* attached, uint32_t* allowed);
/* Deletes every stored short message. 0; 5 when that failed. */
BRIO_API uint32_t brio_clear_sms(void);

/* ---- Antennas
 * ---------------------------------------------------------------------------------------------------- */

/* Asks the modem for the BAS antenna status. `record` is preset by the caller. 0; 5 for any failed request; 6
 * for null. */
BRIO_API uint32_t brio_get_bas_status(bas_status* record);
/* LTE antenna in use; asks the modem only while it is unknown. 0; 6 for null; 7 when it cannot be read. */
BRIO_API uint32_t brio_get_curr_lte_ant(uint32_t* out);
/* Locks antenna 1 or 2, or switches automatically (3). 0; 6 for another choice; request failures. */
BRIO_API uint32_t brio_set_lte_ant(uint32_t choice);

/* ---- Signal bars
 * ------------------------------------------------------------------------------------------------- */

/*
 * Signal bars. Mode 0 polls the modem at most once in 91 s and never gives 255; 1 (reading application
 * active) and 2 (plain read) serve the held value, which may be 255. 0; 6 for null; 7 when the poll failed.
 * One host thread.
 */
BRIO_API uint32_t brio_get_bars(uint32_t* out, int32_t mode);
/* Does nothing: the modem computes the bars. 0. Not gated. */
BRIO_API uint32_t brio_set_bars_table(const void* table);
/* Does nothing but check: 6 when `period` is 1, 2 or above 255. */
BRIO_API uint32_t brio_set_bars_update_period(uint32_t period);

/* ---- SIM
 * ---------------------------------------------------------------------------------------------------------
 */

/* Card and lock status from the modem, preset to 0 and 15 whatever the status. 0; 6 for null (before the
 * gate); request failures. */
BRIO_API uint32_t brio_get_sim_status(sim_card_status* record);
/* SIM status (enum brio_sim_status): SIM_STATUS_OK, SIM_NOT_READ, NO_SIM or INVALID_OTHER; the other values
 * cannot occur. SIM_STATUS_OK also when it could not be read: the status tells. 0; 6 for null; as above. */
BRIO_API uint32_t brio_get_wn3_sim_status(uint32_t* out);
/* IMSI and ICCID from the modem. 0; 6 for null; 4 when either cannot be read (`block` is then untouched). */
BRIO_API uint32_t brio_get_sim_info(sim_identity* block);
/*
 * Copies the SIM's PLMN lists and completes the home PLMN of the copy from the IMSI. `size` is a selector,
 * any non-zero value. 0; 6 for null or 0; 4 when the IMSI cannot be read (the lists are copied all the same).
 */
BRIO_API uint32_t brio_get_sim_plmn_info(sim_plmn_data* record, uint32_t size);
/*
 * Reads the SIM's files and writes the static information file. Without `force` it stops behind the ICCID
 * when that file exists. 0 also when a file could not be read. Host thread.
 */
BRIO_API uint32_t brio_get_sim_static_info(int32_t force);

/* ---- Modem
 * ------------------------------------------------------------------------------------------------------- */

/* Modem identity; asked for once after open, then served from memory (not gated then). 0; 6 for null; 4 on
 * failure. */
BRIO_API uint32_t brio_get_modem_info(modem_info* record);
/* The texts held in memory, or " " in each; never asks the modem. The fault count is not copied. 0; 6
 * for null. Not gated. */
BRIO_API uint32_t brio_copy_modem_info(modem_info* record);
/* Body-SAR back-off on (non-zero) or off. 0; the gate's status, or the request's packet status (brio_at.h: 1
 * time-out, 2 error, 3 refused), which share their numbers: any but 0 is a failure. Any thread. */
BRIO_API uint32_t brio_set_sar_pwr(uint32_t on);

/* ---- Factory test: not gated. 0 or request failures.
 * ------------------------------------------------------------- */

BRIO_API uint32_t brio_set_fake_security_mode(uint32_t on);
BRIO_API uint32_t brio_clear_mru(void);
BRIO_API uint32_t brio_turn_off_rf(void);
/* Selects the carrier configuration of the SIM's home network and removes the WAN information file. 6 also
 * when the IMSI cannot be read or its network is not supported (nothing is sent then). Host thread. */
BRIO_API uint32_t brio_carrier_selection(void);

/* ---- Modem trace
 * ------------------------------------------------------------------------------------------------- */

/*
 * The filter file: lines of at most 509 characters. Blanks and tabs in front do not count; a line that is
 * then empty or begins with "#" is skipped. Any other is a command, "AT+XSYSTRACE=" or "AT+TRACE=" in any
 * case and what follows up to the first blank; the rest of the line is ignored:
 *
 *   # trace of the protocol stack
 *   AT+XSYSTRACE=1,"oct"
 *
 * Sends the commands of the filter file and starts the capture of the modem's trace port into the file
 * "<log_prefix>_Y_M_D_h_m_s.istp" (local time; of the prefix the first 50 bytes count; one that is there
 * already is continued). A capture that still runs ends first. With a null `log_prefix` the filter is sent
 * and nothing is captured. 0 running, or tracing switched off for a null `filter_path`; 7 no filter file
 * (tracing switched off); 6 a line has an invalid format (switched off); 4 no command in the file, or no
 * socket pair or thread; 3 the port cannot be opened or another process holds it, or the trace file cannot be
 * created; 1 or 2, the packet status of a filter command (switched off). 1 and 3 are also the gate's. Host
 * thread.
 */
BRIO_API uint32_t brio_trace_tst_log(const char* filter_path, const char* log_prefix);
/* Ends the capture and joins its thread; harmless when none runs. Sends nothing. Not gated. Host thread. */
BRIO_API void brio_trace_tst_stop(void);

BRIO_EXTERN_C_END

#endif
