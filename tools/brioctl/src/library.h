// libbrio_module.so.1, loaded at run time as the WAN manager does.
#ifndef BRIOCTL_LIBRARY_H
#define BRIOCTL_LIBRARY_H

#include <string>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/wabs.h"

namespace brioctl {

#define BRIOCTL_FUNCTIONS(X)                   \
  X(brio_set_root_dir)                         \
  X(brio_open)                                 \
  X(brio_close)                                \
  X(brio_get_band_info)                        \
  X(brio_get_bas_status)                       \
  X(brio_get_carrier_id)                       \
  X(brio_get_curr_lte_ant)                     \
  X(brio_get_wan_type)                         \
  X(brio_get_wn3_sim_status)                   \
  X(brio_set_lte_ant)                          \
  X(brio_trace_tst_log)                        \
  X(brio_trace_tst_stop)                       \
  X(briolib_log_set_log_mask)                  \
  X(blpkt_atcmd_request_with_callback_timeout) \
  X(wabs_open)                                 \
  X(wabs_close)                                \
  X(wabs_set_log_mask)                         \
  X(wabs_get_bars)                             \
  X(wabs_get_data_service_mode)                \
  X(wabs_get_roaming_status)                   \
  X(wabs_get_rssi)                             \
  X(wabs_get_module_time)                      \
  X(wabs_get_imsi)                             \
  X(wabs_get_radio_serial_number)              \
  X(wabs_get_radio_cert_param1)                \
  X(wabs_get_firmware_version)                 \
  X(wabs_get_mcc_mnc)                          \
  X(wabs_get_hplmn_mcc_mnc)                    \
  X(wabs_get_log_string)                       \
  X(wabs_exit_611_logging)                     \
  X(wabs_do_manual_nw_scan)                    \
  X(wabs_abort_manual_nw_scan)                 \
  X(wabs_send_abort_cmd)                       \
  X(wabs_set_auto_mode)                        \
  X(wabs_get_current_network)

struct Library {
#define BRIOCTL_MEMBER(name) decltype(&::name) name = nullptr;
  BRIOCTL_FUNCTIONS(BRIOCTL_MEMBER)
#undef BRIOCTL_MEMBER
  std::string path;

  // Loads `wanted`, or with "" the library that belongs to this brioctl, or else the system's. Throws
  // Failure.
  void load(const std::string& wanted);
};

}  // namespace brioctl

#endif
