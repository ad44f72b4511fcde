// What the targets share: the oracles' tools, the pieces of an input, texts that a sanitizer watches, and the
// end of the library's log lines.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace fuzz {

inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  fprintf(stderr, "%s:%d: does not hold\n", file, line);
  abort();
}

// The texts end inside their fields.
template <size_t... N>
void require_text(const char (&... texts)[N]) {
  (require(memchr(texts, '\0', N) != nullptr), ...);
}

// A writable copy of the text up to its first NUL, in a heap block that ends with its NUL.
class Text {
 public:
  explicit Text(std::string_view bytes)
      : length_(bytes.substr(0, bytes.find('\0')).size()), bytes_(new char[length_ + 1]) {
    memcpy(bytes_.get(), bytes.data(), length_);
    bytes_[length_] = '\0';
  }
  char* get() { return bytes_.get(); }
  size_t length() const { return length_; }

 private:
  size_t length_;
  std::unique_ptr<char[]> bytes_;
};

// What is left of an input. Behind its end stand zeros.
class Input {
 public:
  explicit Input(std::string_view text) : left_(text) {}
  Input(const uint8_t* data, size_t size) : left_(reinterpret_cast<const char*>(data), size) {}
  bool empty() const { return left_.empty(); }
  size_t size() const { return left_.size(); }
  uint8_t byte() {
    if (left_.empty()) return 0;
    const char first = left_.front();
    left_.remove_prefix(1);
    return static_cast<uint8_t>(first);
  }
  // Up to `end`, which is dropped, or all there is.
  std::string_view field(char end) {
    const std::string_view piece = left_.substr(0, left_.find(end));
    left_.remove_prefix(piece.size() < left_.size() ? piece.size() + 1 : piece.size());
    return piece;
  }
  std::string_view rest() { return std::exchange(left_, {}); }

 private:
  std::string_view left_;
};

// Formats the library's lines, which finds an argument that is no text. Slow, so not with every input.
inline bool g_format_log_lines;
inline thread_local char t_log_line[128];  // the thread's last line

}  // namespace fuzz

extern "C" __attribute__((weak)) void syslog(int, const char* format, ...) {
  if (!fuzz::g_format_log_lines) return;
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(fuzz::t_log_line, sizeof(fuzz::t_log_line), format, arguments);
  va_end(arguments);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif
