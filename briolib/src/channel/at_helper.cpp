// Line processor: cuts the byte stream of a port into lines and classifies the lines of an answer.
#include "channel/at_helper.h"

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/log.h"
#include "base/log_text.h"
#include "brio/brio_at.h"

constexpr char kLogTag[] = "briolib/src/at_helper";

using namespace brio;

namespace {

constexpr int32_t kAnswerSuccess = 0;
constexpr int32_t kAnswerError = 1;

// Final result lines, compared by prefix in this order ("OKAY" and "CONNECT 150" are successes).
struct FinalResult {
  const char* text;
  int32_t status;
};
constexpr FinalResult kFinalResults[] = {
    {"OK", kAnswerSuccess},        {"CONNECT", kAnswerSuccess},   {"ERROR", kAnswerError},
    {"+CMS ERROR:", kAnswerError}, {"+CME ERROR:", kAnswerError}, {"NO CARRIER", kAnswerError},
    {"NO ANSWER", kAnswerError},   {"NO DIALTONE", kAnswerError}, {"ABORTED", kAnswerError},
};

const FinalResult* prv_find_final(const char* line) {
  for (const FinalResult& result : kFinalResults) {
    if (str_starts_with(line, result.text)) return &result;
  }
  return nullptr;
}

void prv_reverse_intermediates(ATResponse* record) {
  ATLine* reversed = nullptr;
  while (record->intermediates != nullptr) {
    ATLine* line = record->intermediates;
    record->intermediates = line->next;
    line->next = reversed;
    reversed = line;
  }
  record->intermediates = reversed;
}

void prv_take_final(const char* line, const FinalResult& result, ATResponse* record, uint32_t type) {
  record->status = result.status;
  free(record->final_response);
  record->final_response = strdup(line);
  if (result.status != kAnswerSuccess) {
    BLIB_D(BRIO_LOG_FINAL, "final response[ERROR]\n");
    return;
  }
  if (type == MULTILINE || type == MULTILINE_NO_PREFIX) prv_reverse_intermediates(record);
  BLIB_D(BRIO_LOG_FINAL, "final response[OK]\n");
}

// Whether the answer has room for the line; always where nobody counts.
bool prv_take_room(const char* line, size_t* held) {
  if (held == nullptr) return true;
  if (*held > kAnswerBytesMax) return false;
  *held += sizeof(ATLine) + strlen(line) + 1;
  if (*held <= kAnswerBytesMax) return true;
  BLIB_E("answer:limit=%zu:answer too long, dropping its further lines\n", kAnswerBytesMax);
  return false;
}

void prv_push_intermediate(const char* line, ATResponse* record) {
  ATLine* node = static_cast<ATLine*>(calloc(1, sizeof(ATLine)));
  if (node == nullptr) return;
  node->line = strdup(line);
  node->next = record->intermediates;
  record->intermediates = node;
  BLIB_D(BRIO_LOG_AT_DETAIL, "adding [%s] to loc [%p]\n", line, static_cast<void*>(node->line));
}

// Brings an incomplete line to the start of the buffer; the number of bytes that are held there.
size_t prv_keep_leftover(char* buffer, char* leftover) {
  char* partial = skip_line_ends(leftover);
  BLIB_D(BRIO_LOG_AT_DETAIL, "Non empty buffer at the beginning: %s\n", partial);
  if (find_next_EOL(partial) != nullptr) {
    BLIB_E(":ERROR::full line found in leftover buffer\n");
    return 0;
  }
  const size_t held = strlen(partial);
  BLIB_D(BRIO_LOG_AT_DETAIL, "leftover buffer len=%zu\n", held);
  memmove(buffer, partial, held);
  buffer[held] = '\0';
  BLIB_D(BRIO_LOG_AT_DETAIL, "moved the partial line to starting of at_buf_p=%s\n", buffer);
  BLIB_D(BRIO_LOG_AT_DETAIL, "Advanced read_p after partial line=%s\n", buffer);
  return held;
}

}  // namespace

