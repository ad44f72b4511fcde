// The proximity monitor: reads the sensor on a thread of its own and switches the modem's SAR back-off.
#include "brio/prox.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/guards.h"
#include "base/own_threads.h"
#include "base/paths.h"
#include "base/relaxed.h"
#include "brio/brio.h"
#include "module_log.h"
#include "prox/prox_state.h"
#include "sar_names.h"
#include "services/carriers.h"

constexpr char kSourceFile[] = "prox";

using namespace brio;

namespace {

constexpr char kControl[] = "prox_ctrl0";
constexpr char kSensorSelect[] = "sensor_sel";
constexpr char kDiff[] = "prox_diff";
constexpr char kAverage[] = "prox_avg";
constexpr char kOffset[] = "prox_offset";
constexpr char kUseful[] = "prox_use";

// Values of the control register.
constexpr uint32_t kEnableFast = 0x77;
constexpr uint32_t kScanSlow = 0xC7;
constexpr uint32_t kDisable = 0x70;

constexpr int kAttempts = 4;
constexpr unsigned kAttemptPauseMs = 300;
constexpr size_t kValueMax = 7;  // bytes of a sysfs value that are read

// Results of the operations below.
constexpr uint32_t kOk = 0;
constexpr uint32_t kOpenFailed = 3;
constexpr uint32_t kAccessFailed = 4;
constexpr uint32_t kCommandFailed = 5;

// Host thread. One that prox_close could not join is joined by the next prox_open or prox_close.
void prv_run_monitor(int socket);
OwnThread s_thread(Thread::kMonitor, prv_run_monitor);

// Guards s_control, the value that the control register was last told, and with it the order of the writes.
pthread_mutex_t s_control_mutex = PTHREAD_MUTEX_INITIALIZER;
uint32_t s_control;

// Monitor thread only, and prox_open while there is none.
prox::State s_state;
uint16_t s_carrier_id = kCarrierUnknown;

// ---- Sensor entries

// Opens "directory/entry"; the directory ends in a slash of its own, the doubled one is meant.
int prv_open_entry(const char* name, int flags) {
  char path[PATH_MAX];
  snprintf(path, sizeof(path), "%s/%s", kProxDirectory, name);
  int fd = open_device(path, flags);
  if (fd < 0) MODULE_E("proxlib:sys entry:name=%s, errno=%d:can't open", name, errno);
  return fd;
}

// One attempt each; false with errno set.
bool prv_write_text(int fd, const char* text, size_t length) {
  ssize_t written = write(fd, text, length);
  if (written < 0) return false;
  if (static_cast<size_t>(written) == length) return true;
  lseek(fd, 0, SEEK_SET);  // the next attempt writes the value from its beginning
  errno = EIO;
  return false;
}

bool prv_read_text(int fd, char (&text)[kValueMax + 1]) {
  ssize_t count = read(fd, text, kValueMax);
  if (count == 0) errno = ENODATA;
  text[count > 0 ? count : 0] = '\0';
  return count > 0;
}

// Runs `attempt` until it succeeds, kAttempts times at most. Keeps the errno of the last failure.
template <typename Attempt>
bool prv_attempt(Attempt attempt) {
  for (int i = 1; !attempt(); i++) {
    if (i == kAttempts) return false;
    sleep_milliseconds(kAttemptPauseMs);
  }
  return true;
}

uint32_t prv_prox_reg_write(const char* name, uint32_t value) {
  char text[7];
  snprintf(text, sizeof(text), "%x", value);
  Descriptor entry(prv_open_entry(name, O_RDWR));
  if (!entry.valid()) return kOpenFailed;
  if (prv_attempt([&] { return prv_write_text(entry.get(), text, strlen(text)); })) return kOk;
  MODULE_E("proxlib:sys entry:name=%s,errno=%d:can't write the sys entry", name, errno);
  return kAccessFailed;
}

uint32_t prv_prox_reg_read(const char* name, uint32_t* value) {
  Descriptor entry(prv_open_entry(name, O_RDONLY));
  if (!entry.valid()) return kOpenFailed;
  char text[kValueMax + 1];
  bool have = prv_attempt([&] { return prv_read_text(entry.get(), text); });
  if (have) {
    // As "%x" reads it: white space around the digits and a "0x" are allowed, anything after is ignored.
    char* end = text;
    unsigned long number = strtoul(text, &end, 16);
    if (end != text) {
      *value = static_cast<uint32_t>(number);
      return kOk;
    }
    errno = EINVAL;  // no number: as good as not read, and no reason to try again
  }
  MODULE_E("proxlib:sys entry:name=%s, errno=%d:can't read", name, errno);
  return kAccessFailed;
}

uint32_t prv_write_control(uint32_t value) {
  MutexGuard guard(s_control_mutex);
  s_control = value;
  return prv_prox_reg_write(kControl, value);
}

// ---- Monitor thread

uint32_t prv_prox_set_sar(uint32_t mode) {
  if (s_carrier_id == kCarrierUnknown) brio_get_carrier_id(&s_carrier_id);
  // Elsewhere the mode is followed without telling the modem.
  if (!carrier_backs_off(s_carrier_id)) return kOk;
  uint32_t status = brio_set_sar_pwr(mode);
  if (status != BRIO_STATUS_OK) {
    MODULE_I("proxlib:::brio_rc [%d]", status);
    return kCommandFailed;
  }
  MODULE_I("proxlib:SAR set to [%d]::", mode);
  return kOk;
}

uint32_t prv_to_slow_scan() {
  s_state.period_seconds = prox::kSlowPeriodSeconds;
  return prv_write_control(kScanSlow);
}

bool prv_read_sensor() {
  uint32_t diff = 0;
  uint32_t average = 0;
  if (prv_prox_reg_write(kSensorSelect, 1) != kOk) return false;
  if (prv_prox_reg_read(kDiff, &diff) != kOk) return false;
  if (prv_prox_reg_read(kAverage, &average) != kOk) return false;
  prox::store_readings(&s_state, diff, average);
  if (s_state.calibration != prox::Calibration::kUnexamined) return true;
  uint32_t offset = 0;
  uint32_t useful = 0;
  if (prv_prox_reg_read(kOffset, &offset) != kOk) return false;
  s_state.offset = static_cast<uint16_t>(offset);
  if (prv_prox_reg_read(kUseful, &useful) != kOk) return false;
  s_state.useful = static_cast<uint16_t>(useful);
  return true;
}

void prv_log_readings(const char* mode_name) {
  using prox::Calibration;
  if (s_state.calibration == Calibration::kUnexamined) {
    MODULE_D_OF("prv_update_prox_reading", WABS_LOG_VALUE, "proxlib:Offset[%d]Useful[%d]SAR[%s]",
                static_cast<int16_t>(s_state.offset), static_cast<int16_t>(s_state.useful), mode_name);
  }
  if (s_state.calibration != Calibration::kBad) {
    MODULE_D_OF("prv_update_prox_reading", WABS_LOG_VALUE, "proxlib:Diff[%d]Cur_avg[%d]Pre_avg[%d]SAR[%s]",
                s_state.diff, s_state.current_average, s_state.previous_average, mode_name);
  }
}

// False while SAR control is disabled.
bool prv_check_calibration(const char* mode_name) {
  using prox::Calibration;
  if (s_state.calibration == Calibration::kUnexamined) {
    prox::examine_calibration(&s_state);
    if (s_state.calibration == Calibration::kBad) {
      MODULE_I("proxlib:Offset[%d]Useful[%d]OffsetTh[%d]UsefulTh[%d]SAR[%s]::Disabling SAR",
               static_cast<int16_t>(s_state.offset), static_cast<int16_t>(s_state.useful),
               prox::kOffsetThreshold, prox::kUsefulThreshold, mode_name);
    }
  }
  return s_state.calibration == Calibration::kGood;
}

void prv_log_transition(const prox::Action& action) {
  using prox::Transition;
  const char* name = sar_name(action.mode);
  switch (action.transition) {
    case Transition::kNone:
      break;
    case Transition::kOffToOn:
      MODULE_I("proxlib:Diff[%d]Th[%d]SAR[%s]SAR detected::", s_state.diff, prox::kDiffThreshold, name);
      break;
    case Transition::kOnToOff:
      MODULE_I("proxlib:Diff[%d]Th[%d]SAR[%s]SAR released::", s_state.diff, prox::kDiffThreshold, name);
      break;
    case Transition::kInitToOn:
      MODULE_I("proxlib:Diff[%d]curAvg[%d]prevAvg[%d]AvgTx[%d]SAR[%s]INIT->ON::", s_state.diff,
               s_state.current_average, s_state.previous_average, prox::kAverageDropThreshold, name);
      break;
    case Transition::kInitToOff:
      MODULE_I("proxlib:Diff[%d]curAvg[%d]prevAvg[%d]SAR[%s]INIT->OFF::", s_state.diff,
               s_state.current_average, s_state.previous_average, name);
      break;
  }
}

void prv_poll() {
  if (prox::count_poll(&s_state)) {
    MODULE_I("proxlib:::2min timer expired, now using slower scan rate");
    uint32_t status = prv_to_slow_scan();
    if (status != kOk) MODULE_E("proxlib:reg_write:status=%d:failed to enable prox", status);
  }
  if (!prv_read_sensor()) return;
  int32_t mode = relaxed_load(g_pre_sar_mode);
  const char* mode_name = sar_name(mode);
  prv_log_readings(mode_name);
  if (!prv_check_calibration(mode_name)) return;

  prox::Action action = prox::decide(s_state, mode);
  if (action.transition == prox::Transition::kNone) return;
  // A command that failed leaves the mode, so that the next poll tries again.
  if (action.command && prv_prox_set_sar(static_cast<uint32_t>(action.mode)) != kOk) return;
  relaxed_store(g_pre_sar_mode, action.mode);
  prv_log_transition(action);
  if (action.to_slow_period) {
    uint32_t status = prv_to_slow_scan();
    if (status != kOk) MODULE_E("proxlib:reg_write:status=%d:failed to change scan period", status);
  }
}

// Polls until the socket says stop; false when it ended on an error.
bool prv_monitor(int socket) {
  for (;;) {
    fd_set read_set;
    FD_ZERO(&read_set);
    FD_SET(socket, &read_set);
    fd_set except_set = read_set;
    if (clock_select(socket + 1, &read_set, &except_set, s_state.period_seconds) < 0) {
      if (errno == EINTR) continue;
      MODULE_E("proxlib:select:errno=%d:failed--pausing read thread", errno);
      return false;
    }
    if (FD_ISSET(socket, &except_set)) {
      MODULE_E("proxlib:selerr::err on read s_sockets[0]--pausing read thread");
      return false;
    }
    if (!FD_ISSET(socket, &read_set)) {
      prv_poll();
      continue;
    }
    char request[1024];
    if (read(socket, request, sizeof(request)) < 0) {
      MODULE_E("proxlib:socketpair:errno=%d:can't access s_sockets[0]", errno);
      return false;
    }
    MODULE_I("proxlib:Monitor thread::Graceful thread exit");
    return true;
  }
}

void prv_run_monitor(int socket) {
  if (!prv_monitor(socket)) MODULE_E("proxlib:Monitor thread::Error thread exit");
}

// ---- Host thread

bool prv_switch_off() {
  uint32_t status = prv_write_control(kDisable);
  if (status == kOk) return true;
  MODULE_E("proxlib:reg_write:status=%d:failed to disable prox", status);
  return false;
}

void prv_not_closed_properly() {
  s_thread.hang_up();
  MODULE_I("proxlib:closing lib::proxlib was NOT closed properly");
}

}  // namespace

