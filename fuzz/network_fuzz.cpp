// The parsers of registration, reject, serving network, stored selection, network scan, bars, antennas and
// network time from any bytes. The text stands in a heap block that ends with its NUL.
//
// Input: which parser ("0" to "<", in the order of kParsers), then the text behind the result name, or the
// whole line.
#include <vector>

#include "fuzz.h"
#include "parse/bars.h"
#include "parse/bas.h"
#include "parse/manual_selection.h"
#include "parse/registration.h"
#include "parse/reject.h"
#include "parse/scan_list.h"
#include "parse/serving.h"
#include "parse/time_report.h"

namespace fuzz {

using namespace brio::parse;

void fuzz_registration(Bytes bytes) {
  for (const int choice : {0, 1, 2, 3}) {
    const bool is_query = (choice & 1) != 0, with_band = (choice & 2) != 0;
    Text text(bytes);
    const Registration line = parse_registration(text.get(), is_query, with_band);
    registration_summary(line, Field<kRegistrationSummarySize>());
    require(!line.band || (with_band && *line.band >= 1 && *line.band <= 1900));
    require(!line.reject_cause || text.commas >= 5u + is_query + with_band);
  }
}

void fuzz_refresh(Bytes bytes) {
  Text text(bytes);
  require(!is_usim_refresh(text.get()) || text.length() >= kProactiveCommandMin);
}

void fuzz_reject(Bytes bytes) {
  Text text(bytes);
  const RejectReport report = parse_reject(text.get());
  require(text.commas >= 4 || !report.mnc);
  require(text.commas >= 1 || !report.procedure);
  const bool fatal = is_fatal_reject(report.procedure.value_or(0), report.cause.value_or(0));
  require(!fatal || (report.procedure && report.cause));
}

void fuzz_cops(Bytes bytes) {
  CopsAnswer answer;
  const bool found = parse_cops(Text(bytes.substr(0, kCopsTextMax)).get(), &answer) == CopsResult::kOk;
  require(!answer.mode || (*answer.mode >= -1 && *answer.mode <= 1));
  require_text(answer.mcc, answer.mnc);
  require(strlen(answer.mcc) == (found ? 3u : 0u));
  require(found ? strlen(answer.mnc) >= 2 : answer.mnc[0] == '\0');
}

void fuzz_cell(Bytes bytes) {
  Text text(bytes);
  const ServingCell cell = parse_serving_cell(text.get());
  require(text.holds(cell.plmn_text) && text.holds(cell.band_text));
  require(!cell.tac || (cell.rat == 8 && !cell.lac));
}

void fuzz_states(Bytes bytes) {
  Text text(bytes);
  const LteInfo info = parse_lte_info(text.get());
  require(text.holds(info.mcc) && text.holds(info.mnc));
  require(text.commas >= 5 || !parse_protocol_states(Text(bytes).get()).rrc);
}

void fuzz_selection(Bytes bytes) {
  Text text(bytes);
  const std::optional<ManualSelection> selection = parse_manual_selection(text.get());
  if (!selection) return;
  require(selection->command > text.get() && text.holds(selection->command));
  require(*selection->command != '\0' && strchr(selection->command, '\n') == nullptr);
}

void fuzz_plmn(Bytes bytes) {
  if (bytes.size() < 3) return;
  const auto* plmn = reinterpret_cast<const uint8_t*>(bytes.data());
  Field<4> mcc;
  Field<4> mnc;
  plmn_to_text(plmn, mcc, mnc);
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
  struct Written {
    char text[4096];
    size_t length = 0;
    Bytes written() const { return {text, length}; }
    bool add(const ScanEntry& entry) { return append_scan_entry(entry, text, sizeof(text), &length); }
  } early, late;
  std::vector<ScanEntry> kept;
  for (size_t steps = 0; kept.size() < kScanEntriesMax; steps++) {
    require(steps <= text.length());
    ScanEntry entry;
    ScanFault fault;
    const ScanStep step = next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) break;
    require((step == ScanStep::kError) == (fault.error != kScanOk));
    if (step != ScanStep::kEntry) continue;
    require(strlen(entry.mcc) == 3 && strlen(entry.mnc) >= 2 && strlen(entry.access_technology) > 0);
    require(strcmp(entry.long_name, "\"\"") == 0 || strcmp(entry.short_name, "\"\"") == 0);
    if (!early.add(entry)) break;
    kept.push_back(entry);
  }
  for (const ScanEntry& entry : kept) require(late.add(entry));
  require(early.written() == late.written());
  require(early.length <= text.length() + kScanEntryGrowth * kept.size());
  if (kept.empty()) return;
  // Marking the current network changes at most one character.
  mark_current_network(late.text, kept.back().mcc, kept.back().mnc, kept.back().access_technology);
  const size_t place = std::mismatch(early.text, early.text + early.length, late.text).first - early.text;
  if (place == early.length) return;
  require(early.text[place] == '1' && late.text[place] == '2');
  require(early.written().substr(place + 1) == late.written().substr(place + 1));
}

void fuzz_clock(Bytes bytes) {
  parse_clock_zone(Text(bytes).get());
  for (auto parse : {parse_ctzv, parse_ciev}) {
    Text text(bytes);
    const TimeReport report = parse(text.get());
    require(report.parts >= 0 && report.parts <= 6 && report.time.spare == 0xFF);
    require(report.outcome != TimeOutcome::kComplete || report.parts == 6);
    for (const char* field : {report.zone, report.dst, report.date, report.clock, report.rest}) {
      require(text.holds(field) || *field == '\0');
    }
  }
}

void fuzz_bars(Bytes bytes) {
  for (bool is_answer : {false, true}) {
    Text text(bytes);
    const BarsReport report = parse_bars(text.get(), is_answer);
    require(text.commas >= 3u + is_answer || !report.ecno);
  }
}

void fuzz_antennas(Bytes bytes) {
  for (bool is_answer : {false, true}) {
    Text text(bytes);
    const BasReport report = parse_bas(text.get(), is_answer);
    require(text.commas >= 2 || !report.antenna);
  }
}

constexpr void (*kParsers[])(Bytes) = {fuzz_registration, fuzz_refresh, fuzz_reject,    fuzz_cops,
                                       fuzz_cell,         fuzz_states,  fuzz_selection, fuzz_plmn,
                                       fuzz_scan,         fuzz_clock,   fuzz_bars,      fuzz_antennas};

void run(Input in) {
  run_parser(kParsers, '0', in);
}

}  // namespace fuzz
