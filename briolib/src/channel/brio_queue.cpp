// Bounded queue: a ring of fixed-size elements with a blocking take that times out and can be cancelled.
#include "channel/brio_queue.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <limits>

#include "base/clock.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/text.h"

constexpr char kLogTag[] = "briolib/src/brio_queue";

using namespace brio;

struct queue {
  pthread_mutex_t mutex;   // guards in, out, flags and the storage
  pthread_cond_t changed;  // on the monotonic clock; an element was added or the queue was cancelled
  uint32_t element_size;
  uint16_t capacity;
  uint16_t in;
  uint16_t out;
  uint16_t flags;
  alignas(max_align_t) uint8_t storage[1];  // capacity * element_size bytes
};

namespace {

// With in equal to out, kFull tells a full queue from an empty one. kCancelled is permanent.
constexpr uint16_t kFull = 1;
constexpr uint16_t kCancelled = 2;

constexpr uint32_t kNoQueue = 0xFFFFFFFF;
constexpr uint32_t kElementAlignment = 4;

pthread_mutex_t s_dump_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards g_queue_dump; taken under a queue's mutex

bool prv_is_empty(const queue* q) {
  return q->in == q->out && (q->flags & kFull) == 0;
}

uint8_t* prv_slot(queue* q, uint16_t index) {
  return q->storage + static_cast<size_t>(index) * q->element_size;
}

uint16_t prv_next(const queue* q, uint16_t index) {
  return static_cast<uint16_t>((index + 1) % q->capacity);
}

void prv_default_copy(void* destination, const void* source, uint32_t size, uint32_t element_size) {
  memcpy(destination, source, size == 0 || size > element_size ? element_size : size);
}

void prv_dump(queue* q) {
  assert_held(q->mutex);
  if (!log_on(BRIO_LOG_QUEUE)) return;
  MutexGuard dump_lock(s_dump_mutex);
  size_t total = static_cast<size_t>(q->capacity) * q->element_size;
  TextWriter line(nullptr, 0);
  for (size_t i = 0; i < total; i++) {
    if (i % kQueueDumpBytes == 0) line = TextWriter(g_queue_dump, sizeof(g_queue_dump));
    size_t element = i / q->element_size;
    bool ends_element = (i + 1) % q->element_size == 0;
    line.add("%s%02x%s%s", line.written() > 0 ? " " : "", q->storage[i],
             ends_element && element == q->in ? " i" : "", ends_element && element == q->out ? " o" : "");
  }
}

// Initialises mutex and condition; false with a log line and nothing left behind.
bool prv_init_locks(queue* q) {
  int err = pthread_mutex_init(&q->mutex, nullptr);
  if (err != 0) {
    BLIB_E("mutexinit:errno=%d:can't initialize mutex\n", err);
    return false;
  }
  pthread_condattr_t attributes;
  err = pthread_condattr_init(&attributes);
  if (err == 0) {
    err = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    if (err == 0) err = pthread_cond_init(&q->changed, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  if (err != 0) {
    BLIB_E("condinit:errno=%d:can't initialize condition var\n", err);
    pthread_mutex_destroy(&q->mutex);
  }
  return err == 0;
}

// Waits until the queue holds an element.
uint32_t prv_wait_element(queue* q, int32_t timeout_seconds) {
  assert_held(q->mutex);
  if (!prv_is_empty(q)) return Q_OK;
  if ((q->flags & kCancelled) != 0) return Q_CANCELLED;
  if (timeout_seconds == 0) return Q_EMPTY;
  timespec deadline = {};
  if (timeout_seconds > 0) {
    if (!clock_monotonic(&deadline)) return Q_CLOCK;
    // Where time_t has 32 bits the longest time-outs end beyond it.
    if (__builtin_add_overflow(deadline.tv_sec, timeout_seconds, &deadline.tv_sec)) {
      deadline.tv_sec = std::numeric_limits<time_t>::max();
    }
  }
  while (prv_is_empty(q)) {
    int result = timeout_seconds > 0 ? clock_wait_until(&q->changed, &q->mutex, &deadline)
                                     : pthread_cond_wait(&q->changed, &q->mutex);
    // A time-out counts even when an element arrived at the same moment: that one waits for the next take.
    if (result == ETIMEDOUT) return Q_TIMEOUT;
    if ((q->flags & kCancelled) != 0) return Q_CANCELLED;
  }
  return Q_OK;
}

uint32_t prv_put(queue* q, const void* source, q_copy copy, uint32_t size) {
  if (q == nullptr || source == nullptr || copy == nullptr) return Q_INVALID;
  MutexGuard lock(q->mutex);
  if ((q->flags & kFull) != 0) return Q_FULL;
  copy(prv_slot(q, q->in), source, size, q->element_size);
  q->in = prv_next(q, q->in);
  if (q->in == q->out) q->flags |= kFull;
  prv_dump(q);
  return Q_OK;
}

}  // namespace

char brio::g_queue_dump[brio::kQueueDumpBytes * 8];

queue* q_create(uint32_t element_size, int32_t capacity) {
  uint32_t rounded = (element_size + kElementAlignment - 1) & ~(kElementAlignment - 1);
  if (element_size == 0 || rounded == 0 || capacity <= 0 || capacity > UINT16_MAX) {
    BLIB_E("param:num_elements=%d,element_size_in=%d:bad parameters\n", capacity, element_size);
    return nullptr;
  }
  size_t total = 0;
  queue* q = nullptr;
  if (!__builtin_mul_overflow(static_cast<size_t>(capacity), static_cast<size_t>(rounded), &total) &&
      !__builtin_add_overflow(total, sizeof(queue), &total)) {
    q = static_cast<queue*>(calloc(1, total));
  }
  if (q == nullptr) {
    BLIB_E("nospace:num_elements=%d,element_size=%d:can't allocate queue\n", capacity, rounded);
    return nullptr;
  }
  q->element_size = rounded;
  q->capacity = static_cast<uint16_t>(capacity);
  if (!prv_init_locks(q)) {
    free(q);
    return nullptr;
  }
  return q;
}

void q_destroy(queue* q) {
  if (q == nullptr) return;
  pthread_cond_destroy(&q->changed);
  pthread_mutex_destroy(&q->mutex);
  free(q);
}

uint32_t brio::queue_put(queue* q, const void* source, uint32_t size) {
  return prv_put(q, source, prv_default_copy, size);
}

void brio::queue_wake(queue* q) {
  pthread_cond_signal(&q->changed);
}

uint32_t q_add_with_copy_callback(queue* q, const void* source, q_copy copy, uint32_t size) {
  uint32_t status = prv_put(q, source, copy, size);
  // Not under the lock, which the woken consumer needs at once: one switch to it instead of three.
  if (status == Q_OK) queue_wake(q);
  return status;
}

uint32_t q_add(queue* q, const void* source, uint32_t size) {
  return q_add_with_copy_callback(q, source, prv_default_copy, size);
}

uint32_t q_get_with_copy_callback(queue* q, void* destination, q_copy copy, uint32_t size,
                                  int32_t timeout_seconds) {
  if (q == nullptr || copy == nullptr) return Q_INVALID;
  MutexGuard lock(q->mutex);
  uint32_t status = prv_wait_element(q, timeout_seconds);
  if (status != Q_OK) return status;
  copy(destination, prv_slot(q, q->out), size, q->element_size);
  q->out = prv_next(q, q->out);
  q->flags &= static_cast<uint16_t>(~kFull);
  prv_dump(q);
  return Q_OK;
}

uint32_t q_get(queue* q, void* destination, uint32_t size, int32_t timeout_seconds) {
  if (destination == nullptr) return Q_INVALID;
  return q_get_with_copy_callback(q, destination, prv_default_copy, size, timeout_seconds);
}

void q_cancel(queue* q) {
  if (q == nullptr) return;
  MutexGuard lock(q->mutex);
  q->flags |= kCancelled;
  pthread_cond_signal(&q->changed);
}

uint32_t q_num_elements(const queue* q) {
  return q != nullptr ? q->capacity : kNoQueue;
}

uint32_t q_element_size(const queue* q) {
  return q != nullptr ? q->element_size : kNoQueue;
}

void queue_dump_all(queue* q) {
  if (q == nullptr) return;
  MutexGuard lock(q->mutex);
  prv_dump(q);
}
