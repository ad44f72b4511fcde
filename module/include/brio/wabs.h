/*
 * The host module interface of libbrio_module.so.1.
 *
 * One host thread calls everything here. The host is never called back: it polls. Every operation returns a
 * WABS_STATUS_* code and answers WABS_STATUS_NOT_OPEN while the module is closed, unless it says otherwise.
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
  WABS_STATUS_NO_NETWORK_TIME = 13, /* the network has not provided the time */
  WABS_STATUS_SCAN_RUNNING = 14,    /* a manual scan runs already, or timed out */
  WABS_STATUS_SCAN_ABORTED = 15     /* a manual scan was aborted */
};

/* wabs_get_bars while not attached. */
#define WABS_BARS_NOT_ATTACHED 0xFFFFFFFFu

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
 * everything undone; 4 when it was open, and then everything is closed: open and close go in pairs. Waits up
 * to about 20 s for the SIM.
 */
BRIO_API uint32_t wabs_open(void);
/* Closes the module; 0, or what NipcClose returned. Harmless while closed. */
BRIO_API uint32_t wabs_close(void);
/* 1 while the modem library is open, else 0. */
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

/* Signal bars, 1 or more while attached, WABS_BARS_NOT_ATTACHED otherwise. 0, 1, 2 or 11. */
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
 * time. `*utc` is (time_t)-1, not known, where that time holds no date: so it is today, because the modem is
 * asked for its zone only. 0; 2; 11; 13 when the network gave no time. Does not check whether the module is
 * open.
 */
BRIO_API uint32_t wabs_get_module_time(time_t* utc, int32_t* offset_seconds);
/* Texts read at open, cut to the buffer, whose last byte becomes 0. 0, 1, 7 below the length named, 11. */
BRIO_API uint32_t wabs_get_imsi(char* buffer, uint32_t length);                /* at least 16 */
BRIO_API uint32_t wabs_get_radio_serial_number(char* buffer, uint32_t length); /* IMEI, at least 16 */
BRIO_API uint32_t wabs_get_radio_cert_param1(char* buffer, uint32_t length);   /* ICCID, at least 24 */
BRIO_API uint32_t wabs_get_radio_cert_param2(char* buffer, uint32_t length);   /* IMSI, at least 16 */
BRIO_API uint32_t wabs_get_realm(char* buffer, uint32_t length);               /* IMEI, at least 16 */
/* Firmware version; "norvik" with status 1 while closed. 0, 1 or 11. */
BRIO_API uint32_t wabs_get_firmware_version(char* buffer, uint32_t length);
/* Always the empty text. 0, 1 or 11. */
BRIO_API uint32_t wabs_get_radio_phone_number(char* buffer);
/*
 * The diagnostic page: `buffer` of `size` bytes is zeroed and filled; mode 1 is the full view, any other the
 * masked one. 0. Does not check whether the module is open.
 */
BRIO_API uint32_t wabs_get_log_string(char* buffer, int32_t size, uint32_t mode);
/* Ends a visit of the diagnostic page. 0. Does not check whether the module is open. */
BRIO_API uint32_t wabs_exit_611_logging(void);

/* ---- Networks
 * ---------------------------------------------------------------------------------------------------- */

/*
 * Scans for operators, up to 380 s; the format is brio_atcmd_scan_network's. Lengths above 65,535 count as
 * 65,535. 0, 1, 2, 14 (another thread is scanning, or time-out) or 15 (aborted). The buffer is written only
 * when the status is 0.
 */
BRIO_API uint32_t wabs_do_manual_nw_scan(char* buffer, uint32_t length);
/*
 * Releases a scan that waits (from another thread): 15, and the scan returns 15, too. 0, 1 or 2; also 2 when
 * the modem's answer came first: the scan then returns what that says. Without a request that waits, the next
 * one is released: only call it while a scan runs.
 */
BRIO_API uint32_t wabs_abort_manual_nw_scan(void);
/* Automatic network selection. 0, 1 or 2. */
BRIO_API uint32_t wabs_set_auto_mode(void);
/* Stops the modem's search. 0, 1 or 2. */
BRIO_API uint32_t wabs_send_abort_cmd(void);
/* Refreshes the record of the current network. 0, 1 or 2. */
BRIO_API uint32_t wabs_get_current_network(void);
/*
 * Serving MCC and MNC as numbers up to 999, 0 for a text that is none; a text that is not known leaves its
 * output as it was. 0, 2 or 11. Does not check whether the module is open.
 */
BRIO_API uint32_t wabs_get_mcc_mnc(uint32_t* mcc, uint32_t* mnc);
/* The SIM's home MCC and MNC, read once per process. 0, 2 or 11. Does not check whether the module is open.
 */
BRIO_API uint32_t wabs_get_hplmn_mcc_mnc(uint32_t* mcc, uint32_t* mnc);

BRIO_EXTERN_C_END

#endif
