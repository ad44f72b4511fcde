// Finds the operators in a network scan's answer. Their names may hold commas, brackets and quotes, so an
// operator is found by the numbers and the bracket at its end, and its names are cut then.
#pragma once

#include <stddef.h>

namespace brio::parse {

inline constexpr size_t kScanNumericMin = 5;

// (2,"AT&T","ATT","310410",7) by the places of its separators.
struct ScanOperator {
  char* open;        // "("
  char* cut;         // "," between the names; null when they are not two: then `close` alone is certain
  char* numeric;     // "," before the numeric operator
  char* technology;  // "," before the access technology
  char* close;       // ")"
};

// The first operator at or after `first`, a "(", that has an end; all null when there is none. Unless its
// names hold no quotes but their own it begins at the last place that fits, so that one that was torn does
// not take those of the next for its own. Changes nothing.
ScanOperator find_operator(char* first);

// Whether the list's next element or its end follows a ")", at `text`.
bool list_goes_on(const char* text);

}  // namespace brio::parse
