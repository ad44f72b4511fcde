// A modem library that answers as a test tells it, below the host module: this program is linked with --wrap
// for each operation that the module calls, so that statuses come which no modem can bring about today.
#ifndef TESTS_HOST_SCRIPTED_SCRIPTED_LIBRARY_H
#define TESTS_HOST_SCRIPTED_SCRIPTED_LIBRARY_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "brio/brio.h"

struct ScriptedLibrary {
  std::vector<std::string> calls;  // in order, with the arguments that matter

  // Statuses of a call's next answers; the last one stays. None: 0.
  std::map<std::string, std::deque<uint32_t>> statuses;
  // Values that successful answers carry.
  uint16_t carrier = 201;
  std::deque<uint32_t> sim_status = {SIM_STATUS_OK};  // as `statuses`
  std::string iccid = "89014103211118510720";
  std::string imsi = "310410123456789";
  std::string firmware = "L816_18000.1000.00.24.01.01";
  std::string imei = "356938035643809";
  uint32_t attached = 1;
  uint32_t bars = 3;
  uint32_t service_mode = 5;
  uint32_t roaming = 1;
  network_time time = {};
  std::string mcc = "310";
  std::string mnc = "410";
  std::function<void()> while_asked_for_plmn;  // runs inside brio_get_mcc_mnc
  std::string home_mcc = "262";
  std::string home_mnc = "01";

  std::map<uint32_t, brio_event_callback> callbacks;
  uint16_t scan_size = 0;
  uint32_t page_capacity = 0;
  const void* page_buffer = nullptr;

  size_t count(const std::string& call) const;
};

// The library of the running test.
extern ScriptedLibrary g_library;

#endif
