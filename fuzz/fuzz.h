// What the targets share: oracles, texts that a sanitizer watches, and the engine's entry.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "kit/exact_text.h"
#include "kit/log.h"
#include "require.h"

namespace fuzz {

using Bytes = std::string_view;

// A writable copy of a text up to its first NUL, in a heap block that ends there.
struct Text : ExactText {
  explicit Text(Bytes bytes)
      : ExactText(std::string(bytes.substr(0, bytes.find('\0')))), length(strlen(get())) {}
  size_t length;
};

// Takes the text up to `end`, which is dropped, or all of it.
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
