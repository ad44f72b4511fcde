#include "parse/sim.h"

#include <string.h>

#include <utility>

#include "base/fields.h"
#include "base/text.h"
#include "brio/at_text.h"
#include "parse/answer.h"

namespace brio::parse {
namespace {

constexpr size_t kShortIccidLength = 19;
constexpr size_t kShortestImsi = 6;  // MCC, MNC and a subscriber
constexpr const char* kThreeDigitMncNetworks[] = {"310410", "302720"};

constexpr size_t kCommandCapacity = 30;
constexpr size_t kFileIdLength = 5;
constexpr size_t kIccidDigits = kIccidSize - 1;

struct FileRow {
  const char* id;
  SimFile file;
};

constexpr FileRow kFiles[] = {
    {"28512", SimFile::kUserPlmn},   {"28513", SimFile::kOperatorPlmn},
    {"28514", SimFile::kHomePlmn},   {"28643", SimFile::kEpsLocation},
    {"28531", SimFile::kPsLocation}, {"28539", SimFile::kForbiddenPlmn},
    {"28542", SimFile::kLocation},   {"28633", SimFile::kEquivalentHomePlmn},
    {"12258", SimFile::kIccid},
};

bool prv_accepted(const char* sw1, const char* sw2) {
  if (strncmp(sw1, "144", 3) == 0 || strncmp(sw1, "145", 3) == 0) return true;
  return strncmp(sw1, "146", 3) == 0 && strncmp(sw2, "64", 2) == 0;
}

}  // namespace

//   +GTSIMSTATUS: 3,0
//                 | `- 2 lock status
//                 `--- 1 card status
SimStatus parse_sim_status(char* payload) {
  FieldReader fields(payload);
  SimStatus status;
  status.card_text = fields.next();
  status.card = number_of(status.card_text);
  status.lock_text = fields.next();
  status.lock = number_of(status.lock_text);
  return status;
}

bool parse_iccid(const char* line, char iccid[kIccidSize]) {
  const char* payload = answer_payload(line);
  if (payload == nullptr) payload = bare_number(line, kShortIccidLength, kIccidSize - 1);
  if (payload == nullptr) return false;
  copy_text(iccid, kIccidSize, payload);
  if (strlen(iccid) > kShortIccidLength && !is_digit(iccid[kShortIccidLength])) {
    iccid[kShortIccidLength] = '\0';
  }
  return true;
}

bool parse_imsi(const char* line, char imsi[kImsiSize]) {
  const char* payload = answer_payload(line);
  if (payload == nullptr) payload = bare_number(line, kImsiSize - 1, kImsiSize - 1);
  if (payload == nullptr) return false;
  char text[kImsiSize];
  copy_text(text, kImsiSize, payload);
  const size_t digits = strspn(text, "0123456789");
  if (digits < kShortestImsi || *skip_spaces(text + digits) != '\0') return false;
  copy_text(imsi, kImsiSize, text, digits);
  return true;
}

void home_plmn(const char* imsi, char mcc[4], char mnc[4]) {
  char prefix[kImsiPrefixSize];
  copy_text(prefix, imsi);
  size_t mnc_digits = 2;
  for (const char* network : kThreeDigitMncNetworks) {
    if (strstr(prefix, network) != nullptr) mnc_digits = 3;
  }
  copy_text(mcc, 4, prefix, 3);
  copy_text(mnc, 4, strlen(prefix) > 3 ? prefix + 3 : "", mnc_digits);
}

SimFile crsm_file(const char* command) {
  if (command == nullptr) return SimFile::kOther;
  char copy[kCommandCapacity];
  copy_text(copy, command);
  FieldReader fields(copy);
  fields.next();
  const char* id = fields.next();
  if (id == nullptr) return SimFile::kOther;
  id = skip_spaces(id);
  for (const FileRow& row : kFiles) {
    if (strncmp(id, row.id, kFileIdLength) == 0) return row.file;
  }
  return SimFile::kOther;
}

//   +CRSM: 144,0,"62F2100080FFFFFF0000"
//          |   | `- 3 file contents, hexadecimal
//          |   `--- 2 sw2
//          `------- 1 sw1, decimal: 144 done, 145 done with a proactive command pending, 146 warning
CrsmOutcome parse_crsm(char* payload, CrsmAnswer* answer) {
  *answer = {};
  FieldReader fields(payload);
  const char* sw1 = fields.next();
  const char* sw2 = fields.next();
  if (sw2 == nullptr) return CrsmOutcome::kNoStatusWords;
  answer->sw1 = skip_spaces(sw1);
  answer->sw2 = skip_spaces(sw2);
  if (!prv_accepted(answer->sw1, answer->sw2)) return CrsmOutcome::kRefused;

  char* data = fields.rest();
  if (data == nullptr) return CrsmOutcome::kNoEndQuote;
  skip_white_space_quotes(&data);
  size_t length = strlen(data);
  if (length == 0 || data[length - 1] != '"') return CrsmOutcome::kNoEndQuote;
  data[length - 1] = '\0';
  answer->data = data;
  return CrsmOutcome::kOk;
}

//   62F210 0080   MCC 262, MNC 01, GSM
//   012345 6789   position: MCC digits 1 0 3, MNC digits 5 4 2 (2 is F for a two-digit MNC),
//                 6 to 9 access technologies (6 has bit 8 for UTRAN and 4 for E-UTRAN, 8 has bit 8 for GSM)
bool next_plmn(const char** cursor, bool with_access_technology, plmn_entry* entry) {
  const char* c = *cursor;
  size_t left = strlen(c);
  if (left <= (with_access_technology ? 9u : 5u) || strncmp(c, "FFFFFF", 6) == 0) return false;
  // Ten characters in both modes is meant, although an entry of the forbidden list has only six.
  *cursor = c + (left < 10 ? left : 10);

  *entry = {};
  entry->mcc[0] = c[1];
  entry->mcc[1] = c[0];
  entry->mcc[2] = c[3];
  entry->mnc[0] = c[5];
  entry->mnc[1] = c[4];
  if (c[2] != 'F') entry->mnc[2] = c[2];
  if (with_access_technology) {
    // 255 for no digit: every bit is set.
    uint8_t x = hex_digit(c[6]);
    uint8_t y = hex_digit(c[8]);
    unsigned bits = ((x & 4u) != 0 ? 4u : 0u) | ((x & 8u) != 0 ? 2u : 0u) | ((y & 8u) != 0 ? 1u : 0u);
    entry->access_tech = static_cast<uint8_t>(bits != 0 ? bits : 255u);
  }
  return true;
}

void iccid_from_file(const char* data, char (&iccid)[kIccidSize]) {
  copy_padded(iccid, sizeof(iccid), data, kIccidDigits);
  for (size_t i = 0; iccid[i] != '\0' && iccid[i + 1] != '\0'; i += 2) {
    std::swap(iccid[i], iccid[i + 1]);
  }
  if (!is_digit(iccid[kIccidDigits - 1])) iccid[kIccidDigits - 1] = '\0';
}

//   +CCID: 89014103211118510720
//   +CCID: 8901410321111851072F   19 digits and a filler
void iccid_from_line(const char* rest, char (&iccid)[sizeof(sim_info_data::iccid)]) {
  copy_padded(iccid, sizeof(iccid), skip_spaces(rest));
  size_t n = strlen(iccid);
  if (n < kIccidDigits) n = kIccidDigits;
  if (!is_digit(iccid[n - 1])) iccid[n - 1] = '\0';
}

}  // namespace brio::parse
