// The parsers of registration, reject, serving network, stored selection, network scan, bars, antennas and
// network time from any bytes. The text stands in a heap block that ends with its NUL.
//
// Input: which parser ("0" to "<", in the order of kParsers), then the text behind the result name, or the
// whole line.
#include <algorithm>

#include "fuzz.h"
#include "parse/bars.h"
#include "parse/bas.h"
#include "parse/manual_selection.h"
#include "parse/registration.h"
#include "parse/reject.h"
#include "parse/scan_list.h"
#include "parse/serving.h"
#include "parse/time_report.h"

namespace {

using namespace brio::parse;
using fuzz::require;
using fuzz::require_text;
using fuzz::Text;
using Bytes = std::string_view;

uint32_t commas(Text& text) {
  return static_cast<uint32_t>(std::count(text.get(), text.get() + text.length(), ','));
}

bool inside(Text& text, const char* place) {
  return place == nullptr || *place == '\0' || (place >= text.get() && place < text.get() + text.length());
}

void fuzz_registration(Bytes bytes) {
  for (const int choice : {0, 1, 2, 3}) {
    const bool is_query = (choice & 1) != 0;
    const bool with_band = (choice & 2) != 0;
    Text text(bytes);
    const uint32_t separators = commas(text);
    const Registration line = parse_registration(text.get(), is_query, with_band);
    require(line.token_count == separators + 1);
    require_text(line.summary);
    require((line.fields & kRegBand) == 0 || (line.band_place && line.band >= 1 && line.band <= 1900));
    require(line.band_place == (with_band && line.token_count > (is_query ? 5u : 4u)));
    // The tokens lie behind one another and fill the text.
    const char* token = text.get();
    for (uint32_t i = 0; i < line.token_count; i++) token += strlen(token) + 1;
    require(token == text.get() + text.length() + 1);
  }
}

void fuzz_refresh(Bytes bytes) {
  Text text(bytes);
  require(!is_usim_refresh(text.get()) || text.length() >= kProactiveCommandMin);
}

void fuzz_reject(Bytes bytes) {
  Text text(bytes);
  const uint32_t separators = commas(text);
  const RejectReport report = parse_reject(text.get());
  require(separators >= 4 || (report.fields & kRejectMnc) == 0);
  require(separators >= 1 || report.fields == 0);
  require(!is_fatal_reject(report.procedure, report.cause) || (report.fields & kRejectCause) != 0);
}

void fuzz_cops(Bytes bytes) {
  const CopsAnswer answer = parse_cops(Text(bytes).get());
  require(answer.mode >= -1 && answer.mode <= 1);
  require_text(answer.mcc);
  require_text(answer.mnc);
  const bool found = answer.result == CopsResult::kOk;
  require(strlen(answer.mcc) == (found ? 3u : 0u));
  require(found ? strlen(answer.mnc) >= 2 : answer.mnc[0] == '\0');
}

void fuzz_cell(Bytes bytes) {
  const ServingCell cell = parse_serving_cell(Text(bytes).get());
  require_text(cell.plmn_text);
  require_text(cell.band_text);
  require((cell.fields & kCellTac) == 0 || cell.rat == 8);
  require((cell.fields & (kCellLac | kCellTac)) != (kCellLac | kCellTac));
}

void fuzz_states(Bytes bytes) {
  const LteInfo info = parse_lte_info(Text(bytes).get());
  require_text(info.mcc);
  require_text(info.mnc);
  require(parse_protocol_states(Text(bytes).get()).fields < 1u << kProtocolStateCount);
}

void fuzz_selection(Bytes bytes) {
  Text text(bytes);
  ManualSelection selection = {};
  if (!parse_manual_selection(text.get(), &selection)) return;
  require(selection.timeout_seconds >= 0);
  require(selection.command > text.get() && inside(text, selection.command));
  require(*selection.command != '\0' && strchr(selection.command, '\n') == nullptr);
}

void fuzz_plmn(Bytes bytes) {
  if (bytes.size() < 3) return;
  const auto* plmn = reinterpret_cast<const uint8_t*>(bytes.data());
  char mcc[4];
  char mnc[4];
  plmn_to_text(plmn, mcc, mnc);
  require_text(mcc);
  require_text(mnc);
  uint8_t back[3];
  text_to_plmn(mcc, mnc, back);
  const bool decimal = strspn(mcc, "0123456789") == 3 && strspn(mnc, "0123456789") == strlen(mnc);
  require(!decimal || memcmp(plmn, back, sizeof(back)) == 0);
  Text text(bytes);
  text_to_plmn(text.get(), text.get(), back);
}

// Entries that the scan keeps stay as they were while the rest of the line is cut up.
void fuzz_scan(Bytes bytes) {
  Text text(bytes);
  ScanList list;
  if (start_scan(text.get(), &list) != kScanOk) return;
  static char early[4096];
  static char late[4096];
  size_t early_length = 0;
  size_t late_length = 0;
  ScanEntry kept[kScanEntriesMax];
  size_t count = 0;
  for (size_t steps = 0; count < kScanEntriesMax; steps++) {
    require(steps <= text.length());
    ScanEntry entry;
    ScanFault fault;
    const ScanStep step = next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) break;
    require((step == ScanStep::kError) == (fault.error != kScanOk));
    if (step != ScanStep::kEntry) continue;
    require(strlen(entry.mcc) == 3 && strlen(entry.mnc) >= 2 && strlen(entry.access_technology) > 0);
    require(strcmp(entry.long_name, "\"\"") == 0 || strcmp(entry.short_name, "\"\"") == 0);
    if (!append_scan_entry(entry, early, sizeof(early), &early_length)) break;
    kept[count++] = entry;
  }
  for (size_t i = 0; i < count; i++) require(append_scan_entry(kept[i], late, sizeof(late), &late_length));
  require(early_length == late_length && memcmp(early, late, late_length) == 0);
  if (count == 0) return;
  // Marking the current network changes at most one character.
  mark_current_network(late, kept[count - 1].mcc, kept[count - 1].mnc, kept[count - 1].access_technology);
  size_t changed = 0;
  for (size_t i = 0; i <= early_length; i++) {
    if (early[i] == late[i]) continue;
    require(early[i] == '1' && late[i] == '2');
    changed++;
  }
  require(changed <= 1);
}

