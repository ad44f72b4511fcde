#include "base/log.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "base/text.h"
#include "brio/at_text.h"
#include "brio/briolib.h"

constexpr char kLogTag[] = "briolib/src/brio_log";

// Shared by every thread of the library; accessed relaxed.
uint32_t g_brio_lib_log_mask;

namespace brio {
namespace {

using Byte = unsigned char;

// A line of the ports, a prefix and the words around them; a longer line is cut.
constexpr size_t kLineSize = BRIO_LINE_DATA_MAX + 1024;

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
  return is_control(length == 2 && text[0] == 0xC2 ? text[1] : text[0]);
}

// Copies as much as fits, control characters as "\x1b"; with `keeps_lines` a "\n" stays.
void prv_escape_controls(const char* raw, bool keeps_lines, char (&line)[kLineSize]) {
  constexpr char kHex[] = "0123456789abcdef";
  constexpr size_t kEscape = 4;
  size_t used = 0;
  for (const Byte* text = reinterpret_cast<const Byte*>(raw); *text != '\0';) {
    size_t length = prv_utf8_length(text);
    const bool escaped = prv_is_control(text, length) && !(keeps_lines && *text == '\n');
    for (; length > 0 && used + kEscape < kLineSize; length--, text++) {
      if (escaped) {
        line[used++] = '\\';
        line[used++] = 'x';
        line[used++] = kHex[*text >> 4];
        line[used++] = kHex[*text & 15];
      } else {
        line[used++] = static_cast<char>(*text);
      }
    }
    if (length > 0) break;
  }
  line[used] = '\0';
}

// By priority, LOG_ERR first.
constexpr char kLetters[] = "EWIID";

constexpr uint32_t kDumpBytesPerLine = 16;

bool prv_is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char* prv_obfuscate(char* text, char mask_char, bool (*hidden)(char)) {
  if (text == nullptr) return nullptr;
  // The length counts in 16 bits on purpose: of a longer text only the remainder is masked.
  uint16_t length = static_cast<uint16_t>(strlen(text));
  for (uint16_t i = 0; i < length; i++) {
    if (hidden(text[i])) text[i] = mask_char;
  }
  return text;
}

}  // namespace

void log_text(int priority, bool escaped, const char* prefix, const char* suffix, const char* format,
              va_list arguments) {
  char raw[kLineSize];
  const size_t start =
      static_cast<size_t>(snprintf(raw, sizeof(raw), "%c %s", kLetters[priority - LOG_ERR], prefix));
  vsnprintf(raw + start, sizeof(raw) - start, format, arguments);
  const size_t end = strlen(raw);
  snprintf(raw + end, sizeof(raw) - end, "%s", suffix);
  if (!escaped) {
    ::syslog(priority, "%s", raw);
    return;
  }
  // An end of line in the format itself is meant.
  const char* line_end = strchr(format, '\n');
  const bool ends_line = line_end != nullptr && line_end[1] == '\0' && *suffix == '\0';
  if (ends_line) raw[end - 1] = '\0';
  char line[kLineSize];
  prv_escape_controls(raw, line_end != nullptr && !ends_line, line);
  ::syslog(priority, ends_line ? "%s\n" : "%s", line);
}

void log_line(int priority, const char* tag, int line, const char* format, ...) {
  char prefix[64] = "blib:";
  if (tag != nullptr) snprintf(prefix, sizeof(prefix), "blib:%s:%d:", tag, line);
  va_list arguments;
  va_start(arguments, format);
  log_text(priority, priority != LOG_DEBUG, prefix, "", format, arguments);
  va_end(arguments);
}

}  // namespace brio

using namespace brio;

void briolib_log_set_log_mask(uint32_t mask) {
  relaxed_store(g_brio_lib_log_mask, mask);
  BLIB_I("log mask changed to [0x%lx]::\n", static_cast<unsigned long>(mask));
}

void briolib_log_debug_print_packet(uint32_t bits, const void* data, uint32_t length) {
  if (!log_on(bits) || data == nullptr) return;
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  char line[kDumpBytesPerLine * 3 + 1];
  TextWriter writer(line, sizeof(line));
  for (uint32_t i = 0; i < length; i++) {
    writer.add("%s%02x", writer.written() > 0 ? " " : "", bytes[i]);
    if (i % kDumpBytesPerLine == kDumpBytesPerLine - 1 || i == length - 1) {
      BLIB_D(bits, "%s\n", line);
      writer = TextWriter(line, sizeof(line));
    }
  }
}

char* briolib_obfuscate_alphabet(char* text, char mask_char) {
  return prv_obfuscate(text, mask_char, prv_is_letter);
}

char* briolib_obfuscate_numeral(char* text, char mask_char) {
  return prv_obfuscate(text, mask_char, is_digit);
}
