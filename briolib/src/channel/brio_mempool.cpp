// Memory pool: fixed-size blocks in groups of different sizes, allocated in one piece.
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>

#include "base/guards.h"
#include "base/log.h"
#include "brio/brio_at.h"

constexpr char kLogTag[] = "briolib/src/brio_mempool";

using namespace brio;

namespace {

struct Group;

// Precedes each data area. The link of an allocated block names the pool.
struct BlockHeader {
  void* next_or_owner;
  Group* group;
};

struct Group {
  uint32_t block_size;  // data bytes, rounded up to a multiple of 4
  BlockHeader* free_list;
};

constexpr size_t kSizeRounding = 4;

constexpr size_t prv_round_up(size_t size, size_t multiple) {
  return (size + multiple - 1) / multiple * multiple;
}

size_t prv_block_size(const mempool_def& definition) {
  return prv_round_up(static_cast<size_t>(definition.block_size), kSizeRounding);
}

// Distance of two blocks: headers stay aligned also where pointers are wider than 4 bytes.
size_t prv_stride(const mempool_def& definition) {
  return sizeof(BlockHeader) + prv_round_up(prv_block_size(definition), alignof(BlockHeader));
}

}  // namespace

struct mempool {
  uint32_t thread_safe;
  pthread_mutex_t mutex;  // guards the free lists and the block headers; initialised when thread_safe
  int32_t num_groups;
  size_t total_size;
  Group groups[1];  // num_groups of them, then the blocks
};

namespace {

// What a guard of the pool locks; null where it has no mutex.
pthread_mutex_t* prv_mutex(mempool* pool) {
  return pool->thread_safe != 0 ? &pool->mutex : nullptr;
}

// Where the blocks begin.
size_t prv_blocks_offset(int32_t num_groups) {
  return prv_round_up(offsetof(mempool, groups) + static_cast<size_t>(num_groups) * sizeof(Group),
                      alignof(BlockHeader));
}

// Bytes of the whole pool; false when the table asks for more than can be addressed.
bool prv_total_size(const mempool_def* definitions, int32_t num_groups, size_t* total) {
  *total = prv_blocks_offset(num_groups);
  for (int32_t i = 0; i < num_groups; i++) {
    size_t bytes = 0;
    if (__builtin_mul_overflow(prv_stride(definitions[i]), static_cast<size_t>(definitions[i].block_count),
                               &bytes) ||
        __builtin_add_overflow(*total, bytes, total)) {
      return false;
    }
  }
  if (*total < sizeof(mempool)) *total = sizeof(mempool);
  return true;
}

// Links the blocks of every group in address order.
void prv_build_free_lists(mempool* pool, const mempool_def* definitions) {
  uint8_t* place = reinterpret_cast<uint8_t*>(pool) + prv_blocks_offset(pool->num_groups);
  for (int32_t i = 0; i < pool->num_groups; i++) {
    Group* group = &pool->groups[i];
    group->block_size = static_cast<uint32_t>(prv_block_size(definitions[i]));
    BlockHeader* last = nullptr;
    for (int32_t n = 0; n < definitions[i].block_count; n++) {
      BlockHeader* block = reinterpret_cast<BlockHeader*>(place);
      block->group = group;
      if (last == nullptr) {
        group->free_list = block;
      } else {
        last->next_or_owner = block;
      }
      last = block;
      place += prv_stride(definitions[i]);
    }
  }
}

bool prv_inside(const mempool* pool, const BlockHeader* block) {
  const uint8_t* start = reinterpret_cast<const uint8_t*>(pool);
  const uint8_t* place = reinterpret_cast<const uint8_t*>(block);
  return place >= start && place + sizeof(BlockHeader) <= start + pool->total_size;
}

}  // namespace

