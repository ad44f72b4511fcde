#include "base/text.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "brio/at_text.h"

namespace brio {

void copy_text(char* destination, size_t capacity, const char* source, size_t count) {
  if (capacity == 0) return;
  size_t length = strnlen(source, count < capacity - 1 ? count : capacity - 1);
  memcpy(destination, source, length);
  destination[length] = '\0';
}

void copy_padded(char* destination, size_t capacity, const char* source, size_t count) {
  memset(destination, 0, capacity);
  copy_text(destination, capacity, source, count);
}

int32_t decimal(const char* text) {
  return static_cast<int32_t>(strtoll(text, nullptr, 10));
}

uint32_t hexadecimal(const char* text) {
  return static_cast<uint32_t>(strtoull(text, nullptr, 16));
}

std::optional<unsigned long long> digits_only(char* text) {
  remove_blank_space(text);
  if (is_string_digit(text) == 0) return std::nullopt;
  return strtoull(text, nullptr, 10);
}

bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_control(unsigned char c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

uint8_t hex_digit(char c) {
  if (is_digit(c)) return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  return 255;
}

const char* skip_spaces(const char* text) {
  while (is_space(*text)) text++;
  return text;
}

char* skip_spaces(char* text) {
  return const_cast<char*>(skip_spaces(const_cast<const char*>(text)));
}

char* trim(char* text) {
  char* start = skip_spaces(text);
  size_t length = strlen(start);
  while (length > 0 && is_space(start[length - 1])) length--;
  start[length] = '\0';
  return start;
}

void TextWriter::add(const char* format, ...) {
  if (buffer_ == nullptr || room_ == 0) return;
  // A longer write than INT_MAX cannot be made, so no larger limit is needed.
  const size_t limit = room_ < INT_MAX ? room_ : INT_MAX;
  va_list arguments;
  va_start(arguments, format);
  int length = vsnprintf(buffer_ + (capacity_ - room_), limit, format, arguments);
  va_end(arguments);
  if (length < 0 || static_cast<size_t>(length) >= limit) {
    room_ = 0;
  } else {
    room_ -= static_cast<uint32_t>(length);
  }
}

}  // namespace brio
