// Whether the library is open, as the status gate (briolib_check_library_status) reads it, and what
// operations and their callbacks check first.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// Guards library_open and closing. Held across the whole of brio_open, so that a status check waits for its
// end. The URC-data mutex may be taken under it. The read thread and the event thread never take it.
extern pthread_mutex_t g_state_mutex;

// Relaxed atomics: the read thread and the event thread use them without the mutex.
struct LibraryState {
  uint32_t library_open;
  uint32_t modem_failed;  // the channel is lost; written on the read thread
  uint32_t closing;
};
extern LibraryState g_state;

// The status gate; a status other than 0 is logged with the operation's name.
uint32_t gate(const char* operation);

// The first line of an answer; null with an error line of this callback.
char* answer_line_for(const char* callback, const ATResponse* response);

}  // namespace brio
