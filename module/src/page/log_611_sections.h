// The text of the diagnostic page, built from values and the static information file: no lock, log or modem.
#pragma once

#include <stdint.h>

#include "base/files.h"
#include "base/text.h"
#include "brio/brio_types.h"
#include "page/log_611_net.h"

namespace brio::page {

enum class View { kMasked, kFull };

struct PageInput {
  const atcmd_snapshot* snapshot;  // its texts are NUL-terminated
  const char* iccid;
  const NetInfo* net;
  int32_t sar_mode;  // enum brio_sar_mode
  View view;
};

// Everything up to and with the heading of the PLMN section. False when memory for a masked address was
// short; the page ends there.
bool write_sections(TextWriter& page, const PageInput& input);

// What follows below that heading: `file` line by line, as far as there is room.
void write_static_info(TextWriter& page, InputFile* file);

}  // namespace brio::page
