#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "faults.h"
#include "support/log_capture.h"

namespace {

using faults::Call;
using Definitions = std::vector<mempool_def>;
using Pool = std::unique_ptr<mempool, void (*)(mempool*)>;

Pool make(Definitions definitions, uint32_t thread_safe = 0) {
  definitions.push_back({0, 0});
  return {mempool_create(definitions.data(), thread_safe), mempool_destroy};
}

}  // namespace

TEST(Mempool, LargerGroupIsNotTriedWhenOneIsUsedUp) {
  const Pool pool = make({{64, 25}, {128, 15}});
  std::set<char*> blocks;
  for (int i = 0; i < 25; i++) {
    char* block = static_cast<char*>(mempool_alloc(pool.get(), 10));
    ASSERT_NE(block, nullptr);
    memset(block, i, 64);  // the whole block is the caller's
    blocks.insert(block);
  }
  EXPECT_EQ(blocks.size(), 25u);
  EXPECT_EQ(mempool_alloc(pool.get(), 64), nullptr);
  EXPECT_TRUE(log_capture::has("size=64,blocksize=64:no free blocks available"));
  EXPECT_NE(mempool_alloc(pool.get(), 65), nullptr);
  EXPECT_EQ(mempool_alloc(pool.get(), 129), nullptr);
  EXPECT_TRUE(log_capture::has("size=129:no blocks in pool big enough"));
  mempool_free(pool.get(), *blocks.begin());
  EXPECT_EQ(mempool_alloc(pool.get(), 1), *blocks.begin());
}

TEST(Mempool, HandsOutNewestFreedFirstAndRefusesStrangers) {
  log_capture::clear();
  // 6 rounds up to 8; a group of one block shows that headers stay aligned and apart.
  const Pool pool = make({{6, 3}, {9, 1}}, 1), other = make({{6, 3}});
  void* first = mempool_alloc(pool.get(), 8);
  void* second = mempool_alloc(pool.get(), 8);
  EXPECT_LT(first, second) << "address order at the start";
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 4, 0u);
  mempool_free(pool.get(), first);
  mempool_free(pool.get(), second);
  EXPECT_EQ(log_capture::lines().size(), 0u);
  mempool_free(pool.get(), second);
  mempool_free(pool.get(), mempool_alloc(other.get(), 8));
  EXPECT_EQ(log_capture::count("freeing unallocated block"), 2u);

  EXPECT_EQ(mempool_alloc(pool.get(), 8), second);
  EXPECT_EQ(mempool_alloc(pool.get(), 8), first);
  EXPECT_NE(mempool_alloc(pool.get(), 8), nullptr);
  EXPECT_EQ(mempool_alloc(pool.get(), 8), nullptr) << "the double free made no fourth block";
  EXPECT_NE(mempool_alloc(pool.get(), 9), nullptr);
}

TEST(Mempool, BadParametersAndFailures) {
  constexpr Call kNone = Call::kSelect;
  const Definitions small = {{64, 25}};
  const struct {
    Definitions definitions;
    Call failing;
    const char* line;
  } bad[] = {
      {{{-4, 2}}, kNone, "bad parameter given to mempool_create"},
      {{{4, -2}}, kNone, "bad parameter given to mempool_create"},
      {Definitions(5, {INT_MAX, INT_MAX}), kNone,
       "no space to allocate pool"},  // beyond what can be addressed
      {small, Call::kCalloc, "no space to allocate pool"},
      {small, Call::kMutex, "mutexinit:errno=11:failed to initialize mutex"},
  };
  for (const auto& c : bad) {
    log_capture::clear();
    faults::fail(c.failing, EAGAIN);
    EXPECT_EQ(make(c.definitions, 1), nullptr);
    EXPECT_TRUE(log_capture::has(c.line)) << c.line;
  }
  log_capture::clear();
  const Pool empty = make({}, 1);
  EXPECT_EQ(mempool_create(nullptr, 0), nullptr);
  for (void* block :
       {mempool_alloc(empty.get(), 0), mempool_alloc(nullptr, 4), mempool_alloc(empty.get(), 1)})
    EXPECT_EQ(block, nullptr);
  mempool_free(empty.get(), nullptr);
  mempool_free(nullptr, empty.get());
  mempool_destroy(nullptr);
  const std::vector<size_t> counts = {
      log_capture::count("given to mempool_create"), log_capture::count("given to mempool_alloc"),
      log_capture::count("no blocks in pool big enough"), log_capture::count("given to mempool_free"),
      log_capture::count("given to mempool_destroy")};
  EXPECT_EQ(counts, (std::vector<size_t>{1, 2, 1, 2, 1}));
}

TEST(Mempool, DumpNamesGroupsAndFreeBlocks) {
  log_capture::clear();
  const Pool pool = make({{8, 2}, {16, 1}}, 1);
  mempool_alloc(pool.get(), 8);
  for (uint32_t mask : {0u, ~BRIO_LOG_MEMPOOL, BRIO_LOG_MEMPOOL}) {
    EXPECT_EQ(log_capture::lines().size(), 0u) << "the bit is off";
    brio::relaxed_store(g_brio_lib_log_mask, mask);
    mempool_dump(pool.get());
  }
  EXPECT_TRUE(log_capture::has("num_groups=2"));
  EXPECT_EQ(log_capture::count("  group="), 2u);
  EXPECT_EQ(log_capture::count("    loc="), 2u);
  mempool_dump(nullptr);
  EXPECT_TRUE(log_capture::has("pool == NULL"));
}

TEST(Mempool, ThreadsShareOnePool) {
  const Pool pool = make({{32, 8}}, 1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&pool, t] {
      for (int i = 0; i < 5000; i++) {
        auto* block = static_cast<unsigned char*>(mempool_alloc(pool.get(), 32));
        ASSERT_NE(block, nullptr);
        memset(block, t, 32);
        ASSERT_EQ(block[31], t);
        mempool_free(pool.get(), block);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  int left = 0;
  while (mempool_alloc(pool.get(), 1) != nullptr) left++;
  EXPECT_EQ(left, 8);
}
