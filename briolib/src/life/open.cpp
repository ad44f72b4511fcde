// Life of the modem library: open and close.
#include "base/clock.h"
#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/own_threads.h"
#include "base/paths.h"
#include "base/relaxed.h"
#include "base/text.h"
#include "brio/brio_at.h"
#include "brio_common/library_state.h"
#include "brio_common/shared_data.h"
#include "channel/brio_blpkt.h"
#include "channel/request.h"
#include "parse/modem_config.h"
#include "services/carriers.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

constexpr int kEchoAttempts = 3;
constexpr int kRadioAttempts = 2;
constexpr unsigned kRetryPauseMs = 1000;

constexpr size_t kLogConfigLine = 31;         // characters of a log configuration's line that count
constexpr size_t kManualSelectionLine = 127;  // characters of the stored selection

// Read thread, whenever it ends. It must not wait for the state mutex: brio_open may hold that while it joins
// this thread.
void prv_channel_lost(void*) {
  relaxed_store(g_state.modem_failed, 1u);
  blpkt_channel_lost();
}

void prv_read_log_config() {
  InputFile file(kLogConfigFile);
  if (!file) {
    BLIB_D(BRIO_LOG_CONFIG, "No log config file detected");
    return;
  }
  char buffer[kLogConfigLine + 1];
  while (file.cut_line(buffer, sizeof(buffer)) > 0) {
    BLIB_D(BRIO_LOG_CONFIG, "log config file: %s", buffer);
    const char* line = trim(buffer);
    if (*line == '\0' || *line == '#') continue;
    // Non-numeric text yields 0: every debug line off.
    briolib_log_set_log_mask(hexadecimal(line));
    return;
  }
}

void prv_stop_channel() {
  pktio_shutdown();
  blpkt_shutdown();
}

bool prv_start_channel(const char* query_port) {
  pktio_set_shutdown_callback(prv_channel_lost, nullptr);
  uint32_t status = blpkt_init();
  if (status != 0) {
    BLIB_E("blpktinit:status=%d:blpkt failed to initialize", status);
    pktio_shutdown();
    return false;
  }
  // From here on a lost channel counts, also one that is lost while the library opens.
  relaxed_store(g_state.modem_failed, 0u);
  if (pktio_init(query_port, blpkt_handle_packet, nullptr) != 0) {
    BLIB_E("pktioinit::pktio failed to initialize");
    prv_stop_channel();
    return false;
  }
  return true;
}

uint32_t prv_switch_radio_on() {
  return send_command("AT+CFUN=1");
}

// Tries `step` several times; `aim` as the error line has it.
bool prv_insist(int attempts, uint32_t (*step)(), const char* aim) {
  for (int left = attempts - 1; left >= 0; left--) {
    if (step() == BLPKT_STATUS_SUCCESS) return true;
    BLIB_E("AT::failed to set %s, retry left[%d]", aim, left);
    sleep_milliseconds(kRetryPauseMs);
  }
  return false;
}

void prv_brio_atcmd_mcs(const parse::ManualSelection& selection) {
  BLIB_D(BRIO_LOG_DEBUG, "de-registration from the network");
  uint32_t status = deregister();
  if (status != BLPKT_STATUS_SUCCESS) {
    BLIB_E("prv_brio_atcmd_mcs::de-registration from the network failed!");
    if (status == BLPKT_STATUS_TIMEOUT) {
      switch_echo_off();
      sleep_milliseconds(kRetryPauseMs);
    }
  }
  BLIB_PLAIN("prv_brio_atcmd_mcs::set manual network select as mcs");
  status = send_command(selection.command, NUMERIC, selection.timeout_seconds);
  if (status == BLPKT_STATUS_TIMEOUT) {
    BLIB_E("prv_brio_atcmd_mcs::set manual network select as mcs timed out!");
    // The modem may have been left echoing.
    switch_echo_off();
  }
  if (status != BLPKT_STATUS_SUCCESS) BLIB_E("AT::failed to set manual network select");
}

// A manual selection that another program stored is carried over a restart.
void prv_replay_manual_selection() {
  char line[kManualSelectionLine + 1];
  InputFile(kManualSelectionFile).line(line, sizeof(line));
  const std::optional<parse::ManualSelection> selection = parse::parse_manual_selection(line);
  if (selection) prv_brio_atcmd_mcs(*selection);
}

// Some carrier configurations (carriers.h) start with the SAR back-off engaged.
void prv_start_sar() {
  const int16_t carrier = shared_value(&brio_atcmd_data::carrier_config);
  if (carrier_backs_off(static_cast<uint16_t>(carrier))) briolib_set_sar_pwr(1);
}

}  // namespace

uint32_t brio_open(const char* query_port) {
  // Before the mutex: in a forked child another thread of the parent may hold it.
  if (refused_here("brio_open")) return BRIO_STATUS_BUSY;
  const ProcessClaim claim;
  MutexGuard state_guard(g_state_mutex);
  if (g_state.library_open != 0 || g_state.closing != 0) return BRIO_STATUS_BUSY;

  prv_read_log_config();
  at_parse_init();
  {
    UrcDataLock lock;
    briolib_init_atcmd_data(0);
  }
  if (!prv_start_channel(query_port)) return BRIO_STATUS_FAILURE;
  briolib_reset_modem_info();
  if (!prv_insist(kEchoAttempts, switch_echo_off, "echo") ||
      !prv_insist(kRadioAttempts, prv_switch_radio_on, "cfun1")) {
    prv_stop_channel();
    return BRIO_STATUS_TIMEOUT;
  }

  // What fails from here on is logged where it fails and does not keep the library from opening.
  prv_replay_manual_selection();
  briolib_update_wan_type();
  briolib_atcmd_enable_urc(kStartupReports);
  briolib_check_carrier_confg();
  briolib_check_apn_setting();
  briolib_atcmd_query_reg_status();
  prv_start_sar();

  // modem_failed was cleared when the channel was started and is left alone here: a port that was lost since
  // then would otherwise be forgotten, and every request of a library that looks healthy would fail.
  relaxed_store(g_state.library_open, 1u);
  return BRIO_STATUS_OK;
}

uint32_t brio_close(void) {
  if (refused_here("brio_close")) return BRIO_STATUS_BUSY;
  const ProcessClaim claim;
  bool was_open;
  {
    MutexGuard state_guard(g_state_mutex);
    // A close that meets another one leaves the work to that one.
    if (g_state.closing != 0) return BRIO_STATUS_OK;
    was_open = g_state.library_open != 0;
    relaxed_store(g_state.closing, 1u);
  }
  // Not under the mutex: the gate answers 3 meanwhile instead of waiting.
  if (was_open) prv_stop_channel();

  MutexGuard state_guard(g_state_mutex);
  relaxed_store(g_state.library_open, 0u);
  relaxed_store(g_state.closing, 0u);
  relaxed_store(g_state.modem_failed, 0u);
  return BRIO_STATUS_OK;
}
