// The value-to-name tables of the diagnostic page.
#pragma once

#include <stdint.h>

#include "brio/briolib.h"

namespace brio::names {

struct Table {
  const enum_pair* rows;
  uint32_t count;
};

extern const Table kSimStatus;
extern const Table kWanType;
extern const Table kRegistrationStatus;
extern const Table kSelectionMode;
extern const Table kRat;
extern const Table kSarMode;
extern const Table kEmmState;
extern const Table kEmmSubstate;
extern const Table kMmState;
extern const Table kMmSubstate;
extern const Table kGmmState;
extern const Table kGmmSubstate;
extern const Table kPdpState;

// Reject causes, named in the words of their standards. A cause that is not listed prints as "N/A" with its
// number, and so does 0, which is no cause. Which rows the tables hold is explained beside them.
extern const Table kEmmRejectCause;
extern const Table kEsmRejectCause;
extern const Table kMmRejectCause;  // CS (MM) and PS (GMM)
extern const Table kSmRejectCause;

inline const char* name_of(const Table& table, uint32_t value) {
  return enum_to_string(table.rows, table.count, value);
}

}  // namespace brio::names
