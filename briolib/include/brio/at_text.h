/**
 * @file
 * The tokenizer and text helpers, for callers that take an answer apart by themselves. The library's own
 * parsers read otherwise: quotes stay, non-numeric text yields 0, and a number keeps its low 32 bits.
 *
 * A cursor is a place in a writable text, or null when the text is used up. Fields are separated by ","; a
 * field in double quotes may hold commas. Field ends are overwritten with NUL, so the text must outlive the
 * fields. White space is the C locale's. at_tok_* return 0 on success and -1 on failure unless they say
 * otherwise. Any thread.
 */
#ifndef BRIO_AT_TEXT_H
#define BRIO_AT_TEXT_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** Data bytes of one port's line buffer; the buffer has one byte more for the NUL. A longer line is dropped.
 */
#define BRIO_LINE_DATA_MAX 2400

/** Moves past the first ":". -1 with a null cursor, or without a ":" (the cursor becomes null). */
BRIO_API int32_t at_tok_start(char** cursor);
/** Whether there is more text at the cursor. @return 1 or 0 */
BRIO_API int32_t at_tok_hasmore(char** cursor);
/** Next field as a decimal number; junk after the digits is ignored, and beyond 32 bits it saturates. -1
 * without a field (`value` untouched) or a digit (`value` 0). */
BRIO_API int32_t at_tok_nextint(char** cursor, int32_t* value);
/** Next field as a hexadecimal number, as at_tok_nextint; saturates at 0xFFFFFFFF. */
BRIO_API int32_t at_tok_nexthexint(char** cursor, int32_t* value);
/** Next field as 0 or 1; -1 for any other value. `flag` may be null. */
BRIO_API int32_t at_tok_nextbool(char** cursor, uint8_t* flag);
/** Next field as text. `*text` must be non-null before the call: null there is refused with -1. */
BRIO_API int32_t at_tok_nextstr(char** cursor, char** text);
/** Skips one leading double quote and cuts one trailing double quote. */
BRIO_API void at_tok_remove_quot(char** cursor);
/** Skips white space. */
BRIO_API void skip_white_space(char** cursor);
/** Skips white space and double quotes. */
BRIO_API void skip_white_space_quotes(char** cursor);
/** Cuts trailing white space; the first character always stays. */
BRIO_API void skip_trailing_white_space(char* text);
/** Deletes every white-space character in place (length modulo 65,536). */
BRIO_API void remove_blank_space(char* text);
/** Deletes every double quote in place (length modulo 65,536). */
BRIO_API void remove_double_quotes(char* text);
/** Non-zero when `text` is not empty and holds decimal digits only. */
BRIO_API uint32_t is_string_digit(const char* text);
/** 1 when `text` is not empty and of even length, else 255. The characters are not examined. */
BRIO_API uint32_t is_hex_string_valid(const char* text);
/**
 * Bytes of a hexadecimal text, high nibble first, and a NUL after them; an odd last character is ignored
 * and a non-hexadecimal digit counts as 255. The caller frees them with free().
 *
 * @return null for null or when memory is short
 */
BRIO_API uint8_t* hex_string_to_bytes(const char* text);

BRIO_EXTERN_C_END

#endif
