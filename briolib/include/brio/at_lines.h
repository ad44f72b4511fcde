/**
 * @file
 * The line processor: cuts what a port brings into lines and collects the answer of a command.
 */
#ifndef BRIO_AT_LINES_H
#define BRIO_AT_LINES_H

#include <stdint.h>

#include "brio/at_text.h"
#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** One intermediate line of an answer. */
typedef struct ATLine {
  struct ATLine* next; /**< the following line or null */
  char* line;          /**< heap copy without its terminator; null when memory was short */
} ATLine;

/**
 * One command's answer. Owned by the read thread and freed when the response callback returns: callbacks copy
 * what they keep.
 */
typedef struct ATResponse {
  int32_t status;        /**< 0: the final line was a success ("OK", "CONNECT"); 1: it was an error final */
  char* final_response;  /**< heap copy of the final line; null until it arrives or when memory was short */
  ATLine* intermediates; /**< arrival order for types 3 and 4 with a success final, else newest first; null
                            for none */
} ATResponse;

/** Which lines may come before the final one. Another one, except for NO_RESULT, drops the answer so far and
 * what was read with it: the request then waits for a later final line or its time-out. Values above 5 count
 * as NO_RESULT. */
enum AtCommandType {
  NO_RESULT = 0,           /**< none; other lines are dropped */
  NUMERIC = 1,             /**< at most one, any text */
  SINGLELINE = 2,          /**< at most one, which begins with the response prefix */
  MULTILINE = 3,           /**< any number, each begins with the response prefix */
  MULTILINE_NO_PREFIX = 4, /**< any number, any text */
  NO_COMMAND = 5           /**< nothing outstanding: what arrives is discarded */
};

/** What process_line returns. */
enum AtLineResult {
  AT_LINE_FINAL = 0,     /**< the line was final and the record is complete */
  AT_LINE_MORE = 1,      /**< more is expected; also for no record or an unsupported type */
  AT_LINE_NO_PREFIX = 2, /**< a SINGLELINE line without the prefix */
  AT_LINE_SURPLUS = 3    /**< a second line of a one-line type, or a MULTILINE line without the prefix */
};

/** A zero-filled answer record, freed with at_response_free. @return null when memory is short */
BRIO_API ATResponse* at_response_new(void);
/** Frees the lines, the final line and the record; null is ignored. */
BRIO_API void at_response_free(ATResponse* response);
/** Whether `line` begins with `prefix` (bytes, case-sensitive; an empty prefix always fits; no null).
 * @return 1 or 0 */
BRIO_API int32_t str_starts_with(const char* line, const char* prefix);
/** The first CR or LF of `text` (not null), or null. Exactly "> " (the text-entry prompt) ends at its NUL. */
BRIO_API char* find_next_EOL(char* text);
/**
 * Reads once from `fd`, appends to the partial line that `*leftover` (null or a place in `buffer`) kept and
 * which becomes null, terminates the text and skips leading CR and LF. `buffer` holds BRIO_LINE_DATA_MAX + 1
 * bytes. `*count`, set to 0 by the caller, grows by the bytes read and those kept before (also when these
 * were too long and dropped); it is negative after a read error (see errno) and 0 at the end of the file,
 * also when a partial line was held. Read thread only.
 *
 * @return the first byte of the text
 */
BRIO_API char* read_line(int32_t fd, char* buffer, char** leftover, int32_t* count);
/** Classifies one line of an answer; a null `prefix` fits any line. Read thread only.
 * @return an AtLineResult */
BRIO_API int32_t process_line(const char* line, ATResponse* record, uint32_t type, const char* prefix);

BRIO_EXTERN_C_END

#endif
