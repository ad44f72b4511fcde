// Queue and pool between threads; all else: tests/transcripts/channel.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "lab/log_capture.h"

TEST(Queue, ProducersAndConsumerLoseNothing) {
  // The dump walks the storage meanwhile, as with its log bit on.
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_QUEUE);
  const std::unique_ptr<queue, void (*)(queue*)> q(q_create(12, 3), q_destroy);
  constexpr int32_t kEach = 3000;
  std::vector<std::thread> producers;
  for (int32_t id = 0; id < 3; id++) {
    producers.emplace_back([&q, id] {
      for (int32_t i = 0; i < kEach;) {
        const int32_t element[3] = {id, i, ~i};
        i += q_add(q.get(), element, sizeof(element)) == Q_OK ? 1 : 0;
      }
    });
  }
  int32_t next[3] = {}, element[3];
  for (int32_t i = 0; i < 3 * kEach; i++) {
    ASSERT_EQ(q_get(q.get(), element, sizeof(element), -1), Q_OK + 0u);
    ASSERT_EQ(element[1], next[element[0]]++);
    ASSERT_EQ(element[2], ~element[1]);
  }
  for (auto& producer : producers) producer.join();
  EXPECT_EQ(log_capture::lines().size(), 0u) << "the dump writes nothing to the log";
}

TEST(Mempool, ThreadsShareOnePool) {
  const mempool_def groups[] = {{32, 8}, {0, 0}};
  const std::unique_ptr<mempool, void (*)(mempool*)> pool(mempool_create(groups, 1), mempool_destroy);
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

TEST(Objects, ThatAreNone) {
  const blpkt_callback none[] = {nullptr};
  brio::relaxed_store(g_brio_lib_log_mask, 0xFFFFFFFFu);
  log_capture::clear();
  EXPECT_EQ(process_line("OK", nullptr, NUMERIC, ""), 1);
  mempool_destroy(nullptr);
  mempool_dump(nullptr);
  queue_dump_all(nullptr);
  blpkt_set_event_callbacks(none);
  blpkt_set_event_callbacks(nullptr);
  blpkt_set_log_callbacks(none);
  blpkt_set_default_event_callback(nullptr);
  blpkt_set_default_log_callback(nullptr);
  EXPECT_TRUE(log_capture::has("FATAL:ERROR:: AT resp (p_resp) is NULL"));
  EXPECT_TRUE(log_capture::has("bad parameters given to mempool_destroy"));
  EXPECT_TRUE(log_capture::has("pool == NULL"));
  EXPECT_EQ(log_capture::lines().size(), 3u);
}