mempool* mempool_create(const mempool_def* definitions, uint32_t thread_safe) {
  bool good = definitions != nullptr;
  int32_t num_groups = 0;
  while (good && definitions[num_groups].block_size != 0) {
    good = definitions[num_groups].block_size > 0 && definitions[num_groups].block_count >= 0;
    num_groups++;
  }
  if (!good) {
    BLIB_E("param:defs=%p:bad parameter given to mempool_create\n", static_cast<const void*>(definitions));
    return nullptr;
  }
  size_t total = 0;
  mempool* pool = nullptr;
  if (prv_total_size(definitions, num_groups, &total)) pool = static_cast<mempool*>(calloc(1, total));
  if (pool == nullptr) {
    BLIB_E("nospace:size=%d:no space to allocate pool\n", static_cast<int>(total));
    return nullptr;
  }
  if (thread_safe != 0) {
    int err = pthread_mutex_init(&pool->mutex, nullptr);
    if (err != 0) {
      BLIB_E("mutexinit:errno=%d:failed to initialize mutex\n", err);
      free(pool);
      return nullptr;
    }
  }
  pool->thread_safe = thread_safe;
  pool->num_groups = num_groups;
  pool->total_size = total;
  prv_build_free_lists(pool, definitions);
  return pool;
}

void* mempool_alloc(mempool* pool, uint32_t size) {
  if (pool == nullptr || size == 0) {
    BLIB_E("param:pool=%p,size=%d:bad parameters given to mempool_alloc\n", static_cast<void*>(pool), size);
    return nullptr;
  }
  Group* group = pool->groups;
  Group* end = pool->groups + pool->num_groups;
  while (group != end && group->block_size < size) group++;
  if (group == end) {
    BLIB_E("toobig:pool=%p,size=%d:no blocks in pool big enough\n", static_cast<void*>(pool), size);
    return nullptr;
  }
  MutexGuard lock(prv_mutex(pool));
  BlockHeader* block = group->free_list;
  if (block == nullptr) {
    // Larger groups stay reserved for larger lines, on purpose.
    BLIB_E("nofree:pool=%p,size=%d,blocksize=%d:no free blocks available\n", static_cast<void*>(pool), size,
           group->block_size);
    return nullptr;
  }
  group->free_list = static_cast<BlockHeader*>(block->next_or_owner);
  block->next_or_owner = pool;
  return block + 1;
}

void mempool_free(mempool* pool, void* data) {
  if (pool == nullptr || data == nullptr) {
    BLIB_E("param:pool=%p,chunk=%p:bad parameters given to mempool_free\n", static_cast<void*>(pool), data);
    return;
  }
  BlockHeader* block = static_cast<BlockHeader*>(data) - 1;
  MutexGuard lock(prv_mutex(pool));
  if (!prv_inside(pool, block) || block->next_or_owner != pool) {
    BLIB_E("unalloc:pool=%p,chunk=%p:freeing unallocated block\n", static_cast<void*>(pool), data);
    return;
  }
  block->next_or_owner = block->group->free_list;
  block->group->free_list = block;
}

void mempool_destroy(mempool* pool) {
  if (pool == nullptr) {
    BLIB_E("param:pool=%p:bad parameters given to mempool_destroy\n", static_cast<void*>(pool));
    return;
  }
  if (pool->thread_safe != 0) pthread_mutex_destroy(&pool->mutex);
  free(pool);
}

void mempool_dump(mempool* pool) {
  if (!log_on(BRIO_LOG_MEMPOOL)) return;
  if (pool == nullptr) {
    BLIB_D(BRIO_LOG_MEMPOOL, "pool == NULL\n\n");
    return;
  }
  MutexGuard lock(prv_mutex(pool));
  BLIB_D(BRIO_LOG_MEMPOOL, "master loc=%p num_groups=%d\n\n", static_cast<void*>(pool), pool->num_groups);
  for (int32_t i = 0; i < pool->num_groups; i++) {
    Group* group = &pool->groups[i];
    BLIB_D(BRIO_LOG_MEMPOOL, "  group=%d loc=%p size=%d free_blocks=%p\n\n", i, static_cast<void*>(group),
           group->block_size, static_cast<void*>(group->free_list));
    for (BlockHeader* block = group->free_list; block != nullptr;
         block = static_cast<BlockHeader*>(block->next_or_owner)) {
      BLIB_D(BRIO_LOG_MEMPOOL, "    loc=%p next=%p group=%p\n\n", static_cast<void*>(block),
             block->next_or_owner, static_cast<void*>(block->group));
    }
  }
}
