/*
 * The AT channel: line processor, serial ports and read thread, tokenizer, bounded queue, memory pool, packet
 * layer. Exported for the modem library's own layers, for tests and for tools; hosts use brio.h and wabs.h.
 */
#ifndef BRIO_BRIO_AT_H
#define BRIO_BRIO_AT_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/* ---- Line processor
 * ---------------------------------------------------------------------------------------------- */

/* One intermediate line of an answer. */
typedef struct ATLine {
  struct ATLine* next; /* the following line or null */
  char* line;          /* heap copy without its terminator; null when memory was short */
} ATLine;

/*
 * One command's answer. Owned by the read thread and freed when the response callback returns: callbacks copy
 * what they keep.
 */
typedef struct ATResponse {
  int32_t status;        /* 0: the final line was a success ("OK", "CONNECT"); 1: it was an error final */
  char* final_response;  /* heap copy of the final line; null until it arrives or when memory was short */
  ATLine* intermediates; /* arrival order for types 3 and 4 with a success final, else newest first; null for
                            none */
} ATResponse;

/* What lines may stand before the final line. Values above 5 count as NO_RESULT. */
enum AtCommandType {
  NO_RESULT = 0,           /* none; other lines are dropped */
  NUMERIC = 1,             /* at most one, any text */
  SINGLELINE = 2,          /* at most one, which begins with the response prefix */
  MULTILINE = 3,           /* any number, each begins with the response prefix */
  MULTILINE_NO_PREFIX = 4, /* any number, any text */
  NO_COMMAND = 5           /* nothing outstanding: what arrives is discarded */
};

/* Data bytes of one port's line buffer; the buffer has one byte more for the NUL. A longer line is dropped.
 */
#define BRIO_LINE_DATA_MAX 2400

/* A zero-filled answer record, or null when memory is short. */
BRIO_API ATResponse* at_response_new(void);

/* Frees the lines, the final line and the record; null is ignored. */
BRIO_API void at_response_free(ATResponse* response);

/* 1 when `prefix` is a prefix of `line` (bytes, case-sensitive; an empty prefix always is), else 0. */
BRIO_API int32_t str_starts_with(const char* line, const char* prefix);

/* The first CR or LF of `text`, or null. Exactly "> " (the text-entry prompt) ends at its NUL. */
BRIO_API char* find_next_EOL(char* text);

/*
 * Reads once from `fd` behind what `*leftover` (null or a place in `buffer`) kept, terminates the text and
 * skips leading CR and LF. `buffer` holds BRIO_LINE_DATA_MAX + 1 bytes. `*count`, set to 0 by the caller,
 * grows by the bytes read and those kept before (also where these were too long and dropped); it ends
 * negative on a read error (errno tells) and 0 at the end of the file, also when a partial line was held.
 * Returns the first byte of the text. Read thread only.
 */
BRIO_API char* read_line(int32_t fd, char* buffer, char** leftover, int32_t* count);

/*
 * Classifies one line of an answer. Returns 0 when it was final and the record is complete; 1 when more is
 * expected (also for no record or an unsupported type); 2 for a SINGLELINE line without the prefix; 3 for a
 * second line of a one-line type or a MULTILINE line without the prefix. Read thread only.
 */
BRIO_API int32_t process_line(const char* line, ATResponse* record, uint32_t type, const char* prefix);

/* ---- Serial ports and read thread
 * -------------------------------------------------------------------------------- */

/*
 * Packet callback: kind 0 with an ATResponse for a complete answer, kind 1 with a NUL-terminated unsolicited
 * line. Runs on the read thread; `data` is valid for the call only. It must not block (no port is read
 * meanwhile), send a request or shut the ports down.
 */
typedef void (*pktio_packet_cb)(uint32_t kind, void* data, void* context);

/*
 * Stores the callback that runs once, on the read thread, whenever that thread ends for any reason, before
 * the ports are closed. Call before pktio_init. The callback must not call pktio_* or blpkt_*.
 */
BRIO_API void pktio_set_shutdown_callback(void (*callback)(void*), void* context);

/*
 * Opens `query_port` and the URC port, raw at 921,600 baud, and starts the read thread. Both paths stand
 * below the root directory (brio_set_root_dir). Returns 0, or 1 with everything closed again; descriptors
 * that do not fit select are refused. A read thread of an earlier pktio_init is ended first; requests then
 * fail until blpkt_init has been called as well, as after every end of a read thread.
 */
BRIO_API uint32_t pktio_init(const char* query_port, pktio_packet_cb callback, void* context);

/*
 * Writes `command` (at most 511 bytes of it) and one CR to the query port in one write, after making `type`
 * and `response_prefix` (null for none; copied) current for the read thread. Returns 0, or 1 when the write
 * failed or was short, the port is closed, or the modem took nothing for 20 seconds. Callers are serialised
 * by the send mutex of the packet layer.
 */
BRIO_API uint32_t pktio_at_send_cmd(const char* command, uint32_t type, const char* response_prefix);

