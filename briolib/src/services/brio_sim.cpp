// The SIM's readiness, its identities and its home PLMN; the elementary files that make up the static
// information, read into the SIM blocks, then dumped.
#include "services/brio_sim.h"

#include <pthread.h>
#include <string.h>

#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/log_text.h"
#include "base/paths.h"
#include "base/relaxed.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "channel/request.h"
#include "services/static_info.h"

constexpr char kLogTag[] = "briolib/src/brio_sim";

using namespace brio;

namespace {

constexpr uint32_t kLockStatusUnknown = 15;

// What briolib_get_sim_iccid and briolib_get_sim_imsi hand out by pointer; every read overwrites its half.
struct CachedIdentities {
  char iccid[parse::kIccidSize];
  char imsi[parse::kImsiSize];
  char spare;
};
CachedIdentities s_cached_sim_iccid_imsi;
static_assert(sizeof(s_cached_sim_iccid_imsi) == 38, "ICCID, IMSI and one byte");
// Guards the cache: the read thread writes it, the library itself reads it by copies. No other lock is taken
// under it.
pthread_mutex_t s_identity_mutex = PTHREAD_MUTEX_INITIALIZER;

// By the modem's card status. The lock status plays no part.
constexpr brio_sim_status kSimStatuses[] = {SIM_NOT_READ,  SIM_NOT_READ, NO_SIM,
                                            SIM_STATUS_OK, SIM_NOT_READ, NO_SIM};
constexpr uint32_t kSimStatusCount = sizeof(kSimStatuses) / sizeof(kSimStatuses[0]);

template <size_t N>
void prv_store(const char (&text)[N], char* half) {
  MutexGuard lock(s_identity_mutex);
  memcpy(half, text, N);
}

// The response callbacks below run on the read thread.

uint32_t prv_invalid(const char* callback) {
  BLIB_E("%s::response is invalid\n", callback);
  return BRIO_STATUS_INVALID;
}

uint32_t prv_briolib_get_value(const ATResponse* response, void* user_data, uint16_t) {
  char* input_line = answer_line(response);
  if (input_line == nullptr) {
    BLIB_E("prv_briolib_get_value:input_line passed is NULL:\n");
    return BLPKT_STATUS_ERROR;
  }
  return at_parse(skip_spaces(input_line), nullptr, user_data);
}

uint32_t recv_func_prv_briolib_get_iccid(const ATResponse* response, void* user_data, uint16_t) {
  char iccid[parse::kIccidSize] = {};
  if (!parse::parse_iccid(answer_line(response), iccid)) {
    return prv_invalid("recv_func_prv_briolib_get_iccid");
  }
  prv_store(iccid, static_cast<char*>(user_data));
  BLIB_D(BRIO_LOG_DEBUG, "ICCID %s\n", masked_identity(iccid).c_str());
  return BRIO_STATUS_OK;
}

uint32_t recv_func_prv_briolib_get_imsi(const ATResponse* response, void* user_data, uint16_t) {
  char imsi[parse::kImsiSize] = {};
  if (!parse::parse_imsi(answer_line(response), imsi)) return prv_invalid("recv_func_prv_briolib_get_imsi");
  prv_store(imsi, static_cast<char*>(user_data));
  BLIB_D(BRIO_LOG_DEBUG, "IMSI updated\n");
  return BRIO_STATUS_OK;
}

// Reads a text into its half of the cache and copies it from there.
template <size_t N>
bool prv_read(const char* command, const char* prefix, recv_func callback, char (&half)[N], char (&text)[N]) {
  if (query(command, NUMERIC, prefix, callback, half) != BLPKT_STATUS_SUCCESS) return false;
  MutexGuard lock(s_identity_mutex);
  memcpy(text, half, N);
  return true;
}

bool prv_read_iccid(char (&iccid)[parse::kIccidSize]) {
  return prv_read("AT+CCID", "+CCID", recv_func_prv_briolib_get_iccid, s_cached_sim_iccid_imsi.iccid, iccid);
}

// READ BINARY (176) of files of 3GPP TS 31.102 and TS 51.011, besides EF ICCID.
constexpr const char* kReadFiles[] = {
    "AT+CRSM=176,28643,0,0,18",  // EF EPSLOCI
    "AT+CRSM=176,28514,0,0,0",   // EF HPLMNwAcT
    "AT+CRSM=176,28513,0,0,0",   // EF OPLMNwAcT
    "AT+CRSM=176,28512,0,0,0",   // EF PLMNwAcT
    "AT+CRSM=176,28539,0,0,0",   // EF FPLMN
    "AT+CRSM=176,28531,0,0,14",  // EF PSLOCI
    "AT+CRSM=176,28542,0,0,11",  // EF LOCI
};
// Without these first files there is nothing worth dumping.
constexpr size_t kNeededFiles = 2;

// Non-zero once g_sim_info_hash is the digest of the file.
uint32_t s_sim_info_md5_status;

// `user_data` is the command, which tells the parser whose contents the line holds.
uint32_t recv_func_prv_briolib_get_crsm(const ATResponse* response, void* user_data, uint16_t) {
  char* line = answer_line(response);
  if (line == nullptr) return prv_invalid("recv_func_prv_briolib_get_crsm");
  BLIB_D(BRIO_LOG_DEBUG, "get crsm [%s]\n",
         parse::crsm_log_text(line, static_cast<const char*>(user_data)).c_str());
  return at_parse(skip_spaces(line), user_data, nullptr);
}

uint32_t prv_read_file(const char* command) {
  // The parser takes a copy of the command; it travels as an untyped pointer.
  return query(command, SINGLELINE, "+CRSM", recv_func_prv_briolib_get_crsm, const_cast<char*>(command));
}

}  // namespace

