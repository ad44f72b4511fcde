// Answers about the serving network. Pure: text in, values out.
#pragma once

#include <stdint.h>

#include <array>
#include <optional>

#include "brio/brio_types.h"

namespace brio::parse {

// ---- Operator, "+COPS"

enum class CopsResult {
  kOk,
  kNoOperator,      // no quoted operator
  kNoClosingQuote,  // the operator's text does not end
  kBadLength,       // neither 5 nor 6 characters
  kBadFormat,       // does not begin with two digits
};

struct CopsAnswer {
  std::optional<int8_t> mode;  // 0 automatic, 1 manual, -1 anything else
  const char* name = nullptr;  // the operator without its quotes, in the text; null when it is not whole
  char mcc[4] = {};            // filled when kOk
  char mnc[4] = {};
};

// Characters of the answer that are looked at: the caller cuts it there. Cut up in place.
inline constexpr uint32_t kCopsTextMax = 30;
CopsResult parse_cops(char* text, CopsAnswer* answer);

// ---- LTE state, "+GTLTEINFO"

// Fills what the line holds; the rest of the record stays.
void parse_lte_info(char* payload, brio_atcmd_data* record);

// ---- Serving cell, "+GTSCINFO"

// The RAT decides which of nmo, lac, tac and rac a line has. Texts stay in the line; null for a missing or
// blank field.
struct ServingCell {
  std::optional<int32_t> rat;  // the vendor's numbering: 8 LTE
  const char* plmn_text;
  std::optional<uint8_t> nmo;
  const char* band_text;
  std::optional<uint16_t> lac;
  std::optional<uint16_t> tac;
  std::optional<uint16_t> rac;
  std::optional<uint16_t> arfcn;
};
ServingCell parse_serving_cell(char* payload);

// ---- Protocol states, "+GTSCSTAT"

// PDP, MM, MM substate, GMM, GMM substate, RRC.
using ProtocolStates = std::array<std::optional<uint8_t>, 6>;
ProtocolStates parse_protocol_states(char* payload);

// ---- Network time zone, "+CCLK"

// Characters of the answer that are looked at: the caller cuts it there.
inline constexpr uint32_t kClockTextMax = 32;
// Quarter hours; none when the text holds no sign or is the answer of another name.
std::optional<int32_t> parse_clock_zone(const char* text);

// ---- PLMN of three bytes, 3GPP TS 24.008

void plmn_to_text(const uint8_t plmn[3], char mcc[4], char mnc[4]);
void text_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]);

}  // namespace brio::parse
