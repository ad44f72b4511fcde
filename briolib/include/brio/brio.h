/**
 * @file
 * The public operations of the modem library. A WAN manager uses wabs.h, which sits on top of them.
 *
 * @code
 * uint32_t bars = 0;
 * if (brio_open("/dev/ttyACM2") != BRIO_STATUS_OK) return 1;
 * if (brio_get_bars(&bars, 0) == BRIO_STATUS_OK) printf("%u bars\n", bars);
 * brio_close();
 * @endcode
 *
 * **Status.** Operations return a BRIO_STATUS_* code, written below without the prefix and with its number.
 * Each first asks the status gate (briolib_check_library_status) and returns NOT_OPEN (1) or FATAL (3) of it,
 * unless it is marked "Not gated". "Request failures" are FAILURE (4), an error answer or a broken channel,
 * and TIMEOUT (5). With any status but OK (0) an operation leaves its outputs as they were, unless it says
 * otherwise.
 *
 * **Blocking.** An operation that sends a command blocks until the answer or the time-out, 20 s unless
 * stated; a modem that takes no bytes adds up to 20 s. One command is outstanding at a time, the library's
 * own included (SIM refresh, SAR); callers are served in turn. While one thread is in brio_open, gated
 * operations of others wait for its end.
 *
 * **Thread.** Any thread of the host, except where "Host thread" asks for always the same one.
 *
 * **Refused.** Response callbacks, and callbacks of events that a report or an answer raises, run on a thread
 * of the library. Whatever would wait for that thread is refused there with an error line: brio_open and
 * brio_close return BUSY (2), operations that send a command FAILURE (4) or what they return for a failed
 * request, brio_abort_manual_nw_scan FAILURE (4). The same is refused in a child of fork() whose parent has
 * the library open; gated operations return NOT_OPEN (1) there. BRIO_EVENT_SERVING_PLMN_CHANGED runs on the
 * thread that called brio_get_pdp_context_activation_allowed or wabs_get_bars: nothing is refused there, and
 * its callback must not close the library.
 */
#ifndef BRIO_BRIO_H
#define BRIO_BRIO_H

#include <stdint.h>

#include "brio/brio_export.h"
#include "brio/brio_log_bits.h"
#include "brio/brio_types.h"

BRIO_EXTERN_C_BEGIN

/** @name Shared words and the shared record */
/** @{ */

/** The modem library's log mask (brio_log_bits.h), 0 at load. Set it with
 * briolib_log_set_log_mask (briolib.h). */
extern BRIO_API uint32_t g_brio_lib_log_mask;
/** The shared modem-data record, guarded by the URC-data mutex. */
extern BRIO_API brio_atcmd_data g_brio_lib_atcmd_data;
/** PS attachment: two equal words, 1 while registered for PS, else 0. Opening does not reset them: one that
 * finds the same state raises no event. Under the URC-data mutex. */
extern BRIO_API uint32_t s_pdp_event[2];
/** s_pdp_event before the last "+CGREG" line. Under the URC-data mutex. */
extern BRIO_API uint32_t s_prev_pdp_event[2];
/** SAR mode that the proximity monitor applied last (enum brio_sar_mode), 0 at load. No lock: a relaxed
 * atomic. */
extern BRIO_API int32_t g_pre_sar_mode;

/** @} */
/** @name Life */
/** @{ */

/** Prepends `dir` to every device path (ports, state files, sysfs, /proc/net/dev); null or "" is the device
 * itself. The text is copied. Only while the library is closed. Below `dir`, ports, sysfs and /proc/net/dev
 * may be links; state files may not. */
BRIO_API void brio_set_root_dir(const char* dir);
/**
 * Opens the modem on `query_port` ("/dev/ttyACM2"), and its reports on "/dev/ttyACM3". No port is locked: one
 * process at a time. Blocks for the whole command sequence: 6 s on a silent modem, six to seven minutes at
 * most (83 s and its time-out more with a stored network selection, see wabs.h). A failed open leaves nothing
 * behind and may be retried. A port lost after "AT+CFUN=1" does not fail the open: afterwards the status gate
 * returns FATAL (3), as whenever a port is lost, until brio_close and another brio_open. Not gated.
 *
 * @return OK (0); BUSY (2) while open or closing, and where it is refused (above); FAILURE (4) when the
 * packet layer or a port cannot be opened, as with null; TIMEOUT (5) when the modem does not accept "ATE0" or
 * "AT+CFUN=1"
 */
