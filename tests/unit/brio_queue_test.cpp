#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "faults.h"
#include "support/log_capture.h"
#include "support/test_clock.h"

namespace {

constexpr int32_t kForever = -1;

struct QueueGuard {
  explicit QueueGuard(queue* q) : q(q) {}
  ~QueueGuard() { q_destroy(q); }
  queue* q;
};

void copy_twice(void* destination, const void* source, uint32_t size, uint32_t element_size) {
  EXPECT_EQ(element_size, 4u);
  EXPECT_EQ(size, 7u) << "passed through";
  int32_t value;
  memcpy(&value, source, sizeof(value));
  value *= 2;
  memcpy(destination, &value, sizeof(value));
}

}  // namespace

TEST(Queue, KeepsOrderAndCapacityAroundTheRing) {
  for (int32_t capacity : {1, 2, 3, 20}) {
    QueueGuard guard(q_create(4, capacity));
    ASSERT_NE(guard.q, nullptr);
    EXPECT_EQ(q_num_elements(guard.q), static_cast<uint32_t>(capacity));
    int32_t next_in = 0;
    int32_t next_out = 0;
    for (int round = 0; round < 5; round++) {
      while (q_add(guard.q, &next_in, 0) == Q_OK) next_in++;
      EXPECT_EQ(next_in - next_out, capacity);
      EXPECT_EQ(q_add(guard.q, &next_in, 0), static_cast<uint32_t>(Q_FULL));
      int32_t taken = (capacity + 1) / 2;  // leaves the indexes at another place each round
      while (taken-- > 0) {
        int32_t value = -1;
        ASSERT_EQ(q_get(guard.q, &value, 0, 0), static_cast<uint32_t>(Q_OK));
        EXPECT_EQ(value, next_out++);
      }
    }
  }
}

TEST(Queue, ElementSizesAndPartialCopies) {
  QueueGuard guard(q_create(5, 2));
  EXPECT_EQ(q_element_size(guard.q), 8u);
  const char source[16] = "abcdefghijklmno";
  char target[16];
  // 0 copies a whole element, 3 just so many bytes, more than an element is bounded on both ways.
  const struct {
    uint32_t size;
    const char* expected;
  } cases[] = {{0, "abcdefgh........"}, {3, "abc............."}, {16, "abcdefgh........"}};
  for (const auto& c : cases) {
    memset(target, '.', sizeof(target));
    ASSERT_EQ(q_add(guard.q, source, c.size), static_cast<uint32_t>(Q_OK));
    ASSERT_EQ(q_get(guard.q, target, c.size, 0), static_cast<uint32_t>(Q_OK));
    EXPECT_EQ(std::string(target, sizeof(target)), c.expected) << c.size;
  }
}

TEST(Queue, CopyCallbacksSeeSizeAndElementSize) {
  QueueGuard guard(q_create(3, 1));
  int32_t value = 5;
  EXPECT_EQ(q_add_with_copy_callback(guard.q, &value, copy_twice, 7), static_cast<uint32_t>(Q_OK));
  EXPECT_EQ(q_get_with_copy_callback(guard.q, &value, copy_twice, 7, 0), static_cast<uint32_t>(Q_OK));
  EXPECT_EQ(value, 20);
}

