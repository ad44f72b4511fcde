#include "brio/briolib.h"

const char* enum_to_string(const enum_pair* table, uint32_t count, uint32_t value) {
  if (table == nullptr) return "N/A";
  const enum_pair* row = value < count && table[value].value == value ? &table[value] : nullptr;
  for (uint32_t i = 0; row == nullptr && i < count; i++) {
    if (table[i].value == value) row = &table[i];
  }
  return row != nullptr && row->name != nullptr ? row->name : "N/A";
}