BRIO_API uint32_t brio_open(const char* query_port);
/** Closes the library; harmless when it is not open. A close while another one runs returns at once. A trace
 * capture goes on: brio_trace_tst_stop ends it. Not gated. @return OK (0); BUSY (2) where it is refused
 * (above), and the library stays open */
BRIO_API uint32_t brio_close(void);
/** The status gate itself. @return OK (0), NOT_OPEN (1) or FATAL (3) */
BRIO_API uint32_t brio_log_startup_status(void);
/**
 * Registers the callback of one event (null clears it). There is no lock: register before the library
 * reports, and leave the table alone while it is open. wabs_open registers for all events that there are
 * (0 to 3, 5 to 7 and 9) and replaces what was there. Not gated.
 *
 * @return OK (0); INVALID (6) when `id` is above 9
 */
BRIO_API uint32_t brio_set_callback_for_event_id(uint32_t id, brio_event_callback callback);

/** @} */
/** @name Registration and network */
/** @{ */

/** Switches groups of reports: 0 start-up set, 1 BAS on, 2 BAS off, 3 bars on, 4 bars off; any other does
 * nothing. Modes 2 and above are not gated, since they are used on the way down.
 * @return OK (0), for mode 0 whatever the modem answers; request failures */
BRIO_API uint32_t brio_atcmd_enable_urc(uint32_t mode);

/** Bytes that hold every list of brio_atcmd_scan_network: the query port's longest line and what its
 * entries may grow by. */
#define BRIO_SCAN_BUFFER_SIZE 3072
/**
 * Scans for operators ("AT+COPS=?", up to 300 s) after de-registering, 383 s in all. The modem stays off the
 * network afterwards, whatever the status (unless the de-registration itself is refused, and nothing is
 * scanned), until brio_atcmd_set_auto_mode. `buffer` receives a NUL-terminated list of at most 31 entries, at
 * most `size` bytes with the NUL:
 *
 *     stat,mcc,mnc,rat,"",long name,short name;
 *
 * stat is 0 unknown, 1 available, 2 current; rat 0..7 of 3GPP TS 27.007. The names are as the modem sent
 * them, with their quotes, within which "," and ";" may occur; the short name is "" unless the long one is.
 * Forbidden operators are not listed, and a network (MCC, MNC, rat) that comes twice is listed once. The list
 * ends, with a log line, before the first entry that does not fit; when that is the first of all, and with
 * any status but OK (0), the buffer stays untouched.
 *
 * @return OK (0); FAILURE (4), also when nothing valid was found; TIMEOUT (5); INVALID (6) for a null buffer;
 * SCAN_ABORTED (8)
 */
BRIO_API uint32_t brio_atcmd_scan_network(char* buffer, uint16_t size);
/** Sends "^" to stop the modem's search. It waits for an outstanding request: abort a running scan first.
 * @return OK (0) or request failures */
BRIO_API uint32_t brio_atcmd_scan_abort(void);
/** Ends a running scan: both calls return SCAN_ABORTED (8). Any thread but the library's own.
 * @return SCAN_ABORTED (8); FAILURE (4), and nothing happens, when none runs. A scan whose answer or whose
 * 300 s have come no longer runs. */
BRIO_API uint32_t brio_abort_manual_nw_scan(void);
/** Automatic network selection ("AT+COPS=0"). @return OK (0) or request failures */
BRIO_API uint32_t brio_atcmd_set_auto_mode(void);
/** Notes the current network, which every scan marks until the next call. @return OK (0) */
BRIO_API uint32_t brio_get_current_network(void);
/** Asks for the network's time zone ("AT+CCLK?"). `record` becomes zeros and the zone (time_zone, quarter
 * hours). @return OK (0); INVALID (6) for null; TIMEOUT (5) for any failed request, or without a zone */
BRIO_API uint32_t brio_get_network_time(network_time* record);
/** Data service: 0 none or unknown, 1 GSM, 2 EDGE class, 3 UMTS family, 5 LTE.
 * @return OK (0); INVALID (6) for null, before the gate */
BRIO_API uint32_t brio_get_data_service_mode(uint32_t* out);
/** Of the CS registration: 1 home, 2 roaming, 0 anything else. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t brio_get_roaming_status(uint32_t* out);
/** Band number of the last registration line, as band of brio_atcmd_data. @return OK (0); INVALID (6) for
 * null */
