// The trace stream of the simulated modem.
#ifndef BENCH_TRACE_PIECE_H
#define BENCH_TRACE_PIECE_H

#include <string>

#include "modemsim/modem.h"

namespace bench {

// Whether `bytes` are a piece of the stream without a gap.
inline bool piece_of_trace(const std::string& bytes) {
  constexpr size_t kPeriod = 65521;  // the stream repeats itself
  static const std::string stream = [] {
    std::string text(2 * kPeriod, '\0');
    for (size_t i = 0; i < text.size(); i++) text[i] = static_cast<char>(modemsim::Modem::trace_byte(i));
    return text;
  }();
  const size_t start = stream.find(bytes.substr(0, 32));
  if (start == std::string::npos) return false;
  for (size_t i = 0; i < bytes.size(); i++) {
    if (bytes[i] != stream[(start + i) % kPeriod]) return false;
  }
  return true;
}

}  // namespace bench

#endif
