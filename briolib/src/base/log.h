// Log lines of the modem library. Every line goes to syslog; debug lines are gated by bits of
// g_brio_lib_log_mask.
//
// A file that logs defines its source tag first:
//   static constexpr char kLogTag[] = "briolib/src/brio_pktio";
// and writes the whole line, level letter included:
//   BLIB_E("E blib:%s:%d:createth:err=%d:cant create thread\n", BLIB_HERE, err);
#ifndef BRIOLIB_BASE_LOG_H
#define BRIOLIB_BASE_LOG_H

#include <syslog.h>

#include "base/words.h"
#include "brio/brio.h"
#include "brio/brio_log_bits.h"

namespace brio {

inline bool log_on(uint32_t bits) {
  return (relaxed_load(g_brio_lib_log_mask) & bits) != 0;
}

// A line without control characters, whatever a modem sent: each is an escape ("\x1b"). Only line ends of
// the format stay; a format that holds one before its end keeps those of its arguments, too.
void log_line(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace brio

// Source tag and line number, the first two arguments of most lines.
#define BLIB_HERE kLogTag, __LINE__

#define BLIB_E(...) ::brio::log_line(LOG_ERR, __VA_ARGS__)
#define BLIB_W(...) ::brio::log_line(LOG_WARNING, __VA_ARGS__)
#define BLIB_I(...) ::brio::log_line(LOG_INFO, __VA_ARGS__)
#define BLIB_D(bits, ...)               \
  do {                                  \
    if (::brio::log_on(bits)) {         \
      ::syslog(LOG_DEBUG, __VA_ARGS__); \
    }                                   \
  } while (0)

#endif
