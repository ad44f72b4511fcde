// Capture of the modem's binary trace into a file, steered by a filter file.

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/select.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/own_threads.h"
#include "base/paths.h"
#include "brio/brio.h"
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

// Of the starting thread, and of the copy thread from its start to its end, which closes both.
struct Capture {
  int port = -1;  // the debug port, under an exclusive lock
  int log = -1;   // the trace file
};
Capture s_capture;

void prv_copy(int stop);
OwnThread s_thread(Thread::kTrace, prv_copy);  // host thread

// Copy thread only; set by the first write failure of the process.
uint32_t s_disk_full_reported;

// Unlocks by hand: a program that was started meanwhile may hold the port, and with it the lock, a moment
// longer.
void prv_release() {
  flock(s_capture.port, LOCK_UN);
  close(s_capture.port);
  if (s_capture.log >= 0) close(s_capture.log);
  s_capture = {};
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

void prv_copy(int stop) {
  prv_copy_until_stopped(s_capture.port, stop, s_capture.log);
  prv_release();
}

// ---- Start

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
  fcntl(port.get(), F_SETFL, 0);
  set_raw(port.get());
  // O_APPEND: a second start within the same second continues the earlier trace.
  s_capture = {port.release(), open_output(log_path, O_WRONLY | O_APPEND, kTraceFileMode)};
  if (s_capture.log < 0) {
    BLIB_E("brio_read_log_from_tst:log=\"%s\":can't open log file\n", log_path);
    prv_release();
    return BRIO_STATUS_FATAL;
  }
  if (!s_thread.open_sockets()) {
    BLIB_E("brio_read_log_from_tst:errno=%d:can't create socket pair\n", errno);
    prv_release();
    return BRIO_STATUS_FAILURE;
  }
  const int error = s_thread.start();
  if (error != 0) {
    BLIB_E("brio_read_log_from_tst:err=%d:cant create thread\n", error);
    s_thread.close_sockets();
    prv_release();
    return BRIO_STATUS_FAILURE;
  }
  return BRIO_STATUS_OK;
}

// ---- Filter

// Sends every command of the filter file. `*switch_off` is set when the modem's trace is to be stopped.
uint32_t prv_send_filter_to_tst(InputFile* file, bool* switch_off) {
  using parse::TraceFilterLine;
  uint32_t status = BRIO_STATUS_FAILURE;
  char line[parse::kTraceLineMax + 2];
  int commands = 0;
  while (const size_t length = file->cut_line(line, sizeof(line))) {
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
  if (refused_here("brio_trace_tst_stop") || !s_thread.started()) return;
  const int error = s_thread.stop();
  if (error != 0) {
    BLIB_W("brio_trace_log_shutdown:errno=%d:unable to write to socket pair\n", error);
    if (error != EBADF) BLIB_E("brio_trace_log_shutdown:write:error on socket pair\n");
  }
  s_thread.join();
}
