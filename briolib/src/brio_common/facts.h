// Numbers of the shared record and of the modem that several parts use.
#pragma once

#include <stdint.h>

namespace brio {

// Access technologies of 3GPP TS 27.007.
inline constexpr uint8_t kRatLte = 7;
inline constexpr uint8_t kRatUnknown = 255;

// Unknown values of the shared record.
inline constexpr uint8_t kBarsUnknown = 255;
inline constexpr uint16_t kBasValueUnknown = 0xFFFF;
inline constexpr uint8_t kAntennaUnknown = 255;

// Registration state as the shared record keeps it.
enum RegistrationState : uint8_t { kNotRegistered = 0, kHome = 1, kRoaming = 2, kDenied = 3 };

constexpr bool is_registered(uint8_t state) {
  return state == kHome || state == kRoaming;
}

// Groups of unsolicited results, the modes of brio_atcmd_enable_urc.
enum ReportMode : uint32_t {
  kStartupReports = 0,
  kBasReportsOn = 1,
  kBasReportsOff = 2,
  kBarsReportsOn = 3,
  kBarsReportsOff = 4
};

}  // namespace brio
