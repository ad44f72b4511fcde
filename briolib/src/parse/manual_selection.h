// The stored manual network selection. Pure: text in, values out.
#ifndef BRIOLIB_PARSE_MANUAL_SELECTION_H
#define BRIOLIB_PARSE_MANUAL_SELECTION_H

#include <stdint.h>

namespace brio::parse {

// An hour, far above what any network takes.
inline constexpr int32_t kManualSelectionTimeoutMax = 3600;

struct ManualSelection {
  int32_t timeout_seconds;  // 0 to kManualSelectionTimeoutMax
  const char* command;      // in the line
};

// Cuts up the file's first line. False when there is nothing to replay: no blank, no command behind it, or
// automatic selection.
bool parse_manual_selection(char* line, ManualSelection* selection);

}  // namespace brio::parse

#endif