/* Ends and joins the read thread; harmless when it does not run. A command that waits for room fails.
 * Refused with an error line on the library's own threads and in a forked child, as pktio_init (1),
 * blpkt_init (2) and blpkt_shutdown are; in a forked child pktio_at_send_cmd (1) as well. */
BRIO_API void pktio_shutdown(void);

/* ---- Tokenizer and string helpers
 * -------------------------------------------------------------------------------- */

/*
 * For callers that take an answer apart by themselves. The library's own parsers read otherwise: quotes stay,
 * text that is no number is 0, and a number keeps its low 32 bits.
 *
 * A cursor is a place in a writable text, or null when the text is used up. Fields are separated by ","; a
 * field in double quotes may hold commas. Field ends are overwritten with NUL, so the text must outlive the
 * fields. White space is the C locale's. at_tok_* return 0 on success and -1 on failure unless they say
 * otherwise.
 */

/* Moves behind the first ":". -1 with a null cursor, or when there is none (the cursor becomes null). */
BRIO_API int32_t at_tok_start(char** cursor);
/* 1 when the cursor stands before more text, else 0. */
BRIO_API int32_t at_tok_hasmore(char** cursor);
/* Next field as decimal number; junk behind the digits is ignored. -1 without field or digit (value 0). */
BRIO_API int32_t at_tok_nextint(char** cursor, int32_t* value);
/* The same, hexadecimal. */
BRIO_API int32_t at_tok_nexthexint(char** cursor, int32_t* value);
/* Next field as 0 or 1; -1 for any other value. `flag` may be null. */
BRIO_API int32_t at_tok_nextbool(char** cursor, uint8_t* flag);
/* Next field as text. `*text` must be non-null before the call: null there is refused with -1. */
BRIO_API int32_t at_tok_nextstr(char** cursor, char** text);
/* Skips one leading double quote and cuts one trailing double quote. */
BRIO_API void at_tok_remove_quot(char** cursor);
BRIO_API void skip_white_space(char** cursor);
BRIO_API void skip_white_space_quotes(char** cursor);
/* Cuts trailing white space; the first character always stays. */
BRIO_API void skip_trailing_white_space(char* text);
/* Delete every white-space character, or every double quote, in place (length modulo 65,536). */
BRIO_API void remove_blank_space(char* text);
BRIO_API void remove_double_quotes(char* text);
/* Non-zero when `text` is not empty and holds decimal digits only. */
BRIO_API uint32_t is_string_digit(const char* text);
/* 1 when `text` is not empty and of even length, else 255. The characters are not examined. */
BRIO_API uint32_t is_hex_string_valid(const char* text);
/*
 * Bytes of a hexadecimal text, high nibble first, with a NUL behind them; an odd last character is ignored
 * and a non-hexadecimal digit counts as 255. Freed by the caller with free(); null for null or when memory is
 * short.
 */
BRIO_API uint8_t* hex_string_to_bytes(const char* text);

/* ---- Bounded queue
 * ----------------------------------------------------------------------------------------------- */

/* A ring of fixed-size elements for any number of producers and one consumer. */
typedef struct queue queue;

/* Copies one element in or out. Runs under the queue's lock and must not use the queue. */
typedef void (*q_copy)(void* destination, const void* source, uint32_t size, uint32_t element_size);

enum q_status {
  Q_OK = 0,
  Q_INVALID = 1,  /* queue, source or copy absent */
  Q_FULL = 2,     /* q_add never waits */
  Q_EMPTY = 3,    /* nothing there and time-out 0 */
  Q_TIMEOUT = 4,  /* nothing came in time */
  Q_CLOCK = 5,    /* the monotonic clock could not be read */
  Q_CANCELLED = 6 /* cancelled and empty */
};

/* A queue of `capacity` (1..65535) elements of `element_size` bytes, rounded up to a multiple of 4; null on
 * failure. */
BRIO_API queue* q_create(uint32_t element_size, int32_t capacity);
/* Frees the queue; nobody may be inside it. Null is ignored. */
BRIO_API void q_destroy(queue* q);
/* Adds one element: `size` bytes of it, or a whole one for 0. Q_OK, Q_INVALID or Q_FULL. */
BRIO_API uint32_t q_add(queue* q, const void* source, uint32_t size);
BRIO_API uint32_t q_add_with_copy_callback(queue* q, const void* source, q_copy copy, uint32_t size);
/*
 * Takes one element. Time-out in whole seconds of the monotonic clock; 0 does not wait, negative waits
 * without limit. An element that is there is served even when the queue was cancelled.
 */
BRIO_API uint32_t q_get(queue* q, void* destination, uint32_t size, int32_t timeout_seconds);
BRIO_API uint32_t q_get_with_copy_callback(queue* q, void* destination, q_copy copy, uint32_t size,
                                           int32_t timeout_seconds);
