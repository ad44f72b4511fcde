// What the targets share: oracles, texts that a sanitizer watches, and the engine's entry.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "kit/exact_text.h"
#include "kit/log.h"

namespace fuzz {

using Bytes = std::string_view;

inline void require(bool holds, const char* what = "", const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (holds) return;
  fprintf(stderr, "%s:%d: does not hold %s\n", file, line, what);
  abort();
}

// The texts end inside their fields.
template <size_t... N>
void require_text(const char (&... texts)[N]) {
  (require(memchr(texts, '\0', N) != nullptr), ...);
}

// A writable copy of a text up to its first NUL, in a heap block that ends with its NUL.
struct Text : ExactText {
  explicit Text(Bytes bytes)
      : ExactText(std::string(bytes.substr(0, bytes.find('\0')))), length(strlen(get())) {
    commas = static_cast<size_t>(std::count(get(), get() + length, ','));
  }
  bool holds(const char* place) { return !place || (place >= get() && place <= get() + length); }
  size_t length, commas;
};

// Takes what comes up to `end`, which is dropped, or all there is.
inline Bytes take(Bytes& left, char end) {
  const Bytes piece = left.substr(0, left.find(end));
  left.remove_prefix(std::min(piece.size() + 1, left.size()));
  return piece;
}

// What a target does with an input.
void run(Bytes input);

}  // namespace fuzz

// A target is one source file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::run({reinterpret_cast<const char*>(data), size});
  log_capture::clear();
  return 0;
}

#endif
