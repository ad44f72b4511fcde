/**
 * @file
 * Operations that the modem library's parts, its tests and tools share. Hosts use wabs.h and brio.h, and of
 * this header briolib_log_set_log_mask and the mutex of the shared record. Statuses are those of brio.h, not
 * gated unless said.
 */
#ifndef BRIO_BRIOLIB_H
#define BRIO_BRIOLIB_H

#include <stdint.h>

#include "brio/brio_export.h"
#include "brio/brio_types.h"

BRIO_EXTERN_C_BEGIN

/** @name Status and shared data */
/** @{ */

/** The status gate. @return OK (0) open; NOT_OPEN (1); FATAL (3) open, but the channel failed or a close is
 * under way */
BRIO_API uint32_t briolib_check_library_status(void);
/** Library status of a packet status and a response status.
 * @return OK (0), FAILURE (4), TIMEOUT (5) or SCAN_ABORTED (8) */
BRIO_API uint32_t briolib_translate_status(uint32_t packet_status, uint32_t response_status);
/** Resets the shared record: 0 whole, non-zero only the serving-cell data. The caller holds the URC-data
 * mutex. */
BRIO_API void briolib_init_atcmd_data(int32_t keep);
/** Locks the SIM blocks. Short copies only, never while a command is sent.
 * @return OK (0); FAILURE (4) when the mutex call fails */
BRIO_API uint32_t briolib_lock_static_data_mutex(void);
/** Unlocks the SIM blocks. @return as briolib_lock_static_data_mutex */
BRIO_API uint32_t briolib_unlock_static_data_mutex(void);
/** Locks the shared record. Short copies only, never while a command is sent. The library-state mutex may be
 * held, and is not taken while this one is. @return OK (0); FAILURE (4) when the mutex call fails */
BRIO_API uint32_t briolib_lock_urc_data_mutex(void);
/** Unlocks the shared record. @return as briolib_lock_urc_data_mutex */
BRIO_API uint32_t briolib_unlock_urc_data_mutex(void);
/** Calls the event's callback, if any, on this thread. Size without data is refused with a log line; an id
 * above 9 is ignored. */
BRIO_API void briolib_exec_event_callback(uint32_t id, uint32_t data_size, const void* data);

/** @} */
/** @name URC dispatch */
/** @{ */

/** Logs the prefixes that at_parse knows, when BRIO_LOG_DISPATCH is set. */
BRIO_API void at_parse_init(void);
/**
 * Hands one line ("+NAME: fields", cut up in place) to its parser; the arguments pass through: the text of
 * the AT+CRSM command in `argument_a` for "+CRSM", non-null `argument_b` for an answer to a registration
 * query, the sim_card_status record in `argument_b` for "+GTSIMSTATUS". Event thread, or read thread from a
 * response callback. No data mutex may be held.
 *
 * @return OK (0) when a parser ran, whatever it found, or the line held no name; FAILURE (4) otherwise
 */
BRIO_API uint32_t at_parse(char* line, void* argument_a, void* argument_b);

/** @} */
/** @name Registration, reject, serving network */
/** @{ */

/** As brio_atcmd_enable_urc, never gated. @return OK (0) or request failures */
BRIO_API uint32_t briolib_atcmd_enable_urc(uint32_t mode);
/** Asks for the registration of each domain.
 * @return packet status of the last one; 4 or 6 for an answer that cannot be used */
BRIO_API uint32_t briolib_atcmd_query_reg_status(void);
/** Stores the text after "+CREG:" (`is_cs` 1) or "+CGREG:" (0), cut up in place; `is_query` 1 for an answer.
 * Raises BRIO_EVENT_PDP_ACTIVATION_ALLOWED when "+CGREG" changes that. The caller may hold the URC-data
 * mutex. */
BRIO_API void briolib_parse_reg_status(char* payload, int32_t is_cs, int32_t is_query);
/** Takes the text after "+STKPCI:". A USIM refresh re-reads the ICCID file, so no lock may be held. Not on
 * the read thread. */
