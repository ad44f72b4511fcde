// Small steps of taking a line apart, shared by the parsers, and of building a text. None of them leaves its
// source or its field.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>

namespace brio {

// Copies at most `count` characters of `source`, at most what fits, and terminates.
void copy_text(char* destination, size_t capacity, const char* source, size_t count = SIZE_MAX);

template <size_t N>
void copy_text(char (&destination)[N], const char* source, size_t count = SIZE_MAX) {
  copy_text(destination, N, source, count);
}

// The same, and zeros up to the capacity.
void copy_padded(char* destination, size_t capacity, const char* source, size_t count = SIZE_MAX);

// The number at the start of `text` (white space skipped), 0 for none; values beyond 32 bits keep their low
// 32 bits.
int32_t decimal(const char* text);
uint32_t hexadecimal(const char* text);

// Deletes the white space of `text`; its number, when only digits are left (ULLONG_MAX beyond 64 bits).
std::optional<unsigned long long> digits_only(char* text);

bool is_space(char c);  // C locale
bool is_digit(char c);
bool is_control(unsigned char c);  // C0, DEL, C1
uint8_t hex_digit(char c);         // its value, 255 for another character

// First character that is not white space.
char* skip_spaces(char* text);
const char* skip_spaces(const char* text);

// Cuts white space at both ends; the place where the rest starts.
char* trim(char* text);

// Appends formatted text to a caller's buffer. The first write that does not fit leaves what fits of it,
// NUL-terminated, and uses up all room; later writes do nothing. So the buffer always holds the first
// characters of the whole text. A null buffer or a capacity of 0 takes nothing.
class TextWriter {
 public:
  TextWriter(char* buffer, uint32_t capacity) : buffer_(buffer), capacity_(capacity), room_(capacity) {}

  void add(const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Bytes left, the terminating NUL of the text so far included.
  uint32_t room() const { return room_; }
  uint32_t written() const { return capacity_ - room_; }

 private:
  char* buffer_;
  uint32_t capacity_;
  uint32_t room_;
};

}  // namespace brio
