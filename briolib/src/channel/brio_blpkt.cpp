// Packet layer: synchronous requests with one status each, and the event thread that unsolicited lines reach
// through pool and queue.
#include <errno.h>
#include <pthread.h>
#include <string.h>

#include "base/guards.h"
#include "base/log.h"
#include "base/log_text.h"
#include "base/own_threads.h"
#include "base/relaxed.h"
#include "brio/brio_at.h"
#include "channel/brio_blpkt.h"
#include "channel/brio_pktio.h"
#include "channel/brio_queue.h"

constexpr char kLogTag[] = "briolib/src/brio_blpkt";

using namespace brio;

namespace {

// Most reports are short; two blocks hold a line that fills the reader's buffer.
constexpr mempool_def kPoolDefinition[] = {{64, 25},   {128, 15}, {256, 10}, {1024, 10},
                                           {1656, 10}, {2400, 2}, {0, 0}};

constexpr int32_t kEventQueueElements = 20;
constexpr int32_t kResponseQueueElements = 1;

// One slot of the event queue.
struct EventElement {
  char* payload;      // pool block with the line and its NUL; freed by the event thread
  uint16_t reserved;  // always 0
  uint16_t size;      // line length + 1
};
static_assert(sizeof(EventElement) == sizeof(void*) + (sizeof(void*) > 4 ? 8 : 4), "no surprise padding");

// The request that waits, if any.
struct CurrentRequest {
  recv_func callback;
  void* user_data;
  uint16_t user_value;
  bool filled;   // the callback ran on this request's own answer and returned 0
  bool of_scan;  // sent between blpkt_begin_scan and blpkt_end_scan
};

// Serialises blpkt_init and blpkt_shutdown; guards s_event_thread. Taken first.
pthread_mutex_t s_lifecycle_mutex = PTHREAD_MUTEX_INITIALIZER;
// Serialises whole requests, the wait included, in the order in which they came. Taken before the response
// mutex.
FairLock s_send_mutex;
__thread bool t_holds_send_mutex;
// Orders the producers of the response queue and guards s_request. The read thread holds it while a response
// callback runs, so a request that has cleared s_request knows that nobody writes into its caller's memory.
pthread_mutex_t s_response_mutex = PTHREAD_MUTEX_INITIALIZER;

CurrentRequest s_request;
// Whether a request waits, and whether the read thread has gone; under the response mutex.
bool s_request_waits;
bool s_channel_lost;
// The response queue's one slot is in use: from the moment in which a status is queued until the request that
// takes it has ended, so that an abort and an answer that meet leave one status. Under the response mutex.
bool s_slot_in_use;
// The command whose request returned last without a status. Its late answer still brings one; that of any
// other command that is over is dropped. Under the response mutex.
uint32_t s_unanswered_command;
// How many scans run, and whether one was aborted that has not ended yet. Under the response mutex.
uint32_t s_scans;
bool s_scan_aborted;
__thread bool t_scans;
// Written under the send and the response mutex, read under either.
queue* s_response_queue;
// Set before the event thread and the read thread start and cleared when both are gone.
mempool* s_pool;
queue* s_event_queue;
void prv_handle_events(int);
OwnThread s_event_thread(Thread::kEvent, prv_handle_events);  // ends when its queue is cancelled
// Reports are numbered as they are queued: how many there were, and how many the event thread has taken.
uint32_t s_reports_queued;
uint32_t s_reports_taken;
__thread uint32_t t_report_in_hand;

const blpkt_callback* s_event_callbacks;
uint32_t s_event_callback_count;
blpkt_callback s_default_event_callback;
const blpkt_callback* s_log_callbacks;
uint32_t s_log_callback_count;
blpkt_callback s_default_log_callback;

// False when this thread holds it already, or must not wait for another one's request.
bool prv_take_send_mutex() {
  if (t_holds_send_mutex || !may_send()) return false;
  s_send_mutex.lock();
  t_holds_send_mutex = true;
  return true;
}

bool prv_give_send_mutex() {
  if (!t_holds_send_mutex) return false;
  t_holds_send_mutex = false;
  s_send_mutex.unlock();
  return true;
}

class SendGuard : NoCopy {
 public:
  SendGuard() : has_taken_(prv_take_send_mutex()) {}
  ~SendGuard() {
    if (has_taken_) prv_give_send_mutex();
  }

  bool has_taken() const { return has_taken_; }

