// The shared modem-data record's numbers and locks, and what is kept beside it.
#pragma once

#include <assert.h>
#include <stdint.h>

#include "base/guards.h"
#include "brio/brio.h"
#include "brio/briolib.h"

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

template <uint32_t (&lock)(), uint32_t (&unlock)()>
class DataLock : NoCopy {
 public:
  DataLock() : held_(lock() == BRIO_STATUS_OK) {}
  ~DataLock() {
    if (held_) unlock();
  }

 private:
  bool held_;
};

// Holds the URC-data mutex: g_brio_lib_atcmd_data and g_sim_status. Short copies only, never while a command
// is sent. Within another one of the same thread it leaves the mutex to the outer one.
using UrcDataLock = DataLock<briolib_lock_urc_data_mutex, briolib_unlock_urc_data_mutex>;

// Holds the static-data mutex: the two SIM blocks. Used like UrcDataLock.
using StaticDataLock = DataLock<briolib_lock_static_data_mutex, briolib_unlock_static_data_mutex>;

// A field of the shared record.
template <typename T>
T shared_value(T brio_atcmd_data::*field) {
  UrcDataLock lock;
  return g_brio_lib_atcmd_data.*field;
}

// First line of a function whose caller holds the URC-data mutex; debug builds check it.
inline void assert_urc_data_held() {
  assert(briolib_lock_urc_data_mutex() != BRIO_STATUS_OK);
}

// SIM status (enum brio_sim_status) of the last brio_get_wn3_sim_status, guarded by the URC-data mutex.
extern uint16_t g_sim_status;

// The two SIM blocks, guarded by the static-data mutex.
extern sim_plmn_data g_sim_plmn;
extern sim_info_data g_sim_info;

// Whether the record's bars are a poll's. Set with the URC-data mutex held, cleared by any thread, so that a
// reset of the record is not lost.
extern uint8_t g_cached_bars_valid;

}  // namespace brio
