// What the targets share: the oracles' tools, the pieces of an input, texts that a sanitizer watches, the end
// of the library's log lines, and the engine's entry.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/wabs.h"

namespace fuzz {

using Bytes = std::string_view;

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

// Memory that a call may write to its end, or null.
struct Out {
  explicit Out(size_t size, bool null = false)
      : size_(null ? 0 : size), bytes_(null ? nullptr : new char[size]) {
    std::fill_n(get(), size_, kFill);
  }
  char* get() const { return bytes_.get(); }
  bool untouched() const {
    return std::all_of(get(), get() + size_, [](char c) { return c == kFill; });
  }
  bool terminated() const { return size_ == 0 || memchr(get(), '\0', size_) != nullptr; }
  template <typename T = uint32_t>
  T value(size_t place = 0) const {
    T value;
    memcpy(&value, get() + place, sizeof(value));
    return value;
  }

  static constexpr char kFill = '\x5A';
  size_t size_;
  std::unique_ptr<char[]> bytes_;
};

// A writable copy of the text up to its first NUL, in a heap block that ends with its NUL.
struct Text : Out {
  explicit Text(Bytes bytes) : Out(bytes.substr(0, bytes.find('\0')).size() + 1) {
    commas = static_cast<uint32_t>(std::count(bytes.data(), bytes.data() + length(), ','));
    *std::copy_n(bytes.data(), length(), get()) = '\0';
  }
  size_t length() const { return size_ - 1; }
  bool holds(const char* place) const { return !place || (place >= get() && place <= get() + length()); }
  uint32_t commas;
};

// A text to be filled: in the end it ends inside its block, or was left alone.
template <size_t N>
struct Field : Out {
  using Array = char[N];
  Field() : Out(N) {}
  ~Field() { require(untouched() || terminated()); }
  operator Array&() const { return *reinterpret_cast<Array*>(get()); }
};

// A few small numbers.
struct OneOf {
  uint32_t bits = 0;
  constexpr OneOf(std::initializer_list<unsigned> list) {
    for (unsigned number : list) bits |= 1u << number;
  }
  constexpr bool has(uint32_t number) const { return number < 32 && (bits >> number & 1) != 0; }
};

// What is left of an input. Behind its end stand zeros.
class Input {
 public:
  explicit Input(Bytes text) : left_(text) {}
  bool empty() const { return left_.empty(); }
  size_t size() const { return left_.size(); }
  uint8_t byte() {
    const char first = left_.empty() ? '\0' : left_.front();
    left_.remove_prefix(left_.empty() ? 0 : 1);
    return static_cast<uint8_t>(first);
  }
  // Up to `end`, which is dropped, or all there is.
  Bytes field(char end) {
    const Bytes piece = left_.substr(0, left_.find(end));
    left_.remove_prefix(std::min(piece.size() + 1, left_.size()));
    return piece;
  }
  Bytes rest() { return std::exchange(left_, {}); }

 private:
  Bytes left_;
};

// One of the parsers, by the input's first byte, gets the rest.
template <size_t N>
void run_parser(void (*const (&parsers)[N])(Bytes), char first, Input in) {
  parsers[static_cast<uint8_t>(in.byte() - first) % N](in.rest());
}

using Answer = std::unique_ptr<ATResponse, decltype(&at_response_free)>;

// The library's lines are formatted, which finds an argument that is no text. Slow, so not with every input.
inline bool g_format_log_lines;
inline thread_local char t_log_line[128];  // the thread's last line

inline void format_log_lines(bool on) {
  g_format_log_lines = on;
  briolib_log_set_log_mask(on ? 0xFFFFFFFF : 0);
  wabs_set_log_mask(on ? 0xFFFFFFFF : 0);
}

// What a target does with an input.
void run(Input in);

}  // namespace fuzz

extern "C" __attribute__((weak)) void syslog(int, const char* format, ...) {
  if (!fuzz::g_format_log_lines) return;
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(fuzz::t_log_line, sizeof(fuzz::t_log_line), format, arguments);
  va_end(arguments);
}

// A target is one source file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::run(fuzz::Input({reinterpret_cast<const char*>(data), size}));
  return 0;
}

#endif