void fuzz_clock(Bytes bytes) {
  int32_t zone = 0;
  parse_clock_zone(Text(bytes).get(), &zone);
  for (auto parse : {parse_ctzv, parse_ciev}) {
    Text text(bytes);
    const TimeReport report = parse(text.get());
    require(report.fields < 1u << 8 && report.time.spare == 0xFF);
    require(report.outcome != TimeOutcome::kComplete || (report.fields & (kTimeYear | kTimeSecond)) != 0);
    require(inside(text, report.zone) && inside(text, report.dst) && inside(text, report.rest));
    require((report.fields & kTimeYear) == 0 || inside(text, report.date));
    require((report.fields & kTimeHour) == 0 || inside(text, report.clock));
  }
}

void fuzz_bars(Bytes bytes) {
  for (auto parse : {parse_bars_answer, parse_bars_report}) {
    Text text(bytes);
    const uint32_t separators = commas(text);
    const BarsReport report = parse(text.get());
    require(__builtin_popcount(report.fields) <= static_cast<int>(separators) + 1);
    require(parse == parse_bars_answer || (report.fields & kBarsMode) == 0);
  }
}

void fuzz_antennas(Bytes bytes) {
  for (bool is_answer : {false, true}) {
    Text text(bytes);
    const uint32_t separators = commas(text);
    const BasReport report = parse_bas(text.get(), is_answer);
    require(separators >= 2 || (report.fields & kBasAntenna) == 0);
    require((report.fields & kBasValueB) != 0 || report.value_b == 0);
  }
}

constexpr void (*kParsers[])(Bytes) = {fuzz_registration, fuzz_refresh, fuzz_reject,    fuzz_cops,
                                       fuzz_cell,         fuzz_states,  fuzz_selection, fuzz_plmn,
                                       fuzz_scan,         fuzz_clock,   fuzz_bars,      fuzz_antennas};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  const auto parser = static_cast<uint8_t>(in.byte() - '0');
  kParsers[parser % std::size(kParsers)](in.rest());
  return 0;
}
