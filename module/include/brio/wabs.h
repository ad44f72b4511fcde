/**
 * @file
 * The host interface of libbrio_module.so.1: what a WAN manager calls.
 *
 * @code
 * uint32_t bars = 0;
 * if (wabs_open() != WABS_STATUS_OK) return 1;
 * if (wabs_get_bars(&bars) == WABS_STATUS_OK && bars != WABS_BARS_NOT_ATTACHED) printf("%u bars\n", bars);
 * wabs_close();
 * @endcode
 *
 * **Thread.** One host thread calls everything here. While it scans, another one may call
 * wabs_abort_manual_nw_scan, wabs_close, and what sends no command; wabs_do_manual_nw_scan returns
 * SCAN_RUNNING (14) there, and other commands wait for the scan's end. The host is never called back: it
 * polls. wabs_open registers the module's own callbacks for every event of the modem library, so a host that
 * uses wabs_* leaves brio_set_callback_for_event_id alone.
 *
 * **Status.** Every operation returns a WABS_STATUS_* code, written below without the prefix and with its
 * number, and returns NOT_OPEN (1) while the module is closed, unless it says otherwise. With any status but
 * OK (0) it leaves its outputs as they were, unless it says otherwise. Statuses of the modem library (brio.h)
 * become those below; queries log the original one (WABS_LOG_ERROR), while scans, their aborts,
 * wabs_set_auto_mode and wabs_get_current_network do not:
 *
 *     library              host
 *     OK (0)               OK (0)
 *     TIMEOUT (5)          SCAN_RUNNING (14) from wabs_do_manual_nw_scan, else LIBRARY_FAILURE (2)
 *     SCAN_ABORTED (8)     SCAN_ABORTED (15) from wabs_do_manual_nw_scan and wabs_abort_manual_nw_scan
 *     any other            LIBRARY_FAILURE (2)
 *
 * **Blocking.** Commands are sent by wabs_open, wabs_get_bars, wabs_get_module_time, wabs_get_hplmn_mcc_mnc,
 * wabs_do_manual_nw_scan, wabs_send_abort_cmd, wabs_set_auto_mode, wabs_get_log_string and
 * wabs_exit_611_logging. They block until the modem has answered, at most 20 s a command unless they say
 * otherwise, and before that for a command of the library's own threads (SIM refresh, SAR) that is
 * outstanding. A modem that takes no bytes adds up to 20 s. The others, except wabs_close, return at once.
 *
 * **Lost modem.** When the modem is unplugged or resets, brio_log_startup_status of brio.h returns FATAL (3),
 * and whatever needs the modem library returns LIBRARY_FAILURE (2). What the module itself holds is served as
 * before (texts read at open, a known network or time zone), and wabs_is_blib_open stays 1. Nothing recovers
 * by itself: call wabs_close, then wabs_open until it returns OK (0).
 *
 * **Refused.** In a callback on a thread of the library (see brio.h), or in a child of fork() whose parent
 * has the module open, wabs_open and wabs_close do nothing and return LIBRARY_FAILURE (2), and no command is
 * sent: what needs one returns LIBRARY_FAILURE (2), in the child whatever needs the modem library. The page's
 * operations return OK (0), and so does wabs_get_bars in a callback while not attached.
 *
 * **Files.** The host's user needs these rights ("create" is in the file's folder):
 *
 *     /dev/ttyACM1, 2, 3                                        read, write: trace, commands, reports
 *     /sys/devices/virtual/proximity/proximity0/                read, write: the sensor
 *     /proc/net/dev                                             read
 *     /var/local/wan/briolib_log_config, /var/run/mcsdwc.dat,
 *     /mnt/us/apn, /var/local/wan/debug/trace_filter.cfg        read, if present
 *     /var/local/wan/info                                       read, if present, and remove
 *     /var/local/wan/mcc (0600), static_info (0644)             read, write, create
 *     /var/run/fatal_reject (0644), /mnt/us/trace_log_* (0444)  create
 *
 * /mnt/us/apn stays open until the process ends: its file system cannot be unmounted.
 *
 * /var/run/mcsdwc.dat holds a network selection that every open repeats after leaving the network. Its first
 * line, cut to 127 characters, is a time-out in seconds (0 does not wait; negative: no limit), one blank and
 * a command; "AT+COPS=0..." is not repeated:
 *
 *     300 AT+COPS=1,2,"310410",7
 *
 * /var/run/fatal_reject is created, empty, when the network rejects the subscriber for good (cause 2, 3, 6, 7
 * or 8 of CS, PS or EMM). The library neither reads nor removes it.
 *
 * Off the device, call brio_set_root_dir of brio.h before wabs_open: it prepends a directory to the path of
 * every port and file.
 *
 * **Log.** Log lines go to syslog(3); the host chooses ident and options with openlog. gBrioModuleLogMask
 * gates the module's lines. The modem library's debug lines have a mask of their own: see
 * briolib_log_set_log_mask (briolib.h) and /var/local/wan/briolib_log_config (one hexadecimal number, read at
 * open).
 */
