#include "parse/sim_card.h"

#include <string.h>

#include "base/fields.h"
#include "base/text.h"
#include "parse/answer.h"

namespace brio::parse {
namespace {

constexpr char kDigits[] = "0123456789";
constexpr size_t kShortIccidLength = 19;
constexpr size_t kShortestImsi = 6;  // MCC, MNC and a subscriber
constexpr const char* kThreeDigitMncNetworks[] = {"310410", "302720"};

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
  const size_t digits = strspn(text, kDigits);
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

}  // namespace brio::parse
