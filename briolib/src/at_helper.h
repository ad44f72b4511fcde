// What the line processor and the read thread share beyond the exported interface.
#ifndef BRIOLIB_AT_HELPER_H
#define BRIOLIB_AT_HELPER_H

namespace brio {

inline bool is_line_end(char c) {
  return c == '\r' || c == '\n';
}

// First character that is neither CR nor LF.
inline char* skip_line_ends(char* text) {
  while (is_line_end(*text)) text++;
  return text;
}

}  // namespace brio

#endif