#ifndef BRIO_WABS_H
#define BRIO_WABS_H

#include <stdint.h>
#include <time.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** What an operation returns. */
enum wabs_status {
  WABS_STATUS_OK = 0,               /**< done */
  WABS_STATUS_NOT_OPEN = 1,         /**< the module is closed */
  WABS_STATUS_LIBRARY_FAILURE = 2,  /**< the modem library failed the request */
  WABS_STATUS_ALREADY_OPEN = 4,     /**< wabs_open while open */
  WABS_STATUS_BUFFER_TOO_SMALL = 7, /**< the caller's buffer is too small and untouched */
  WABS_STATUS_NULL_POINTER = 11,    /**< a required output pointer is null */
  WABS_STATUS_NO_NETWORK_TIME = 13, /**< kept for hosts: never returned */
  WABS_STATUS_SCAN_RUNNING = 14,    /**< another thread is scanning, or the scan timed out */
  WABS_STATUS_SCAN_ABORTED = 15     /**< the scan was aborted */
};

/** wabs_get_bars while not attached. */
#define WABS_BARS_NOT_ATTACHED 0xFFFFFFFFu
/** Bytes that hold every list of wabs_do_manual_nw_scan. */
#define WABS_SCAN_BUFFER_SIZE 3072
/** Bytes that hold every page of wabs_get_log_string. */
#define WABS_PAGE_BUFFER_SIZE 6144

/** @name Life */
/** @{ */

/**
 * Opens the module: modem library, trace capture, proximity monitor, SIM, IPC connection.
 *
 * Blocks for some 30 commands on a first open, fewer later, each up to 20 s (a stored manual network
 * selection: 80 s and the time-out stored with it; a trace filter: up to 256 commands more), and waits up to
 * 20 s for the SIM. Fails without a ready SIM, and when modem information, IMSI or ICCID cannot be read.
 *
 * The trace capture runs when "/var/local/wan/debug/trace_filter.cfg" exists; brio_trace_tst_log of brio.h
 * describes that file. The trace goes to "/mnt/us/trace_log_Y_M_D_h_m_s.istp". The monitor starts for a
 * carrier configuration that backs off, or an unknown one. A capture, a monitor or an IPC connection that
 * cannot start is logged and fails nothing; without IPC no application counts as active.
 *
 * @return OK (0); LIBRARY_FAILURE (2) with everything undone; ALREADY_OPEN (4) when it was open, with or
 * without its modem, and then everything is closed: open and close go in pairs.
 */
BRIO_API uint32_t wabs_open(void);
/**
 * Closes the module; harmless while closed. Blocks until the proximity monitor's poll is over: up to 20 s
 * when the modem does not answer its SAR command, longer while another thread's command is outstanding (end a
 * scan first). Requests of other threads then end at once with LIBRARY_FAILURE (2).
 *
 * @return OK (0), or NipcClose's own error number, which is not a WABS_STATUS_* code: closed all the same.
 * Where it is refused (above) LIBRARY_FAILURE (2), and nothing is closed.
 */
BRIO_API uint32_t wabs_close(void);
/** Whether the module is open. @return 1 from wabs_open to wabs_close, also without its modem, else 0. */
BRIO_API uint32_t wabs_is_blib_open(void);

/** @} */
/** @name Log */
/** @{ */

#define WABS_LOG_FLOW 0x400u        /**< bit of gBrioModuleLogMask: entry, exit, queries */
#define WABS_LOG_VALUE 0x800u       /**< results of queries, retries, IPC events */
#define WABS_LOG_EVENT 0x8000u      /**< modem events, the offset of wabs_get_module_time */
#define WABS_LOG_NOTICE 0x800000u   /**< notices */
#define WABS_LOG_WARNING 0x1000000u /**< warnings */
#define WABS_LOG_ERROR 0x2000000u   /**< errors */

/** The module's log mask, WABS_LOG_* bits, 0 at load. Set it with wabs_set_log_mask. */
extern BRIO_API uint32_t gBrioModuleLogMask;
/** Sets gBrioModuleLogMask. Any thread. */
BRIO_API void wabs_set_log_mask(uint32_t mask);
/** Logs source and name of an IPC event, which is borrowed for the call, under WABS_LOG_VALUE; null does
 * nothing. Open or closed, any thread. @return OK (0) */
BRIO_API uint32_t wabs_report_event(const void* event);

/** @} */
/** @name Signal, service and time */
/** @{ */

