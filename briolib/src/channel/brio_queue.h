// q_add in two steps, for a producer that holds a lock which the woken consumer needs at once; what a dump
// left.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// Adds without waking the consumer; statuses of q_add.
uint32_t queue_put(queue* q, const void* source, uint32_t size);

// Wakes the consumer. The queue must still exist: the caller sees to that.
void queue_wake(queue* q);

// Bytes of a queue that a line of its dump shows, and the last dump's last line. For a debugger, and read
// where no queue is in use.
constexpr size_t kQueueDumpBytes = 16;
extern char g_queue_dump[kQueueDumpBytes * 8];

}  // namespace brio
