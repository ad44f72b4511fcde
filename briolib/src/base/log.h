// Log lines of the modem library. Every line goes to syslog; debug lines are gated by bits of
// g_brio_lib_log_mask.
//
// A file that logs defines its source tag first:
//   constexpr char kLogTag[] = "briolib/src/brio_pktio";
// and writes the text; letter, tag and line number are added:
//   BLIB_E("createth:err=%d:cant create thread\n", err);
//   E blib:briolib/src/brio_pktio:17:createth:err=11:cant create thread
#pragma once

#include <stdarg.h>
#include <syslog.h>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/brio_log_bits.h"

namespace brio {

inline bool log_on(uint32_t bits) {
  return (relaxed_load(g_brio_lib_log_mask) & bits) != 0;
}

// "E blib:<tag>:<line>:<text>", or "E blib:<text>" for a null tag.
void log_line(int priority, const char* tag, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// "E <prefix><text><suffix>", cut to 3.4 KB. Where the text is `escaped`, it holds no control characters,
// whatever a modem sent: each is an escape ("\x1b"). Only line ends of the format stay; a format that holds
// one before the line's end keeps those of its arguments, too.
void log_text(int priority, bool escaped, const char* prefix, const char* suffix, const char* format,
              va_list arguments);

}  // namespace brio

#define BLIB_E(...) ::brio::log_line(LOG_ERR, kLogTag, __LINE__, __VA_ARGS__)
#define BLIB_W(...) ::brio::log_line(LOG_WARNING, kLogTag, __LINE__, __VA_ARGS__)
#define BLIB_I(...) ::brio::log_line(LOG_INFO, kLogTag, __LINE__, __VA_ARGS__)
#define BLIB_D(bits, ...)                                                                  \
  do {                                                                                     \
    if (::brio::log_on(bits)) ::brio::log_line(LOG_DEBUG, kLogTag, __LINE__, __VA_ARGS__); \
  } while (0)
// An information line that names no source.
#define BLIB_PLAIN(...) ::brio::log_line(LOG_INFO, nullptr, 0, __VA_ARGS__)
