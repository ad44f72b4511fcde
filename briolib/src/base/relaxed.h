// Access to the plain words that threads share without a lock: relaxed atomics, since no word
// depends on another.
#pragma once

#include <stdint.h>

namespace brio {

template <typename T>
inline T relaxed_load(const T& word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename T>
inline void relaxed_store(T& word, T value) {
  __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

}  // namespace brio
