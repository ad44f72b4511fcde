// The locks of the shared data, and what is kept beside the shared modem-data record.
#pragma once

#include <stdint.h>

#include "brio/brio.h"
#include "brio/briolib.h"

namespace brio {

// Holds the URC-data mutex: g_brio_lib_atcmd_data and g_sim_status. Short copies only, never while a command
// is sent. Within another one of the same thread it leaves the mutex to the outer one.
class UrcDataLock {
 public:
  UrcDataLock() : held_(briolib_lock_urc_data_mutex() == BRIO_STATUS_OK) {}
  ~UrcDataLock() {
    if (held_) briolib_unlock_urc_data_mutex();
  }
  UrcDataLock(const UrcDataLock&) = delete;
  UrcDataLock& operator=(const UrcDataLock&) = delete;

 private:
  bool held_;
};

// Holds the static-data mutex: the two SIM blocks. Used like UrcDataLock.
class StaticDataLock {
 public:
  StaticDataLock() : held_(briolib_lock_static_data_mutex() == BRIO_STATUS_OK) {}
  ~StaticDataLock() {
    if (held_) briolib_unlock_static_data_mutex();
  }
  StaticDataLock(const StaticDataLock&) = delete;
  StaticDataLock& operator=(const StaticDataLock&) = delete;

 private:
  bool held_;
};

// SIM status (enum brio_sim_status) of the last brio_get_wn3_sim_status, guarded by the URC-data mutex.
extern uint16_t g_sim_status;

// Whether the record's bars are a poll's. Set with the URC-data mutex held, cleared by any thread, so that a
// reset of the record is not lost.
extern uint8_t g_cached_bars_valid;

}  // namespace brio
