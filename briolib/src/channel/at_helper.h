// What the line processor and the read thread share beyond the exported interface.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// What the lines of one answer may take, each with its node. The names of all the world's operators, the
// longest answer known, take half of it.
inline constexpr size_t kAnswerBytesMax = size_t{256} * 1024;

// process_line for an answer whose lines take `held` bytes so far, 0 for a new one. Beyond kAnswerBytesMax
// lines are judged as ever, but not kept; an error line says so once an answer.
int32_t process_answer_line(const char* line, ATResponse* record, uint32_t type, const char* prefix,
                            size_t* held);

// Frees what a record holds and makes it a new one.
void clear_answer(ATResponse* record);

inline bool is_line_end(char c) {
  return c == '\r' || c == '\n';
}

// First character that is neither CR nor LF.
inline char* skip_line_ends(char* text) {
  while (is_line_end(*text)) text++;
  return text;
}

}  // namespace brio
