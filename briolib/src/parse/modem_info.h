// The answer to "AT+GTMODINFO?".
#ifndef BRIOLIB_PARSE_MODEM_INFO_H
#define BRIOLIB_PARSE_MODEM_INFO_H

#include "brio/brio_types.h"

namespace brio::parse {

// +GTMODINFO: "L816_18000.1000.00.24.01.01","356938035643809","SN1234567890","V1.0.1",0
//             1                             2                 3              4        5
// 1 firmware version, 2 IMEI, 3 serial number, 4 hardware version, 5 fault count. Takes the text behind the
// result name. Of fields 1 to 4 the first character is skipped and the last one dropped, which are the
// quotes. An empty field leaves its value in `info` alone. Returns the number of fields that were there, up
// to 5.
int parse_modem_info(const char* payload, modem_info* info);

}  // namespace brio::parse

#endif