/**
 * Signal bars: 1 or more while attached, as the modem counts them (the library sets no upper end, 254 fits),
 * else WABS_BARS_NOT_ATTACHED. A denied PS registration leaves the state before it: a device that was
 * attached counts as attached. Poll this first: the call also keeps the rest current. Sends up to three
 * commands.
 *
 * The modem is asked at most once in 91 s. Below two bars it reports each change by itself and is not asked.
 * A weak signal before wabs_close counts as reported after the next wabs_open as well, although opening ends
 * the reports: if the first call then finds less than two bars again, its value stands until a call while the
 * reading application is active, or until the modem is registered nowhere.
 * When it answers that it has no value (255), that call returns 1, and the calls of the next 91 s return what
 * was held before; while nothing is held, each call asks. While the IPC service names the reading application
 * as the active one, the held value is served however old it is, and may be 255, no value: the modem is only
 * asked while nothing is held, and, once a value is, told to stop reporting.
 *
 * While attached to a network that is not known yet, it asks for the operator, which wabs_get_mcc_mnc then
 * serves, and drops the time zone of wabs_get_module_time. While not attached, it asks for the registration,
 * at most once in 61 s.
 *
 * @return OK (0), NOT_OPEN (1), LIBRARY_FAILURE (2) or NULL_POINTER (11)
 */
BRIO_API uint32_t wabs_get_bars(uint32_t* bars);
/** Data service: 0 none, 1 UMTS family, 2 EDGE class, 3 GSM, 4 LTE.
 * @return OK (0), NOT_OPEN (1), LIBRARY_FAILURE (2) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_data_service_mode(uint32_t* mode);
/** Of the CS registration: 0 home network, 1 roaming, 8 neither, also while only PS is registered.
 * @return OK (0), NOT_OPEN (1), LIBRARY_FAILURE (2) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_roaming_status(uint32_t* status);
/**
 * Offset of local time in seconds (quarter hours * 900) and UTC.
 *
 * The offset is the zone of the last report that held a whole date and time, 0 before the first one; daylight
 * saving is not added, and opening and closing keep it. The modem is asked only while no zone is known since
 * the serving network changed. `*utc` is (time_t)-1, not known: no date comes with the zone. Open or closed;
 * LIBRARY_FAILURE (2) while closed without a known zone.
 *
 * @return OK (0), LIBRARY_FAILURE (2) or NULL_POINTER (11)
 */
BRIO_API uint32_t wabs_get_module_time(time_t* utc, int32_t* offset_seconds);

/** @} */
/** @name Identity */
/** @{ */

/** IMSI as wabs_open has read it; the rest of the buffer becomes zeros. `length` is at least 16.
 * @return OK (0), NOT_OPEN (1), BUFFER_TOO_SMALL (7) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_imsi(char* buffer, uint32_t length);
/** IMEI, as wabs_get_imsi. @return as wabs_get_imsi */
BRIO_API uint32_t wabs_get_radio_serial_number(char* buffer, uint32_t length);
/** ICCID, as wabs_get_imsi; `length` is at least 24. @return as wabs_get_imsi */
BRIO_API uint32_t wabs_get_radio_cert_param1(char* buffer, uint32_t length);
/** IMSI, as wabs_get_imsi. @return as wabs_get_imsi */
BRIO_API uint32_t wabs_get_radio_cert_param2(char* buffer, uint32_t length);
/** IMEI, as wabs_get_imsi. @return as wabs_get_imsi */
BRIO_API uint32_t wabs_get_realm(char* buffer, uint32_t length);
/** Firmware version as wabs_open has read it, cut to a buffer of any length, whose rest becomes zeros; 33
 * bytes hold every one. "norvik" while closed.
 * @return OK (0), NOT_OPEN (1) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_firmware_version(char* buffer, uint32_t length);

/** @} */
/** @name Networks */
/** @{ */

/**
 * Scans for operators, up to 383 s. The modem leaves its network for the scan and stays off it afterwards,
 * whatever the status (unless it refuses to leave, and nothing is scanned), until wabs_set_auto_mode.
 *
 * `buffer` is written only with OK (0): a NUL-terminated list of entries as brio_atcmd_scan_network of brio.h
 * describes them. The entry of 310-410 is for example
 *
 *     1,310,410,7,"","Home Wireless","";
 *
 * WABS_SCAN_BUFFER_SIZE bytes hold every list (lengths above 65,535 count as 65,535). The list ends before
 * the first entry that does not fit. When that is the first of all, the buffer stays untouched and the status
 * is OK (0) all the same: put an empty text into it first. The network that wabs_get_current_network last
 * found in use is marked with stat 2; call that before the scan, since the scan leaves the network.
 *
 * @return OK (0); NOT_OPEN (1); LIBRARY_FAILURE (2), also for a null buffer or when no operator was found;
 * SCAN_RUNNING (14) when another thread is scanning or the modem did not answer in time; SCAN_ABORTED (15)
 */
