// The library's log mask, hexadecimal dumps into the log, and masking of identifiers for log lines.
#include <stdint.h>
#include <string.h>

#include "base/log.h"
#include "base/text.h"
#include "brio/brio.h"
#include "brio/briolib.h"

constexpr char kLogTag[] = "briolib/src/brio_log";

using namespace brio;

// Shared by every thread of the library; accessed relaxed.
uint32_t g_brio_lib_log_mask;

namespace {

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
