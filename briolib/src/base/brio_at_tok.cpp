// The exported tokenizer, built on the parsers' field reader, and the string cleaners.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/fields.h"
#include "base/text.h"
#include "brio/at_text.h"

using namespace brio;

namespace {

constexpr int32_t kOk = 0;
constexpr int32_t kFailed = -1;
constexpr uint32_t kHexInvalid = 255;

char* at_tok_nexttok(char** cursor) {
  skip_white_space(cursor);
  if (*cursor == nullptr) return nullptr;
  const bool quoted = **cursor == '"';
  FieldReader text(quoted ? *cursor + 1 : *cursor);
  char* field = text.next(quoted ? '"' : ',');
  *cursor = text.rest();
  if (quoted && *cursor != nullptr) {
    char* comma = strchr(*cursor, ',');
    *cursor = comma != nullptr ? comma + 1 : *cursor + strlen(*cursor);
  }
  return field;
}

// Both conversions saturate at 32 bits, whatever the width of long.
int32_t prv_saturated_decimal(long long number) {
  return static_cast<int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

int32_t prv_saturated_hex(long long number) {
  bool fits = number <= static_cast<long long>(UINT32_MAX) && number >= -static_cast<long long>(UINT32_MAX);
  return static_cast<int32_t>(fits ? static_cast<uint32_t>(number) : UINT32_MAX);
}

int32_t prv_next_number(char** cursor, int base, int32_t (*saturate)(long long), int32_t* value) {
  char* field = at_tok_nexttok(cursor);
  if (field == nullptr) return kFailed;
  char* end = field;
  *value = saturate(strtoll(field, &end, base));
  return end == field ? kFailed : kOk;
}

template <typename Predicate>
void prv_remove(char* text, Predicate unwanted) {
  if (text == nullptr) return;
  // Modulo 65,536, which is meant: a longer text is cut to the rest.
  const uint16_t length = static_cast<uint16_t>(strlen(text));
  *std::remove_if(text, text + length, unwanted) = '\0';
}

}  // namespace

int32_t at_tok_start(char** cursor) {
  if (*cursor == nullptr) return kFailed;
  char* colon = strchr(*cursor, ':');
  *cursor = colon != nullptr ? colon + 1 : nullptr;
  return colon != nullptr ? kOk : kFailed;
}

int32_t at_tok_hasmore(char** cursor) {
  return *cursor != nullptr && **cursor != '\0' ? 1 : 0;
}

int32_t at_tok_nextint(char** cursor, int32_t* value) {
  return prv_next_number(cursor, 10, prv_saturated_decimal, value);
}

int32_t at_tok_nexthexint(char** cursor, int32_t* value) {
  return prv_next_number(cursor, 16, prv_saturated_hex, value);
}

int32_t at_tok_nextbool(char** cursor, uint8_t* flag) {
  int32_t value = 0;
  if (at_tok_nextint(cursor, &value) != kOk) return kFailed;
  if (value != 0 && value != 1) return kFailed;
  if (flag != nullptr) *flag = static_cast<uint8_t>(value);
  return kOk;
}

int32_t at_tok_nextstr(char** cursor, char** text) {
  // Callers pre-set the output: a null there is refused on purpose, with the cursor left alone.
  if (*cursor == nullptr || *text == nullptr) return kFailed;
  *text = at_tok_nexttok(cursor);
  return kOk;
}

void at_tok_remove_quot(char** cursor) {
  if (*cursor == nullptr) return;
  if (**cursor == '"') (*cursor)++;
  size_t length = strlen(*cursor);
  if (length > 0 && (*cursor)[length - 1] == '"') (*cursor)[length - 1] = '\0';
}

void skip_white_space(char** cursor) {
  if (*cursor != nullptr) *cursor = skip_spaces(*cursor);
}

void skip_white_space_quotes(char** cursor) {
  if (*cursor == nullptr) return;
  while (is_space(**cursor) || **cursor == '"') (*cursor)++;
}

void skip_trailing_white_space(char* text) {
  if (text == nullptr) return;
  size_t length = strlen(text);
  while (length > 1 && is_space(text[length - 1])) length--;
  text[length] = '\0';
}

void remove_blank_space(char* text) {
  prv_remove(text, is_space);
}

void remove_double_quotes(char* text) {
  prv_remove(text, [](char c) { return c == '"'; });
}

uint32_t is_string_digit(const char* text) {
  if (text == nullptr || *text == '\0') return 0;
  while (is_digit(*text)) text++;
  return *text == '\0' ? 1 : 0;
}

uint32_t is_hex_string_valid(const char* text) {
  if (text == nullptr || *text == '\0' || strlen(text) % 2 != 0) return kHexInvalid;
  return 1;
}

uint8_t* hex_string_to_bytes(const char* text) {
  if (text == nullptr) return nullptr;
  size_t count = strlen(text) / 2;
  uint8_t* bytes = static_cast<uint8_t*>(malloc(count + 1));
  if (bytes == nullptr) return nullptr;
  for (size_t i = 0; i < count; i++) {
    bytes[i] = static_cast<uint8_t>(hex_digit(text[2 * i]) << 4 | hex_digit(text[2 * i + 1]));
  }
  bytes[count] = 0;
  return bytes;
}