uint32_t prox_open() {
  if (refused_here("prox_open")) return PROX_FAILED;
  // A monitor that was never closed, or not joined then, ends before the next one starts.
  s_thread.hang_up();
  s_thread.join();

  uint32_t status = prv_write_control(kEnableFast);
  if (status != kOk) {
    MODULE_E("proxlib:reg_write:status=%d:failed to enable prox", status);
    prv_write_control(kDisable);
    return PROX_FAILED;
  }
  MODULE_I("proxlib:prox init::prox sensor is enabled with scan cycle 0x%x", kEnableFast);

  if (!s_thread.open_sockets()) {
    MODULE_E("proxlib:socketpair:errno=%d:can't create socket pair", errno);
    prv_write_control(kDisable);
    return PROX_NO_SOCKETS;
  }

  s_state.period_seconds = prox::kFastPeriodSeconds;
  relaxed_store(g_pre_sar_mode, static_cast<int32_t>(BRIO_SAR_INIT));
  MODULE_I("proxlib:prox init::prox sensor init is done");

  const int error = s_thread.start();
  if (error != 0) {
    MODULE_E("proxlib:pthread:status=%d:can't create thread", error);
    s_thread.close_sockets();
    prv_write_control(kDisable);
    return PROX_FAILED;
  }
  MODULE_D(WABS_LOG_VALUE, "proxlib:opened");
  return PROX_OK;
}

void prox_close() {
  if (refused_here("prox_close")) return;
  if (!prv_switch_off()) {
    prv_not_closed_properly();
    return;
  }
  const int error = s_thread.stop();
  if (error != 0) {
    MODULE_E("proxlib:sockpair:errno=%d:can't access s_sockets[1]", error);
    if (error != EBADF) {
      prv_not_closed_properly();
      return;
    }
    MODULE_E("proxlib:prox_close:socket FD closed already:calling thread join");
  }
  if (!s_thread.join()) return;
  MODULE_I("proxlib:prox_close::Thread join completed successfully");
  // A poll that was under way has set its scan rate: the sensor would go on scanning with nobody to read it.
  if (s_control != kDisable && !prv_switch_off()) return;
  MODULE_D(WABS_LOG_VALUE, "proxlib:closed successfully");
}
