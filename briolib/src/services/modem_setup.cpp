// What the modem must be set to before it is used: carrier configuration, APN and WAN type.
#include <string.h>
#include <unistd.h>

#include "base/files.h"
#include "base/log.h"
#include "base/log_text.h"
#include "base/paths.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "channel/request.h"
#include "parse/answer.h"
#include "parse/modem_config.h"
#include "services/apn.h"
#include "services/brio_sim.h"
#include "services/carriers.h"

constexpr char kLogTag[] = "briolib/src/brio_misc";

using namespace brio;

namespace {

constexpr uint32_t kModeStoredByHost = 255;
constexpr size_t kFileLineSize = 256;
constexpr size_t kSelectionLineSize = 128;
constexpr size_t kApnAnswerSize = 128;

// The APN override file stays open on purpose once it was read: one handle, that of the last check. Written
// by the opening thread under the library-state mutex.
int s_apn_override_file = -1;

// The response callbacks below run on the read thread.

uint32_t prv_invalid(const char* callback) {
  BLIB_E("%s::response is invalid\n", callback);
  return BRIO_STATUS_INVALID;
}

uint32_t recv_func_prv_briolib_carrier_confg(const ATResponse* response, void* user_data, uint16_t) {
  const std::optional<uint16_t> carrier_id = parse::parse_carrier_id(answer_line(response));
  if (!carrier_id) return prv_invalid("recv_func_prv_briolib_carrier_confg");
  *static_cast<uint16_t*>(user_data) = *carrier_id;
  BLIB_PLAIN("carrier config:current confg:[%d]\n", *carrier_id);
  return BRIO_STATUS_OK;
}

uint32_t recv_func_prv_briolib_check_apn_setting(const ATResponse* response, void* user_data, uint16_t size) {
  const char* line = answer_line(response);
  const char* payload = parse::answer_payload(line);
  if (payload == nullptr) return prv_invalid("prv_briolib_check_apn_setting");
  char* answer = static_cast<char*>(user_data);
  copy_text(answer, size, payload);
  char shown[kApnAnswerSize];
  copy_text(shown, parse::answer_payload(masked_line(line).c_str()));
  BLIB_PLAIN("APN::[%s]\n", shown);
  return BRIO_STATUS_OK;
}

uint32_t recv_func_prv_briolib_get_model(const ATResponse* response, void* user_data, uint16_t) {
  if (!parse::answer_text(answer_line(response), static_cast<char*>(user_data), parse::kModelSize)) {
    return prv_invalid("recv_func_prv_briolib_get_model");
  }
  return BRIO_STATUS_OK;
}

// True when the override file decides: with a first line `command` is built, else it stays empty.
bool prv_apn_override(char* command) {
  InputFile file(kApnOverrideFile);
  if (!file) return false;
  char line[kFileLineSize];
  const size_t length = file.line(line, sizeof(line));
  if (s_apn_override_file >= 0) close(s_apn_override_file);
  s_apn_override_file = file.release();
  if (length == 0) return true;
  const char* apn = parse::override_apn(line, length);
  if (apn == nullptr) {
    BLIB_E("checkAPN:name=%s:APN refused, no override\n", kApnOverrideFile);
    return false;
  }
  BLIB_I("APN:updated to:[%s]\n", apn);
  parse::build_apn_command(apn, command);
  return true;
}

// Leaves `command` empty when the modem holds the APN of the SIM's carrier group.
uint32_t prv_apn_of_sim(char* command) {
  char answer[kApnAnswerSize] = {};
  uint32_t result = query("AT+CGDCONT?", NUMERIC, "+CGDCONT", recv_func_prv_briolib_check_apn_setting, answer,
                          sizeof(answer));
  if (result != BLPKT_STATUS_SUCCESS) {
    BLIB_E("checkAPN::failed to get APN value\n");
    return BRIO_STATUS_TIMEOUT;
  }
  char prefix[parse::kImsiPrefixSize];
  if (!read_imsi_prefix(prefix)) {
    BLIB_E("checkAPN:invalid IMSI:can't read SIM\n");
    return BRIO_STATUS_INVALID;
  }
  const char* apn;
  if (strstr(prefix, kApnGroupANetwork) != nullptr) {
    BLIB_D(BRIO_LOG_DEBUG, "carrier is ATT\n");
    apn = kApnGroupA;
  } else {
    BLIB_D(BRIO_LOG_DEBUG, "apn check carrier is VOD/DOCO/etc\n");
    apn = kApnGroupB;
  }
  // Anywhere in the answer, not only in its APN field.
  if (strstr(answer, apn) == nullptr) parse::build_apn_command(apn, command);
  return BRIO_STATUS_OK;
}

// The first line of the WAN information file that holds the key decides; 0 without one.
uint8_t prv_wan_type_of_file(InputFile* file) {
  char line[kFileLineSize];
  while (file->line(line, sizeof(line)) > 0) {
    const std::optional<uint8_t> type = parse::parse_wan_type_line(line);
    if (type) return *type;
  }
  return BRIO_WAN_TYPE_UNKNOWN;
}

}  // namespace

