// Text of a modem or a network, made harmless for a terminal.
#ifndef TOOLS_PRINTABLE_H
#define TOOLS_PRINTABLE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// Bytes of the UTF-8 character at `at`; 0 where none is, or a control character (C0, DEL or C1).
inline std::size_t printable_length(const std::string& text, std::size_t at) {
  constexpr std::uint32_t kLeast[] = {0, 0x20, 0xA0, 0x800,
                                      0x10000};  // overlong forms hide control characters
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC0 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                                           : 0;
  if (length == 0 || text.size() - at < length || lead == 0x7F) return 0;
  std::uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; i++) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    code = code << 6 | (next & 0x3F);
  }
  return code >= kLeast[length] ? length : 0;
}

// Readable UTF-8 as it is, every other byte as an escape. `kept` is a control character that stays.
inline std::string printable(const std::string& text, char kept = '\0') {
  std::string result;
  for (std::size_t at = 0; at < text.size(); at++) {
    const char c = text[at];
    if (const std::size_t length = printable_length(text, at); length > 0) {
      result.append(text, at, length);
      at += length - 1;
    } else if (c == kept && kept != '\0') {
      result += c;
    } else if (c == '\r' || c == '\n') {
      result += c == '\r' ? "\\r" : "\\n";
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
      result += code;
    }
  }
  return result;
}

#endif
