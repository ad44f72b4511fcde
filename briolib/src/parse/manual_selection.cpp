#include "parse/manual_selection.h"

#include <string.h>
#include <strings.h>

#include "base/fields.h"
#include "base/text.h"

namespace brio::parse {

// 300 AT+COPS=1,2,"310410",7
// time-out in seconds, one blank, command
std::optional<ManualSelection> parse_manual_selection(char* line) {
  line[strcspn(line, "\r\n")] = '\0';
  FieldReader fields(line);
  const char* timeout = fields.next(' ');
  const char* command = fields.rest();
  // Without a command there is nothing to bring the modem back after the de-registration.
  if (command == nullptr || *command == '\0') return std::nullopt;
  if (strncasecmp(command, kAutomaticSelection, strlen(kAutomaticSelection)) == 0) return std::nullopt;
  return ManualSelection{decimal(timeout), command};
}

}  // namespace brio::parse
