#include "log_lines.h"

#include <stdarg.h>
#include <stdio.h>

static void format_line(const char* format, va_list arguments) {
  char line[1024];
  vsnprintf(line, sizeof(line), format, arguments);
  bench::log_line(line);
}

extern "C" {

void syslog(int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  format_line(format, arguments);
  va_end(arguments);
}

void __syslog_chk(int, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  format_line(format, arguments);
  va_end(arguments);
}

}  // extern "C"
