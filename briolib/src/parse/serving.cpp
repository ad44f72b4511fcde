#include "parse/serving.h"

#include <stdlib.h>
#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

// The mode field without its blanks. Text that is no number counts as automatic: that default is meant.
int8_t cops_mode(const char* field, size_t length) {
  char digits[kCopsTextMax + 1];
  size_t count = 0;
  for (size_t i = 0; i < length && count < kCopsTextMax; i++) {
    if (is_space(field[i])) continue;
    if (!is_digit(field[i])) return 0;
    digits[count++] = field[i];
  }
  digits[count] = '\0';
  unsigned long long value = strtoull(digits, nullptr, 10);
  return value <= 1 ? static_cast<int8_t>(value) : int8_t{-1};
}

// A field that begins with "0x" or does not.
uint16_t hexadecimal_word(const char* field) {
  return static_cast<uint16_t>(hexadecimal(field));
}

}  // namespace

// +COPS: 0,2,"310410",7
//        mode  format  operator  access technology
CopsAnswer parse_cops(char* text) {
  CopsAnswer answer = {};
  char* colon = strchr(text, ':');
  if (colon == nullptr || colon[1] == '\0') {
    answer.result = CopsResult::kNoMode;
    return answer;
  }
  char* mode = colon + 1;
  size_t mode_length = strcspn(mode, ",");
  answer.mode = cops_mode(mode, mode_length);

  char* quote = strchr(mode + mode_length, '"');
  if (quote == nullptr) {
    answer.result = CopsResult::kNoOperator;
    return answer;
  }
  char* name = quote + 1;
  char* end = strchr(name, '"');
  if (end == nullptr) {
    answer.result = CopsResult::kNoClosingQuote;
    return answer;
  }
  *end = '\0';
  answer.name = name;
  size_t length = static_cast<size_t>(end - name);
  if (length != 5 && length != 6) {
    answer.result = CopsResult::kBadLength;
    return answer;
  }
  if (!is_digit(name[0]) || !is_digit(name[1])) {
    answer.result = CopsResult::kBadFormat;
    return answer;
  }
  copy_text(answer.mcc, sizeof(answer.mcc), name, 3);
  copy_text(answer.mnc, sizeof(answer.mnc), name + 3);
  answer.result = CopsResult::kOk;
  return answer;
}

// +GTLTEINFO: 3,1,1,310,410,2F01,1C2D3E4
//             emm state  substate  rrc state  mcc  mnc  tac  cell identity
LteInfo parse_lte_info(char* fields) {
  LteInfo info = {};
  char* cursor = fields;
  for (int place = 0; place <= 6; place++) {
    const char* field = next_field(&cursor, ',');
    if (field == nullptr) break;
    if (*skip_spaces(field) == '\0') continue;
    info.fields |= 1u << place;
    switch (1u << place) {
      case kLteEmmState:
        info.emm_state = static_cast<uint8_t>(decimal(field));
        break;
      case kLteEmmSubstate:
        info.emm_substate = static_cast<uint8_t>(decimal(field));
        break;
      case kLteRrcState:
        info.rrc_state = static_cast<uint8_t>(decimal(field));
        break;
      case kLteMcc:
        copy_text(info.mcc, sizeof(info.mcc), field);
        break;
      case kLteMnc:
        copy_text(info.mnc, sizeof(info.mnc), field);
        break;
      case kLteTac:
        info.tac = hexadecimal_word(field);
        break;
      default:
        info.cell_id = hexadecimal(field);
        break;
    }
  }
  return info;
}

