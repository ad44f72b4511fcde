// Lookup in value-to-name tables. enum_to_string is the exported form, "N/A" for an absent value.
#pragma once

#include <stdint.h>

#include "brio/brio_types.h"

namespace brio {

// Name of `value`, or null when it is absent or the table is null. A row that is at its own value's index
// wins over earlier rows of the same value.
const char* enum_find(const enum_pair* table, uint32_t count, uint32_t value);

}  // namespace brio