BRIO_API uint32_t brio_get_band_info(uint32_t* out);
/** WAN type: BRIO_WAN_TYPE_*, or the number of the WAN information file. @return OK (0); INVALID (6) for null
 */
BRIO_API uint32_t brio_get_wan_type(uint32_t* out);
/** Carrier configuration number that the modem had when the library opened, 0xFFFF unknown. One that this
 * open or brio_carrier_selection selected shows, and decides about the SAR back-off, from the next open on.
 * @return OK (0); INVALID (6) for null */
BRIO_API uint32_t brio_get_carrier_id(uint16_t* out);
/** MCC text in bytes 0..3, MNC text in bytes 4..7, "FFF" unknown. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t brio_get_mcc_mnc(char out[8]);
/** Both outputs become 1 while registered for PS, else 0. A denied PS registration ("+CGREG: 3") leaves the
 * state before it, although BRIO_EVENT_PDP_ACTIVATION_ALLOWED and s_pdp_event then say 0. Asks for the
 * operator while it is unknown, and then raises BRIO_EVENT_SERVING_PLMN_CHANGED; asks for the registration at
 * most once in 61 s while not registered.
 * @return OK (0); INVALID (6) for null, before the gate */
BRIO_API uint32_t brio_get_pdp_context_activation_allowed(uint32_t* attached, uint32_t* allowed);
/** Deletes every stored short message. @return OK (0); TIMEOUT (5) for any failure */
BRIO_API uint32_t brio_clear_sms(void);

/** @} */
/** @name Antennas */
/** @{ */

/** Asks for the BAS antenna status. The caller presets `record`.
 * @return OK (0); TIMEOUT (5) for any failed request; INVALID (6) for null */
BRIO_API uint32_t brio_get_bas_status(bas_status* record);
/** LTE antenna in use, 255 when the modem does not name it; the modem is asked only while it is unknown.
 * @return OK (0); INVALID (6) for null; UNAVAILABLE (7) when it cannot be read */
BRIO_API uint32_t brio_get_curr_lte_ant(uint32_t* out);
/** Locks antenna 1 or 2, or lets the modem switch (3). Sends "AT@GTICOM:SIO_PSVCTRL(0)" first, for any
 * choice.
 * @return OK (0); INVALID (6) for another choice; request failures */
BRIO_API uint32_t brio_set_lte_ant(uint32_t choice);

/** @} */
/** @name Signal bars */
/** @{ */

/** Signal bars. Mode 0 polls the modem at most once in 91 s and never returns 255; 1 (reading application
 * active) and 2 (plain read) serve the held value, which may be 255, and poll while none is held; any other
 * mode behaves as 0. Host thread.
 * @return OK (0); INVALID (6) for null, before the gate; UNAVAILABLE (7) when the poll failed */
BRIO_API uint32_t brio_get_bars(uint32_t* out, int32_t mode);

/** @} */
/** @name SIM */
/** @{ */

/** Card and lock status from the modem, preset to 0 and 15 whatever the status.
 * @return OK (0); INVALID (6) for null, before the gate; request failures */
BRIO_API uint32_t brio_get_sim_status(sim_card_status* record);
/** SIM_STATUS_OK, SIM_NOT_READ, NO_SIM or INVALID_OTHER of enum brio_sim_status; the other values cannot
 * occur. SIM_STATUS_OK also when it could not be read: the returned status tells.
 * @return as brio_get_sim_status */
BRIO_API uint32_t brio_get_wn3_sim_status(uint32_t* out);
/** IMSI and ICCID from the modem. @return OK (0); INVALID (6) for null, before the gate; FAILURE (4) when
 * either cannot be read, and `block` is then untouched */
BRIO_API uint32_t brio_get_sim_info(sim_identity* block);
/** Copies the PLMN lists that brio_get_sim_static_info read last, empty before, and completes the home PLMN
 * of the copy from the IMSI: with three MNC digits for 310410 and 302720, with two for all others. `size` is
 * a selector, any value but 0. @return OK (0); INVALID (6) for null or 0, before the gate; FAILURE (4) when
 * the IMSI cannot be read: the lists are copied all the same */
BRIO_API uint32_t brio_get_sim_plmn_info(sim_plmn_data* record, uint32_t size);
/** Reads the SIM's files and writes the static information file. Without `force` it stops after the ICCID
 * when that file exists. Host thread. @return OK (0), also when a file could not be read */
