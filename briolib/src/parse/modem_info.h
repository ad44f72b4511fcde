// The answer to "AT+GTMODINFO?".
#pragma once

#include "brio/brio_types.h"

namespace brio::parse {

// Takes the whole line and cuts it up in place. A missing or blank field leaves its value in `info` alone.
void parse_modem_info(char* line, modem_info* info);

}  // namespace brio::parse
