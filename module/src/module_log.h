// Log lines of the module. Every line is gated by bits of gBrioModuleLogMask (WABS_LOG_* of wabs.h).
//
// A file that logs defines its source name first:
//   static constexpr char kSourceFile[] = "brio_module";
// and writes the whole line, level letter included. Debug lines end in " (%s:%s:%d)", which the macro fills
// with function, source name and line; the other levels carry no suffix:
//   MODULE_D(WABS_LOG_VALUE, "D brio:bars:%d (%s:%s:%d)", bars);
//   MODULE_E("E brio:simstat:status=%d:bad sim status", status);
#ifndef BRIO_MODULE_LOG_H
#define BRIO_MODULE_LOG_H

#include <syslog.h>

#include "base/log.h"
#include "base/words.h"
#include "brio/wabs.h"

namespace brio {

inline bool module_log_on(uint32_t bits) {
  return (relaxed_load(gBrioModuleLogMask) & bits) != 0;
}

}  // namespace brio

#define MODULE_LINE(bits, priority, ...)       \
  do {                                         \
    if (::brio::module_log_on(bits)) {         \
      ::brio::log_line(priority, __VA_ARGS__); \
    }                                          \
  } while (0)

#define MODULE_D(bits, ...) MODULE_D_OF(__func__, bits, __VA_ARGS__)
// A helper's line that carries the name of the operation that it belongs to.
#define MODULE_D_OF(function, bits, ...) \
  MODULE_LINE(bits, LOG_DEBUG, __VA_ARGS__, function, kSourceFile, __LINE__)
#define MODULE_I(...) MODULE_LINE(WABS_LOG_NOTICE, LOG_NOTICE, __VA_ARGS__)
#define MODULE_W(...) MODULE_LINE(WABS_LOG_WARNING, LOG_WARNING, __VA_ARGS__)
#define MODULE_E(...) MODULE_LINE(WABS_LOG_ERROR, LOG_ERR, __VA_ARGS__)

#endif
