// The stored manual network selection. Pure: text in, values out.
#pragma once

#include <stdint.h>

#include <optional>

namespace brio::parse {

inline constexpr char kAutomaticSelection[] = "AT+COPS=0";

struct ManualSelection {
  int32_t timeout_seconds;  // as stored; negative waits without limit
  const char* command;      // in the line
};

// Cuts up the file's first line, which also ends at a CR: one command. None when there is nothing to replay:
// no blank, no command after it, or automatic selection.
std::optional<ManualSelection> parse_manual_selection(char* line);

}  // namespace brio::parse
