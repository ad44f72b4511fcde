// Registration lines ("+CREG" and so on), network reject reports, and the SIM toolkit REFRESH.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>

namespace brio::parse {

struct Registration {
  std::optional<int32_t> stat;  // stat of 3GPP TS 27.007
  std::optional<uint16_t> lac;
  std::optional<uint32_t> cell_id;
  std::optional<uint8_t> rat;    // AcT of 3GPP TS 27.007
  std::optional<uint32_t> band;  // in the list of bands; an unlisted band is not given
  std::optional<int32_t> reject_type;
  std::optional<uint8_t> reject_cause;
};

// Cuts up the text after the name, such as "+CREG:". Query answers begin with the number of the reporting
// mode, which is ignored; `with_band` says that a band precedes the reject type.
Registration parse_registration(char* payload, bool is_query, bool with_band);

// What the log may say of a line, cut at 32 characters.
inline constexpr size_t kRegistrationSummarySize = 33;
void registration_summary(const Registration& line, char (&summary)[kRegistrationSummarySize]);

// Whether the text after "+STKPCI:" is a REFRESH of the kind NAA initialisation and full file change
// notification. Text of fewer than kProactiveCommandMin characters is too short for one.
inline constexpr uint32_t kProactiveCommandMin = 24;
bool is_usim_refresh(const char* text);

struct RejectReport {
  std::optional<uint8_t> procedure;  // 1 CS, 3 PS, 4 SM, 5 EMM, 6 ESM
  std::optional<uint8_t> cause;      // 3GPP TS 24.008 or TS 24.301
  std::optional<uint16_t> mcc;       // decimal numbers: an MNC written 05 is 5
  std::optional<uint16_t> mnc;
};

// Cuts up the text after "+GTOTAREJECT:".
RejectReport parse_reject(char* payload);

// Whether the cause bars the subscription or the device for good.
bool is_fatal_reject(uint8_t procedure, uint8_t cause);

}  // namespace brio::parse
