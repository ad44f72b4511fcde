/**
 * @file
 * The packet layer: sends one command at a time and waits for its answer.
 */
#ifndef BRIO_AT_REQUESTS_H
#define BRIO_AT_REQUESTS_H

#include <stdint.h>

#include "brio/at_lines.h"
#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** Result of every request. Any other non-zero value is the response callback's own. */
enum blpkt_status {
  BLPKT_STATUS_SUCCESS = 0,     /**< a success final */
  BLPKT_STATUS_TIMEOUT = 1,     /**< no final line in time; a late answer is discarded */
  BLPKT_STATUS_ERROR = 2,       /**< write failed, error final, or the response queue failed */
  BLPKT_STATUS_BAD_REQUEST = 3, /**< null command, or sent from where it is refused (below) */
  BLPKT_STATUS_SCAN_ABORTED = 8 /**< blpkt_abort_manual_nw_scan */
};

/** Time-out of a request that names none, in seconds. */
#define BLPKT_DEFAULT_TIMEOUT_SECONDS 20

/**
 * Response callback of one request. Runs on the read thread while the requester waits, only for a success
 * final, and never after the request has returned. It may write into `user_data` without a lock. It must not
 * send a request. It returns 0 or a status (6 unusable answer, 4 parse failure) that becomes the request's
 * result.
 */
typedef uint32_t (*recv_func)(const ATResponse* response, void* user_data, uint16_t user_value);

/** Creates pool, queues and event thread. Before pktio_init. @return BLPKT_STATUS_SUCCESS (0), or
 * BLPKT_STATUS_ERROR (2) with everything torn down */
BRIO_API uint32_t blpkt_init(void);
/** Ends the event thread and every waiting request. After pktio_shutdown. */
BRIO_API void blpkt_shutdown(void);
/** The packet callback that the read thread calls; `context` is ignored. */
BRIO_API void blpkt_handle_packet(uint32_t kind, void* data, void* context);
/**
 * Sends one command and waits for its answer; one request at a time, whole. `type` is an AtCommandType, the
 * prefix and the callback may be null. Time-out in seconds: 0 does not wait and returns
 * BLPKT_STATUS_ERROR (2), negative waits without limit.
 *
 * @return a blpkt_status, or the callback's. BLPKT_STATUS_BAD_REQUEST (3) with an error line for a null
 * command, on the read thread, on the event thread inside a callback, on a thread that holds the send mutex,
 * and in a forked child
 */
BRIO_API uint32_t blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                            const char* response_prefix, recv_func callback,
                                                            void* user_data, uint16_t user_value,
                                                            int32_t timeout_seconds);
/** The same with a time-out of BLPKT_DEFAULT_TIMEOUT_SECONDS. */
BRIO_API uint32_t blpkt_atcmd_request_with_callback(const char* command, uint32_t type,
                                                    const char* response_prefix, recv_func callback,
                                                    void* user_data, uint16_t user_value);
/** Queues BLPKT_STATUS_SCAN_ABORTED (8) for the waiting request, or for the next one when none waits.
 * @return that status; BLPKT_STATUS_ERROR (2) when a status is queued already, the answer's or an earlier
 * abort's, and on the library's own threads */
BRIO_API uint32_t blpkt_abort_manual_nw_scan(void);
/**
 * Locks the send mutex: while it is held, no other thread's request begins. A thread that closes the library
 * with it gives it up.
 *
 * @return 0; EDEADLK when this thread holds it already or may not send
 */
BRIO_API uint32_t blpkt_acquire_send_mutex(void);
/** Unlocks the send mutex. @return 0; EPERM when this thread does not hold it */
BRIO_API uint32_t blpkt_release_send_mutex(void);

/** @name Kept for hosts: stored, and never called */
/** @{ */

/** A callback. */
typedef void (*blpkt_callback)(void);
/** Stores a table that ends with a null entry. */
BRIO_API void blpkt_set_event_callbacks(const blpkt_callback* table);
/** Stores a table that ends with a null entry. */
BRIO_API void blpkt_set_log_callbacks(const blpkt_callback* table);
/** Stores one callback. */
BRIO_API void blpkt_set_default_event_callback(blpkt_callback callback);
/** Stores one callback. */
BRIO_API void blpkt_set_default_log_callback(blpkt_callback callback);

/** @} */

BRIO_EXTERN_C_END

#endif