TEST(Queue, BadParametersAndFailedCreation) {
  int32_t value = 0;
  QueueGuard guard(q_create(4, 1));
  EXPECT_EQ(q_add(nullptr, &value, 0), static_cast<uint32_t>(Q_INVALID));
  EXPECT_EQ(q_add(guard.q, nullptr, 0), static_cast<uint32_t>(Q_INVALID));
  EXPECT_EQ(q_add_with_copy_callback(guard.q, &value, nullptr, 0), static_cast<uint32_t>(Q_INVALID));
  EXPECT_EQ(q_get(nullptr, &value, 0, kForever), static_cast<uint32_t>(Q_INVALID));
  EXPECT_EQ(q_num_elements(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(q_element_size(nullptr), 0xFFFFFFFFu);
  q_destroy(nullptr);
  q_cancel(nullptr);
  queue_dump_all(nullptr);

  const struct {
    uint32_t element_size;
    int32_t capacity;
    const char* line;
  } bad[] = {
      {0, 1, "param:num_elements=1,element_size_in=0:bad parameters"},
      {4, 0, "param:num_elements=0,element_size_in=4:bad parameters"},
      {4, -3, "param:num_elements=-3,element_size_in=4:bad parameters"},
      {4, 65536, "param:num_elements=65536,element_size_in=4:bad parameters"},
      {0xFFFFFFFF, 1, "param:num_elements=1,element_size_in=-1:bad parameters"},
  };
  for (const auto& c : bad) {
    EXPECT_EQ(q_create(c.element_size, c.capacity), nullptr);
    EXPECT_TRUE(log_capture::has(c.line)) << c.line;
  }
  faults::fail(faults::Call::kCalloc, ENOMEM);
  EXPECT_EQ(q_create(5, 2), nullptr);
  EXPECT_TRUE(log_capture::has("nospace:num_elements=2,element_size=8:can't allocate queue"));
  faults::fail(faults::Call::kMutex, EAGAIN);
  EXPECT_EQ(q_create(5, 2), nullptr);
  EXPECT_TRUE(log_capture::has("mutexinit:errno=11:can't initialize mutex"));
  faults::fail(faults::Call::kCondition, EAGAIN);
  EXPECT_EQ(q_create(5, 2), nullptr);
  EXPECT_TRUE(log_capture::has("condinit:errno=11:can't initialize condition var"));
}

TEST(Queue, TimeOutsAndClock) {
  test_clock::reset();
  QueueGuard guard(q_create(4, 1));
  int32_t value = 1;
  EXPECT_EQ(q_get(guard.q, &value, 0, 0), static_cast<uint32_t>(Q_EMPTY));
  test_clock::scale_waits(0.01);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(q_get(guard.q, &value, 0, 2), static_cast<uint32_t>(Q_TIMEOUT));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
  test_clock::fail_monotonic(true);
  EXPECT_EQ(q_get(guard.q, &value, 0, 2), static_cast<uint32_t>(Q_CLOCK));
  q_add(guard.q, &value, 0);
  EXPECT_EQ(q_get(guard.q, &value, 0, 2), static_cast<uint32_t>(Q_OK)) << "nothing to wait for";
  test_clock::reset();

  // An element that comes while the consumer waits.
  std::thread producer([&] {
    int32_t late = 42;
    q_add(guard.q, &late, 0);
  });
  EXPECT_EQ(q_get(guard.q, &value, 0, 20), static_cast<uint32_t>(Q_OK));
  EXPECT_EQ(value, 42);
  producer.join();
}

TEST(Queue, CancelWakesForGoodButServesWhatIsThere) {
  QueueGuard guard(q_create(4, 2));
  int32_t value = 0;
  std::thread canceller([&] { q_cancel(guard.q); });
  EXPECT_EQ(q_get(guard.q, &value, 0, kForever), static_cast<uint32_t>(Q_CANCELLED));
  canceller.join();
  EXPECT_EQ(q_get(guard.q, &value, 0, 0), static_cast<uint32_t>(Q_CANCELLED))
      << "before the check of time-out 0";
  int32_t late = 7;
  EXPECT_EQ(q_add(guard.q, &late, 0), static_cast<uint32_t>(Q_OK));
  EXPECT_EQ(q_get(guard.q, &value, 0, kForever), static_cast<uint32_t>(Q_OK));
  EXPECT_EQ(value, 7);
}

TEST(Queue, ProducersAndConsumerLoseNothing) {
  log_capture::clear();
  // The dump walks the storage meanwhile, as with its log bit on.
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_QUEUE);
  QueueGuard guard(q_create(12, 3));
  constexpr int32_t kEach = 3000;
  std::vector<std::thread> producers;
  for (int32_t id = 0; id < 3; id++) {
    producers.emplace_back([&, id] {
      for (int32_t i = 0; i < kEach;) {
        int32_t element[3] = {id, i, ~i};
        if (q_add(guard.q, element, sizeof(element)) == Q_OK) {
          i++;
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  int32_t next[3] = {};
  for (int32_t i = 0; i < 3 * kEach; i++) {
    int32_t element[3];
    ASSERT_EQ(q_get(guard.q, element, sizeof(element), kForever), static_cast<uint32_t>(Q_OK));
    ASSERT_EQ(element[1], next[element[0]]++);
    ASSERT_EQ(element[2], ~element[1]);
  }
  for (auto& producer : producers) producer.join();
  EXPECT_EQ(log_capture::lines().size(), 0u) << "the dump writes nothing to the log";
  brio::relaxed_store(g_brio_lib_log_mask, 0u);
}
