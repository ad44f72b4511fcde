#include "parse/modem_info.h"

#include <string.h>

#include "base/fields.h"
#include "base/text.h"

namespace brio::parse {
namespace {

// The first character and the last one are taken for the quotes whatever they are.
template <size_t N>
void prv_store_quoted(const char* field, char (&stored)[N]) {
  if (field == nullptr) return;
  field = skip_spaces(field);
  const size_t length = strlen(field);
  copy_text(stored, N, field + 1, length > 2 ? length - 2 : 0);
}

}  // namespace

// +GTMODINFO: "L816_18000.1000.00.24.01.01","356938035643809","SN1234567890","V1.0.1",0
//             firmware version               IMEI              serial number  hardware version  fault count
void parse_modem_info(char* line, modem_info* info) {
  FieldReader fields(line);
  fields.next(':');
  prv_store_quoted(fields.text(), info->fw_ver);
  prv_store_quoted(fields.text(), info->imei);
  prv_store_quoted(fields.text(), info->serial);
  prv_store_quoted(fields.text(), info->hw_ver);
  const std::optional<uint16_t> faults = fields.word();
  if (faults) info->fault_ct = *faults;
}

}  // namespace brio::parse