BRIO_API void briolib_parse_stkpci(char* payload);
/** Stores the text after "+GTOTAREJECT:", cut up in place. The caller may hold the URC-data mutex. */
BRIO_API void briolib_parse_gtotareject(char* payload);
/** Reads the operator ("AT+COPS?") into the shared record. Gated. @return OK (0); TIMEOUT (5) when it could
 * not be read */
BRIO_API uint32_t briolib_update_mcc_mnc(void);
/** Reads the LTE states ("AT+GTLTEINFO?") into the shared record. @return OK (0) or request failures */
BRIO_API uint32_t briolib_update_lte_info(void);
/** Reads the serving cell ("AT+GTSCINFO?") into the shared record. @return OK (0) or request failures */
BRIO_API uint32_t briolib_get_gtscinfo(void);
/** Reads the GSM and UMTS states ("AT+GTSCSTAT?") into the shared record. @return OK (0) or request failures
 */
BRIO_API uint32_t briolib_get_gtscstat(void);
/** Stores the network time. The caller holds the URC-data mutex. */
BRIO_API void briolib_update_time_info(const network_time* record);
/** Raises BRIO_EVENT_TIME_INFO with size 4 and the 16-byte record. */
BRIO_API void briolib_send_time_event(const network_time* record);
/** Texts, of 4 bytes each, of a 3GPP TS 24.008 PLMN: byte 0 MCC2|MCC1, byte 1 MNC3|MCC3, byte 2 MNC2|MNC1
 * (high|low nibble), MNC3 0xF for two digits. FF FF FF yields "fff". @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_plmn_get_mcc_mnc(const uint8_t plmn[3], char* mcc, char* mnc);
/** The PLMN of two texts, as above. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_mccmnc_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]);

/** @} */
/** @name Antennas and bars */
/** @{ */

/** Stores the text after "+BASURC:" (`record` null), or a whole "+BAS" answer line, whose values are copied
 * to `record`, too. The caller may hold the URC-data mutex. */
BRIO_API void briolib_parse_bas_status(char* payload, bas_status* record);
/** Stores the text after "+GTBARS:", cut up in place, and raises BRIO_EVENT_BARS_CHANGED on a change. The
 * caller may hold the URC-data mutex. */
BRIO_API void briolib_parse_gtbars(char* payload);
/** Makes the next brio_get_bars poll. */
BRIO_API void briolib_invalid_cached_bars(void);

/** @} */
/** @name SIM */
/** @{ */

/** Reads the ICCID, up to 20 digits. Every later read, brio_get_sim_info included, renews the text. Host
 * thread. @return the library's buffer, or null when it cannot be read */
BRIO_API char* briolib_get_sim_iccid(void);
/** Reads the IMSI, up to 15 digits, as briolib_get_sim_iccid. @return as briolib_get_sim_iccid */
BRIO_API char* briolib_get_sim_imsi(void);
/** Whether the digest of the static information file is known. @return 1 or 0 */
BRIO_API uint32_t briolib_get_sim_info_md5_status(void);
/** Stores whether it is known: after 0 the next brio_get_sim_static_info(1) takes it from the file that is
 * there. The digest itself stays until then. */
BRIO_API void briolib_set_sim_info_md5_status(uint32_t value);
/** Copies the PLMN lists out. The caller holds the static-data mutex. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_get_sim_plmn_data(sim_plmn_data* record);
/** Copies the PLMN lists in. The caller holds the static-data mutex. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_update_sim_plmn_data(const sim_plmn_data* record);
/** Copies the SIM block out. The caller holds the static-data mutex. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_get_sim_info_data(sim_info_data* record);
/** Copies the SIM block in. The caller holds the static-data mutex. @return OK (0); INVALID (6) for null */
BRIO_API uint32_t briolib_update_sim_info_data(const sim_info_data* record);

/** @} */
/** @name Modem configuration */
/** @{ */

/** Makes the modem's carrier configuration fit the SIM.
 * @return OK (0); TIMEOUT (5) the query failed; INVALID (6) no IMSI or not supported; request failures */
BRIO_API uint32_t briolib_check_carrier_confg(void);
/** Makes the APN of PDP context 1 fit the SIM or the override file.
 * @return OK (0); TIMEOUT (5) the query failed; INVALID (6) no IMSI; request failures */
