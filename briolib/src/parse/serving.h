// Answers about the serving network. Pure: text in, values out.
#ifndef BRIOLIB_PARSE_SERVING_H
#define BRIOLIB_PARSE_SERVING_H

#include <stdint.h>

namespace brio::parse {

// ---- Operator, "+COPS"

enum class CopsResult {
  kOk,
  kNoMode,          // nothing behind the colon
  kNoOperator,      // no quoted operator
  kNoClosingQuote,  // the operator's text does not end
  kBadLength,       // neither 5 nor 6 characters
  kBadFormat,       // does not begin with two digits
};

struct CopsAnswer {
  CopsResult result;
  int8_t mode;       // 0 automatic, 1 manual, -1 anything else; valid unless kNoMode
  const char* name;  // the operator without its quotes, in the text; null when it is not whole
  char mcc[4];       // valid when kOk
  char mnc[4];
};

// Characters of the answer that are looked at: the caller cuts it there. Cut up in place.
inline constexpr uint32_t kCopsTextMax = 30;
CopsAnswer parse_cops(char* text);

// ---- LTE state, "+GTLTEINFO"

struct LteInfo {
  uint32_t fields;  // bit n for field n
  uint8_t emm_state;
  uint8_t emm_substate;
  uint8_t rrc_state;
  char mcc[4];
  char mnc[4];
  uint16_t tac;
  uint32_t cell_id;
};
enum LteInfoField : uint32_t {
  kLteEmmState = 1u << 0,
  kLteEmmSubstate = 1u << 1,
  kLteRrcState = 1u << 2,
  kLteMcc = 1u << 3,
  kLteMnc = 1u << 4,
  kLteTac = 1u << 5,
  kLteCellId = 1u << 6,
};
LteInfo parse_lte_info(char* fields);

// ---- Serving cell, "+GTSCINFO"

enum ServingCellField : uint32_t {
  kCellRat = 1u << 0,
  kCellPlmn = 1u << 1,
  kCellNmo = 1u << 2,
  kCellBand = 1u << 3,
  kCellLac = 1u << 4,
  kCellTac = 1u << 5,
  kCellRac = 1u << 6,
  kCellArfcn = 1u << 7,
};
struct ServingCell {
  uint32_t fields;  // ServingCellField bits: the RAT decides which of nmo, lac, tac and rac a line gives
  int32_t rat;      // the vendor's numbering: 8 LTE
  char plmn_text[10];
  uint8_t nmo;
  char band_text[30];
  uint16_t lac;
  uint16_t tac;
  uint16_t rac;
  uint16_t arfcn;
};
ServingCell parse_serving_cell(char* fields);

// ---- Protocol states, "+GTSCSTAT"

inline constexpr uint32_t kProtocolStateCount = 6;
struct ProtocolStates {
  uint32_t fields;                     // bit n for state n
  uint8_t state[kProtocolStateCount];  // pdp, mm, mm sub, gmm, gmm sub, rrc
};
ProtocolStates parse_protocol_states(char* fields);

// ---- Network time zone, "+CCLK"

// Characters of the answer that are looked at.
inline constexpr uint32_t kClockTextMax = 32;
// Quarter hours; false when the text holds no sign or is the answer of another name.
bool parse_clock_zone(const char* line, int32_t* zone);

// ---- PLMN of three bytes, 3GPP TS 24.008

void plmn_to_text(const uint8_t plmn[3], char mcc[4], char mnc[4]);
void text_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]);

}  // namespace brio::parse

#endif
