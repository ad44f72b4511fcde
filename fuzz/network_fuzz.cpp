// The parsers of registration, reject, serving network, stored selection and network scan from any bytes. The
// text stands in a heap block that ends with its NUL, so that a sanitizer sees every step beyond it.
//
// Input: which parser (1 byte: "8" for a scan, "0" to "7" in the order below), then the text behind the
// result name, or the whole line.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include "parse/manual_selection.h"
#include "parse/registration.h"
#include "parse/reject.h"
#include "parse/scan_list.h"
#include "parse/serving.h"

namespace {

using namespace brio::parse;

void require(bool holds) {
  if (!holds) abort();
}

template <size_t N>
void require_text(const char (&text)[N]) {
  require(strnlen(text, N) < N);
}

// A writable copy of the text up to its first NUL.
class Text {
 public:
  Text(const uint8_t* data, size_t size)
      : length_(strnlen(reinterpret_cast<const char*>(data), size)), bytes_(new char[length_ + 1]) {
    memcpy(bytes_.get(), data, length_);
    bytes_[length_] = '\0';
  }
  char* get() { return bytes_.get(); }
  size_t length() const { return length_; }
  uint32_t commas() const {
    return static_cast<uint32_t>(std::count(bytes_.get(), bytes_.get() + length_, ','));
  }

 private:
  size_t length_;
  std::unique_ptr<char[]> bytes_;
};

void fuzz_registration(Text text, bool is_query, bool with_band) {
  const uint32_t commas = text.commas();
  const Registration line = parse_registration(text.get(), is_query, with_band);
  require(line.token_count == commas + 1);
  require_text(line.summary);
  require((line.fields & kRegBand) == 0 || (with_band && line.band_place));
  require(line.band_place == (with_band && line.token_count > (is_query ? 5u : 4u)));
  // The tokens lie behind one another and fill the text.
  const char* token = text.get();
  for (uint32_t i = 0; i < line.token_count; i++) token += strlen(token) + 1;
  require(token == text.get() + text.length() + 1);
}

void fuzz_reject(Text text) {
  const uint32_t commas = text.commas();
  const RejectReport report = parse_reject(text.get());
  require(commas >= 4 || (report.fields & kRejectMnc) == 0);
  require(commas >= 1 || report.fields == 0);
  require(!is_fatal_reject(report.procedure, report.cause) || (report.fields & kRejectCause) != 0);
}

void fuzz_cops(Text text) {
  const CopsAnswer answer = parse_cops(text.get());
  require(answer.mode >= -1 && answer.mode <= 1);
  require_text(answer.mcc);
  require_text(answer.mnc);
  const bool found = answer.result == CopsResult::kOk;
  require(strlen(answer.mcc) == (found ? 3u : 0u));
  require(found ? strlen(answer.mnc) >= 2 : answer.mnc[0] == '\0');
}

void fuzz_cell(Text text) {
  const ServingCell cell = parse_serving_cell(text.get());
  require_text(cell.plmn_text);
  require_text(cell.band_text);
  require((cell.fields & kCellTac) == 0 || cell.rat == 8);
  require((cell.fields & (kCellLac | kCellTac)) != (kCellLac | kCellTac));
}

void fuzz_selection(Text text) {
  ManualSelection selection = {};
  if (!parse_manual_selection(text.get(), &selection)) return;
  require(selection.timeout_seconds >= 0);
  require(selection.command > text.get() && selection.command < text.get() + text.length());
  require(*selection.command != '\0' && strchr(selection.command, '\n') == nullptr);
}

void fuzz_plmn(const uint8_t* data, size_t size) {
  if (size < 3) return;
  char mcc[4];
  char mnc[4];
  plmn_to_text(data, mcc, mnc);
  require_text(mcc);
  require_text(mnc);
  uint8_t back[3];
  text_to_plmn(mcc, mnc, back);
  Text text(data, size);
  text_to_plmn(text.get(), text.get(), back);
}

// Entries that the scan keeps stay as they were while the rest of the line is cut up.
void fuzz_scan(Text text) {
  ScanList list;
  if (start_scan(text.get(), &list) != kScanOk) return;
  char early[4096];
  char late[4096];
  size_t early_length = 0;
  size_t late_length = 0;
  ScanEntry kept[kScanEntriesMax];
  size_t count = 0;
  for (size_t steps = 0; count < kScanEntriesMax; steps++) {
    require(steps <= text.length());
    ScanEntry entry;
    ScanFault fault;
    ScanStep step = next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) break;
    require((step == ScanStep::kError) == (fault.error != kScanOk));
    if (step != ScanStep::kEntry) continue;
    require(strlen(entry.mcc) == 3 && strlen(entry.mnc) >= 2 && strlen(entry.access_technology) > 0);
    require(strcmp(entry.long_name, "\"\"") == 0 || strcmp(entry.short_name, "\"\"") == 0);
    if (!append_scan_entry(entry, early, sizeof(early), &early_length)) break;
    kept[count++] = entry;
  }
  for (size_t i = 0; i < count; i++) {
    require(append_scan_entry(kept[i], late, sizeof(late), &late_length));
  }
  require(early_length == late_length && memcmp(early, late, late_length) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 65536) return 0;
  const uint8_t* rest = data + 1;
  const size_t length = size - 1;
  if (data[0] == '8') {
    fuzz_scan(Text(rest, length));
    return 0;
  }
  switch (data[0] % 8) {
    case 0:
      for (bool is_query : {false, true}) {
        for (bool with_band : {false, true}) fuzz_registration(Text(rest, length), is_query, with_band);
      }
      break;
    case 1:
      is_usim_refresh(Text(rest, length).get());
      break;
    case 2:
      fuzz_reject(Text(rest, length));
      break;
    case 3:
      fuzz_cops(Text(rest, length));
      break;
    case 4:
      fuzz_cell(Text(rest, length));
      break;
    case 5: {
      const LteInfo info = parse_lte_info(Text(rest, length).get());
      require_text(info.mcc);
      require_text(info.mnc);
      parse_protocol_states(Text(rest, length).get());
      int32_t zone;
      parse_clock_zone(Text(rest, length).get(), &zone);
      break;
    }
    case 6:
      fuzz_selection(Text(rest, length));
      break;
    default:
      fuzz_plmn(rest, length);
      break;
  }
  return 0;
}
