#include "module_log.h"

#include <stdio.h>

#include "base/log.h"

uint32_t gBrioModuleLogMask;

void wabs_set_log_mask(uint32_t mask) {
  brio::relaxed_store(gBrioModuleLogMask, mask);
}

namespace brio {

void module_line(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_text(priority, true, "", "", format, arguments);
  va_end(arguments);
}

void module_debug(const char* function, const char* source, int line, const char* format, ...) {
  char suffix[128];
  snprintf(suffix, sizeof(suffix), " (%s:%s:%d)", function, source, line);
  va_list arguments;
  va_start(arguments, format);
  log_text(LOG_DEBUG, true, "", suffix, format, arguments);
  va_end(arguments);
}

}  // namespace brio
