/*
 * The host module interface of libbrio_module.so.1.
 *
 * One host thread calls everything here; wabs_abort_manual_nw_scan alone is called from another one, since
 * whatever else sends a command waits for the one that is outstanding. The host is never called back: it
 * polls. wabs_open registers the module's own callbacks for every event that the
 * modem library knows, so a host that uses wabs_* leaves brio_set_callback_for_event_id alone. Every
 * operation returns a WABS_STATUS_* code and answers WABS_STATUS_NOT_OPEN while the module is closed, unless
 * it says otherwise. With a status other than 0 it leaves its outputs as they were, unless it says otherwise.
 *
 * The status of the modem library (brio.h) behind a status of this interface is in the log
 * (gBrioModuleLogMask, WABS_LOG_ERROR). It maps as follows:
 *
 *   library                     host
 *   0 OK                        0
 *   5 TIMEOUT                   14 from wabs_do_manual_nw_scan, else 2
 *   7 UNAVAILABLE               13 from wabs_get_module_time (cannot occur), else 2
 *   8 SCAN_ABORTED              15 from wabs_do_manual_nw_scan and wabs_abort_manual_nw_scan
 *   1, 2, 3, 4, 6               2
 *
 * 1, 4, 7 and 11 are the module's own, and so is 14 for a second scan. 13 cannot occur today: a modem that
 * gives no time is a failed request, hence 2.
 *
 * When the modem is lost (unplugged, reset), brio_log_startup_status() of brio.h returns 3 and what needs the
 * modem library returns 2. What the module itself holds is served as before (the texts read at open, a known
 * network or time zone), and wabs_is_blib_open stays 1. Nothing recovers by itself: call wabs_close, then
 * wabs_open until it returns 0.
 *
 * Callbacks that a host registers with brio.h instead get 2 from wabs_open, wabs_close and whatever sends a
 * command, and so does a child of fork() whose parent has the module open: nothing happens to it there.
 *
 * Off the device, call brio_set_root_dir of brio.h before wabs_open: it prepends a directory to the path of
 * every port and file.
 *
 * Files, and what the host's user must be able to do with them ("create" is in their folder):
 *
 *   /dev/ttyACM1, 2, 3                                        read, write: trace, commands, reports
 *   /sys/devices/virtual/proximity/proximity0/                read, write: the sensor
 *   /proc/net/dev                                             read
 *   /var/local/wan/briolib_log_config, /var/run/mcsdwc.dat,
 *   /mnt/us/apn, /var/local/wan/debug/trace_filter.cfg        read, when there
 *   /var/local/wan/info                                       read, when there, and remove
 *   /var/local/wan/mcc (0600), static_info (0644)             read, write, create
 *   /var/run/fatal_reject (0644), /mnt/us/trace_log_* (0444)  create
 *
 * /var/run/mcsdwc.dat holds a network selection that every open repeats after leaving the network: on its
 * first line, of at most 127 characters, a time-out in seconds (negative: without limit), one blank and a
 * command. "AT+COPS=0..." is not repeated:
 *   300 AT+COPS=1,2,"310410",7
 *
 * /var/run/fatal_reject is created, empty, when the network rejects the subscriber for good (cause 2, 3, 6, 7
 * or 8 of CS, PS or EMM). The library neither reads nor removes it.
 *
 * Log lines go to syslog(3); ident and options are the host's, there is no openlog. gBrioModuleLogMask gates
 * the module's lines; the modem library's debug lines have a mask of their own, see
 * briolib_log_set_log_mask and /var/local/wan/briolib_log_config (one hexadecimal number, read at open).
 */
#ifndef BRIO_WABS_H
#define BRIO_WABS_H

#include <stdint.h>
#include <time.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

enum wabs_status {
  WABS_STATUS_OK = 0,
  WABS_STATUS_NOT_OPEN = 1,         /* the modem library is not open */
  WABS_STATUS_LIBRARY_FAILURE = 2,  /* the modem library failed the request; its own status is in the log */
  WABS_STATUS_ALREADY_OPEN = 4,     /* wabs_open while open */
  WABS_STATUS_BUFFER_TOO_SMALL = 7, /* the caller's buffer is too small and untouched */
  WABS_STATUS_NULL_POINTER = 11,    /* a required output pointer is null */
  WABS_STATUS_NO_NETWORK_TIME = 13, /* the network has not provided the time; cannot occur today */
  WABS_STATUS_SCAN_RUNNING = 14,    /* a manual scan runs already, or timed out */
  WABS_STATUS_SCAN_ABORTED = 15     /* a manual scan was aborted */
};

/* wabs_get_bars while not attached. */
#define WABS_BARS_NOT_ATTACHED 0xFFFFFFFFu

