// Network scan, its abort, automatic selection, and the network that the device is on.
#include <string.h>

#include <algorithm>

#include "base/clock.h"
#include "base/log.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio_common/library_state.h"
#include "brio_common/shared_data.h"
#include "channel/brio_blpkt.h"
#include "channel/request.h"
#include "parse/modem_config.h"
#include "parse/scan_list.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

using parse::kScanEntriesMax;
using parse::ScanEntry;
using parse::ScanFault;
using parse::ScanStep;

constexpr int32_t kScanTimeoutSeconds = 300;
constexpr unsigned kPauseMs = 1000;
constexpr char kUnknownRat[] = "F";

// The whole list of the longest answer; the last of the entries is never listed.
static_assert(BRIO_SCAN_BUFFER_SIZE > BRIO_LINE_DATA_MAX + (kScanEntriesMax - 1) * parse::kScanEntryGrowth);

// The network in use, as a scan's entries name it.
struct CurrentNetwork {
  char rat[2];
  char mcc[4];
  char mnc[4];
};
constexpr CurrentNetwork kUnknownNetwork = {"F", BRIO_PLMN_UNKNOWN, BRIO_PLMN_UNKNOWN};
CurrentNetwork s_current_network = kUnknownNetwork;  // guarded by the URC-data mutex

// The list, until the request has succeeded: the caller's buffer is written for a scan that returns 0 only.
struct ScanTarget {
  char text[BRIO_SCAN_BUFFER_SIZE];
  size_t used;  // length of the text; 0: no entry fitted
};

// Access technologies of a registration in the three families that a scan tells apart.
constexpr char kRatFamilies[] = {'0', 'F', '2', '0', '2', '2', '2', '7'};

// A text for the log with its letters masked; null and empty texts are "NULL".
template <size_t N>
class MaskedLetters {
 public:
  explicit MaskedLetters(const char* text) {
    bool missing = text == nullptr || *text == '\0';
    copy_text(text_, missing ? "NULL" : text);
    if (!missing) briolib_obfuscate_alphabet(text_, '*');
  }
  const char* text() const { return text_; }

 private:
  char text_[N + 1];
};
constexpr size_t kResponseHead = 128;
using MaskedText = MaskedLetters<kResponseHead>;
using MaskedLongName = MaskedLetters<16>;
using MaskedShortName = MaskedLetters<8>;

const char* prv_or_null(const char* text) {
  return text == nullptr || *text == '\0' ? "NULL" : text;
}

// Reports a fault and clears the entry that has it; `entry` may be null.
void prv_briolib_ms_display_err_info(const ScanFault& fault, const char* response, ScanEntry* entry) {
  BLIB_E("prv_briolib_ms_display_err_info:ERR_TOK:%s AT_RSP:%s ERR[%d]:", MaskedText(fault.token).text(),
         MaskedText(response).text(), fault.error);
  if (entry == nullptr) {
    BLIB_E("prv_briolib_ms_display_err_info:MS_CUR: NULL:");
    return;
  }
  BLIB_E("prv_briolib_ms_display_err_info:Cur Scan Entries:%s-%s-%s-%s-%s-%s:",
         MaskedText(entry->stat).text(), MaskedText(entry->mcc).text(), MaskedText(entry->mnc).text(),
         MaskedText(entry->access_technology).text(), MaskedText(entry->long_name).text(),
         MaskedText(entry->short_name).text());
  *entry = {};
}

bool prv_known(const ScanEntry* entries, size_t count, const ScanEntry& entry) {
  return std::any_of(entries, entries + count,
                     [&](const ScanEntry& known) { return parse::same_network(known, entry); });
}

// Fills `entries` from the answer's line; their number. The last of 32 comes back cleared: this is meant.
size_t prv_briolib_ms_parse_results(char* line, ScanEntry (&entries)[kScanEntriesMax]) {
  char response[kResponseHead + 1];
  copy_text(response, line);
  ScanFault fault = {};
  parse::ScanList list;
  fault.error = parse::start_scan(line, &list);
  if (fault.error != parse::kScanOk) {
    prv_briolib_ms_display_err_info(fault, response, nullptr);
    return 0;
  }
  size_t count = 0;
  ScanEntry entry;
  for (;;) {
    ScanStep step = parse::next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) return count;
    if (step == ScanStep::kError) prv_briolib_ms_display_err_info(fault, response, &entry);
    if (step != ScanStep::kEntry || prv_known(entries, count, entry)) continue;
    entries[count++] = entry;
    if (count == kScanEntriesMax) {
      BLIB_E("prv_briolib_ms_parse_results::Number of carrier entries exceeds maximum");
      fault = {parse::kScanTooMany, nullptr};
      prv_briolib_ms_display_err_info(fault, response, &entries[count - 1]);
      return count;
    }
  }
}

void prv_list_entries(const ScanEntry* entries, size_t count) {
  for (size_t i = 0; i < count; i++) {
    const ScanEntry& entry = entries[i];
    BLIB_I("MS_INFO::%zu.%s,%s,%s,%s,%s,%s", i + 1, prv_or_null(entry.stat), prv_or_null(entry.mcc),
           prv_or_null(entry.mnc), prv_or_null(entry.access_technology),
           MaskedLongName(entry.long_name).text(), MaskedShortName(entry.short_name).text());
  }
}