// +GTSCINFO: 0,8,1,310410,0,0,LTE_BAND_4,0x2F01,0x01,0x1694
//            1 RAT  3 PLMN  4 network mode  6 band  7 LAC or TAC  8 RAC  9 channel; the others are not
//            examined
ServingCell parse_serving_cell(char* fields) {
  ServingCell cell = {};
  char* cursor = fields;
  for (int place = 0; place <= 9; place++) {
    const char* field = next_field(&cursor, ',');
    if (field == nullptr) break;
    if (*skip_spaces(field) == '\0') continue;
    const bool packet_2g_3g = cell.rat >= 2 && cell.rat <= 7;
    switch (place) {
      case 1:
        cell.rat = decimal(field);
        cell.fields |= kCellRat;
        break;
      case 3:
        copy_text(cell.plmn_text, sizeof(cell.plmn_text), field);
        cell.fields |= kCellPlmn;
        break;
      case 4:
        if (!packet_2g_3g) break;
        cell.nmo = static_cast<uint8_t>(decimal(field));
        cell.fields |= kCellNmo;
        break;
      case 6:
        copy_text(cell.band_text, sizeof(cell.band_text), field);
        cell.fields |= kCellBand;
        break;
      case 7:
        if (cell.rat == 8) {
          cell.tac = hexadecimal_word(field);
          cell.fields |= kCellTac;
        } else if (cell.rat >= 1 && cell.rat <= 7) {
          cell.lac = hexadecimal_word(field);
          cell.fields |= kCellLac;
        }
        break;
      case 8:
        if (!packet_2g_3g) break;
        cell.rac = hexadecimal_word(field);
        cell.fields |= kCellRac;
        break;
      case 9:
        cell.arfcn = hexadecimal_word(field);
        cell.fields |= kCellArfcn;
        break;
      default:
        break;
    }
  }
  return cell;
}

// +GTSCSTAT: 1,13,1,3,7,1
//            pdp  mm  mm sub  gmm  gmm sub  rrc
ProtocolStates parse_protocol_states(char* fields) {
  ProtocolStates states = {};
  char* cursor = fields;
  for (uint32_t place = 0; place < kProtocolStateCount; place++) {
    const char* field = next_field(&cursor, ',');
    if (field == nullptr) break;
    if (*skip_spaces(field) == '\0') continue;
    states.state[place] = static_cast<uint8_t>(decimal(field));
    states.fields |= 1u << place;
  }
  return states;
}

// +CCLK: "26/03/07,09:05:00-28"
// The date's separator is "/", so the first sign behind the name is the zone's. The name may be missing; an
// answer of another name has no zone, whatever signs it holds.
bool parse_clock_zone(const char* line, int32_t* zone) {
  constexpr char kName[] = "+CCLK";
  constexpr size_t kNameLength = sizeof(kName) - 1;
  char text[kClockTextMax + 1];
  copy_text(text, sizeof(text), line);
  const char* rest = skip_spaces(text);
  if (*rest == '+') {
    if (strncmp(rest, kName, kNameLength) != 0 || strchr(": \"", rest[kNameLength]) == nullptr) return false;
    rest += kNameLength;
  }
  const size_t colon = strcspn(rest, ":\"");
  if (rest[colon] == ':') rest += colon + 1;
  const char* sign = strchr(rest, '+');
  if (sign == nullptr) sign = strchr(rest, '-');
  if (sign == nullptr) return false;
  *zone = decimal(sign);
  return true;
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

namespace {

// The digit at `index`, 0xF where the text is shorter or holds no digit.
uint8_t digit_at(const char* text, size_t index) {
  if (strnlen(text, index + 1) <= index || !is_digit(text[index])) return 0xF;
  return static_cast<uint8_t>(text[index] - '0');
}

uint8_t nibbles(uint8_t high, uint8_t low) {
  return static_cast<uint8_t>(high << 4 | low);
}

}  // namespace

void text_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]) {
  plmn[0] = nibbles(digit_at(mcc, 1), digit_at(mcc, 0));
  plmn[1] = nibbles(digit_at(mnc, 2), digit_at(mcc, 2));
  plmn[2] = nibbles(digit_at(mnc, 1), digit_at(mnc, 0));
}

}  // namespace brio::parse
