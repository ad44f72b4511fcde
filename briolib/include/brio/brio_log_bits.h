/**
 * @file
 * Bits of g_brio_lib_log_mask, the modem library's log mask. Error, warning and information lines do not
 * depend on it; each debug line names its bit.
 *
 * The three raw traces print what crossed the wire, subscriber identities included: leave them off in shipped
 * devices.
 */
#ifndef BRIO_BRIO_LOG_BITS_H
#define BRIO_BRIO_LOG_BITS_H

#define BRIO_LOG_PORT 0x00000001u       /**< serial ports: open, command written, read thread (raw trace) */
#define BRIO_LOG_SELECT 0x00000002u     /**< read thread: each pass through select */
#define BRIO_LOG_EVENT 0x00000004u      /**< event queue and event thread */
#define BRIO_LOG_REQUEST 0x00000008u    /**< requests: status queued, request left */
#define BRIO_LOG_FINAL 0x00000010u      /**< final result line recognised */
#define BRIO_LOG_MEMPOOL 0x00000020u    /**< mempool_dump */
#define BRIO_LOG_AT_DETAIL 0x00000040u  /**< line reader, both ports: bytes and lines (raw trace) */
#define BRIO_LOG_URC 0x00000080u        /**< URC port: bytes and lines as read (raw trace) */
#define BRIO_LOG_QUEUE 0x00000100u      /**< queue_dump_all */
#define BRIO_LOG_DISPATCH 0x00000200u   /**< URC dispatch: prefix map, each line handed to a parser */
#define BRIO_LOG_DEREG 0x00001000u      /**< serving-cell data cleared on de-registration */
#define BRIO_LOG_REG 0x00004000u        /**< registration and SIM refresh lines, token by token */
#define BRIO_LOG_MODEM_INFO 0x00008000u /**< modem information, registration query result */
#define BRIO_LOG_CONFIG 0x10000000u     /**< log configuration file, trace capture thread */
#define BRIO_LOG_PARSE 0x40000000u      /**< parser and URC detail */
#define BRIO_LOG_DEBUG 0x80000000u      /**< general debug */

#endif
