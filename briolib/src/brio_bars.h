// What the URC dispatch needs of the bars module beside briolib_parse_gtbars.
#ifndef BRIOLIB_BRIO_BARS_H
#define BRIOLIB_BRIO_BARS_H

namespace brio {

// Counts a short message that needs clearing. Event thread.
void briolib_need_clear_sms();

}  // namespace brio

#endif
