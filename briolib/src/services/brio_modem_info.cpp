// The modem's identity: asked for once after open, then served from memory.
#include <pthread.h>
#include <string.h>

#include "base/guards.h"
#include "base/log.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/request.h"
#include "parse/answer.h"
#include "parse/modem_config.h"

constexpr char kLogTag[] = "briolib/src/brio_modem_info";

using namespace brio;

namespace {

constexpr char kUnknownText[] = " ";

// Guards the two below. Never held while a command is sent; no other lock is taken under it.
pthread_mutex_t s_modem_info_mutex = PTHREAD_MUTEX_INITIALIZER;
modem_info s_cached_modem_info;
uint32_t s_modem_info_valid;

// Read thread. Any success final counts as read, also one without a usable line. Stored here and not where
// the request returns: by then the library may have been opened anew, with another modem.
uint32_t recv_func_prv_briolib_get_modem_info(const ATResponse* response, void*, uint16_t) {
  modem_info info = {};
  char* line = answer_line(response);
  const char* payload = parse::answer_payload(line);
  if (line == nullptr) {
    BLIB_E("prv_briolib_get_modem_info:at_resp is invalid:\n");
  } else if (payload == nullptr || *payload == '\0') {
    BLIB_E("prv_briolib_get_modem_info:resp is invalid:\n");
  } else {
    BLIB_D(BRIO_LOG_DEBUG, "recv_func_prv_briolib_get_modem_info called %s\n", payload);
    parse::parse_modem_info(line, &info);
    BLIB_D(BRIO_LOG_MODEM_INFO, "fw_ver[%s]imei[%s]serial[%s]hw_ver[%s]fault_ct[%d]\n", info.fw_ver,
           info.imei, info.serial, info.hw_ver, info.fault_ct);
  }
  MutexGuard lock(s_modem_info_mutex);
  s_cached_modem_info = info;
  s_modem_info_valid = 1;
  return BRIO_STATUS_OK;
}

bool prv_copy_cached(modem_info* record) {
  MutexGuard lock(s_modem_info_mutex);
  *record = s_cached_modem_info;
  return s_modem_info_valid != 0;
}

}  // namespace

uint32_t brio_get_modem_info(modem_info* record) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  modem_info cached;
  if (!prv_copy_cached(&cached)) {
    uint32_t status = briolib_check_library_status();
    if (status != BRIO_STATUS_OK) return status;
    uint32_t result = query("AT+GTMODINFO?", SINGLELINE, "+GTMODINFO", recv_func_prv_briolib_get_modem_info);
    if (result != BLPKT_STATUS_SUCCESS) return BRIO_STATUS_FAILURE;
    prv_copy_cached(&cached);
  }
  *record = cached;
  return BRIO_STATUS_OK;
}

uint32_t brio_copy_modem_info(modem_info* record) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  modem_info cache;
  const bool valid = prv_copy_cached(&cache);
  copy_text(record->fw_ver, valid ? cache.fw_ver : kUnknownText);
  copy_text(record->imei, valid ? cache.imei : kUnknownText);
  copy_text(record->hw_ver, valid ? cache.hw_ver : kUnknownText);
  copy_text(record->serial, valid ? cache.serial : kUnknownText);
  return BRIO_STATUS_OK;
}

void briolib_reset_modem_info(void) {
  MutexGuard lock(s_modem_info_mutex);
  s_modem_info_valid = 0;
  memset(&s_cached_modem_info, 0, sizeof(s_cached_modem_info));
}
