// Capture of the modem's binary trace into a file, steered by a filter file.

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/select.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/control_sockets.h"
#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/own_threads.h"
#include "base/paths.h"
#include "base/serial.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/request.h"
#include "parse/trace_filter.h"

constexpr char kLogTag[] = "briolib/src/brio_trace";

using namespace brio;

namespace {

constexpr size_t kBlockSize = 1023;
constexpr mode_t kTraceFileMode = 0444;
// Far above any filter. The host waits for each of them to be answered.
constexpr int kFilterCommandsMax = 256;
static_assert(sizeof(off_t) == 8, "a trace may grow beyond 2 GiB");
constexpr const char* kSwitchOffCommands[] = {"AT+XSYSTRACE=0", "AT+TRACE=0"};

struct Capture {
  int port = -1;              // the debug port, under an exclusive lock
  int sockets[2] = {-1, -1};  // the thread waits on the first, brio_trace_tst_stop writes to the second
  int log = -1;               // the trace file
};

// Guards s_capture. While the copy thread runs it alone closes the port, the file and the first socket, so
// that it may use them without the lock; the second socket is closed by whoever takes it out under the lock.
pthread_mutex_t s_capture_mutex = PTHREAD_MUTEX_INITIALIZER;
Capture s_capture;

// Host thread only. A copy thread that ended by itself leaves s_running set until it is joined.
pthread_t s_thread;
int32_t s_running;

// Copy thread only; set by the first write failure of the process.
uint32_t s_disk_full_reported;

void prv_close(int* fd) {
  close(*fd);
  *fd = -1;
}

void prv_release() {
  MutexGuard guard(s_capture_mutex);
  if (s_capture.port >= 0) {
    flock(s_capture.port, LOCK_UN);
    prv_close(&s_capture.port);
  }
  for (int& socket : s_capture.sockets) {
    if (socket > 0) prv_close(&socket);
  }
  if (s_capture.log >= 0) prv_close(&s_capture.log);
}

// ---- Copy thread

void prv_write_block(int log, const char* block, size_t size) {
  const size_t written = write_all(log, block, size);
  // Whatever the reason, it is reported as a full disk, and once only.
  if (written == size || s_disk_full_reported != 0) return;
  s_disk_full_reported = 1;
  BLIB_E("brio_writeline:bytes=%zu:write error: No space left on device\n", written);
}

// One block from the port to the file; false when the port is lost.
bool prv_copy_block(int port, int log) {
  char block[kBlockSize];
  ssize_t count = read(port, block, sizeof(block));
  if (count < 0) {
    int error = errno;
    BLIB_E("brio_readline:bytes =%zd:error calling read()\n", count);
    if (error == EINTR) return true;
    BLIB_E("read:errno=%d:error on read--pausing read thread\n", error);
    return false;
  }
  if (count == 0) {
    BLIB_W("prv_log_rw_thread:log read port disconnected:\n");
    return false;
  }
  prv_write_block(log, block, static_cast<size_t>(count));
  return true;
}

void prv_copy_until_stopped(int port, int stop, int log) {
  int nfds = port > stop ? port : stop;
  BLIB_D(BRIO_LOG_CONFIG, "prv_log_rw_thread(), nfds: %d\n", nfds);
  fd_set both;
  FD_ZERO(&both);
  FD_SET(port, &both);
  FD_SET(stop, &both);
  for (;;) {
    fd_set read_set = both;
    fd_set except_set = both;
    if (select(nfds + 1, &read_set, nullptr, &except_set, nullptr) < 0) {
      if (errno == EINTR) continue;
      BLIB_E("select:errno=%d:select failed--pausing read thread\n", errno);
      return;
    }
    if (FD_ISSET(port, &except_set)) {
      BLIB_E("selerr:errno=%d:select err on read fd--exiting read thread\n", errno);
      return;
    }
    if (FD_ISSET(stop, &except_set)) {
      BLIB_E("selerr:errno=%d:select err on socket pair--exiting read thread\n", errno);
      return;
    }
    // Before the port's data, so that a stop gets through a stream that never pauses.
    if (FD_ISSET(stop, &read_set)) {
      BLIB_D(BRIO_LOG_CONFIG, "exiting log rw thread\n");
      return;
    }
    if (FD_ISSET(port, &read_set) && !prv_copy_block(port, log)) return;
  }
}

void* prv_log_rw_thread(void*) {
  this_thread_is(Thread::kTrace);
  Capture own;
  {
    MutexGuard guard(s_capture_mutex);
    own = s_capture;
  }
  prv_copy_until_stopped(own.port, own.sockets[0], own.log);
  prv_release();
  return nullptr;
}

// ---- Start

// Gives the port's lock back where the start fails behind it. A program that was started meanwhile may hold
// the port for a moment longer, and with it a lock that only the close would end.
class PortLock {
 public:
  explicit PortLock(int port) : port_(port) {}
  ~PortLock() {
    if (port_ >= 0) flock(port_, LOCK_UN);
  }
  PortLock(const PortLock&) = delete;
  PortLock& operator=(const PortLock&) = delete;

  void keep() { port_ = -1; }

