// Log lines of the module. Every line is gated by bits of gBrioModuleLogMask (WABS_LOG_* of wabs.h).
//
// A file that logs defines its source name first:
//   constexpr char kSourceFile[] = "brio_module";
// and writes the text; the letter is added, and to a debug line function, source name and line number:
//   MODULE_E("brio:simstat:status=%d:bad sim status", status);
//   E brio:simstat:status=7:bad sim status
//   MODULE_D(WABS_LOG_VALUE, "brio:bars:%d", bars);
//   D brio:bars:4 (wabs_get_bars:brio_module:142)
#pragma once

#include <syslog.h>

#include "base/relaxed.h"
#include "brio/wabs.h"

namespace brio {

inline bool module_log_on(uint32_t bits) {
  return (relaxed_load(gBrioModuleLogMask) & bits) != 0;
}

void module_line(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void module_debug(const char* function, const char* source, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace brio

#define MODULE_D(bits, ...) MODULE_D_OF(__func__, bits, __VA_ARGS__)
// A helper's line that carries the name of the operation that it belongs to.
#define MODULE_D_OF(function, bits, ...) \
  MODULE_GATED(bits, module_debug(function, kSourceFile, __LINE__, __VA_ARGS__))
#define MODULE_I(...) MODULE_GATED(WABS_LOG_NOTICE, module_line(LOG_NOTICE, __VA_ARGS__))
#define MODULE_W(...) MODULE_GATED(WABS_LOG_WARNING, module_line(LOG_WARNING, __VA_ARGS__))
#define MODULE_E(...) MODULE_GATED(WABS_LOG_ERROR, module_line(LOG_ERR, __VA_ARGS__))
#define MODULE_GATED(bits, call)                   \
  do {                                             \
    if (::brio::module_log_on(bits)) ::brio::call; \
  } while (0)
