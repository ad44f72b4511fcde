// q_add in two steps, for a producer that holds a lock which the woken consumer needs at once.
#ifndef BRIOLIB_BRIO_QUEUE_H
#define BRIOLIB_BRIO_QUEUE_H

#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// Adds without waking the consumer; statuses of q_add.
uint32_t queue_put(queue* q, const void* source, uint32_t size);

// Wakes the consumer. The queue must still exist: the caller sees to that.
void queue_wake(queue* q);

}  // namespace brio

#endif
