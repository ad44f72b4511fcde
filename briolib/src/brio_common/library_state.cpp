// The status gate.
#include "brio_common/library_state.h"

#include "base/guards.h"
#include "base/log.h"
#include "base/own_threads.h"
#include "base/relaxed.h"
#include "brio/briolib.h"
#include "channel/request.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

uint32_t prv_library_status() {
  if (relaxed_load(g_state.library_open) == 0) return BRIO_STATUS_NOT_OPEN;
  const uint32_t modem_failed = relaxed_load(g_state.modem_failed);
  const uint32_t closing = relaxed_load(g_state.closing);
  if (modem_failed == 0 && closing == 0) return BRIO_STATUS_OK;
  BLIB_E("libstat_s:fatal lib status:modem indicated a failure[%d][%d]", modem_failed, closing);
  return BRIO_STATUS_FATAL;
}

}  // namespace

pthread_mutex_t brio::g_state_mutex = PTHREAD_MUTEX_INITIALIZER;
brio::LibraryState brio::g_state;

uint32_t brio::gate(const char* operation) {
  const uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) BLIB_E("%s::improper brio library status", operation);
  return status;
}

char* brio::answer_line_for(const char* callback, const ATResponse* response) {
  char* line = answer_line(response);
  if (line == nullptr) BLIB_E("%s::response is invalid", callback);
  return line;
}

uint32_t briolib_check_library_status(void) {
  if (in_forked_child()) return BRIO_STATUS_NOT_OPEN;
  // A callback that waited for an open would keep its answer from it. Until its end the library is not open.
  if (on_channel_thread()) return prv_library_status();
  MutexGuard state_guard(g_state_mutex);
  return prv_library_status();
}

uint32_t brio_log_startup_status(void) {
  return briolib_check_library_status();
}

uint32_t brio_check_for_fatal_failure(void) {
  return BRIO_STATUS_OK;
}