/* Sizes that hold every list of wabs_do_manual_nw_scan and every page of wabs_get_log_string. */
#define WABS_SCAN_BUFFER_SIZE 3072
#define WABS_PAGE_BUFFER_SIZE 6144

/* Bits of gBrioModuleLogMask. */
#define WABS_LOG_FLOW 0x400u      /* entry, exit, queries */
#define WABS_LOG_VALUE 0x800u     /* results of queries, retries */
#define WABS_LOG_EVENT 0x8000u    /* modem events */
#define WABS_LOG_NOTICE 0x800000u /* notices */
#define WABS_LOG_WARNING 0x1000000u
#define WABS_LOG_ERROR 0x2000000u

/* The module's log mask, 0 at load; written by wabs_set_log_mask. */
extern BRIO_API uint32_t gBrioModuleLogMask;
/* 1 while the diagnostic page has switched on the modem's BAS status reports. */
extern BRIO_API uint32_t g_611_urc_on;

/* ---- Life
 * -------------------------------------------------------------------------------------------------------- */

/*
 * Opens the module: modem library, trace capture, proximity monitor, SIM, IPC connection. 0; 2 with
 * everything undone; 4 when it was open, also with a lost modem, and then everything is closed: open and
 * close go in pairs. Blocks for some twenty commands, each up to 20 s on a silent modem (a stored manual
 * network selection: 80 s and the time-out stored with it), and waits up to 20 s for the SIM.
 *
 * The trace capture runs when "/var/local/wan/debug/trace_filter.cfg" exists; brio_trace_tst_log of brio.h
 * tells its format. The trace goes to "/mnt/us/trace_log_Y_M_D_h_m_s.istp". That it does not start is logged
 * and fails nothing.
 */
BRIO_API uint32_t wabs_open(void);
/*
 * Closes the module; 0, or what NipcClose returned. Harmless while closed. Blocks until the monitor's poll is
 * over: up to 20 s when the modem does not answer its SAR command, longer while another thread's command is
 * outstanding (end a scan first). Requests of other threads then end at once, with 2.
 */
BRIO_API uint32_t wabs_close(void);
/* 1 from wabs_open to wabs_close, also while the modem is lost, else 0. */
BRIO_API uint32_t wabs_is_blib_open(void);
/* Always writes 1. 0; 11 for null. */
BRIO_API uint32_t wabs_get_module_flags(uint32_t* flags);
BRIO_API void wabs_set_log_mask(uint32_t mask);
/* Logs source and name of an IPC event. 0. */
BRIO_API uint32_t wabs_report_event(const void* event);

/* Accepted and without effect. 0. */
BRIO_API uint32_t wabs_enable_logging(void);
BRIO_API uint32_t wabs_log_message(void);
BRIO_API uint32_t wabs_try_to_use_home_network(void);
BRIO_API uint32_t wabs_originate_call_test(void);
BRIO_API uint32_t wabs_stop_call_test(void);
/* Without effect. 0 or 1. */
BRIO_API uint32_t wabs_update_prl(void);

/* ---- Queries
 * ----------------------------------------------------------------------------------------------------- */

/*
 * Signal bars, 1 or more while attached, WABS_BARS_NOT_ATTACHED otherwise. 0, 1, 2 or 11.
 *
 * The modem is asked at most once in 91 s. Below two bars it reports each change by itself and is not asked
 * at all. When it answers that it has no value (255), that call gives 1, and the calls of the next 91 s what
 * was held before; without such a value each call asks. While the IPC service names the reading application
 * as the active one, the modem is left alone: the value held is served however old it is, and may be 255, no
 * value.
 *
 * This is also the call that keeps the rest current. While attached to a network that is not known yet, it
 * asks for the operator, which wabs_get_mcc_mnc then serves, and drops the time zone of wabs_get_module_time.
 * While not attached, it asks for the registration, at most once in 61 s. So poll it first.
 */
BRIO_API uint32_t wabs_get_bars(uint32_t* bars);
/* 3 GSM, 2 EDGE class, 1 UMTS family, 4 LTE, 0 none. 0, 1, 2 or 11. */
BRIO_API uint32_t wabs_get_data_service_mode(uint32_t* mode);
/* 0 home, 1 roaming, 8 neither. 0, 1, 2 or 11. */
BRIO_API uint32_t wabs_get_roaming_status(uint32_t* status);
/* Writes 0 while open. 0, 1 or 11. */
BRIO_API uint32_t wabs_get_rssi(int32_t* rssi);
/*
 * Offset of local time in seconds (quarter hours * 900; the zone last reported, 0 before the first report,
 * asked for only while none is known since the serving network changed) and UTC, by mktime of the network's
 * time, in the process's time zone. `*utc` is (time_t)-1, not known, where that time holds no date: so it is
 * today, because the modem is asked for its zone only. 0; 2; 11; 13 cannot occur. Does not check whether the
 * module is open.
 */