 private:
  bool has_taken_;
};

void prv_handle_events(int) {
  EventElement event = {};
  while (q_get(s_event_queue, &event, sizeof(event), -1) == Q_OK) {
    t_report_in_hand = ++s_reports_taken;
    BLIB_D(BRIO_LOG_EVENT, "prv_event_thread payload size =  %d\n", event.size);
    if (event.payload == nullptr) {
      BLIB_E("URC error:log.payload is NULL:\n");
      continue;
    }
    kReportParser(event.payload, nullptr, nullptr);
    BLIB_D(BRIO_LOG_EVENT, "payload pointer to be freed[%p]\n", static_cast<void*>(event.payload));
    mempool_free(s_pool, event.payload);
  }
}

// Queues a status without waking the requester.
bool prv_queue_response(int32_t status) {
  assert_held(s_response_mutex);
  uint32_t result = Q_FULL;
  if (!s_slot_in_use) result = queue_put(s_response_queue, &status, sizeof(status));
  if (result == Q_OK) {
    s_slot_in_use = true;
    return true;
  }
  BLIB_E("qresp:status=%d:can't queue response\n", result);
  return false;
}

// The same, and wakes the requester: under the lock, since a shutdown on another thread may be about to
// destroy the queue.
bool prv_queue_response_and_wake(int32_t status) {
  if (!prv_queue_response(status)) return false;
  queue_wake(s_response_queue);
  return true;
}

// Read thread: one complete answer becomes one status.
void prv_convert_and_queue_resp_packet(const ATResponse* response) {
  if (response == nullptr) {
    BLIB_E("queue_resp_packet:ret=%d:FATAL: resp is NULL\n", BLPKT_STATUS_ERROR);
    return;
  }
  queue* queued = nullptr;
  {
    MutexGuard lock(s_response_mutex);
    uint32_t command = 0;
    const bool late = pktio_answer_is_late(response, &command);
    if (late && command != s_unanswered_command) return;  // its request has had its status, an abort's
    uint32_t status = BLPKT_STATUS_SUCCESS;
    if (response->status != 0) {
      BLIB_E("blpktstat:AT_err_string:%s:\n", masked_line(response->final_response).c_str());
      status = BLPKT_STATUS_ERROR;
    } else if (s_request.callback != nullptr && !late && !s_slot_in_use) {
      status = s_request.callback(response, s_request.user_data, s_request.user_value);
      s_request.filled = status == BLPKT_STATUS_SUCCESS;
    }
    BLIB_D(BRIO_LOG_REQUEST, "prv_convert_and_queue_resp_packet %d\n", status);
    if (prv_queue_response(static_cast<int32_t>(status))) queued = s_response_queue;
  }
  // The requester takes the response mutex right away. The queue outlives the read thread.
  if (queued != nullptr) queue_wake(queued);
}

// Read thread: one unsolicited line goes to the event thread, or is dropped when that one is too far behind.
void prv_queue_urc(const char* line) {
  if (line == nullptr) return;
  uint16_t length = static_cast<uint16_t>(strlen(line));
  uint32_t size = length + 1u;
  char* payload = static_cast<char*>(mempool_alloc(s_pool, size));
  if (payload == nullptr) {
    BLIB_W("alloclog:payload_size:%d:cant allocate log payload\n", size);
    return;
  }
  memcpy(payload, line, length);
  payload[length] = '\0';
  EventElement event = {payload, 0, static_cast<uint16_t>(size)};
  uint32_t result = q_add(s_event_queue, &event, sizeof(event));
  if (result != Q_OK) {
    BLIB_W("qlog:status:%d:cant add log to queue\n", result);
    mempool_free(s_pool, payload);
    return;
  }
  __atomic_fetch_add(&s_reports_queued, 1u, __ATOMIC_RELAXED);
  BLIB_D(BRIO_LOG_EVENT, "Added to s_blpkt_log_event_queue\n");
}

// BLPKT_STATUS_ERROR when no answer can come any more. BLPKT_STATUS_SCAN_ABORTED, and nothing has begun, when
// the request's scan is over.
uint32_t prv_begin_request(const CurrentRequest& request) {
  MutexGuard lock(s_response_mutex);
  if (request.of_scan && s_scan_aborted) return BLPKT_STATUS_SCAN_ABORTED;
  s_request = request;
  s_request_waits = true;
  return s_channel_lost ? BLPKT_STATUS_ERROR : BLPKT_STATUS_SUCCESS;
}

// From here on a late answer is discarded, and no callback runs for it.
void prv_end_request(bool has_taken_status) {
  MutexGuard lock(s_response_mutex);
  const uint32_t command = pktio_reset_command();
  int32_t left = 0;
  if (!has_taken_status && s_request.of_scan && s_scan_aborted) {  // an abort that met the time-out
    has_taken_status = q_get(s_response_queue, &left, sizeof(left), 0) == Q_OK;
  }
  if (has_taken_status) {
    s_slot_in_use = false;
  } else {
    s_unanswered_command = command;
  }
  s_request = {};
  s_request_waits = false;
}

// Whether a success of the current request is its own: a record that nobody filled never counts as one.
bool prv_success_is_own() {
  MutexGuard lock(s_response_mutex);
  return s_request.callback == nullptr || s_request.filled;
}

// Waits for the status of the command just sent.
uint32_t prv_await_response(const char* command, int32_t timeout_seconds, bool* has_taken_status) {
  int32_t response = 0;
  uint32_t result = q_get(s_response_queue, &response, sizeof(response), timeout_seconds);
  *has_taken_status = result == Q_OK;
  if (result == Q_TIMEOUT) {
    BLIB_E("blpkt_recv:status=%d:AT cmd %s timed out\n", BLPKT_STATUS_TIMEOUT, command);
    return BLPKT_STATUS_TIMEOUT;
  }
  if (result != Q_OK) {
    BLIB_E("qget:status=%d:q_get failed\n", result);
    return BLPKT_STATUS_ERROR;
  }
  uint32_t status = static_cast<uint32_t>(response);
  if (status == BLPKT_STATUS_SUCCESS && !prv_success_is_own()) status = BLPKT_STATUS_ERROR;
  if (status != BLPKT_STATUS_SUCCESS && status != BLPKT_STATUS_SCAN_ABORTED) {
    BLIB_E("blpkt_recv:status=%d:error in AT cmd %s resp\n", status, command);
  }
  return status;
}

uint32_t prv_send_and_await(const char* command, uint32_t type, const char* response_prefix,
                            const CurrentRequest& request, int32_t timeout_seconds) {
  assert(t_holds_send_mutex);
  if (command == nullptr) {
    BLIB_E("param:BLPKT_STATUS_BAD_REQUEST:null AT param\n");
    return BLPKT_STATUS_BAD_REQUEST;
  }
  uint32_t status = prv_begin_request(request);
  if (status == BLPKT_STATUS_SCAN_ABORTED) return status;
  bool has_taken_status = false;
  if (pktio_at_send_cmd(command, type, response_prefix) != 0 || status != BLPKT_STATUS_SUCCESS) {
    BLIB_E("blpkt_send::can't send req packet\n");
    status = BLPKT_STATUS_ERROR;
  } else {
    // The response queue is not flushed on purpose: a status that was queued while its own request already
    // timed out, or a blpkt_abort_manual_nw_scan without a request, is what this request receives.
    status = prv_await_response(command, timeout_seconds, &has_taken_status);
  }
  prv_end_request(has_taken_status);
  return status;
}

// False when something could not be made.
bool prv_start() {
  assert_held(s_lifecycle_mutex);
  s_pool = mempool_create(kPoolDefinition, 1);
  if (s_pool == nullptr) {
    BLIB_E("alloc2::can't allocate mempool\n");
    return false;
  }
  s_event_queue = q_create(sizeof(EventElement), kEventQueueElements);
  if (s_event_queue == nullptr) {
    BLIB_E("alloc3::can't allocate event queue\n");
    return false;
  }
  queue* response_queue = q_create(sizeof(int32_t), kResponseQueueElements);
  if (response_queue == nullptr) {
    BLIB_E("alloc4::can't allocate response queue\n");
    return false;
  }
  {
    SendGuard send_lock;
    MutexGuard response_lock(s_response_mutex);
    s_response_queue = response_queue;
    s_slot_in_use = false;
    s_channel_lost = false;
  }
  s_reports_taken = relaxed_load(s_reports_queued);
  const int err = s_event_thread.start();
  if (err != 0) {
    BLIB_E("createth:err=%d:cant create thread\n", err);
    return false;
  }
  BLIB_D(BRIO_LOG_EVENT, "pthread create: s_blpkt_event_thread status:%d\n", err);
  return true;
}

// Null-safe: tears down what there is.
void prv_tear_down() {
  assert_held(s_lifecycle_mutex);
  {
    // First of all: the event thread may itself wait for an answer that no port will bring any more.
    MutexGuard response_lock(s_response_mutex);
    q_cancel(s_response_queue);
  }
  if (s_event_thread.started()) {
    q_cancel(s_event_queue);
    prv_give_send_mutex();  // the host may have forgotten it; the event thread may wait for it
    s_event_thread.join();
  }
  {
    SendGuard send_lock;
    MutexGuard response_lock(s_response_mutex);
    q_destroy(s_response_queue);
    s_response_queue = nullptr;
    s_slot_in_use = false;
  }
  q_destroy(s_event_queue);
  s_event_queue = nullptr;
  if (s_pool != nullptr) mempool_destroy(s_pool);
  s_pool = nullptr;
}

void prv_store_callbacks(const blpkt_callback* table, const blpkt_callback** stored, uint32_t* count) {
  if (table == nullptr) return;
  *stored = table;
  *count = 0;
  while (table[*count] != nullptr) (*count)++;
}

}  // namespace

