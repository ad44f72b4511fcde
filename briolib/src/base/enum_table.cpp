#include "base/enum_table.h"

#include "brio/briolib.h"

namespace brio {

const char* enum_find(const enum_pair* table, uint32_t count, uint32_t value) {
  if (table == nullptr) return nullptr;
  if (value < count && table[value].value == value) return table[value].name;
  for (uint32_t i = 0; i < count; i++) {
    if (table[i].value == value) return table[i].name;
  }
  return nullptr;
}

}  // namespace brio

using namespace brio;

const char* enum_to_string(const enum_pair* table, uint32_t count, uint32_t value) {
  const char* name = enum_find(table, count, value);
  return name != nullptr ? name : "N/A";
}
