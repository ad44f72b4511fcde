// What the files of the host module interface share: state and log helpers.
#pragma once

#include <stdint.h>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/wabs.h"
#include "module_log.h"

namespace brio {

inline constexpr char kSourceFile[] = "brio_module";

// Process-wide, all zero at load. Used by the host's thread, except where a field names another reader or
// writer.
struct ModuleState {
  uint8_t library_open;      // also read by the thread that aborts a scan: relaxed atomic
  uint8_t prox_open;         // the proximity monitor runs
  void* ipc;                 // connection to the device's IPC service, null when it is not available
  int32_t cached_time_zone;  // quarter hours, -1 not known: written by the event thread, relaxed atomic
  uint32_t mcc_mnc_refresh;  // 1: ask the library again; set by the event thread, relaxed atomic
  sim_identity sim;          // filled by wabs_open
  modem_info modem;          // filled by wabs_open
};
extern ModuleState g_module;

inline bool module_is_open() {
  return relaxed_load(g_module.library_open) != 0;
}

// Whether a query of the modem library (or another service) succeeded, which is status 0; else its error
// line.
bool succeeded(const char* parameter, uint32_t status);

// Logs the exit of `function` at `line` and hands the result on.
uint32_t log_return(const char* function, int line, uint32_t result);

}  // namespace brio

// An operation begins with MODULE_ENTER and leaves by MODULE_RETURN only.
#define MODULE_ENTER() MODULE_D(WABS_LOG_FLOW, "def:Enter")
#define MODULE_RETURN(result) return ::brio::log_return(__func__, __LINE__, result)