/* Wakes the consumer for good. Null is ignored. */
BRIO_API void q_cancel(queue* q);
/* The capacity (not the fill level) and the rounded element size; 0xFFFFFFFF for null. */
BRIO_API uint32_t q_num_elements(const queue* q);
BRIO_API uint32_t q_element_size(const queue* q);
/* Formats the storage as hexadecimal into a static buffer for a debugger, when BRIO_LOG_QUEUE is set. Logs
 * nothing. */
BRIO_API void queue_dump_all(queue* q);

/* ---- Memory pool
 * ------------------------------------------------------------------------------------------------- */

/* Fixed-size blocks in groups of different sizes, allocated in one piece. */
typedef struct mempool mempool;

/* One group; a table of them ends with block_size 0. Groups stand in rising block size. */
typedef struct mempool_def {
  int32_t block_size; /* bytes, rounded up to a multiple of 4 */
  int32_t block_count;
} mempool_def;

/* Null on failure. With `thread_safe` non-zero every operation locks the pool. */
BRIO_API mempool* mempool_create(const mempool_def* definitions, uint32_t thread_safe);
/* A block of the first group that is big enough, or null: a larger group is not tried when that one is used
 * up. */
BRIO_API void* mempool_alloc(mempool* pool, uint32_t size);
/* Gives a block back; a block that is not allocated from this pool is refused with a log line. */
BRIO_API void mempool_free(mempool* pool, void* data);
BRIO_API void mempool_destroy(mempool* pool);
BRIO_API void mempool_dump(mempool* pool);

/* ---- Packet layer
 * ------------------------------------------------------------------------------------------------ */

/* Result of every request. Any other non-zero value is the response callback's own. */
enum blpkt_status {
  BLPKT_STATUS_SUCCESS = 0,
  BLPKT_STATUS_TIMEOUT = 1,     /* no final line in time; a late answer is discarded */
  BLPKT_STATUS_ERROR = 2,       /* write failed, error final, or the response queue failed */
  BLPKT_STATUS_BAD_REQUEST = 3, /* null command, its own thread or a forked child */
  BLPKT_STATUS_SCAN_ABORTED = 8 /* blpkt_abort_manual_nw_scan */
};

/* Time-out of a request that names none, in seconds. */
#define BLPKT_DEFAULT_TIMEOUT_SECONDS 20

/*
 * Response callback of one request. Runs on the read thread while the requester waits, only for a success
 * final, and never after the request has returned. It may write into `user_data` without a lock. It must not
 * send a request. It returns 0 or a status (6 unusable answer, 4 parse failure) that becomes the request's
 * result.
 */
typedef uint32_t (*recv_func)(const ATResponse* response, void* user_data, uint16_t user_value);

/* Pool, queues and event thread. 0, or 2 with everything torn down. Before pktio_init. */
BRIO_API uint32_t blpkt_init(void);
/* Ends the event thread and every waiting request. After pktio_shutdown. */
BRIO_API void blpkt_shutdown(void);
/* The packet callback that the read thread calls; `context` is ignored. */
BRIO_API void blpkt_handle_packet(uint32_t kind, void* data, void* context);
/*
 * Sends one command and waits for its answer; one request at a time, whole. `type` is an AtCommandType, the
 * prefix and the callback may be null. Time-out in seconds: 0 does not wait, negative waits without limit.
 * BLPKT_STATUS_* or the callback's status. BLPKT_STATUS_BAD_REQUEST with an error line on the read thread, on
 * the event thread inside a callback, and on a thread that holds the send mutex.
 */
BRIO_API uint32_t blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                            const char* response_prefix, recv_func callback,
                                                            void* user_data, uint16_t user_value,
                                                            int32_t timeout_seconds);
/* The same with BLPKT_DEFAULT_TIMEOUT_SECONDS. */
BRIO_API uint32_t blpkt_atcmd_request_with_callback(const char* command, uint32_t type,
                                                    const char* response_prefix, recv_func callback,
                                                    void* user_data, uint16_t user_value);
/* Queues the status 8 for the waiting request, or for the next one when none waits: 8, or 2 when there is a
 * status already, the answer's or an earlier abort's, and on the library's own threads. */
BRIO_API uint32_t blpkt_abort_manual_nw_scan(void);
/*
 * Lock and unlock the send mutex: while it is held no other thread's request begins. Requests and these calls
 * have their turns in the order in which they came. 0; EDEADLK when this thread holds it already or
 * may not send, EPERM when it does not hold it. A thread that closes the library with it gives it up.
 */
BRIO_API uint32_t blpkt_acquire_send_mutex(void);
BRIO_API uint32_t blpkt_release_send_mutex(void);

/* Callbacks stored for callers; this library's dispatch does not use them. A table ends with a null entry. */
typedef void (*blpkt_callback)(void);
BRIO_API void blpkt_set_event_callbacks(const blpkt_callback* table);
BRIO_API void blpkt_set_log_callbacks(const blpkt_callback* table);
BRIO_API void blpkt_set_default_event_callback(blpkt_callback callback);
BRIO_API void blpkt_set_default_log_callback(blpkt_callback callback);

BRIO_EXTERN_C_END

#endif
