#include "parse/serving.h"

#include <string.h>

#include "base/fields.h"
#include "base/text.h"

namespace brio::parse {
namespace {

// Text that is no number counts as automatic: that default is meant.
int8_t prv_cops_mode(char* field) {
  const unsigned long long value = digits_only(field).value_or(0);
  return value <= 1 ? static_cast<int8_t>(value) : int8_t{-1};
}

// The digit at `index`, 0xF where the text is shorter or holds no digit.
uint8_t prv_digit_at(const char* text, size_t index) {
  if (strnlen(text, index + 1) <= index || !is_digit(text[index])) return 0xF;
  return static_cast<uint8_t>(text[index] - '0');
}

uint8_t prv_nibbles(uint8_t high, uint8_t low) {
  return static_cast<uint8_t>(high << 4 | low);
}

}  // namespace

// +COPS: 0,2,"310410",7
//        mode  format  operator  access technology
CopsResult parse_cops(char* text, CopsAnswer* answer) {
  FieldReader fields(text);
  fields.next(':');
  if (fields.rest() == nullptr || *fields.rest() == '\0') return CopsResult::kNoOperator;
  answer->mode = prv_cops_mode(fields.next());

  fields.next('"');
  if (fields.rest() == nullptr) return CopsResult::kNoOperator;
  const char* name = fields.next('"');
  if (fields.rest() == nullptr) return CopsResult::kNoClosingQuote;
  answer->name = name;
  const size_t length = strlen(name);
  if (length != 5 && length != 6) return CopsResult::kBadLength;
  if (!is_digit(name[0]) || !is_digit(name[1])) return CopsResult::kBadFormat;
  copy_text(answer->mcc, name);
  copy_text(answer->mnc, name + 3);
  return CopsResult::kOk;
}

// +GTLTEINFO: 3,1,1,310,410,2F01,1C2D3E4
//             emm state  substate  rrc state  mcc  mnc  tac  cell identity
void parse_lte_info(char* payload, brio_atcmd_data* record) {
  FieldReader fields(payload);
  store(fields.byte(), &record->emm_state);
  store(fields.byte(), &record->emm_substate);
  store(fields.byte(), &record->rrc_state);
  if (const char* mcc = fields.text()) copy_padded(record->mcc, sizeof(record->mcc), mcc);
  if (const char* mnc = fields.text()) copy_padded(record->mnc, sizeof(record->mnc), mnc);
  store(fields.hex_word(), &record->tac);
  store(fields.hex(), &record->cell_id);
}

// +GTSCINFO: 0,8,1,310410,0,0,LTE_BAND_4,0x2F01,0x01,0x1694
//            1 RAT  3 PLMN  4 network mode  6 band  7 LAC or TAC  8 RAC  9 channel; the others are not
//            examined
ServingCell parse_serving_cell(char* payload) {
  FieldReader fields(payload);
  ServingCell cell = {};
  fields.next();
  cell.rat = fields.number();
  fields.next();
  cell.plmn_text = fields.text();
  cell.nmo = fields.byte();
  fields.next();
  cell.band_text = fields.text();
  const std::optional<uint16_t> area = fields.hex_word();
  cell.rac = fields.hex_word();
  cell.arfcn = fields.hex_word();

  const int32_t rat = cell.rat.value_or(0);
  if (rat == 8) cell.tac = area;
  if (rat >= 1 && rat <= 7) cell.lac = area;
  if (rat < 2 || rat > 7) {
    cell.nmo.reset();
    cell.rac.reset();
  }
  return cell;
}

// +GTSCSTAT: 1,13,1,3,7,1
//            pdp  mm  mm sub  gmm  gmm sub  rrc
ProtocolStates parse_protocol_states(char* payload) {
  FieldReader fields(payload);
  ProtocolStates states;
  for (std::optional<uint8_t>& state : states) state = fields.byte();
  return states;
}

// +CCLK: "26/03/07,09:05:00-28"
// The date's separator is "/", so the first sign after the name is the zone's. The name may be missing; an
// answer of another name has no zone, whatever signs it holds.
std::optional<int32_t> parse_clock_zone(const char* text) {
  constexpr char kName[] = "+CCLK";
  constexpr size_t kNameLength = sizeof(kName) - 1;
  const char* rest = skip_spaces(text);
  if (*rest == '+') {
    const bool named = strncmp(rest, kName, kNameLength) == 0;
    if (!named || strchr(": \"", rest[kNameLength]) == nullptr) return std::nullopt;
    rest += kNameLength;
  }
  const char* sign = strchr(rest, '+');
  if (sign == nullptr) sign = strchr(rest, '-');
  return number_of(sign);
}

// 13 00 14 is MCC 310, MNC 410:
//   byte 0 MCC 2 | MCC 1, byte 1 MNC 3 or F | MCC 3, byte 2 MNC 2 | MNC 1 (high | low nibble)
void plmn_to_text(const uint8_t plmn[3], char mcc[4], char mnc[4]) {
  if (plmn[0] == 0xFF && plmn[1] == 0xFF && plmn[2] == 0xFF) {
    // Lower case, unlike the "FFF" of the shared record: both are meant.
    copy_text(mcc, 4, "fff");
    copy_text(mnc, 4, "fff");
    return;
  }
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const uint8_t third = plmn[1] >> 4;
  mcc[0] = kDigits[plmn[0] & 0xF];
  mcc[1] = kDigits[plmn[0] >> 4];
  mcc[2] = kDigits[plmn[1] & 0xF];
  mcc[3] = '\0';
  mnc[0] = kDigits[plmn[2] & 0xF];
  mnc[1] = kDigits[plmn[2] >> 4];
  mnc[2] = third < 0xF ? kDigits[third] : '\0';
  mnc[3] = '\0';
}

void text_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]) {
  plmn[0] = prv_nibbles(prv_digit_at(mcc, 1), prv_digit_at(mcc, 0));
  plmn[1] = prv_nibbles(prv_digit_at(mnc, 2), prv_digit_at(mcc, 2));
  plmn[2] = prv_nibbles(prv_digit_at(mnc, 1), prv_digit_at(mnc, 0));
}

}  // namespace brio::parse
