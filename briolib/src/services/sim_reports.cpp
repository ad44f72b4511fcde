// SIM results: card status, ICCID, elementary files.
#include <stddef.h>
#include <string.h>

#include "base/log.h"
#include "base/log_text.h"
#include "base/text.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "parse/sim.h"
#include "reports/report_table.h"

constexpr char kLogTag[] = "briolib/src/at_parse";

namespace brio {
namespace {

using parse::CrsmOutcome;
using parse::SimFile;

template <size_t N>
void prv_store_text(char (sim_info_data::*field)[N], const char* text) {
  StaticDataLock lock;
  copy_text(g_sim_info.*field, text);
}

// Entries beyond the capacity are counted, not kept.
uint16_t prv_fill_plmn_values(const char* cursor, plmn_entry* list, size_t capacity,
                              bool with_access_technology) {
  BLIB_D(BRIO_LOG_PARSE, "prv_fill_plmn_values = %s\n", masked_sim_file(cursor, false).c_str());
  uint16_t count = 0;
  plmn_entry entry;
  while (parse::next_plmn(&cursor, with_access_technology, &entry)) {
    if (count < capacity) list[count] = entry;
    count++;
    BLIB_D(BRIO_LOG_DEBUG, "mcc = %s\n", entry.mcc);
    BLIB_D(BRIO_LOG_DEBUG, "mnc = %s\n", entry.mnc);
    BLIB_D(BRIO_LOG_DEBUG, "act = %d\n", entry.access_tech);
  }
  BLIB_D(BRIO_LOG_DEBUG, "prv_fill_plmn_values num plmns = %d\n", count);
  return count;
}

// The list is replaced whole; its count may exceed its capacity.
template <size_t N>
void prv_store_list(const char* name, const char* data, bool with_access_technology,
                    plmn_entry (sim_plmn_data::*list)[N], uint16_t sim_plmn_data::*count) {
  BLIB_D(BRIO_LOG_DEBUG, "Updating %s \n", name);
  plmn_entry entries[N] = {};
  uint16_t decoded = prv_fill_plmn_values(data, entries, N, with_access_technology);
  StaticDataLock lock;
  memcpy(g_sim_plmn.*list, entries, sizeof(entries));
  g_sim_plmn.*count = decoded;
}

void prv_store_file(SimFile file, const char* data, const char* command) {
  switch (file) {
    case SimFile::kUserPlmn:
      prv_store_list("UPLMN", data, true, &sim_plmn_data::uplmn, &sim_plmn_data::uplmn_count);
      break;
    case SimFile::kOperatorPlmn:
      prv_store_list("OPLMN", data, true, &sim_plmn_data::oplmn, &sim_plmn_data::oplmn_count);
      break;
    case SimFile::kHomePlmn:
      prv_store_list("HPLMN", data, true, &sim_plmn_data::hplmn, &sim_plmn_data::hplmn_count);
      break;
    case SimFile::kEpsLocation:
      BLIB_D(BRIO_LOG_DEBUG, "Updating epsloci: %s\n", masked_sim_file(data, false).c_str());
      prv_store_text(&sim_info_data::epsloci, data);
      break;
    case SimFile::kPsLocation:
      BLIB_D(BRIO_LOG_DEBUG, "Updating psloci: %s\n", masked_sim_file(data, false).c_str());
      prv_store_text(&sim_info_data::psloci, data);
      break;
    case SimFile::kForbiddenPlmn:
      prv_store_list("fplmn", data, false, &sim_plmn_data::fplmn, &sim_plmn_data::fplmn_count);
      break;
    case SimFile::kLocation:
      BLIB_D(BRIO_LOG_DEBUG, "Updating loci:  %s \n", masked_sim_file(data, false).c_str());
      prv_store_text(&sim_info_data::loci, data);
      break;
    case SimFile::kEquivalentHomePlmn:
      prv_store_list("ehplmn", data, true, &sim_plmn_data::ehplmn, &sim_plmn_data::ehplmn_count);
      break;
    case SimFile::kIccid: {
      BLIB_D(BRIO_LOG_DEBUG, "Updating iccid \n");
      char iccid[parse::kIccidSize];
      parse::iccid_from_file(data, iccid);
      prv_store_text(&sim_info_data::iccid, iccid);
      BLIB_D(BRIO_LOG_DEBUG, "sim_info_data.iccid =  %s\n", briolib_obfuscate_numeral(iccid, '*'));
      break;
    }
    case SimFile::kOther:
      BLIB_E("prv_at_parse_crsm:unhandled command_data = %s:\n", command);
      break;
  }
}

}  // namespace

void report_gtsimstatus(char* rest, void* /*argument_a*/, void* argument_b) {
  BLIB_D(BRIO_LOG_PARSE, "prv_at_parse_gtsimstatus %s\n", rest);
  auto* record = static_cast<sim_card_status*>(argument_b);
  // A rest of one character is only the blank after the colon. An unsolicited line has no record.
  if (rest[0] == '\0' || rest[1] == '\0' || record == nullptr) {
    BLIB_E("prv_at_parse_gtsimstatus:line_ptr is invalid:\n");
    return;
  }
  const parse::SimStatus status = parse::parse_sim_status(rest);
  BLIB_D(BRIO_LOG_DEBUG, "card_status: %s\n", status.card_text);
  if (status.card) record->card_status = static_cast<uint32_t>(*status.card);
  if (status.lock_text == nullptr) return;
  BLIB_D(BRIO_LOG_DEBUG, "Lock_status: %s\n", status.lock_text);
  if (status.lock) record->lock_status = static_cast<uint32_t>(*status.lock);
}

void report_ccid(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_DEBUG, "prv_briolib_get_iccid called iccid_line = %s\n", masked_identity(rest).c_str());
  char iccid[sizeof(sim_info_data::iccid)];
  parse::iccid_from_line(rest, iccid);
  prv_store_text(&sim_info_data::iccid, iccid);
  BLIB_D(BRIO_LOG_DEBUG, "sim_info_data.iccid: %s\n", briolib_obfuscate_numeral(iccid, '*'));
}

void report_crsm(char* rest, void* argument_a, void* /*argument_b*/) {
  const char* command = static_cast<const char*>(argument_a);
  if (command == nullptr || *command == '\0' || *rest == '\0') {
    BLIB_E("prv_at_parse_crsm:command_data or line_ptr is invalid:\n");
    return;
  }
  SimFile file = parse::crsm_file(command);
  const bool is_iccid = file == SimFile::kIccid;
  BLIB_D(BRIO_LOG_DEBUG, "crsm:%s\n", masked_sim_file(rest, is_iccid).c_str());

  parse::CrsmAnswer answer;
  CrsmOutcome outcome = parse::parse_crsm(rest, &answer);
  if (outcome == CrsmOutcome::kNoStatusWords) {
    BLIB_E("prv_at_parse_crsm:sw1 or sw2 null:\n");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "crsm, sw1[%s] sw2[%s]\n", masked_sim_file(answer.sw1, is_iccid).c_str(),
         masked_sim_file(answer.sw2, is_iccid).c_str());
  if (outcome == CrsmOutcome::kRefused) {
    BLIB_E("prv_at_parse_crsm:sw1 and sw2 error:\n");
  } else if (outcome == CrsmOutcome::kNoEndQuote) {
    BLIB_E("prv_at_parse_crsm:no  at the end of the string:\n");
  } else {
    prv_store_file(file, answer.data, command);
  }
}

}  // namespace brio
