// Serving and home network, and the file in which a change of country is noticed across restarts.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "base/files.h"
#include "base/paths.h"
#include "base/text.h"
#include "host/module_state.h"

using namespace brio;

namespace {

constexpr char kGetMccMnc[] = "wabs_get_mcc_mnc";
constexpr size_t kMccDigits = 3;
constexpr mode_t kMccFileMode = 0600;
// Selects the home PLMN among what brio_get_sim_plmn_info serves.
constexpr uint32_t kHomePlmnSelector = 3;

// brio_get_mcc_mnc fills both texts in one go.
struct PlmnTexts {
  char mcc[4];
  char mnc[4];
};
static_assert(sizeof(PlmnTexts) == 8, "layout of brio_get_mcc_mnc");

// Last valid serving network, empty at load; lives as long as the process. Host thread.
PlmnTexts s_cached;

// Home network, read once per process: also a changed SIM keeps it. Host thread.
uint32_t s_home_cached;
uint32_t s_home_mcc;
uint32_t s_home_mnc;

// 0 for a text that begins with no digit: the modem may send any three characters, and a host may have filled
// the whole field.
uint32_t prv_number(const char (&field)[4]) {
  char digits[sizeof(field)];
  copy_text(digits, field);
  return is_digit(digits[0]) ? static_cast<uint32_t>(decimal(digits)) : 0;
}

bool prv_known(const char* text) {
  return strcmp(text, BRIO_PLMN_UNKNOWN) != 0;
}

bool prv_three_digits(const char* mcc) {
  return strlen(mcc) == kMccDigits && strspn(mcc, "0123456789") == kMccDigits;
}

void prv_cannot_open() {
  MODULE_E("brio:openfile:name=\"%s\",errno=%d:can't open file", kMccFile, errno);
}

// True when the file does not hold `mcc`; a file that cannot be read counts as unchanged, so that it is left
// alone.
bool prv_differs_from_file(const char* mcc) {
  InputFile file(open_input(DevicePath(kMccFile).c_str()));
  if (!file && errno == ENOENT) {
    MODULE_D_OF("prv_report_mcc_change", WABS_LOG_FLOW, "def:current MCC = %s no previous MCC", mcc);
    return true;
  }
  if (!file) {
    prv_cannot_open();
    return false;
  }
  errno = 0;  // a file that is too short sets none
  char previous[kMccDigits + 1] = {};
  if (file.read(previous, kMccDigits) != kMccDigits) {
    MODULE_E("brio:readfile:name=\"%s\",errno=%d:can't read file", kMccFile, errno);
    return false;
  }
  MODULE_D_OF("prv_report_mcc_change", WABS_LOG_FLOW, "def:current MCC = %s previous MCC = %s", mcc,
              previous);
  return memcmp(mcc, previous, kMccDigits) != 0;
}

void prv_report_mcc_change(const char* mcc) {
  // The file holds three digits and is rewritten in place: a shorter text would leave a digit of the old one.
  if (!prv_three_digits(mcc) || !prv_differs_from_file(mcc)) return;
  MODULE_I("brio:mccchanged:mcc=%s:mcc has changed", mcc);
  Descriptor file(open_output(kMccFile, O_WRONLY, kMccFileMode));
  if (!file.valid()) {
    prv_cannot_open();
  } else if (write_all(file.get(), mcc, kMccDigits) != kMccDigits) {
    MODULE_E("brio:writefile:name=\"%s\",errno=%d:can't write file", kMccFile, errno);
    // A file that is too short cannot be read, so it would never be written again.
    if (lseek(file.get(), 0, SEEK_END) < static_cast<off_t>(kMccDigits)) {
      unlink(DevicePath(kMccFile).c_str());
    }
  }
}

void prv_update_mcc(const char (&updated)[4], uint32_t* mcc) {
  if (!prv_known(updated)) {
    MODULE_D_OF(kGetMccMnc, WABS_LOG_FLOW, "brio:UPDATED MCC is Invalid");
    return;
  }
  if (strcmp(updated, s_cached.mcc) != 0) {
    MODULE_D_OF(kGetMccMnc, WABS_LOG_FLOW, "brio:UPDATED MCC %s CACHED MCC %sDIFFER", updated, s_cached.mcc);
    prv_report_mcc_change(updated);
    copy_text(s_cached.mcc, updated);
  }
  *mcc = prv_number(updated);
  MODULE_D_OF(kGetMccMnc, WABS_LOG_VALUE, "brio:UPDATED MCC=%d", *mcc);
}

void prv_update_mnc(const char (&updated)[4], uint32_t* mnc) {
  if (!prv_known(updated)) {
    MODULE_D_OF(kGetMccMnc, WABS_LOG_FLOW, "brio:UPDATED MNC is Invalid");
    return;
  }
  if (strcmp(updated, s_cached.mnc) != 0) {
    MODULE_D_OF(kGetMccMnc, WABS_LOG_FLOW, "brio:UPDATED MNC %s and CACHED MNC %sDIFFER", updated,
                s_cached.mnc);
    copy_text(s_cached.mnc, updated);
  }
  *mnc = prv_number(updated);
  MODULE_D_OF(kGetMccMnc, WABS_LOG_VALUE, "brio:UPDATED MNC=%d", *mnc);
}

}  // namespace