void blpkt_channel_lost() {
  MutexGuard lock(s_response_mutex);
  s_channel_lost = true;
  if (s_request_waits) prv_queue_response_and_wake(BLPKT_STATUS_ERROR);
}

void blpkt_begin_scan() {
  t_scans = true;
  MutexGuard lock(s_response_mutex);
  s_scans++;
}

bool blpkt_end_scan() {
  t_scans = false;
  MutexGuard lock(s_response_mutex);
  s_scans--;
  const bool aborted = s_scan_aborted;
  s_scan_aborted = false;
  return aborted;
}

uint32_t blpkt_abort_scan() {
  if (refused_here("brio_abort_manual_nw_scan")) return BLPKT_STATUS_ERROR;
  MutexGuard lock(s_response_mutex);
  if (s_scans == 0) return BLPKT_STATUS_ERROR;
  s_scan_aborted = true;
  if (s_request_waits && s_request.of_scan && !s_slot_in_use) {
    prv_queue_response_and_wake(BLPKT_STATUS_SCAN_ABORTED);
  }
  return BLPKT_STATUS_SCAN_ABORTED;
}

uint32_t blpkt_report_in_hand() {
  return t_report_in_hand;
}

uint32_t blpkt_last_report() {
  return relaxed_load(s_reports_queued);
}

