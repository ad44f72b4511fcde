// The SIM's elementary files that make up the static information: read into the SIM blocks, then dumped.
#include <stddef.h>

#include "base/files.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/relaxed.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/request.h"
#include "parse/sim_file.h"
#include "services/static_info.h"

constexpr char kLogTag[] = "briolib/src/brio_sim";

using namespace brio;

namespace {

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

// Runs on the read thread. `user_data` is the command, which tells the parser whose contents the line holds.
uint32_t recv_func_prv_briolib_get_crsm(const ATResponse* response, void* user_data, uint16_t) {
  char* line = answer_line(response);
  if (line == nullptr) {
    BLIB_E("recv_func_prv_briolib_get_crsm::response is invalid\n");
    return BRIO_STATUS_INVALID;
  }
  BLIB_D(BRIO_LOG_DEBUG, "get crsm [%s]\n",
         parse::crsm_log_text(line, static_cast<const char*>(user_data)).c_str());
  return at_parse(skip_spaces(line), user_data, nullptr);
}

uint32_t prv_read_file(const char* command) {
  // The parser takes a copy of the command; it travels as an untyped pointer.
  return query(command, SINGLELINE, "+CRSM", recv_func_prv_briolib_get_crsm, const_cast<char*>(command));
}

}  // namespace

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
