// The "611" diagnostic page: a visit of the screen, from its first page to brio_module_exit_logging.
#include <errno.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/paths.h"
#include "brio/brio.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "module_log.h"
#include "page/log_611_net.h"
#include "page/log_611_sections.h"

constexpr char kSourceFile[] = "log_611";

using namespace brio;

uint32_t g_611_urc_on;

namespace {

using page::NetInfo;
using page::PageInput;
using page::TrafficSample;
using page::View;

constexpr uint32_t kFullView = 1;

// The page's own state lives as long as the library. Host thread only.
bool s_exited;            // the screen was left: the next call only takes note of it
bool s_static_info_read;  // the SIM's static information was read in this visit
TrafficSample s_previous_sample = {0, page::kUnknownCounter, page::kUnknownCounter};

// Only then does the modem report its antennas' values.
bool prv_reports_bas(const atcmd_snapshot& snapshot) {
  return snapshot.rat == kRatLte && snapshot.bas_query_flag == 1;
}

uint64_t prv_monotonic_ms() {
  timespec now;
  if (!clock_monotonic(&now)) {
    MODULE_E("brio:monotime:err=%d:can't get monotonic time", errno);
    return 0;
  }
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// The name is for the log line.
void brio_module_update_ppp(NetInfo* net) {
  page::read_addresses(page::kWwanInterface, net);
  TrafficSample now;
  page::read_counters(page::kWwanInterface, &now);
  now.time_ms = prv_monotonic_ms();
  uint64_t diff = 0;
  if (s_previous_sample.time_ms != 0) {
    diff = now.time_ms - s_previous_sample.time_ms;
    MODULE_D(
        WABS_LOG_VALUE, "brio:now=%llu,last=%llu,diff=%llu\n", static_cast<unsigned long long>(now.time_ms),
        static_cast<unsigned long long>(s_previous_sample.time_ms), static_cast<unsigned long long>(diff));
  }
  page::compute_rates(s_previous_sample, now, diff, net);
  net->rx_bytes = now.rx_bytes;
  net->tx_bytes = now.tx_bytes;
  s_previous_sample = now;
}

void prv_static_info(TextWriter& page) {
  if (page.room() == 0) return;
  if (!s_static_info_read) {
    uint32_t status = brio_get_sim_static_info(1);
    if (status != BRIO_STATUS_OK) {
      MODULE_E("brio:611:Exiting due to error in getting SIM static info, brio status: %d \n:", status);
      MODULE_E("brio:611:Exiting due to error in prv_brio_get611_display \n: ");
      return;
    }
    s_static_info_read = true;
  }
  InputFile file(kStaticInfoFile);
  if (!file) {
    MODULE_E("brio:611:no static info found \n:Bad Param");
    return;
  }
  page::write_static_info(page, &file);
}

void prv_brio_get611_display(TextWriter& page, const atcmd_snapshot& snapshot, View view) {
  sim_info_data sim;
  {
    StaticDataLock lock;
    briolib_get_sim_info_data(&sim);
  }
  sim.iccid[sizeof(sim.iccid) - 1] = '\0';  // a host may have filled the whole field
  NetInfo net;
  brio_module_update_ppp(&net);
  const PageInput input = {&snapshot, sim.iccid, &net, relaxed_load(g_pre_sar_mode), view};
  if (!page::write_sections(page, input)) {
    MODULE_E("brio:611:Exiting due to error in prv_brio_get611_display \n:strdup failed ");
    return;
  }
  prv_static_info(page);
}

}  // namespace

uint32_t brio_module_get_log_string(char* buffer, uint32_t* size, uint32_t mode) {
  if (s_exited) {
    s_exited = false;
    MODULE_D(WABS_LOG_FLOW, "def:Not setting bas status as cycle is exited");
    return 0;
  }
  uint32_t no_size = 0;
  if (size == nullptr) size = &no_size;
  TextWriter page(buffer, *size);

  atcmd_snapshot snapshot;
  uint32_t status = briolib_get_atcmd_snapshot(&snapshot, 0);
  if (status != BRIO_STATUS_OK) {
    MODULE_E("brio:611:briolib_get_atcmd_snapshot error: %d \n:", status);
    page.add("Unable to get snapshot. status=%d\n", static_cast<int>(status));
    *size = 0 - page.room();
    return 0;
  }
  if (g_611_urc_on == 0 && prv_reports_bas(snapshot) && brio_atcmd_enable_urc(kBasReportsOn) == 0) {
    g_611_urc_on = 1;
  }
  if (buffer == nullptr) {
    MODULE_E("brio:611:Exiting due to error in prv_brio_get611_display \n:Bad Param");
    *size = 0;
    return 0;
  }
  prv_brio_get611_display(page, snapshot, mode == kFullView ? View::kFull : View::kMasked);
  *size = page.written();
  return 0;
}

uint32_t brio_module_exit_logging(void) {
  MODULE_D(WABS_LOG_FLOW, "def:exiting 611 page....");
  atcmd_snapshot snapshot;
  if (briolib_get_atcmd_snapshot(&snapshot, 0) == BRIO_STATUS_OK) {
    if (g_611_urc_on != 0 && prv_reports_bas(snapshot)) {
      brio_atcmd_enable_urc(kBasReportsOff);
      g_611_urc_on = 0;
    }
    s_static_info_read = false;
  }
  s_exited = true;
  return 0;
}
