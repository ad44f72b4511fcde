// What a host does with the library while calls below it fail, and the device that it does it on.
#ifndef TESTS_FAULTS_SCENARIOS_H
#define TESTS_FAULTS_SCENARIOS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/sim_fixture.h"

// A device whose modem lives in a process of its own, so that descriptors, threads, memory and calls of this
// process are the library's alone.
class Device {
 public:
  Device();
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  // The files and the modem as new.
  void reset() const;
  // The modem sends trace ('t') or reports ('u'), or waits until the trace port is closed ('c').
  void modem(char what) const;

  DeviceRoot root;

 private:
  pid_t modem_ = 0;
  int orders_[2], done_[2];
};

// How an operation ended.
struct Answer {
  std::string operation;
  uint32_t status;
  std::string value;
  bool unknown;  // the value is one that says that nothing is known
  bool operator==(const Answer& other) const {
    return operation == other.operation && status == other.status && value == other.value;
  }
};

// What one run of a scenario has shown.
struct Run {
  // Waits until `condition` holds: up to ten seconds, then it is wrong; while calls fail a moment.
  template <typename Condition>
  void wait(const char* what, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patient ? 10000 : 30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) {
        if (patient) wrong.push_back(std::string(what) + " never came");
        return;
      }
      usleep(200);
    }
  }

  bool patient = true;
  std::vector<Answer> answers;
  std::vector<std::string> wrong;  // statuses that are not documented
};

// scenarios.txt tells how they are written.
struct Scenario {
  std::string name;
  bool whole_life;  // calls fail in wabs_open and wabs_close, too
  std::vector<std::string> files, act;
  static void perform(const std::vector<std::string>& lines, const Device& device, Run& run);
};

const std::vector<Scenario>& scenarios();

#endif