uint32_t blpkt_init(void) {
  if (refused_here("blpkt_init")) return BLPKT_STATUS_ERROR;
  MutexGuard lifecycle(s_lifecycle_mutex);
  prv_tear_down();
  if (prv_start()) return BLPKT_STATUS_SUCCESS;
  prv_tear_down();
  return BLPKT_STATUS_ERROR;
}

void blpkt_shutdown(void) {
  if (refused_here("blpkt_shutdown")) return;
  MutexGuard lifecycle(s_lifecycle_mutex);
  prv_tear_down();
}

void blpkt_handle_packet(uint32_t kind, void* data, void*) {
  switch (kind) {
    case kKindResponse:
      prv_convert_and_queue_resp_packet(static_cast<const ATResponse*>(data));
      break;
    case kKindUrc:
      prv_queue_urc(static_cast<const char*>(data));
      break;
    default:
      BLIB_E("blpkt_handle_packet:callback type %d:callback type error\n", kind);
  }
}

uint32_t blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                   const char* response_prefix, recv_func callback,
                                                   void* user_data, uint16_t user_value,
                                                   int32_t timeout_seconds) {
  const char* shown = command != nullptr ? command : "";
  SendGuard send_lock;
  if (!send_lock.has_taken()) {
    BLIB_E("thread:BLPKT_STATUS_BAD_REQUEST:AT cmd %s cannot be sent from here\n", shown);
    return BLPKT_STATUS_BAD_REQUEST;
  }
  BLIB_D(BRIO_LOG_DEBUG, ">>>>>Start sending [%s]<<<<<\n", shown);
  uint32_t status = prv_send_and_await(command, type, response_prefix,
                                       {callback, user_data, user_value, false, t_scans}, timeout_seconds);
  if (status == BLPKT_STATUS_SCAN_ABORTED) BLIB_I("blpkt_recv::Aborting the manual nw scan\n");
  BLIB_D(BRIO_LOG_REQUEST, "<<<<<Exit sending [%s] ret[%d]>>>>>\n", shown, status);
  return status;
}

uint32_t blpkt_atcmd_request_with_callback(const char* command, uint32_t type, const char* response_prefix,
                                           recv_func callback, void* user_data, uint16_t user_value) {
  return blpkt_atcmd_request_with_callback_timeout(command, type, response_prefix, callback, user_data,
                                                   user_value, BLPKT_DEFAULT_TIMEOUT_SECONDS);
}

uint32_t blpkt_abort_manual_nw_scan(void) {
  if (refused_here("blpkt_abort_manual_nw_scan")) return BLPKT_STATUS_ERROR;
  MutexGuard lock(s_response_mutex);
  return prv_queue_response_and_wake(BLPKT_STATUS_SCAN_ABORTED) ? BLPKT_STATUS_SCAN_ABORTED
                                                                : BLPKT_STATUS_ERROR;
}

uint32_t blpkt_acquire_send_mutex(void) {
  return prv_take_send_mutex() ? 0 : EDEADLK;
}

uint32_t blpkt_release_send_mutex(void) {
  return prv_give_send_mutex() ? 0 : EPERM;
}

void blpkt_set_event_callbacks(const blpkt_callback* table) {
  prv_store_callbacks(table, &s_event_callbacks, &s_event_callback_count);
}

void blpkt_set_log_callbacks(const blpkt_callback* table) {
  prv_store_callbacks(table, &s_log_callbacks, &s_log_callback_count);
}

void blpkt_set_default_event_callback(blpkt_callback callback) {
  s_default_event_callback = callback;
}

void blpkt_set_default_log_callback(blpkt_callback callback) {
  s_default_log_callback = callback;
}
