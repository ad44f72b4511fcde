// Registration lines "+CREG" and "+CGREG", and the SIM toolkit REFRESH. Pure: text in, values out.
#ifndef BRIOLIB_PARSE_REGISTRATION_H
#define BRIOLIB_PARSE_REGISTRATION_H

#include <stdint.h>

namespace brio::parse {

// Fields that a registration line gave.
enum RegistrationField : uint32_t {
  kRegStat = 1u << 0,
  kRegLac = 1u << 1,
  kRegCellId = 1u << 2,
  kRegRat = 1u << 3,
  kRegBand = 1u << 4,  // in the list of bands; an unlisted band is not given
  kRegRejectType = 1u << 5,
  kRegRejectCause = 1u << 6,
};

struct Registration {
  uint32_t fields;  // RegistrationField bits
  int32_t stat;     // stat of 3GPP TS 27.007
  uint16_t lac;
  uint32_t cell_id;
  uint8_t rat;  // AcT of 3GPP TS 27.007
  uint32_t band;
  int32_t reject_type;
  uint8_t reject_cause;
  char summary[33];      // what the log may say of the line, cut at 32 characters
  uint32_t token_count;  // tokens that the line was cut into, in place, each behind its predecessor's NUL
  bool band_place;       // the line had a token at the band's place
};

// Cuts up the text behind "+CREG:" or "+CGREG:". Query answers begin with the number of the reporting mode,
// which is ignored; `with_band` says that a band stands in front of the reject type.
Registration parse_registration(char* payload, bool is_query, bool with_band);

// Whether the text behind "+STKPCI:" is a REFRESH of the kind NAA initialisation and full file change
// notification. Text of fewer than kProactiveCommandMin characters is too short for one.
inline constexpr uint32_t kProactiveCommandMin = 24;
bool is_usim_refresh(const char* text);

}  // namespace brio::parse

#endif
