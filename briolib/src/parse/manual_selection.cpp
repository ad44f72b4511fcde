#include "parse/manual_selection.h"

#include <string.h>
#include <strings.h>

#include "base/text.h"

namespace brio::parse {

// 300 AT+COPS=1,2,"310410",7
// time-out in seconds, one blank, command
bool parse_manual_selection(char* line, ManualSelection* selection) {
  constexpr char kAutomatic[] = "AT+COPS=0";
  line[strcspn(line, "\r\n")] = '\0';
  char* rest = line;
  const char* timeout = next_field(&rest, ' ');
  if (rest == nullptr) return false;
  const char* command = rest;
  // Without a command there is nothing to bring the modem back after the de-registration.
  if (*command == '\0' || strncasecmp(command, kAutomatic, sizeof(kAutomatic) - 1) == 0) return false;
  selection->timeout_seconds = decimal(timeout);
  selection->command = command;
  return true;
}

}  // namespace brio::parse