uint32_t wabs_get_mcc_mnc(uint32_t* mcc, uint32_t* mnc) {
  MODULE_ENTER();
  if (mcc == nullptr || mnc == nullptr) MODULE_RETURN(WABS_STATUS_NULL_POINTER);
  MODULE_D(WABS_LOG_FLOW, "brio:getting mcc and mnc to see if it has changed");

  if (relaxed_load(g_module.mcc_mnc_refresh) == 0) {
    *mcc = prv_number(s_cached.mcc);
    *mnc = prv_number(s_cached.mnc);
    MODULE_D(WABS_LOG_VALUE, "brio:CACHED MCC/MNC=%d-%d", *mcc, *mnc);
    MODULE_RETURN(WABS_STATUS_OK);
  }

  // Cleared before the library is asked: a change that comes in between asks again.
  relaxed_store(g_module.mcc_mnc_refresh, 0u);
  char texts[sizeof(PlmnTexts)] = {};
  uint32_t status = brio_get_mcc_mnc(texts);
  if (!succeeded("mcc_mnc", status)) {
    relaxed_store(g_module.mcc_mnc_refresh, 1u);
    MODULE_RETURN(WABS_STATUS_LIBRARY_FAILURE);
  }
  PlmnTexts updated;
  memcpy(&updated, texts, sizeof(updated));
  prv_update_mcc(updated.mcc, mcc);
  prv_update_mnc(updated.mnc, mnc);
  MODULE_RETURN(WABS_STATUS_OK);
}

uint32_t wabs_get_hplmn_mcc_mnc(uint32_t* mcc, uint32_t* mnc) {
  MODULE_ENTER();
  if (mcc == nullptr || mnc == nullptr) MODULE_RETURN(WABS_STATUS_NULL_POINTER);
  MODULE_D(WABS_LOG_FLOW, "brio:getting HPLMN mcc and mnc");

  uint32_t result = WABS_STATUS_OK;
  if (s_home_cached == 0) {
    sim_plmn_data record = {};
    if (succeeded("plmn_info", brio_get_sim_plmn_info(&record, kHomePlmnSelector))) {
      s_home_mcc = prv_number(record.home_mcc);
      s_home_mnc = prv_number(record.home_mnc);
      s_home_cached = 1;
    } else {
      result = WABS_STATUS_LIBRARY_FAILURE;
    }
  }
  if (result == WABS_STATUS_OK) {
    *mcc = s_home_mcc;
    *mnc = s_home_mnc;
  }
  MODULE_D(WABS_LOG_FLOW, "brio:HPLMN mcc[%d] mnc[%d]", s_home_mcc, s_home_mnc);
  MODULE_RETURN(result);
}
