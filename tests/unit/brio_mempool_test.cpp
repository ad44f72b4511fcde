#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "faults.h"
#include "support/log_capture.h"

namespace {

constexpr mempool_def kSmallAndLarge[] = {{64, 25}, {128, 15}, {0, 0}};

}  // namespace

TEST(Mempool, LargerGroupIsNotTriedWhenOneIsUsedUp) {
  mempool* pool = mempool_create(kSmallAndLarge, 0);
  ASSERT_NE(pool, nullptr);
  std::set<char*> blocks;
  for (int i = 0; i < 25; i++) {
    char* block = static_cast<char*>(mempool_alloc(pool, 10));
    ASSERT_NE(block, nullptr);
    memset(block, i, 64);  // the whole block is the caller's
    blocks.insert(block);
  }
  EXPECT_EQ(blocks.size(), 25u);
  EXPECT_EQ(mempool_alloc(pool, 64), nullptr);
  EXPECT_TRUE(log_capture::has("size=64,blocksize=64:no free blocks available"));
  EXPECT_NE(mempool_alloc(pool, 65), nullptr);
  EXPECT_EQ(mempool_alloc(pool, 129), nullptr);
  EXPECT_TRUE(log_capture::has("size=129:no blocks in pool big enough"));
  mempool_free(pool, *blocks.begin());
  EXPECT_EQ(mempool_alloc(pool, 1), *blocks.begin());
  mempool_destroy(pool);
}

TEST(Mempool, HandsOutNewestFreedFirstAndRefusesStrangers) {
  log_capture::clear();
  // 6 rounds up to 8; groups of one block show that headers stay aligned and apart.
  const mempool_def definitions[] = {{6, 3}, {9, 1}, {0, 0}};
  mempool* pool = mempool_create(definitions, 1);
  void* first = mempool_alloc(pool, 8);
  void* second = mempool_alloc(pool, 8);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_LT(first, second) << "address order at the start";
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 4, 0u);
  mempool_free(pool, first);
  mempool_free(pool, second);
  EXPECT_EQ(log_capture::lines().size(), 0u);

  mempool_free(pool, second);
  EXPECT_EQ(log_capture::count("freeing unallocated block"), 1u);
  mempool* other = mempool_create(definitions, 0);
  void* foreign = mempool_alloc(other, 8);
  mempool_free(pool, foreign);
  EXPECT_EQ(log_capture::count("freeing unallocated block"), 2u);

  EXPECT_EQ(mempool_alloc(pool, 8), second);
  EXPECT_EQ(mempool_alloc(pool, 8), first);
  EXPECT_NE(mempool_alloc(pool, 8), nullptr);
  EXPECT_EQ(mempool_alloc(pool, 8), nullptr) << "the double free made no fourth block";
  EXPECT_NE(mempool_alloc(pool, 9), nullptr);
  mempool_destroy(other);
  mempool_destroy(pool);
}

TEST(Mempool, BadParametersAndFailures) {
  EXPECT_EQ(mempool_create(nullptr, 0), nullptr);
  const mempool_def negative[] = {{-4, 2}, {0, 0}};
  EXPECT_EQ(mempool_create(negative, 0), nullptr);
  EXPECT_EQ(log_capture::count("bad parameter given to mempool_create"), 2u);

  const mempool_def group = {INT_MAX, INT_MAX};
  const mempool_def huge[] = {group, group, group, group, group, {0, 0}};  // more than can be addressed
  EXPECT_EQ(mempool_create(huge, 0), nullptr);
  faults::fail(faults::Call::kCalloc, ENOMEM);
  EXPECT_EQ(mempool_create(kSmallAndLarge, 0), nullptr);
  EXPECT_EQ(log_capture::count("no space to allocate pool"), 2u);
  faults::fail(faults::Call::kMutex, EAGAIN);
  EXPECT_EQ(mempool_create(kSmallAndLarge, 1), nullptr);
  EXPECT_TRUE(log_capture::has("mutexinit:errno=11:failed to initialize mutex"));

  const mempool_def empty[] = {{0, 0}};
  mempool* pool = mempool_create(empty, 1);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(mempool_alloc(pool, 0), nullptr);
  EXPECT_EQ(mempool_alloc(nullptr, 4), nullptr);
  EXPECT_EQ(log_capture::count("bad parameters given to mempool_alloc"), 2u);
  EXPECT_EQ(mempool_alloc(pool, 1), nullptr);
  EXPECT_TRUE(log_capture::has("no blocks in pool big enough"));
  mempool_free(pool, nullptr);
  mempool_free(nullptr, pool);
  EXPECT_EQ(log_capture::count("bad parameters given to mempool_free"), 2u);
  mempool_destroy(pool);
  mempool_destroy(nullptr);
  EXPECT_EQ(log_capture::count("bad parameters given to mempool_destroy"), 1u);
}

TEST(Mempool, DumpNamesGroupsAndFreeBlocks) {
  log_capture::clear();
  const mempool_def definitions[] = {{8, 2}, {16, 1}, {0, 0}};
  mempool* pool = mempool_create(definitions, 1);
  mempool_alloc(pool, 8);
  mempool_dump(pool);
  EXPECT_EQ(log_capture::lines().size(), 0u) << "the bit is off";
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_MEMPOOL);
  mempool_dump(pool);
  EXPECT_TRUE(log_capture::has("num_groups=2"));
  EXPECT_EQ(log_capture::count("  group="), 2u);
  EXPECT_EQ(log_capture::count("    loc="), 2u);
  mempool_dump(nullptr);
  EXPECT_TRUE(log_capture::has("pool == NULL"));
  mempool_destroy(pool);
  brio::relaxed_store(g_brio_lib_log_mask, 0u);
}

TEST(Mempool, ThreadsShareOnePool) {
  const mempool_def definitions[] = {{32, 8}, {0, 0}};
  mempool* pool = mempool_create(definitions, 1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([pool, t] {
      for (int i = 0; i < 5000; i++) {
        unsigned char* block = static_cast<unsigned char*>(mempool_alloc(pool, 32));
        ASSERT_NE(block, nullptr);
        memset(block, t, 32);
        ASSERT_EQ(block[31], t);
        mempool_free(pool, block);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  int left = 0;
  while (mempool_alloc(pool, 1) != nullptr) left++;
  EXPECT_EQ(left, 8);
  mempool_destroy(pool);
}