ATResponse* at_response_new(void) {
  return static_cast<ATResponse*>(calloc(1, sizeof(ATResponse)));
}

void at_response_free(ATResponse* response) {
  if (response == nullptr) return;
  clear_answer(response);
  free(response);
}

void brio::clear_answer(ATResponse* record) {
  while (record->intermediates != nullptr) {
    ATLine* line = record->intermediates;
    record->intermediates = line->next;
    BLIB_D(BRIO_LOG_AT_DETAIL, "Free[%p]\n", static_cast<void*>(line->line));
    free(line->line);
    free(line);
  }
  free(record->final_response);
  *record = {};
}

int32_t str_starts_with(const char* line, const char* prefix) {
  return strncmp(line, prefix, strlen(prefix)) == 0 ? 1 : 0;
}

char* find_next_EOL(char* text) {
  if (strcmp(text, "> ") == 0) return text + 2;
  return strpbrk(text, "\r\n");
}

char* read_line(int32_t fd, char* buffer, char** leftover, int32_t* count) {
  size_t held = 0;
  if (*leftover != nullptr) {
    held = prv_keep_leftover(buffer, *leftover);
    *leftover = nullptr;
  }
  const size_t counted = held;  // dropped or not
  if (held >= BRIO_LINE_DATA_MAX) {
    BLIB_E("atchannel:ERROR: Input line exceeded buffer:error on read\n");
    held = 0;
  }

  char* fresh = buffer + held;
  ssize_t got;
  do {
    got = read(fd, fresh, BRIO_LINE_DATA_MAX - held);
  } while (got < 0 && errno == EINTR);
  *count += static_cast<int32_t>(got);
  if (got <= 0) return buffer;

  // What was held counts only now, so that it never hides an error or the end of the file.
  *count += static_cast<int32_t>(counted);
  // A NUL of the modem would hide everything after it.
  *std::remove(fresh, fresh + got, '\0') = '\0';
  BLIB_D(BRIO_LOG_AT_DETAIL, "AT data[%s]\n", fresh);
  return skip_line_ends(buffer);
}

int32_t process_line(const char* line, ATResponse* record, uint32_t type, const char* prefix) {
  return process_answer_line(line, record, type, prefix, nullptr);
}

int32_t brio::process_answer_line(const char* line, ATResponse* record, uint32_t type, const char* prefix,
                                  size_t* held) {
  if (record == nullptr) {
    BLIB_E("FATAL:ERROR:: AT resp (p_resp) is NULL\n");
    return AT_LINE_MORE;
  }
  if (const FinalResult* result = prv_find_final(line)) {
    prv_take_final(line, *result, record, type);
    return AT_LINE_FINAL;
  }

  // A command without a prefix accepts every line that its type lets through.
  if (prefix == nullptr) prefix = "";
  switch (type) {
    case NUMERIC:
      if (record->intermediates != nullptr) {
        BLIB_E("AT:ERROR: line %s:\n", masked_line(line).c_str());
        return AT_LINE_SURPLUS;
      }
      break;
    case SINGLELINE:
      if (record->intermediates != nullptr) {
        BLIB_E("AT:ERROR: line %s prefix %s:\n", masked_line(line).c_str(), prefix);
        return AT_LINE_SURPLUS;
      }
      if (!str_starts_with(line, prefix)) {
        BLIB_E("processLine:ERROR 2: line %s resp_prefix %s:\n", masked_line(line).c_str(), prefix);
        return AT_LINE_NO_PREFIX;
      }
      break;
    case MULTILINE:
      if (!str_starts_with(line, prefix)) {
        BLIB_E("AT:ERROR: line %s prefix %s:\n", masked_line(line).c_str(), prefix);
        return AT_LINE_SURPLUS;
      }
      break;
    case MULTILINE_NO_PREFIX:
      break;
    default:
      BLIB_E("AT:Unsupported AT command type %d:\n", type);
      return AT_LINE_MORE;
  }
  if (prv_take_room(line, held)) prv_push_intermediate(line, record);
  return AT_LINE_MORE;
}
