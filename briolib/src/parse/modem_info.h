// The answer to "AT+GTMODINFO?".
#ifndef BRIOLIB_PARSE_MODEM_INFO_H
#define BRIOLIB_PARSE_MODEM_INFO_H

#include "brio/brio_types.h"

namespace brio::parse {

// Takes the whole line and cuts it up in place. A missing or blank field leaves its value in `info` alone.
void parse_modem_info(char* line, modem_info* info);

}  // namespace brio::parse

#endif
