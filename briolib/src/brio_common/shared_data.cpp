// The data that the library's threads share, its two mutexes and its reset, and the library status of a
// request.
#include "brio_common/shared_data.h"

#include <pthread.h>
#include <string.h>

#include "base/log.h"
#include "base/relaxed.h"
#include "base/text.h"
#include "brio/brio_at.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

// Error-checking mutexes: a caller that locks twice or unlocks what it does not hold gets status 4 instead of
// a dead-lock.

// Guards g_brio_lib_atcmd_data, g_sim_status, s_pdp_event and s_prev_pdp_event. The library-state mutex
// may be held when this one is taken, never the other way round.
pthread_mutex_t s_urc_data_mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

// Guards g_sim_plmn and g_sim_info. Taken with no other data mutex held.
pthread_mutex_t s_static_data_mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

constexpr size_t kTimeZoneWord = 2;

uint32_t prv_mutex_status(int result) {
  return result == 0 ? BRIO_STATUS_OK : BRIO_STATUS_FAILURE;
}

template <typename Record>
uint32_t prv_copy(const Record* from, Record* to) {
  if (from == nullptr || to == nullptr) return BRIO_STATUS_INVALID;
  *to = *from;
  return BRIO_STATUS_OK;
}

}  // namespace

brio_atcmd_data g_brio_lib_atcmd_data;

uint16_t brio::g_sim_status = SIM_NOT_READ;
uint8_t brio::g_cached_bars_valid;
sim_plmn_data brio::g_sim_plmn;
sim_info_data brio::g_sim_info;

uint32_t briolib_lock_urc_data_mutex(void) {
  return prv_mutex_status(pthread_mutex_lock(&s_urc_data_mutex));
}

uint32_t briolib_unlock_urc_data_mutex(void) {
  return prv_mutex_status(pthread_mutex_unlock(&s_urc_data_mutex));
}

uint32_t briolib_lock_static_data_mutex(void) {
  return prv_mutex_status(pthread_mutex_lock(&s_static_data_mutex));
}

uint32_t briolib_unlock_static_data_mutex(void) {
  return prv_mutex_status(pthread_mutex_unlock(&s_static_data_mutex));
}

void briolib_init_atcmd_data(int32_t keep) {
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  if (keep == 0) {
    memset(&data, 0, sizeof(data));
    data.carrier_config = -1;
    data.carrier_word = 0x00FF;
    data.time_info[kTimeZoneWord] = 0xFFFFFFFF;
    g_sim_status = SIM_NOT_READ;
  }
  data.rac = 0x00FF;
  data.signal_a = 255;
  data.signal_b = 255;
  data.lac = 0xFFFF;
  data.cell_id = 0xFFFFFFFF;
  data.rat = kRatUnknown;
  data.bars = kBarsUnknown;
  briolib_invalid_cached_bars();
  data.nmo = 0xFF;
  data.cops_mode = -1;
  data.pdp_state = 0xFF;
  copy_text(data.mcc, BRIO_PLMN_UNKNOWN);
  copy_text(data.mnc, BRIO_PLMN_UNKNOWN);
  copy_text(data.plmn_text, "None");
  copy_text(data.band_text, "BAND_NONE");
  data.bas_value_a = kBasValueUnknown;
  data.bas_value_b = kBasValueUnknown;
  data.curr_lte_ant = kAntennaUnknown;
  data.band = 0;
}

void briolib_invalid_cached_bars() {
  relaxed_store<uint8_t>(g_cached_bars_valid, 0);
}

uint32_t briolib_get_sim_plmn_data(sim_plmn_data* record) {
  return prv_copy(&g_sim_plmn, record);
}

uint32_t briolib_update_sim_plmn_data(const sim_plmn_data* record) {
  return prv_copy(record, &g_sim_plmn);
}

uint32_t briolib_get_sim_info_data(sim_info_data* record) {
  return prv_copy(&g_sim_info, record);
}

uint32_t briolib_update_sim_info_data(const sim_info_data* record) {
  return prv_copy(record, &g_sim_info);
}

uint32_t briolib_translate_status(uint32_t packet_status, uint32_t response_status) {
  switch (packet_status) {
    case BLPKT_STATUS_SUCCESS:
      break;
    case BLPKT_STATUS_TIMEOUT:
      return BRIO_STATUS_TIMEOUT;
    case BLPKT_STATUS_SCAN_ABORTED:
      return BRIO_STATUS_SCAN_ABORTED;
    default:
      BLIB_E("blpktstat:status=%d:modem returned bad status", packet_status);
      return BRIO_STATUS_FAILURE;
  }
  if (response_status != 0) {
    BLIB_E("resp_status:resp=%d:modem indicated a failure", response_status);
    return BRIO_STATUS_FAILURE;
  }
  return BRIO_STATUS_OK;
}