bool brio::read_sim_imsi(char (&imsi)[parse::kImsiSize]) {
  return prv_read("AT+CIMI", "+CIMI", recv_func_prv_briolib_get_imsi, s_cached_sim_iccid_imsi.imsi, imsi);
}

bool brio::read_imsi_prefix(char (&prefix)[parse::kImsiPrefixSize]) {
  char imsi[parse::kImsiSize];
  if (!read_sim_imsi(imsi)) return false;
  copy_text(prefix, imsi);
  return true;
}

uint32_t brio_get_sim_status(sim_card_status* record) {
  if (record == nullptr) return BRIO_STATUS_INVALID;
  record->card_status = 0;
  record->lock_status = kLockStatusUnknown;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  uint32_t result = query("AT+GTSIMSTATUS?", SINGLELINE, "+GTSIMSTATUS", prv_briolib_get_value, record);
  BLIB_I("get_sim_info:card_status[%d], Lock_status[%d]:\n", record->card_status, record->lock_status);
  return briolib_translate_status(result, 0);
}

uint32_t brio_get_wn3_sim_status(uint32_t* out) {
  if (out == nullptr) return BRIO_STATUS_INVALID;
  *out = SIM_STATUS_OK;
  sim_card_status card;
  uint32_t status = brio_get_sim_status(&card);
  if (status != BRIO_STATUS_OK) return status;
  *out = card.card_status < kSimStatusCount ? kSimStatuses[card.card_status] : INVALID_OTHER;
  UrcDataLock lock;
  g_sim_status = static_cast<uint16_t>(*out);
  return BRIO_STATUS_OK;
}

char* briolib_get_sim_iccid(void) {
  char iccid[parse::kIccidSize];
  return prv_read_iccid(iccid) ? s_cached_sim_iccid_imsi.iccid : nullptr;
}

char* briolib_get_sim_imsi(void) {
  char imsi[parse::kImsiSize];
  return read_sim_imsi(imsi) ? s_cached_sim_iccid_imsi.imsi : nullptr;
}

uint32_t brio_get_sim_info(sim_identity* block) {
  if (block == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  char imsi[parse::kImsiSize];
  char iccid[parse::kIccidSize];
  const bool have_imsi = read_sim_imsi(imsi);
  const bool have_iccid = prv_read_iccid(iccid);
  if (!have_imsi || !have_iccid) {
    BLIB_E("SIM info:failed to get iccid/imsi:\n");
    return BRIO_STATUS_FAILURE;
  }
  copy_padded(block->iccid, sizeof(block->iccid), iccid);
  copy_padded(block->imsi, sizeof(block->imsi), imsi);
  return BRIO_STATUS_OK;
}

uint32_t brio_get_sim_plmn_info(sim_plmn_data* record, uint32_t size) {
  if (size == 0 || record == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  {
    StaticDataLock lock;
    status = briolib_get_sim_plmn_data(record);
  }
  if (status != BRIO_STATUS_OK || record->home_mcc[0] != '\0') return status;
  char imsi[parse::kImsiSize];
  if (!read_sim_imsi(imsi)) return BRIO_STATUS_FAILURE;
  // Into the caller's copy only: the stored record keeps an empty home PLMN, so that a changed SIM is seen.
  parse::home_plmn(imsi, record->home_mcc, record->home_mnc);
  BLIB_PLAIN("HPLMN:%s-%s:\n", record->home_mcc, record->home_mnc);
  return BRIO_STATUS_OK;
}

uint32_t brio_get_sim_static_info(int32_t force) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  BLIB_D(BRIO_LOG_DEBUG, "collecting static info of modem\n");
  prv_read_file(parse::kReadIccidCommand);

  const bool file_exists = static_cast<bool>(InputFile(kStaticInfoFile));
  if (file_exists && force == 0) return BRIO_STATUS_OK;
  if (file_exists && briolib_get_sim_info_md5_status() == 0) {
    // A file that cannot be read through leaves the digest unknown: the dump writes the file anew.
    briolib_get_file_md5_hash(DevicePath(kStaticInfoFile).c_str(), g_sim_info_hash);
    briolib_set_sim_info_md5_status(1);
  }

  for (size_t i = 0; i < sizeof(kReadFiles) / sizeof(kReadFiles[0]); i++) {
    uint32_t result = prv_read_file(kReadFiles[i]);
    if (result != BLPKT_STATUS_SUCCESS && i < kNeededFiles) return BRIO_STATUS_OK;
  }
  briolib_log_dump_static_info();
  return BRIO_STATUS_OK;
}

uint32_t briolib_get_sim_info_md5_status(void) {
  return relaxed_load(s_sim_info_md5_status) != 0 ? 1 : 0;
}

void briolib_set_sim_info_md5_status(uint32_t value) {
  relaxed_store(s_sim_info_md5_status, value);
}