BRIO_API uint32_t wabs_do_manual_nw_scan(char* buffer, uint32_t length);
/**
 * Ends a running scan, from another thread: both calls return SCAN_ABORTED (15). The modem goes on searching
 * until wabs_send_abort_cmd.
 *
 * @return SCAN_ABORTED (15); NOT_OPEN (1); LIBRARY_FAILURE (2), and nothing happens, when none runs. A scan
 * whose answer or whose 300 s have come no longer runs.
 */
BRIO_API uint32_t wabs_abort_manual_nw_scan(void);
/** Stops the modem's search once the scan has returned; waits for a scan that still runs.
 * @return OK (0), NOT_OPEN (1) or LIBRARY_FAILURE (2) */
BRIO_API uint32_t wabs_send_abort_cmd(void);
/** Automatic network selection; brings the modem back after a scan.
 * @return OK (0), NOT_OPEN (1) or LIBRARY_FAILURE (2) */
BRIO_API uint32_t wabs_set_auto_mode(void);
/** Notes the network in use, for later scans to mark. Asks the modem nothing.
 * @return OK (0), NOT_OPEN (1) or LIBRARY_FAILURE (2) */
BRIO_API uint32_t wabs_get_current_network(void);
/**
 * MCC and MNC of the serving network as numbers up to 999 (5 for "05" and for "005"), 0 for text that begins
 * with no digit. Keeps the MCC in /var/local/wan/mcc and logs a change (WABS_LOG_NOTICE). The first call
 * after wabs_open, or after wabs_get_bars has asked for the operator, takes what the library holds then;
 * while that is unknown, it leaves the outputs as they were and returns OK (0). Other calls repeat the last
 * known network, 0 for none. Asks the modem nothing. Open or closed.
 *
 * @return OK (0), LIBRARY_FAILURE (2) or NULL_POINTER (11)
 */
BRIO_API uint32_t wabs_get_mcc_mnc(uint32_t* mcc, uint32_t* mnc);
/** MCC and MNC of the SIM's home network, read once per process: a changed SIM is not noticed. The MNC is
 * read with three digits for 310410 and 302720, with two for every other network: 310260 yields 310 and 26.
 * Open or closed. Asks the modem ("AT+CIMI") until that has succeeded.
 * @return OK (0), LIBRARY_FAILURE (2) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_hplmn_mcc_mnc(uint32_t* mcc, uint32_t* mnc);

/** @} */
/** @name The diagnostic page */
/** @{ */

/**
 * Writes the page: `buffer` of `size` bytes is zeroed and filled. Mode 1 is the full view, any other the
 * masked one. WABS_PAGE_BUFFER_SIZE bytes hold every page, a smaller buffer its first characters. Null or a
 * size below 1 writes nothing. The page of a closed module is "Unable to get snapshot. status=1", with a lost
 * modem "status=3".
 *
 * Sends up to 13 commands for the first page of a visit, up to 5 later. Open or closed. @return OK (0)
 */
BRIO_API uint32_t wabs_get_log_string(char* buffer, int32_t size, uint32_t mode);
/** Ends a visit of the page: the next wabs_get_log_string leaves an empty text, the one after it begins a new
 * visit. Sends up to 5 commands. Open or closed. @return OK (0) */
BRIO_API uint32_t wabs_exit_611_logging(void);
/** 1 while the page has switched on the modem's BAS status reports. Host thread. */
extern BRIO_API uint32_t g_611_urc_on;

/** @} */
/** @name Kept for hosts: without effect on the modem */
/** @{ */

/** Writes 1. Open or closed. @return OK (0) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_module_flags(uint32_t* flags);
/** Writes 0. @return OK (0), NOT_OPEN (1) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_rssi(int32_t* rssi);
/** Writes an empty text: one byte. @return OK (0), NOT_OPEN (1) or NULL_POINTER (11) */
BRIO_API uint32_t wabs_get_radio_phone_number(char* buffer);
/** Does nothing. @return OK (0) or NOT_OPEN (1) */
BRIO_API uint32_t wabs_update_prl(void);
/** Does nothing, open or closed. @return OK (0) */
BRIO_API uint32_t wabs_enable_logging(void);
/** Does nothing, open or closed. @return OK (0) */
BRIO_API uint32_t wabs_log_message(void);
/** Does nothing, open or closed. @return OK (0) */
BRIO_API uint32_t wabs_try_to_use_home_network(void);
/** Does nothing, open or closed. @return OK (0) */
BRIO_API uint32_t wabs_originate_call_test(void);
/** Does nothing, open or closed. @return OK (0) */
BRIO_API uint32_t wabs_stop_call_test(void);

/** @} */

BRIO_EXTERN_C_END

#endif
