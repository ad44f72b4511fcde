#include "parse/registration.h"

#include <stdio.h>
#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

enum Place : int { kPlaceStat = 1, kPlaceLac, kPlaceCellId, kPlaceRat, kPlaceRejectType, kPlaceRejectCause };

// Bands that the modem names in a registration line: the WCDMA bands, the LTE bands plus 100, the GSM bands.
constexpr uint32_t kBands[] = {1,   2,   5,   6,   8,   101, 102, 103,  104, 105,
                               108, 109, 112, 119, 120, 850, 900, 1800, 1900};

bool known_band(uint32_t band) {
  for (uint32_t known : kBands) {
    if (band == known) return true;
  }
  return false;
}

void append_text(Registration* line, const char* text) {
  size_t used = strlen(line->summary);
  copy_text(line->summary + used, sizeof(line->summary) - used, text);
}

void append_number(Registration* line, int32_t number) {
  char text[16];
  snprintf(text, sizeof(text), ",%d", number);
  append_text(line, text);
}

// The text of a quoted field: one opening quote is skipped and the last character, taken for the closing
// quote, is cut whatever it is.
void strip_quotes(const char* field, char (&text)[32]) {
  if (*field == '"') field++;
  size_t length = strlen(field);
  copy_text(text, sizeof(text), field, length > 0 ? length - 1 : 0);
}

void take_field(Registration* line, int place, const char* field) {
  char text[32];
  switch (place) {
    case kPlaceStat:
      line->stat = decimal(field);
      line->fields |= kRegStat;
      snprintf(line->summary, sizeof(line->summary), "%d", line->stat);
      break;
    case kPlaceLac:
      strip_quotes(field, text);
      line->lac = static_cast<uint16_t>(hexadecimal(text));
      line->fields |= kRegLac;
      append_text(line, ",LAC");
      break;
    case kPlaceCellId:
      strip_quotes(field, text);
      line->cell_id = hexadecimal(text);
      line->fields |= kRegCellId;
      append_text(line, ",ID");
      break;
    case kPlaceRat:
      line->rat = static_cast<uint8_t>(decimal(field));
      line->fields |= kRegRat;
      append_number(line, line->rat);
      break;
    case kPlaceRejectType:
      strip_quotes(field, text);
      line->reject_type = decimal(text);
      line->fields |= kRegRejectType;
      append_number(line, line->reject_type);
      break;
    case kPlaceRejectCause:
      strip_quotes(field, text);
      line->reject_cause = static_cast<uint8_t>(decimal(text));
      line->fields |= kRegRejectCause;
      append_number(line, line->reject_cause);
      break;
    default:
      break;
  }
}

}  // namespace

// +CREG: 5,"1A2B","01C2D3E4",7,"0","11"        unsolicited
//        1 stat  2 lac  3 cell  4 act  5 reject type  6 reject cause
// +CREG: 2,1,"1A2B","01C2D3E4",7               answer to AT+CREG?, 0 reporting mode in front
// +CREG: 1,"1A2B","01C2D3E4",7,104,"0","11"    with the band between access technology and reject type
Registration parse_registration(char* payload, bool is_query, bool with_band) {
  Registration line = {};
  int place = is_query ? 0 : kPlaceStat;
  char* cursor = payload;
  while (const char* token = next_field(&cursor, ',')) {
    line.token_count++;
    const char* field = skip_spaces(token);
    if (place == kPlaceRejectType && with_band && !line.band_place) {
      // The first token here is the band, in the list or not; the place itself is not used up, so that the
      // next token is the reject type.
      line.band_place = true;
      uint32_t band = static_cast<uint32_t>(decimal(field));
      if (known_band(band)) {
        line.band = band;
        line.fields |= kRegBand;
      }
      continue;
    }
    if (*field != '\0') take_field(&line, place, field);
    if (place <= kPlaceRejectCause) place++;
  }
  return line;
}

// +STKPCI: 0,"D009810301010082028182"
// Position 0 is the first character that is not white space; from position 3 on stands a hexadecimal BER-TLV
// of ETSI TS 102 223. The lengths and the command's number are not examined.
bool is_usim_refresh(const char* text) {
  static constexpr struct {
    uint32_t position;
    char digits[3];
  } kPattern[] = {
      {3, "D0"},   // proactive command
      {9, "03"},   // length of the command details
      {13, "01"},  // REFRESH
      {15, "00"},  // NAA initialisation and full file change notification
      {17, "82"},  // device identities
      {19, "02"},  // their length
      {21, "81"},  // from the UICC
      {23, "82"},  // to the terminal
  };
  const char* command = skip_spaces(text);
  size_t length = strlen(command);
  for (const auto& part : kPattern) {
    if (part.position + 2 > length) return false;
    if (memcmp(command + part.position, part.digits, 2) != 0) return false;
  }
  return true;
}

}  // namespace brio::parse
