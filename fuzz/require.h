// An oracle: a false condition ends the program and names its place.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace fuzz {

inline void require(bool holds, const char* what = "", const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (holds) return;
  fprintf(stderr, "%s:%d: does not hold %s\n", file, line, what);
  abort();
}

}  // namespace fuzz

#endif