BRIO_API uint32_t wabs_get_module_time(time_t* utc, int32_t* offset_seconds);
/* Texts read at open, cut to the buffer, whose last byte becomes 0. 0, 1, 7 below the length named, 11. */
BRIO_API uint32_t wabs_get_imsi(char* buffer, uint32_t length);                /* at least 16 */
BRIO_API uint32_t wabs_get_radio_serial_number(char* buffer, uint32_t length); /* IMEI, at least 16 */
BRIO_API uint32_t wabs_get_radio_cert_param1(char* buffer, uint32_t length);   /* ICCID, at least 24 */
BRIO_API uint32_t wabs_get_radio_cert_param2(char* buffer, uint32_t length);   /* IMSI, at least 16 */
BRIO_API uint32_t wabs_get_realm(char* buffer, uint32_t length);               /* IMEI, at least 16 */
/* Firmware version, cut like these; 33 bytes hold any. "norvik" with status 1 while closed. 0, 1 or 11. */
BRIO_API uint32_t wabs_get_firmware_version(char* buffer, uint32_t length);
/* Always the empty text: one byte. 0, 1 or 11. */
BRIO_API uint32_t wabs_get_radio_phone_number(char* buffer);
/*
 * The diagnostic page: `buffer` of `size` bytes is zeroed and filled; mode 1 is the full view, any other the
 * masked one. WABS_PAGE_BUFFER_SIZE bytes hold any page, a smaller buffer its first characters. Null or a
 * size below 1 writes nothing. "Unable to get snapshot. status=1" is the page of a closed module. Sends
 * commands: up to 13 for the first page of a visit, later up to 5, each up to 20 s on a silent modem. Always
 * 0. Does not check whether the module is open.
 */
BRIO_API uint32_t wabs_get_log_string(char* buffer, int32_t size, uint32_t mode);
/* Ends a visit of the diagnostic page: the next wabs_get_log_string leaves an empty text, the one after it
 * begins a new visit. Sends up to 5 commands. Always 0. Does not check whether the module is open. */
BRIO_API uint32_t wabs_exit_611_logging(void);

/* ---- Networks
 * ---------------------------------------------------------------------------------------------------- */

/*
 * Scans for operators, up to 383 s. The modem leaves its network for the scan and stays off it afterwards,
 * whatever the status, until wabs_set_auto_mode. 0, 1, 2 (also a null buffer, or no operator), 14 (another
 * thread is scanning, or time-out) or 15 (aborted).
 *
 * `buffer` is written only when the status is 0: a NUL-terminated list of entries as brio_atcmd_scan_network
 * of brio.h describes them, 310-410 for example as
 *   1,310,410,7,"","Home Wireless","";
 * WABS_SCAN_BUFFER_SIZE bytes hold any list (lengths above 65,535 count as 65,535). Entries that a smaller
 * buffer has no room for are left out; without room for the first one it stays untouched, and the status is
 * still 0: put an empty text into it first. The network that wabs_get_current_network last found in use is
 * marked with stat 2; call that before the scan, since the scan leaves the network.
 */
BRIO_API uint32_t wabs_do_manual_nw_scan(char* buffer, uint32_t length);
/*
 * Ends a running scan, from another thread: 15, and the scan returns 15, too. The modem goes on searching
 * until wabs_send_abort_cmd. 2, and nothing happens, when none runs, which is also once its answer or its
 * 300 s have come: the scan then returns what that says, 14 for the time-out. 1 while closed.
 */
BRIO_API uint32_t wabs_abort_manual_nw_scan(void);
/* Automatic network selection; brings the modem back after a scan. 0, 1 or 2. */
BRIO_API uint32_t wabs_set_auto_mode(void);
/* Stops the modem's search, once the scan has returned; before that it waits for the scan. 0, 1 or 2. */
BRIO_API uint32_t wabs_send_abort_cmd(void);
/* Notes the network in use, for the next scan to mark. Asks the modem nothing. 0, 1 or 2. */
BRIO_API uint32_t wabs_get_current_network(void);
/*
 * Serving MCC and MNC as numbers up to 999, 0 for a text that is none; a text that is not known leaves its
 * output as it was, until wabs_get_bars has asked for it. Asks the modem nothing. 0, 2 or 11. Does not check
 * whether the module is open.
 */
BRIO_API uint32_t wabs_get_mcc_mnc(uint32_t* mcc, uint32_t* mnc);
/* The SIM's home MCC and MNC, read once per process: a changed SIM is not noticed. 0, 2 or 11. Does not check
 * whether the module is open. */
BRIO_API uint32_t wabs_get_hplmn_mcc_mnc(uint32_t* mcc, uint32_t* mnc);

BRIO_EXTERN_C_END

#endif
