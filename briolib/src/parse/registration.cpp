#include "parse/registration.h"

#include <string.h>

#include <algorithm>
#include <iterator>

#include "base/fields.h"
#include "base/text.h"

namespace brio::parse {
namespace {

// Bands that the modem names in a registration line: the WCDMA bands, the LTE bands plus 100, the GSM bands.
constexpr uint32_t kBands[] = {1,   2,   5,   6,   8,   101, 102, 103,  104, 105,
                               108, 109, 112, 119, 120, 850, 900, 1800, 1900};

bool prv_known_band(uint32_t band) {
  return std::find(std::begin(kBands), std::end(kBands), band) != std::end(kBands);
}

// One opening quote is skipped and the last character, taken for the closing quote, is cut whatever it is.
template <typename N>
std::optional<N> prv_quoted(const char* field, N (*convert)(const char*)) {
  if (field == nullptr) return std::nullopt;
  field = skip_spaces(field);
  if (*field == '"') field++;
  const size_t length = strlen(field);
  char text[32];
  copy_text(text, sizeof(text), field, length > 0 ? length - 1 : 0);
  return convert(text);
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
  line.lac = low_bits<uint16_t>(prv_quoted(fields.text(), hexadecimal));
  line.cell_id = prv_quoted(fields.text(), hexadecimal);
  line.rat = fields.byte();
  if (with_band) {
    const std::optional<uint32_t> band = low_bits<uint32_t>(fields.number());
    if (band && prv_known_band(*band)) line.band = band;
  }
  line.reject_type = prv_quoted(fields.text(), decimal);
  line.reject_cause = low_bits<uint8_t>(prv_quoted(fields.text(), decimal));
  return line;
}

void registration_summary(const Registration& line, char (&summary)[kRegistrationSummarySize]) {
  summary[0] = '\0';
  TextWriter writer(summary, sizeof(summary));
  if (line.stat) writer.add("%d", *line.stat);
  if (line.lac) writer.add(",LAC");
  if (line.cell_id) writer.add(",ID");
  if (line.rat) writer.add(",%d", *line.rat);
  if (line.reject_type) writer.add(",%d", *line.reject_type);
  if (line.reject_cause) writer.add(",%d", *line.reject_cause);
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

// +GTOTAREJECT: 1,5,7,310,410
//               0 not examined  1 procedure  2 cause  3 mcc  4 mnc
RejectReport parse_reject(char* payload) {
  FieldReader fields(payload);
  fields.next();
  RejectReport report;
  report.procedure = fields.byte();
  report.cause = fields.byte();
  report.mcc = fields.word();
  report.mnc = fields.word();
  return report;
}

bool is_fatal_reject(uint8_t procedure, uint8_t cause) {
  constexpr uint8_t kCs = 1;
  constexpr uint8_t kPs = 3;
  constexpr uint8_t kEmm = 5;
  if (procedure != kCs && procedure != kPs && procedure != kEmm) return false;
  switch (cause) {
    case 2:  // IMSI unknown in HLR or HSS
    case 3:  // illegal MS or UE
    case 6:  // illegal ME
    case 7:  // GPRS or EPS services not allowed
    case 8:  // GPRS and non-GPRS, or EPS and non-EPS services not allowed
      return true;
    default:
      return false;
  }
}

}  // namespace brio::parse