uint32_t briolib_check_carrier_confg(void) {
  uint16_t carrier_id = kCarrierUnknown;
  uint32_t result =
      query("AT+GTFDCAR?", NUMERIC, "+GTFDCAR", recv_func_prv_briolib_carrier_confg, &carrier_id);
  if (result != BLPKT_STATUS_SUCCESS) {
    BLIB_E("checkFDCAR::failed to get carrier_id value[%d]\n", carrier_id);
    return BRIO_STATUS_TIMEOUT;
  }
  {
    // One word, but a copy of the record made under the mutex has it whole.
    UrcDataLock lock;
    g_brio_lib_atcmd_data.carrier_config = static_cast<int16_t>(carrier_id);
  }
  char prefix[parse::kImsiPrefixSize];
  if (!read_imsi_prefix(prefix)) {
    BLIB_E("checkFDCAR:invalid IMSI:can't read SIM\n");
    return BRIO_STATUS_INVALID;
  }
  if (carrier_accepts_sim(carrier_id, prefix)) return BRIO_STATUS_OK;
  BLIB_PLAIN("Need udpate carrier ID, currentID[%d],mccmnc[%s]::\n", carrier_id, prefix);
  uint32_t status = brio_carrier_selection();
  if (status != BRIO_STATUS_OK) {
    BLIB_E("checkFDCAR::failed to apply new carrier_id, current[%d]\n", carrier_id);
  }
  return status;
}

uint32_t briolib_check_apn_setting(void) {
  char command[parse::kApnCommandSize] = {};
  if (!prv_apn_override(command)) {
    uint32_t status = prv_apn_of_sim(command);
    if (status != BRIO_STATUS_OK) return status;
  }
  if (command[0] == '\0') return BRIO_STATUS_OK;
  uint32_t result = send_command(command);
  if (result != BLPKT_STATUS_SUCCESS) BLIB_E("checkAPN:err_no=%d:can't set APN\n", result);
  return briolib_translate_status(result, 0);
}

uint32_t briolib_update_wan_type(void) {
  uint32_t status = BRIO_STATUS_OK;
  uint8_t type = BRIO_WAN_TYPE_UNKNOWN;
  InputFile file(kWanInfoFile);
  if (file) {
    type = prv_wan_type_of_file(&file);
  } else {
    char model[parse::kModelSize] = {};
    uint32_t result = query("AT+CGMM", NUMERIC, "+CGMM", recv_func_prv_briolib_get_model, model);
    if (result == BLPKT_STATUS_SUCCESS) {
      type = parse::wan_type_of_model(model);
    } else {
      status = BRIO_STATUS_UNAVAILABLE;
    }
  }
  BLIB_PLAIN("WAN_TYPE:updated to:[%d]\n", type);
  UrcDataLock lock;
  g_brio_lib_atcmd_data.wan_type = type;
  return status;
}

uint32_t briolib_get_snapshot_mode(uint32_t mode) {
  if (mode != kModeStoredByHost) return mode;
  char line[kSelectionLineSize];
  InputFile(kManualSelectionFile).line(line, sizeof(line));
  return parse::snapshot_mode_of_line(line);
}
