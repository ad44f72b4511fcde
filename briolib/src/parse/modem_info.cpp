#include "parse/modem_info.h"

#include <stddef.h>
#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

constexpr int kFaultCountField = 4;

struct QuotedField {
  size_t offset;
  size_t size;
};

// In the order of the answer, which is not that of the record.
constexpr QuotedField kQuotedFields[kFaultCountField] = {
    {offsetof(modem_info, fw_ver), sizeof(modem_info::fw_ver)},
    {offsetof(modem_info, imei), sizeof(modem_info::imei)},
    {offsetof(modem_info, serial), sizeof(modem_info::serial)},
    {offsetof(modem_info, hw_ver), sizeof(modem_info::hw_ver)},
};

// `length` is at least 1: the opening quote.
void store_quoted(char* destination, size_t capacity, const char* field, size_t length) {
  size_t copied = length - 1 < capacity ? length - 1 : capacity;
  memcpy(destination, field + 1, copied);
  destination[copied > 0 ? copied - 1 : 0] = '\0';
}

}  // namespace

int parse_modem_info(const char* payload, modem_info* info) {
  int fields = 0;
  const char* field = payload;
  while (field != nullptr && fields <= kFaultCountField) {
    field = skip_spaces(field);
    size_t length = strcspn(field, ",");
    if (length > 0 && fields < kFaultCountField) {
      const QuotedField& place = kQuotedFields[fields];
      store_quoted(reinterpret_cast<char*>(info) + place.offset, place.size, field, length);
    } else if (length > 0) {
      info->fault_ct = static_cast<uint16_t>(decimal(field));
    }
    fields++;
    field = field[length] == ',' ? field + length + 1 : nullptr;
  }
  return fields;
}

}  // namespace brio::parse
