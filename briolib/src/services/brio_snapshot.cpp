// The snapshot that the diagnostic page prints: one copy of the shared modem data and its neighbours.
#include <string.h>

#include "base/text.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"

using namespace brio;

namespace {

constexpr char kLibraryVersion[] = "S30J38";
constexpr uint32_t kRefreshEvery = 3;  // the page is polled; the modem is asked on every third call

// Calls that may refresh. Host thread only.
uint32_t s_snapshot_calls;

bool prv_queries_bas() {
  UrcDataLock lock;
  const brio_atcmd_data& data = g_brio_lib_atcmd_data;
  return data.bas_query_flag == 1 && is_registered(data.ps_reg_status);
}

// Serving-cell data from the modem into the shared record. A query that fails leaves the older values.
void prv_refresh() {
  briolib_get_gtscinfo();
  const uint8_t rat = shared_value(&brio_atcmd_data::rat);
  if (rat == kRatLte) {
    briolib_update_lte_info();
    if (prv_queries_bas()) {
      bas_status bas = {kBasValueUnknown, kBasValueUnknown, kAntennaUnknown};
      brio_get_bas_status(&bas);
    }
  } else if (rat < kRatUnknown) {
    briolib_get_gtscstat();
  }
}

void prv_copy_shared_data(atcmd_snapshot* record) {
  assert_urc_data_held();
  const brio_atcmd_data& data = g_brio_lib_atcmd_data;
  record->cs_reg_status = data.cs_reg_status;
  record->ps_reg_status = data.ps_reg_status;
  record->lac = data.lac;
  record->cell_id = data.cell_id;
  record->rat = data.rat;
  record->rac = data.rac;
  copy_text(record->mcc, data.mcc);
  copy_text(record->mnc, data.mnc);
  copy_text(record->plmn_text, data.plmn_text);
  copy_text(record->band_text, data.band_text);
  record->arfcn = data.arfcn;
  memcpy(record->reject_bytes, data.reject_bytes, sizeof(record->reject_bytes));
  memcpy(record->reject_words, data.reject_words, sizeof(record->reject_words));
  record->signal_a = static_cast<int32_t>(data.signal_a);
  record->signal_b = static_cast<int32_t>(data.signal_b);
  record->bars = data.bars;
  record->pdp_state = data.pdp_state;
  record->mm_state = data.mm_state;
  record->mm_substate = data.mm_substate;
  record->gmm_state = data.gmm_state;
  record->gmm_substate = data.gmm_substate;
  record->rrc_state = data.rrc_state;
  record->nmo = data.nmo;
  record->rat_valid = data.rat_valid;
  record->spare_state = data.spare_state;
  record->carrier_config = data.carrier_config;
  record->sim_status = g_sim_status;
  record->curr_lte_ant = data.curr_lte_ant;
  record->bas_value_a = static_cast<int16_t>(data.bas_value_a);
  record->bas_value_b = static_cast<int16_t>(data.bas_value_b);
  record->emm_state = data.emm_state;
  record->emm_substate = data.emm_substate;
  record->tac = data.tac;
  record->bas_query_flag = data.bas_query_flag;
  record->wan_type = data.wan_type;
  record->band = data.band;
}

}  // namespace

uint32_t briolib_get_atcmd_snapshot(atcmd_snapshot* record, uint32_t no_refresh) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;

  modem_info info = {};
  brio_copy_modem_info(&info);
  if (no_refresh == 0 && s_snapshot_calls++ % kRefreshEvery == 0) prv_refresh();

  memset(record, 0, sizeof(*record));
  uint8_t cops_mode;
  {
    UrcDataLock lock;
    prv_copy_shared_data(record);
    cops_mode = static_cast<uint8_t>(g_brio_lib_atcmd_data.cops_mode);
  }
  // An unknown mode is looked up in a file, so the lock is not held here.
  record->snapshot_mode = briolib_get_snapshot_mode(cops_mode);
  copy_text(record->fw_ver, info.fw_ver);
  copy_text(record->lib_ver, kLibraryVersion);
  copy_text(record->imei, info.imei);
  return BRIO_STATUS_OK;
}
