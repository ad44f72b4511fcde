/**
 * @file
 * The serial ports and the read thread.
 */
#ifndef BRIO_AT_PORTS_H
#define BRIO_AT_PORTS_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** What pktio_init and pktio_at_send_cmd return. */
enum pktio_status {
  PKTIO_OK = 0,    /**< done */
  PKTIO_FAILED = 1 /**< not done */
};

/**
 * Packet callback: kind 0 with an ATResponse for a complete answer, kind 1 with a NUL-terminated unsolicited
 * line. Runs on the read thread; `data` is valid for the call only. It must not block (no port is read
 * meanwhile), send a request or shut the ports down.
 */
typedef void (*pktio_packet_cb)(uint32_t kind, void* data, void* context);

/**
 * Stores the callback that runs once, on the read thread, whenever that thread ends for any reason, before
 * the ports are closed. Call before pktio_init. The callback must not call pktio_* or blpkt_*.
 */
BRIO_API void pktio_set_shutdown_callback(void (*callback)(void*), void* context);

/**
 * Opens `query_port` and the URC port, raw at 921,600 baud, and starts the read thread. Both paths are
 * below the root directory (brio_set_root_dir). Descriptors that do not fit select are refused. A read thread
 * of an earlier pktio_init is ended first. In a process that has called brio_open, requests fail after the
 * end of a read thread until blpkt_init has been called as well.
 *
 * @return PKTIO_OK (0), or PKTIO_FAILED (1) with everything closed again
 */
BRIO_API uint32_t pktio_init(const char* query_port, pktio_packet_cb callback, void* context);

/**
 * Writes `command` (at most 511 bytes of it) and one CR to the query port in one write, after making `type`
 * and `response_prefix` (null for none; copied) current for the read thread. Takes no lock: the caller holds
 * the send mutex (blpkt_acquire_send_mutex).
 *
 * @return PKTIO_OK (0); PKTIO_FAILED (1) for null, when the write failed or was short, the port is closed, or
 * the modem took nothing for 20 s
 */
BRIO_API uint32_t pktio_at_send_cmd(const char* command, uint32_t type, const char* response_prefix);

/** Ends and joins the read thread; harmless when it does not run. A command that waits for room fails.
 * Refused with an error line on the library's own threads and in a forked child, as pktio_init, blpkt_init
 * and blpkt_shutdown are; in a forked child pktio_at_send_cmd as well. */
BRIO_API void pktio_shutdown(void);

BRIO_EXTERN_C_END

#endif