 private:
  int port_;
};

uint32_t prv_read_log_from_tst(const char* log_path) {
  Descriptor port(open_device(kTracePort, O_RDWR | O_NOCTTY | O_NONBLOCK));
  if (!port.valid() || port.get() >= FD_SETSIZE) {
    BLIB_E("brio_read_log_from_tst:port=\"%s\":can't open debug port\n", kTracePort);
    return BRIO_STATUS_FATAL;
  }
  if (flock(port.get(), LOCK_EX | LOCK_NB) != 0) {
    BLIB_E("brio_read_log_from_tst:port=\"%s\":locked by other process\n", kTracePort);
    return BRIO_STATUS_FATAL;
  }
  PortLock lock(port.get());
  fcntl(port.get(), F_SETFL, 0);
  set_raw(port.get());
  // O_APPEND: a second start within the same second continues the earlier trace.
  Descriptor log(open_output(log_path, O_WRONLY | O_APPEND, kTraceFileMode));
  if (!log.valid()) {
    BLIB_E("brio_read_log_from_tst:log=\"%s\":can't open log file\n", log_path);
    return BRIO_STATUS_FATAL;
  }
  int sockets[2];
  if (!open_control_sockets(sockets)) {
    BLIB_E("brio_read_log_from_tst:errno=%d:can't create socket pair\n", errno);
    return BRIO_STATUS_FAILURE;
  }
  lock.keep();
  {
    MutexGuard guard(s_capture_mutex);
    s_capture = {port.release(), {sockets[0], sockets[1]}, log.release()};
  }
  int error = start_thread(&s_thread, prv_log_rw_thread, nullptr);
  if (error != 0) {
    BLIB_E("brio_read_log_from_tst:err=%d:cant create thread\n", error);
    prv_release();
    return BRIO_STATUS_FAILURE;
  }
  s_running = 1;
  return BRIO_STATUS_OK;
}

// ---- Filter

// The next line without its "\n", of a longer one the first kTraceLineMax + 1 characters; false at the end of
// the file.
bool prv_next_line(InputFile* file, char (&line)[parse::kTraceLineMax + 1], size_t* length) {
  *length = 0;
  int c = file->next();
  if (c < 0) return false;
  for (; c >= 0 && c != '\n'; c = file->next()) {
    if (*length < sizeof(line)) line[(*length)++] = static_cast<char>(c);
  }
  return true;
}

// Sends every command of the filter file. `*switch_off` is set when the modem's trace is to be stopped.
uint32_t prv_send_filter_to_tst(InputFile* file, bool* switch_off) {
  using parse::TraceFilterLine;
  uint32_t status = BRIO_STATUS_FAILURE;
  char line[parse::kTraceLineMax + 1];
  size_t length;
  int commands = 0;
  while (prv_next_line(file, line, &length)) {
    char command[parse::kTraceCommandSize];
    TraceFilterLine kind = parse::trace_filter_line(line, length, command);
    if (kind == TraceFilterLine::kIgnored) continue;
    if (kind == TraceFilterLine::kInvalid || ++commands > kFilterCommandsMax) {
      BLIB_E("brio_send_filter_to_tst:Invalid filter format:\n");
      *switch_off = true;
      return BRIO_STATUS_INVALID;
    }
    status = send_command(command);
    if (status != 0) {
      BLIB_E("brio_send_filter_to_tst:error sending filter:\n");
      *switch_off = true;
      return status;
    }
  }
  return status;
}

uint32_t prv_apply_filter(const char* filter_path) {
  bool switch_off = false;
  uint32_t status = BRIO_STATUS_OK;
  if (filter_path == nullptr) {
    switch_off = true;
  } else if (InputFile file(filter_path); file) {
    BLIB_I(":name=\"%s\":file detected\n", filter_path);
    status = prv_send_filter_to_tst(&file, &switch_off);
  } else {
    BLIB_I(":trace log filter file (%s) does not exist:disable trace log\n", filter_path);
    switch_off = true;
    status = BRIO_STATUS_UNAVAILABLE;
  }
  if (switch_off) {
    for (const char* command : kSwitchOffCommands) send_command(command);
  }
  return status;
}

// ---- Stop

void prv_request_stop() {
  MutexGuard guard(s_capture_mutex);
  int* stop = &s_capture.sockets[1];
  if (!send_stop(*stop)) {
    BLIB_W("brio_trace_log_shutdown:errno=%d:unable to write to socket pair\n", errno);
    if (*stop != -1) {
      BLIB_E("brio_trace_log_shutdown:write:error on socket pair\n");
      // The end of stream stops the thread, which then releases the rest.
      hang_up(stop);
    }
  }
}

}  // namespace

uint32_t brio_trace_tst_log(const char* filter_path, const char* log_prefix) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  // A capture that still runs ends here: what runs afterwards is what the status says.
  brio_trace_tst_stop();
  status = prv_apply_filter(filter_path);
  if (status != BRIO_STATUS_OK || filter_path == nullptr || log_prefix == nullptr) return status;

  time_t now = clock_wall();
  tm start = {};
  tzset();  // the zone may have changed since the process began
  localtime_r(&now, &start);
  char name[parse::kTraceNameSize];
  parse::trace_file_name(log_prefix, start, name);
  BLIB_I("brio_trace_tst_log:name=\"%s\":start to catch tst log\n", name);
  return prv_read_log_from_tst(name);
}

void brio_trace_tst_stop() {
  if (refused_here("brio_trace_tst_stop") || s_running <= 0) return;
  prv_request_stop();
  join_thread(s_thread);
  s_running = 0;
}
