/**
 * @file
 * The bounded queue.
 */
#ifndef BRIO_AT_QUEUE_H
#define BRIO_AT_QUEUE_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** A ring of fixed-size elements for any number of producers and one consumer. */
typedef struct queue queue;

/** Copies one element in or out. Runs under the queue's lock and must not use the queue. */
typedef void (*q_copy)(void* destination, const void* source, uint32_t size, uint32_t element_size);

/** What the queue's functions return. */
enum q_status {
  Q_OK = 0,       /**< done */
  Q_INVALID = 1,  /**< queue, source, destination of q_get, or copy absent */
  Q_FULL = 2,     /**< q_add never waits */
  Q_EMPTY = 3,    /**< nothing there and time-out 0 */
  Q_TIMEOUT = 4,  /**< nothing came in time */
  Q_CLOCK = 5,    /**< the monotonic clock could not be read */
  Q_CANCELLED = 6 /**< cancelled; a consumer that waited may leave an element behind */
};

/** A queue of `capacity` (1..65535) elements of `element_size` bytes, rounded up to a multiple of 4, freed
 * with q_destroy. @return null on failure */
BRIO_API queue* q_create(uint32_t element_size, int32_t capacity);
/** Frees the queue; nobody may be inside it. Null is ignored. */
BRIO_API void q_destroy(queue* q);
/** Adds one element: `size` bytes of it, or a whole one for 0. Never waits.
 * @return Q_OK (0), Q_INVALID (1) or Q_FULL (2) */
BRIO_API uint32_t q_add(queue* q, const void* source, uint32_t size);
/** q_add by a copy function. */
BRIO_API uint32_t q_add_with_copy_callback(queue* q, const void* source, q_copy copy, uint32_t size);
/**
 * Takes one element. Time-out in whole seconds of the monotonic clock; 0 does not wait, negative waits
 * without limit. An element that is there before the call is served even when the queue was cancelled.
 *
 * @return a q_status but Q_FULL (2)
 */
BRIO_API uint32_t q_get(queue* q, void* destination, uint32_t size, int32_t timeout_seconds);
/** q_get by a copy function. */
BRIO_API uint32_t q_get_with_copy_callback(queue* q, void* destination, q_copy copy, uint32_t size,
                                           int32_t timeout_seconds);
/** Wakes the consumer for good. Null is ignored. */
BRIO_API void q_cancel(queue* q);
/** The capacity, not the fill level. @return 0xFFFFFFFF for null */
BRIO_API uint32_t q_num_elements(const queue* q);
/** The rounded element size in bytes. @return 0xFFFFFFFF for null */
BRIO_API uint32_t q_element_size(const queue* q);
/** Formats the storage as hexadecimal into a static buffer for a debugger, when BRIO_LOG_QUEUE is set. Logs
 * nothing. */
BRIO_API void queue_dump_all(queue* q);

BRIO_EXTERN_C_END

#endif
