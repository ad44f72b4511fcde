#include "parse/trace_filter.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

namespace brio::parse {
namespace {

constexpr const char* kCommandPrefixes[] = {"AT+XSYSTRACE=", "AT+TRACE="};

bool prv_is_word_end(char c) {
  return c == ' ' || c == '\r' || c == '\n';
}

// The first word of text[0..length): where it starts and how long it is. A tab ends no word.
size_t prv_first_word(const char** text, size_t length) {
  const char* start = *text;
  const char* end = start + length;
  while (start < end && (*start == ' ' || *start == '\t')) start++;
  *text = start;
  while (start < end && !prv_is_word_end(*start)) start++;
  return static_cast<size_t>(start - *text);
}

bool prv_has_prefix(const char* word) {
  for (const char* prefix : kCommandPrefixes) {
    if (strncasecmp(word, prefix, strlen(prefix)) == 0) return true;
  }
  return false;
}

}  // namespace

TraceFilterLine trace_filter_line(const char* line, size_t length, char (&command)[kTraceCommandSize]) {
  const char* word = line;
  size_t word_length = prv_first_word(&word, length);
  if (word_length > 0 && *word == '#') return TraceFilterLine::kIgnored;
  bool reaches_cut = length > kTraceLineMax && word + word_length == line + length;
  if (reaches_cut) return TraceFilterLine::kInvalid;
  if (word_length == 0) return TraceFilterLine::kIgnored;
  if (memchr(word, '\0', word_length) != nullptr) return TraceFilterLine::kInvalid;
  memcpy(command, word, word_length);
  command[word_length] = '\0';
  return prv_has_prefix(command) ? TraceFilterLine::kCommand : TraceFilterLine::kInvalid;
}

void trace_file_name(const char* prefix, const tm& start, char (&name)[kTraceNameSize]) {
  const char* word = prefix;
  size_t word_length = prv_first_word(&word, strnlen(prefix, kTracePrefixMax));
  snprintf(name, sizeof(name), "%.*s_%d_%d_%d_%d_%d_%d.istp", static_cast<int>(word_length), word,
           start.tm_year + 1900, start.tm_mon + 1, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec);
}

}  // namespace brio::parse
