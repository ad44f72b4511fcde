// Formatted text for a buffer of fixed size.
#pragma once

#include <stdint.h>

namespace brio {

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
