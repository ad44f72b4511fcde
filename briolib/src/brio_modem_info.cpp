// The modem's identity: asked for once after open, then served from memory.
#include <string.h>

#include "base/log.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "parse/answer.h"
#include "parse/modem_info.h"

namespace {

constexpr char kLogTag[] = "briolib/src/brio_modem_info";

constexpr char kUnknownText[] = " ";

// Host thread; the read thread fills the cache while the host's thread waits for the answer.
modem_info s_cached_modem_info;
uint32_t s_modem_info_valid;

// Read thread. Any success final counts as read, also one without a usable line.
uint32_t recv_func_prv_briolib_get_modem_info(const ATResponse* response, void* user_data, uint16_t) {
  const char* line = brio::parse::answer_line(response);
  if (line == nullptr) {
    BLIB_E("E blib:%s:%d:prv_briolib_get_modem_info:at_resp is invalid:\n", BLIB_HERE);
    return 0;
  }
  const char* payload = brio::parse::answer_payload(line);
  if (payload == nullptr || *payload == '\0') {
    BLIB_E("E blib:%s:%d:prv_briolib_get_modem_info:resp is invalid:\n", BLIB_HERE);
    return 0;
  }
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:recv_func_prv_briolib_get_modem_info called %s\n", BLIB_HERE, payload);
  modem_info* info = static_cast<modem_info*>(user_data);
  brio::parse::parse_modem_info(payload, info);
  BLIB_D(BRIO_LOG_MODEM_INFO, "D blib:%s:%d:fw_ver[%s]imei[%s]serial[%s]hw_ver[%s]fault_ct[%d]\n", BLIB_HERE,
         info->fw_ver, info->imei, info->serial, info->hw_ver, info->fault_ct);
  return 0;
}

}  // namespace

uint32_t brio_get_modem_info(modem_info* record) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  if (s_modem_info_valid == 0) {
    uint32_t status = briolib_check_library_status();
    if (status != BRIO_STATUS_OK) return status;
    uint32_t result = blpkt_atcmd_request_with_callback("AT+GTMODINFO?", SINGLELINE, "+GTMODINFO",
                                                        recv_func_prv_briolib_get_modem_info,
                                                        &s_cached_modem_info, sizeof(s_cached_modem_info));
    if (result != BLPKT_STATUS_SUCCESS) return BRIO_STATUS_FAILURE;
    s_modem_info_valid = 1;
  }
  *record = s_cached_modem_info;
  return BRIO_STATUS_OK;
}

uint32_t brio_copy_modem_info(modem_info* record) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  bool valid = s_modem_info_valid != 0;
  const modem_info& cache = s_cached_modem_info;
  brio::copy_text(record->fw_ver, sizeof(record->fw_ver), valid ? cache.fw_ver : kUnknownText);
  brio::copy_text(record->imei, sizeof(record->imei), valid ? cache.imei : kUnknownText);
  brio::copy_text(record->hw_ver, sizeof(record->hw_ver), valid ? cache.hw_ver : kUnknownText);
  brio::copy_text(record->serial, sizeof(record->serial), valid ? cache.serial : kUnknownText);
  return BRIO_STATUS_OK;
}

void briolib_reset_modem_info(void) {
  s_modem_info_valid = 0;
  memset(&s_cached_modem_info, 0, sizeof(s_cached_modem_info));
}
