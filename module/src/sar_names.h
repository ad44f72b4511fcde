// Names of the SAR back-off modes (enum brio_sar_mode), for enum_to_string.
#pragma once

#include "brio/briolib.h"

namespace brio {

inline constexpr enum_pair kSarNames[] = {
    {BRIO_SAR_OFF, "OFF"}, {BRIO_SAR_ON, "ON"}, {BRIO_SAR_INIT, "INIT"}};

inline const char* sar_name(int32_t mode) {
  return enum_to_string(kSarNames, sizeof(kSarNames) / sizeof(kSarNames[0]), static_cast<uint32_t>(mode));
}

}  // namespace brio