// `size` is that of the caller's buffer.
void prv_briolib_ms_fill_buffer(const ScanEntry* entries, size_t count, ScanTarget* target, size_t size) {
  if (size > sizeof(target->text)) size = sizeof(target->text);
  for (size_t i = 0; i < count; i++) {
    if (entries[i].stat == nullptr) continue;  // the cleared last entry
    if (!parse::append_scan_entry(entries[i], target->text, size, &target->used)) {
      BLIB_E("prv_briolib_ms_fill_buffer::Scan Buffer Full");
      return;
    }
  }
}

// Read thread. `size` is the size of the caller's buffer.
uint32_t recv_func_prv_briolib_parse_scan_results(const ATResponse* response, void* user_data,
                                                  uint16_t size) {
  auto* target = static_cast<ScanTarget*>(user_data);
  if (target == nullptr) {
    BLIB_E("recv_func_prv_briolib_parse_scan_results::Data ptr NULL");
    return BRIO_STATUS_INVALID;
  }
  char* line = answer_line_for("recv_func_prv_briolib_parse_scan_results", response);
  if (line == nullptr) return BRIO_STATUS_INVALID;
  ScanEntry entries[kScanEntriesMax];
  size_t count = prv_briolib_ms_parse_results(line, entries);
  prv_list_entries(entries, count);
  if (count == 0) {
    BLIB_E("recv_func_prv_briolib_parse_scan_results::No Valid carriers found");
    return BRIO_STATUS_INVALID;
  }
  prv_briolib_ms_fill_buffer(entries, count, target, size);
  return BRIO_STATUS_OK;
}

}  // namespace

uint32_t brio_get_current_network(void) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  CurrentNetwork current = kUnknownNetwork;
  uint8_t rat = kRatUnknown;
  {
    UrcDataLock lock;
    rat = g_brio_lib_atcmd_data.rat;
    if (rat != kRatUnknown) {
      current.rat[0] = rat < sizeof(kRatFamilies) ? kRatFamilies[rat] : kUnknownRat[0];
      copy_text(current.mcc, g_brio_lib_atcmd_data.mcc);
      copy_text(current.mnc, g_brio_lib_atcmd_data.mnc);
    }
    s_current_network = current;
  }
  if (rat != kRatUnknown) {
    BLIB_D(BRIO_LOG_DEBUG, "current_mcc %s current_mnc %s current_rat %s", current.mcc, current.mnc,
           current.rat);
  }
  return BRIO_STATUS_OK;
}

uint32_t brio_atcmd_scan_network(char* buffer, uint16_t size) {
  uint32_t status = gate("brio_atcmd_scan_network");
  if (status != BRIO_STATUS_OK) return status;
  if (buffer == nullptr) return BRIO_STATUS_INVALID;
  BLIB_D(BRIO_LOG_DEBUG, "brio_atcmd_scan_network");

  ScanTarget target;
  target.used = 0;
  blpkt_begin_scan();
  status = deregister();
  const bool goes_on = status <= BLPKT_STATUS_TIMEOUT;
  // A modem that was cut off may echo again. An aborted scan does not pause.
  if (status == BLPKT_STATUS_TIMEOUT && switch_echo_off() != BLPKT_STATUS_SCAN_ABORTED) {
    sleep_milliseconds(kPauseMs);
  }
  if (goes_on) {
    status = blpkt_atcmd_request_with_callback_timeout("AT+COPS=?", SINGLELINE, "+COPS",
                                                       recv_func_prv_briolib_parse_scan_results, &target,
                                                       size, kScanTimeoutSeconds);
  }
  if (blpkt_end_scan()) status = BLPKT_STATUS_SCAN_ABORTED;
  if (!goes_on) return briolib_translate_status(status, 0);

  if (status == BLPKT_STATUS_TIMEOUT) switch_echo_off();
  const bool filled = status == BLPKT_STATUS_SUCCESS && target.used > 0;
  if (filled) {
    {
      UrcDataLock lock;
      const CurrentNetwork& current = s_current_network;
      if (strcmp(current.rat, kUnknownRat) != 0) {
        parse::mark_current_network(target.text, current.mcc, current.mnc, current.rat);
      }
    }
    memcpy(buffer, target.text, target.used + 1);
  }
  status = briolib_translate_status(status, 0);
  BLIB_D(BRIO_LOG_DEBUG, "Filled Scan Buffer %s", filled ? buffer : "");
  return status;
}

uint32_t brio_atcmd_scan_abort(void) {
  uint32_t status = gate("brio_atcmd_scan_abort");
  if (status != BRIO_STATUS_OK) return status;
  return briolib_translate_status(send_command("^", NO_RESULT), 0);
}

uint32_t brio_abort_manual_nw_scan(void) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  return briolib_translate_status(blpkt_abort_scan(), 0);
}

uint32_t brio_atcmd_set_auto_mode(void) {
  uint32_t status = gate("brio_atcmd_set_auto_mode");
  if (status != BRIO_STATUS_OK) return status;
  return briolib_translate_status(send_command(parse::kAutomaticSelection, NO_RESULT), 0);
}
