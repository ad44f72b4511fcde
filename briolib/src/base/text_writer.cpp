#include "base/text_writer.h"

#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

namespace brio {

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
