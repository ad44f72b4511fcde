// What the URC dispatch needs of the bars module beside briolib_parse_gtbars.
#pragma once

#include <stdint.h>

namespace brio {

// Counts a short message that needs clearing. Event thread.
void briolib_need_clear_sms();

// How many that are, counted from 255 on. Nothing in the library asks.
uint32_t briolib_sms_to_clear();

}  // namespace brio
