#include "base/log.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "brio/brio_at.h"

namespace brio {
namespace {

using Byte = unsigned char;

// A line of the ports, a prefix and the words around them; a longer line is cut.
constexpr size_t kLineSize = BRIO_LINE_DATA_MAX + 1024;
constexpr char kReplacement = '?';

// Well-formed UTF-8 (RFC 3629) by its first two bytes; any further one is 0x80 to 0xBF.
struct Utf8Row {
  Byte first_low, first_high, second_low, second_high, length;
};
constexpr Utf8Row kUtf8[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

// Bytes of the character at `text`, which is NUL-terminated; 1 for a byte that begins none.
size_t prv_utf8_length(const Byte* text) {
  for (const Utf8Row& row : kUtf8) {
    if (text[0] < row.first_low || text[0] > row.first_high) continue;
    if (text[1] < row.second_low || text[1] > row.second_high) return 1;
    for (size_t i = 2; i < row.length; i++) {
      if ((text[i] & 0xC0) != 0x80) return 1;
    }
    return row.length;
  }
  return 1;
}

// C0, DEL and C1, the latter as a byte or as UTF-8.
bool prv_is_control(const Byte* text, size_t length) {
  const Byte byte = length == 2 && text[0] == 0xC2 ? text[1] : text[0];
  return byte < 0x20 || (byte >= 0x7F && byte < 0xA0);
}

void prv_replace_controls(char* line) {
  for (Byte* text = reinterpret_cast<Byte*>(line); *text != '\0';) {
    const size_t length = prv_utf8_length(text);
    if (prv_is_control(text, length)) memset(text, kReplacement, length);
    text += length;
  }
}

}  // namespace

void log_line(int priority, const char* format, ...) {
  char line[kLineSize];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  const size_t format_length = strlen(format);
  const size_t length = strlen(line);
  const bool ends_line = length > 0 && format_length > 0 && format[format_length - 1] == '\n';
  if (ends_line) line[length - 1] = '\0';
  prv_replace_controls(line);
  ::syslog(priority, ends_line ? "%s\n" : "%s", line);
}

}  // namespace brio