BRIO_API uint32_t brio_get_sim_static_info(int32_t force);

/** @} */
/** @name Modem */
/** @{ */

/** Modem identity, asked for once after an open, then served from memory and then not gated.
 * @return OK (0); INVALID (6) for null, before the gate; FAILURE (4) */
BRIO_API uint32_t brio_get_modem_info(modem_info* record);
/** The texts held in memory, or " " in each; never asks the modem. The fault count is not copied. Not gated.
 * @return OK (0); INVALID (6) for null */
BRIO_API uint32_t brio_copy_modem_info(modem_info* record);
/** Body-SAR back-off on (non-zero) or off. @return OK (0); NOT_OPEN (1) or FATAL (3) of the gate, or of the
 * request BLPKT_STATUS_TIMEOUT (1), BLPKT_STATUS_ERROR (2) or BLPKT_STATUS_BAD_REQUEST (3) of brio_at.h: the
 * numbers overlap, and any but 0 is a failure */
BRIO_API uint32_t brio_set_sar_pwr(uint32_t on);

/** @} */
/** @name Factory test: not gated; while closed FAILURE (4), of brio_carrier_selection INVALID (6) */
/** @{ */

/** Fake security configuration on (non-zero) or off. @return OK (0) or request failures */
BRIO_API uint32_t brio_set_fake_security_mode(uint32_t on);
/** Lets the modem forget its list of recent networks. @return OK (0) or request failures */
BRIO_API uint32_t brio_clear_mru(void);
/** Switches the radio off. @return OK (0) or request failures */
BRIO_API uint32_t brio_turn_off_rf(void);
/** Selects the carrier configuration of the SIM's home network and removes the WAN information file, by "rm"
 * and system(3), also when the modem refuses. Host thread. @return OK (0); request failures; INVALID (6),
 * with only "AT+CIMI" sent and the file left, when the IMSI cannot be read or its network is not supported */
BRIO_API uint32_t brio_carrier_selection(void);

/** @} */
/** @name Modem trace */
/** @{ */

/**
 * Sends the commands of the filter file and starts the capture of the modem's trace port into the file
 * "<log_prefix>_Y_M_D_h_m_s.istp" (local time; of the prefix the first 50 bytes count, up to a blank; a file
 * of that name is continued by root and refused for others, since it is read-only). Both paths are below the
 * root directory. A capture that still runs ends first. With a null `log_prefix` the filter is sent and
 * nothing is captured; a null `filter_path` switches tracing off. Host thread.
 *
 * The filter file has lines of at most 509 characters. Blanks and tabs at the beginning do not count; a line
 * that is then empty or begins with "#" is skipped. Any other is a command: "AT+XSYSTRACE=" or "AT+TRACE=" in
 * any case and what follows up to the first blank. The rest of the line is ignored:
 *
 *     # trace of the protocol stack
 *     AT+XSYSTRACE=1,"oct"
 *
 * @return OK (0) running, or told to switch off, whatever the modem answered to that; FATAL (3) when the port
 * cannot be opened or another process holds it, or the trace file cannot be created, and of the gate; FAILURE
 * (4) without a command in the file, a socket pair or a thread; NOT_OPEN (1) of the gate. With tracing
 * switched off: INVALID (6) for a line of an invalid format or more than 256 commands, UNAVAILABLE (7)
 * without a filter file, and of a filter command BLPKT_STATUS_TIMEOUT (1) or BLPKT_STATUS_ERROR (2)
 */
BRIO_API uint32_t brio_trace_tst_log(const char* filter_path, const char* log_prefix);
/** Ends the capture and joins its thread; harmless when none runs. Sends nothing. Not gated. Host thread. */
BRIO_API void brio_trace_tst_stop(void);

/** @} */
/** @name Kept for hosts: without effect */
/** @{ */

/** Does nothing. Not gated. @return OK (0) */
BRIO_API uint32_t brio_check_for_fatal_failure(void);
/** Does nothing: the modem computes the bars. Not gated. @return OK (0) */
BRIO_API uint32_t brio_set_bars_table(const void* table);
/** Does nothing but check. @return OK (0); INVALID (6) when `period` is 1, 2 or above 255, before the gate */
BRIO_API uint32_t brio_set_bars_update_period(uint32_t period);

/** @} */

BRIO_EXTERN_C_END

#endif
