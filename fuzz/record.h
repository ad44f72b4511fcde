// What the shared modem-data record, the SIM blocks and the events may look like, whatever a modem sent.
#ifndef FUZZ_RECORD_H
#define FUZZ_RECORD_H

#include "brio/brio.h"
#include "brio/briolib.h"
#include "fuzz.h"

namespace fuzz {

// Size of each event's data; the network time is announced with 4 bytes and has 16.
inline uint32_t check_event(uint32_t id, uint32_t size, const void* data) {
  static constexpr uint32_t kSizes[BRIO_EVENT_COUNT] = {4, 8, 4, 4, 0, 0, 2, 0, 0, 4};
  require(id < BRIO_EVENT_COUNT && size == kSizes[id] && (size != 0) == (data != nullptr));
  if (id == BRIO_EVENT_BARS_CHANGED) {
    const int32_t bars = g_brio_lib_atcmd_data.bars;
    require(memcmp(data, &bars, sizeof(bars)) == 0);
  } else if (id == BRIO_EVENT_PDP_ACTIVATION_ALLOWED) {
    require(memcmp(data, s_pdp_event, size) == 0);
  } else if (id == BRIO_EVENT_TIME_INFO) {
    require(memcmp(data, g_brio_lib_atcmd_data.time_info, sizeof(network_time)) == 0);
  }
  return 0;
}

inline void watch_events() {
  for (uint32_t id = 0; id < BRIO_EVENT_COUNT; id++) brio_set_callback_for_event_id(id, check_event);
}

// Also that nobody holds a data mutex.
inline void check_record() {
  require(briolib_lock_urc_data_mutex() == 0);
  const brio_atcmd_data& d = g_brio_lib_atcmd_data;
  require_text(d.mcc, d.mnc, d.plmn_text, d.band_text);
  require(d.cs_reg_status <= 3 && d.ps_reg_status <= 2 && d.rat_valid <= 1);
  require(d.cops_mode >= -1 && d.cops_mode <= 1 && d.band <= 1900);
  require(d.rat == 0xFF || d.rat_valid == 1);
  require(d.reject_bytes[0] == 0 && d.spare_state == 0);
  require(s_pdp_event[0] == s_pdp_event[1] && s_pdp_event[0] <= 1);
  require(briolib_unlock_urc_data_mutex() == 0);
}

inline void check_sim_blocks() {
  static sim_plmn_data plmn;
  sim_info_data info;
  require(briolib_lock_static_data_mutex() == 0);
  require(briolib_get_sim_plmn_data(&plmn) == 0 && briolib_get_sim_info_data(&info) == 0);
  require(briolib_unlock_static_data_mutex() == 0);
  require_text(info.psloci, info.loci, info.epsloci, info.iccid);
  const auto check_list = [](const auto& list) {
    for (const plmn_entry& entry : list) require(entry.mcc[3] == '\0' && entry.mnc[3] == '\0');
  };
  const auto check_lists = [&](const auto&... lists) { (check_list(lists), ...); };
  check_lists(plmn.uplmn, plmn.oplmn, plmn.fplmn, plmn.hplmn, plmn.ehplmn);
  require(plmn.home_mcc[0] == '\0' && plmn.home_mnc[0] == '\0');  // derived in callers' copies only
}

}  // namespace fuzz

#endif
