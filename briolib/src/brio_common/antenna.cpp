// Antennas: the BAS status and the antenna lock.
#include <utility>

#include "base/fields.h"
#include "base/log.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_common/library_state.h"
#include "brio_common/shared_data.h"
#include "channel/request.h"
#include "parse/signal.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

// Antenna choice - 1 is the modem's own argument.
constexpr const char* kLockCommands[] = {
    "AT@EPHY:EPHY_BAS_SET(0)",  // 1: first antenna
    "AT@EPHY:EPHY_BAS_SET(1)",  // 2: second antenna
    "AT@EPHY:EPHY_BAS_SET(2)",  // 3: automatic
};
constexpr uint32_t kLockCommandCount = sizeof(kLockCommands) / sizeof(kLockCommands[0]);

uint32_t recv_func_prv_briolib_read_bas_status(const ATResponse* response, void* user_data,
                                               uint16_t /*user_value*/) {
  char* line = answer_line_for("recv_func_prv_briolib_read_bas_status", response);
  if (line == nullptr) return BRIO_STATUS_INVALID;
  BLIB_D(BRIO_LOG_DEBUG, "recv_func_prv_briolib_read_bas_status callback called resp [%s]", line);
  briolib_parse_bas_status(line, static_cast<bas_status*>(user_data));
  return BRIO_STATUS_OK;
}

}  // namespace

void briolib_parse_bas_status(char* payload, bas_status* record) {
  if (payload == nullptr || *payload == '\0') {
    BLIB_E("briolib_parse_bas_status:bas_p is NULL:");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "bas_data_p: %s", payload);
  bool is_answer = record != nullptr;
  const parse::BasReport report = parse::parse_bas(payload, is_answer);
  UrcDataLock lock;
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  store(report.value_a, &data.bas_value_a);
  store(report.value_b, &data.bas_value_b);
  store(report.antenna, &data.curr_lte_ant);

  // Answers and reports name the swapped antenna differently; this is meant.
  if (data.curr_lte_ant == (is_answer ? 1 : 0)) std::swap(data.bas_value_a, data.bas_value_b);
  if (is_answer) {
    record->value_a = data.bas_value_a;
    record->value_b = data.bas_value_b;
    record->antenna = data.curr_lte_ant;
  }
}

uint32_t brio_get_bas_status(bas_status* record) {
  uint32_t status = gate("brio_get_bas_status");
  if (status != BRIO_STATUS_OK) return status;
  if (record == nullptr) return BRIO_STATUS_INVALID;
  status = query("AT@EPHY:EPHY_BAS_STATUS(2)", SINGLELINE, kBasPrefix, recv_func_prv_briolib_read_bas_status,
                 record);
  if (status != BLPKT_STATUS_SUCCESS) {
    BLIB_E("get_bas_status::get bas status failed");
    return BRIO_STATUS_TIMEOUT;  // whatever the failure was
  }
  return BRIO_STATUS_OK;
}

uint32_t brio_get_curr_lte_ant(uint32_t* out) {
  uint32_t status = gate("brio_get_curr_lte_ant");
  if (status != BRIO_STATUS_OK) return status;
  if (out == nullptr) return BRIO_STATUS_INVALID;
  uint8_t antenna = shared_value(&brio_atcmd_data::curr_lte_ant);
  if (antenna == kAntennaUnknown) {
    bas_status record = {kBasValueUnknown, kBasValueUnknown, kAntennaUnknown};
    if (brio_get_bas_status(&record) != BRIO_STATUS_OK) {
      BLIB_E("brio_get_curr_lte_ant::get bas status failed");
      return BRIO_STATUS_UNAVAILABLE;
    }
    antenna = record.antenna;
  }
  *out = antenna;
  return BRIO_STATUS_OK;
}

uint32_t brio_set_lte_ant(uint32_t choice) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  send_command("AT@GTICOM:SIO_PSVCTRL(0)");
  if (choice == 0 || choice > kLockCommandCount) {
    BLIB_E("LTE ant lock:err:can't lock ANT[%d]", choice);
    return BRIO_STATUS_INVALID;
  }
  status = send_command(kLockCommands[choice - 1]);
  if (status != BLPKT_STATUS_SUCCESS) BLIB_E("setANT:err_no=%d:can't set LTE ANT", status);
  return briolib_translate_status(status, 0);
}
