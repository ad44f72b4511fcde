// Steps that the response callbacks share.
#ifndef BRIOLIB_BRIO_COMMON_ANSWER_H
#define BRIOLIB_BRIO_COMMON_ANSWER_H

#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// The answer's first line; null when there is none.
inline char* answer_line(const ATResponse* response) {
  if (response == nullptr || response->intermediates == nullptr) return nullptr;
  return response->intermediates->line;
}

// Response callback of "AT+CRSM" (read thread): hands the line to at_parse with the request's user data, the
// text of the command, which tells the parser the file. 6 without a line, else at_parse's result.
uint32_t recv_func_prv_briolib_get_crsm(const ATResponse* response, void* user_data, uint16_t user_value);

}  // namespace brio

#endif
