#include "parse/registration.h"

#include <stdio.h>
#include <string.h>

#include "base/fields.h"
#include "base/text.h"

namespace brio::parse {
namespace {

// Bands that the modem names in a registration line: the WCDMA bands, the LTE bands plus 100, the GSM bands.
constexpr uint32_t kBands[] = {1,   2,   5,   6,   8,   101, 102, 103,  104, 105,
                               108, 109, 112, 119, 120, 850, 900, 1800, 1900};

bool prv_known_band(uint32_t band) {
  for (uint32_t known : kBands) {
    if (band == known) return true;
  }
  return false;
}

// One opening quote is skipped and the last character, taken for the closing quote, is cut whatever it is.
void prv_strip_quotes(const char* field, char (&text)[32]) {
  field = skip_spaces(field);
  if (*field == '"') field++;
  size_t length = strlen(field);
  copy_text(text, sizeof(text), field, length > 0 ? length - 1 : 0);
}

std::optional<uint32_t> prv_quoted_hex(const char* field) {
  if (field == nullptr) return std::nullopt;
  char text[32];
  prv_strip_quotes(field, text);
  return hexadecimal(text);
}

std::optional<int32_t> prv_quoted_number(const char* field) {
  if (field == nullptr) return std::nullopt;
  char text[32];
  prv_strip_quotes(field, text);
  return decimal(text);
}

void prv_append_text(char (&summary)[kRegistrationSummarySize], const char* text) {
  size_t used = strlen(summary);
  copy_text(summary + used, sizeof(summary) - used, text);
}

void prv_append_number(char (&summary)[kRegistrationSummarySize], int32_t number) {
  char text[16];
  snprintf(text, sizeof(text), ",%d", number);
  prv_append_text(summary, text);
}

}  // namespace

// +CREG: 5,"1A2B","01C2D3E4",7,"0","11"        unsolicited
//        1 stat  2 lac  3 cell  4 act  5 reject type  6 reject cause
// +CREG: 2,1,"1A2B","01C2D3E4",7               answer to AT+CREG?, 0 reporting mode in front
// +CREG: 1,"1A2B","01C2D3E4",7,104,"0","11"    with the band between access technology and reject type
Registration parse_registration(char* payload, bool is_query, bool with_band) {
  FieldReader fields(payload);
  Registration line;
  if (is_query) fields.next();
  line.stat = fields.number();
  const std::optional<uint32_t> lac = prv_quoted_hex(fields.text());
  if (lac) line.lac = static_cast<uint16_t>(*lac);
  line.cell_id = prv_quoted_hex(fields.text());
  line.rat = fields.byte();
  if (with_band) {
    const std::optional<int32_t> band = fields.number();
    if (band && prv_known_band(static_cast<uint32_t>(*band))) line.band = static_cast<uint32_t>(*band);
  }
  line.reject_type = prv_quoted_number(fields.text());
  const std::optional<int32_t> cause = prv_quoted_number(fields.text());
  if (cause) line.reject_cause = static_cast<uint8_t>(*cause);
  return line;
}

void registration_summary(const Registration& line, char (&summary)[kRegistrationSummarySize]) {
  summary[0] = '\0';
  if (line.stat) snprintf(summary, sizeof(summary), "%d", *line.stat);
  if (line.lac) prv_append_text(summary, ",LAC");
  if (line.cell_id) prv_append_text(summary, ",ID");
  if (line.rat) prv_append_number(summary, *line.rat);
  if (line.reject_type) prv_append_number(summary, *line.reject_type);
  if (line.reject_cause) prv_append_number(summary, *line.reject_cause);
}

// +STKPCI: 0,"D009810301010082028182"
// Position 0 is the first character that is not white space; from position 3 on comes a hexadecimal BER-TLV
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
