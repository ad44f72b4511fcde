#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "faults.h"
#include "support/log_capture.h"
#include "support/test_clock.h"

namespace {

using faults::Call;
using Queue = std::unique_ptr<queue, void (*)(queue*)>;

constexpr int32_t kForever = -1;

Queue make(uint32_t element_size, int32_t capacity) {
  return {q_create(element_size, capacity), q_destroy};
}

void copy_twice(void* destination, const void* source, uint32_t size, uint32_t element_size) {
  EXPECT_EQ(element_size, 4u);
  EXPECT_EQ(size, 7u) << "passed through";
  *static_cast<int32_t*>(destination) = *static_cast<const int32_t*>(source) * 2;
}

}  // namespace

TEST(Queue, KeepsOrderAndCapacityAroundTheRing) {
  for (int32_t capacity : {1, 2, 3, 20}) {
    const Queue q = make(4, capacity);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q_num_elements(q.get()), static_cast<uint32_t>(capacity));
    int32_t next_in = 0, next_out = 0, value = -1;
    for (int round = 0; round < 5; round++) {
      while (q_add(q.get(), &next_in, 0) == Q_OK) next_in++;
      EXPECT_EQ(next_in - next_out, capacity);
      EXPECT_EQ(q_add(q.get(), &next_in, 0), Q_FULL + 0u);
      // Leaves the indexes at another place each round.
      for (int32_t left = (capacity + 1) / 2; left > 0; left--) {
        ASSERT_EQ(q_get(q.get(), &value, 0, 0), Q_OK + 0u);
        EXPECT_EQ(value, next_out++);
      }
    }
  }
}

TEST(Queue, CopiesAreBoundedByTheElement) {
  const Queue q = make(5, 2), numbers = make(3, 1);
  EXPECT_EQ(q_element_size(q.get()), 8u);
  const struct {
    uint32_t size;
    const char* expected;
  } cases[] = {{0, "abcdefgh........"}, {3, "abc............."}, {16, "abcdefgh........"}};
  for (const auto& c : cases) {
    char target[] = "................";
    ASSERT_EQ(q_add(q.get(), "abcdefghijklmno", c.size), Q_OK + 0u);
    ASSERT_EQ(q_get(q.get(), target, c.size, 0), Q_OK + 0u);
    EXPECT_STREQ(target, c.expected) << c.size;
  }
  int32_t value = 5;
  EXPECT_EQ(q_add_with_copy_callback(numbers.get(), &value, copy_twice, 7), Q_OK + 0u);
  EXPECT_EQ(q_get_with_copy_callback(numbers.get(), &value, copy_twice, 7, 0), Q_OK + 0u);
  EXPECT_EQ(value, 20);
}

TEST(Queue, BadParametersAndFailedCreation) {
  int32_t value = 0;
  const Queue q = make(4, 1);
  for (uint32_t status :
       {q_add(nullptr, &value, 0), q_add(q.get(), nullptr, 0), q_get(nullptr, &value, 0, kForever),
        q_get(q.get(), nullptr, 0, 0), q_add_with_copy_callback(q.get(), &value, nullptr, 0)}) {
    EXPECT_EQ(status, Q_INVALID + 0u);
  }
  EXPECT_EQ(q_num_elements(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(q_element_size(nullptr), 0xFFFFFFFFu);
  for (auto call : {q_destroy, q_cancel, queue_dump_all}) call(nullptr);

  constexpr Call kNone = Call::kSelect;
  const struct {
    uint32_t element_size;
    int32_t capacity;
    Call failing;
    const char* line;
  } bad[] = {
      {0, 1, kNone, "param:num_elements=1,element_size_in=0:bad parameters"},
      {4, 0, kNone, "param:num_elements=0,element_size_in=4:bad parameters"},
      {4, -3, kNone, "param:num_elements=-3,element_size_in=4:bad parameters"},
      {4, 65536, kNone, "param:num_elements=65536,element_size_in=4:bad parameters"},
      {0xFFFFFFFF, 1, kNone, "param:num_elements=1,element_size_in=-1:bad parameters"},
      {5, 2, Call::kCalloc, "nospace:num_elements=2,element_size=8:can't allocate queue"},
      {5, 2, Call::kMutex, "mutexinit:errno=11:can't initialize mutex"},
      {5, 2, Call::kCondition, "condinit:errno=11:can't initialize condition var"},
  };
  for (const auto& c : bad) {
    faults::fail(c.failing, EAGAIN);
    EXPECT_EQ(q_create(c.element_size, c.capacity), nullptr);
    EXPECT_TRUE(log_capture::has(c.line)) << c.line;
  }
}

TEST(Queue, TimeOutsClockAndCancel) {
  const Queue q = make(4, 2);
  int32_t value = 1;
  const auto get = [&](int32_t timeout) { return static_cast<int>(q_get(q.get(), &value, 0, timeout)); };
  EXPECT_EQ(get(0), Q_EMPTY);
  test_clock::scale_waits(0.01);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(get(2), Q_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
  test_clock::fail_monotonic(true);
  EXPECT_EQ(get(2), Q_CLOCK);
  q_add(q.get(), &value, 0);
  EXPECT_EQ(get(2), Q_OK) << "nothing to wait for";
  test_clock::reset();

  std::thread producer([&] {
    const int32_t late = 42;
    q_add(q.get(), &late, 0);
  });
  EXPECT_EQ(get(20), Q_OK);
  EXPECT_EQ(value, 42);
  producer.join();

  // Cancelled for good, and before the check of time-out 0; what is there is served.
  std::thread canceller([&] { q_cancel(q.get()); });
  EXPECT_EQ(get(kForever), Q_CANCELLED);
  canceller.join();
  EXPECT_EQ(get(0), Q_CANCELLED);
  EXPECT_EQ(q_add(q.get(), &(value = 7), 0), Q_OK + 0u);
  EXPECT_EQ(get(kForever), Q_OK);
  EXPECT_EQ(value, 7);
}

TEST(Queue, ProducersAndConsumerLoseNothing) {
  log_capture::clear();
  // The dump walks the storage meanwhile, as with its log bit on.
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_QUEUE);
  const Queue q = make(12, 3);
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
    ASSERT_EQ(q_get(q.get(), element, sizeof(element), kForever), Q_OK + 0u);
    ASSERT_EQ(element[1], next[element[0]]++);
    ASSERT_EQ(element[2], ~element[1]);
  }
  for (auto& producer : producers) producer.join();
  EXPECT_EQ(log_capture::lines().size(), 0u) << "the dump writes nothing to the log";
}
