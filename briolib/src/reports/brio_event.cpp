// The table of library event callbacks.
#include "base/log.h"
#include "base/own_threads.h"
#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/briolib.h"

constexpr char kLogTag[] = "briolib/src/brio_event";

using namespace brio;

namespace {

// Registered by the host thread before the library reports; read by whichever thread raises an event.
brio_event_callback s_event_callbacks[BRIO_EVENT_COUNT];

}  // namespace

uint32_t brio_set_callback_for_event_id(uint32_t id, brio_event_callback callback) {
  if (id >= BRIO_EVENT_COUNT) return BRIO_STATUS_INVALID;
  relaxed_store(s_event_callbacks[id], callback);
  return BRIO_STATUS_OK;
}

void briolib_exec_event_callback(uint32_t id, uint32_t data_size, const void* data) {
  if (data_size != 0 && data == nullptr) {
    BLIB_E("bdparexec:id=%d:bad param when executing event callback\n", id);
    return;
  }
  if (id >= BRIO_EVENT_COUNT) return;
  brio_event_callback callback = relaxed_load(s_event_callbacks[id]);
  if (callback == nullptr) return;
  const InEventCallback scope;
  callback(id, data_size, data);
}
