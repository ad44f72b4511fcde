// The static information file: the SIM's PLMN lists and location files as text, rewritten only when the
// text's MD5 digest changes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "brio/brio_types.h"

namespace brio {

// Digest of the file's last known contents; all zero when they are unknown. Host thread only.
extern uint8_t g_sim_info_hash[16];

inline constexpr size_t kStaticInfoSize = 4096;

// UPLMN: 310410LWG 302720L
// PSLOCI: FFFF...
// Builds the file's text, NUL-terminated. The first write that does not fit whole ends the text: what fits of
// it stays.
void static_info_text(const sim_plmn_data& plmn, const sim_info_data& info, char text[kStaticInfoSize]);

}  // namespace brio
