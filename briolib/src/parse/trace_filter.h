// The trace filter file, line by line, and the name of the trace file.
#pragma once

#include <stddef.h>
#include <time.h>

namespace brio::parse {

// Characters of a filter line without its line end, and the buffer for a command with its NUL.
inline constexpr size_t kTraceLineMax = 509;
inline constexpr size_t kTraceCommandSize = kTraceLineMax + 1;

enum class TraceFilterLine {
  kIgnored,  // empty or a comment
  kCommand,  // `command` was filled
  kInvalid   // anything else
};

// One line of the file, with or without its "\n"; of a line longer than kTraceLineMax the first
// kTraceLineMax + 1 characters are given.
//
//     <blanks and tabs> AT+XSYSTRACE=1,"oct" <blank> <whatever follows is no part of the command>
//     <blanks and tabs> # comment
//
// A command is "AT+XSYSTRACE=" or "AT+TRACE=" in any case, then everything up to the first blank, CR or LF. A
// command that holds a NUL or goes on past kTraceLineMax is invalid: it is never sent torn.
TraceFilterLine trace_filter_line(const char* line, size_t length, char (&command)[kTraceCommandSize]);

// Bytes of the log prefix that count.
inline constexpr size_t kTracePrefixMax = 50;
inline constexpr size_t kTraceNameSize = 160;

// "<prefix>_2026_3_7_9_5_0.istp": of the prefix its first 50 bytes, without leading blanks and tabs, up to
// the first blank, CR or LF.
void trace_file_name(const char* prefix, const tm& start, char (&name)[kTraceNameSize]);

}  // namespace brio::parse
