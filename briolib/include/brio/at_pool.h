/**
 * @file
 * The memory pool.
 */
#ifndef BRIO_AT_POOL_H
#define BRIO_AT_POOL_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** Fixed-size blocks in groups of different sizes, allocated in one piece. */
typedef struct mempool mempool;

/** One group; a table of them ends with block_size 0. Groups are in rising block size. */
typedef struct mempool_def {
  int32_t block_size;  /**< bytes, rounded up to a multiple of 4 */
  int32_t block_count; /**< blocks in the group */
} mempool_def;

/** A pool, freed with mempool_destroy. With `thread_safe` non-zero every operation locks it.
 * @return null on failure */
BRIO_API mempool* mempool_create(const mempool_def* definitions, uint32_t thread_safe);
/** A block of the first group that is big enough, or null: a larger group is not tried when that one is used
 * up. A null pool or size 0 yields null with a log line. */
BRIO_API void* mempool_alloc(mempool* pool, uint32_t size);
/** Returns a block to the pool; null or a block not allocated from this pool is refused with a log line. */
BRIO_API void mempool_free(mempool* pool, void* data);
/** Frees the pool with its blocks. Null is refused with a log line. */
BRIO_API void mempool_destroy(mempool* pool);
/** Logs the groups and how full they are, when BRIO_LOG_MEMPOOL is set. */
BRIO_API void mempool_dump(mempool* pool);

BRIO_EXTERN_C_END

#endif