BRIO_API uint32_t briolib_check_apn_setting(void);
/** Decides the WAN type. @return OK (0); UNAVAILABLE (7) when the model could not be read (type 0) */
BRIO_API uint32_t briolib_update_wan_type(void);
/** Selection mode of the snapshot. @return `mode`; for 255: 1 when the stored selection command holds
 * "AT+COPS=0", else 0 */
BRIO_API uint32_t briolib_get_snapshot_mode(uint32_t mode);
/** Forgets the modem identity held in memory. */
BRIO_API void briolib_reset_modem_info(void);
/** Sends "AT+BODYSARON=1" for non-zero, else "=0". @return the packet status */
BRIO_API uint32_t briolib_set_sar_pwr(uint32_t on);

/** @} */
/** @name Logs, digests, encodings */
/** @{ */

/**
 * Writes the static information file (mode 0644, no symbolic link is followed) when its digest differs from
 * the last known one, whatever became of the file meanwhile. A write that fails is logged and repeated by the
 * next call. Host thread.
 */
BRIO_API void briolib_log_dump_static_info(void);
/** MD5 of `count` texts in order, up to the first null.
 * @return 16; 0 for null, no texts, or a libcrypto failure */
BRIO_API uint32_t briolib_get_md5_hash(const char* const* strings, int32_t count, uint8_t digest[16]);
/** MD5 of a regular file of up to 16 MiB, not through a link; the root directory is not prepended.
 * @return 16, or 0 with a log line */
BRIO_API uint32_t briolib_get_file_md5_hash(const char* path, uint8_t digest[16]);
/** Encodes: standard alphabet, padded, no line breaks, no NUL.
 * @return bytes produced; -1 when they exceed the capacity, for a negative length, and for null unless the
 * length is 0 */
BRIO_API int32_t briolib_base64_encode(const void* input, void* output, int32_t input_length,
                                       int32_t output_capacity);
/**
 * Decodes; characters are not checked. `output` needs room for 3 * (input_length / 4) bytes, less one for
 * each of the last two that is "=": `output_capacity` does not limit what is written (a quirk that is kept).
 *
 * @return bytes written; -1 when the input length is negative or no multiple of 4, or `output_capacity`
 * exceeds 3 * (input_length / 4), or for null unless the length is 0
 */
BRIO_API int32_t briolib_base64_decode(const void* input, void* output, int32_t input_length,
                                       int32_t output_capacity);
/** Replaces every ASCII letter in place (length modulo 65,536). @return the text, null for null */
BRIO_API char* briolib_obfuscate_alphabet(char* text, char mask_char);
/** Replaces every decimal digit in place (length modulo 65,536). @return the text, null for null */
BRIO_API char* briolib_obfuscate_numeral(char* text, char mask_char);
/** Sets the library's log mask and logs that. */
BRIO_API void briolib_log_set_log_mask(uint32_t mask);
/** Logs a hexadecimal dump, 16 bytes a line, when `bits` and the log mask share one. */
BRIO_API void briolib_log_debug_print_packet(uint32_t bits, const void* data, uint32_t length);
/**
 * Fills the snapshot; with `no_refresh` 0 every third call asks the modem for serving-cell data first. Gated.
 * Host thread. @return OK (0); INVALID (6) for null, before the gate
 */
BRIO_API uint32_t briolib_get_atcmd_snapshot(atcmd_snapshot* record, uint32_t no_refresh);
/** Name of `value` in a table of `count` rows. A row at the index that is its value wins over earlier rows of
 * it. @return "N/A" when it is absent or the table is null */
BRIO_API const char* enum_to_string(const enum_pair* table, uint32_t count, uint32_t value);

/** @} */
/** @name Kept for hosts: without effect */
/** @{ */

/** Does nothing: the causes are read through the snapshot. @return OK (0) */
BRIO_API uint32_t briolib_get_rej_causes(void);
/** Builds the base64 table, which the first use builds as well. */
BRIO_API void briolib_base64_init(void);

/** @} */

BRIO_EXTERN_C_END

#endif
