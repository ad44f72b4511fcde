// What a host does with the library while calls below it fail, and the device that it does it on.
#ifndef TESTS_FAULTS_SCENARIOS_H
#define TESTS_FAULTS_SCENARIOS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "brio/brio_log_bits.h"
#include "modemsim/device_root.h"

using Words = std::vector<std::string>;
Words split(std::string text, const std::string& separator);
// Of a text file, without blank lines and those that begin with "#".
Words read_lines(const char* path);

// Says what is wrong with the case that runs.
void fail(const std::string& message);

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
  // The modem sends a report ("+...") or trace ("trace"), or waits until the trace port is closed
  // ("untraced").
  void modem(const std::string& order) const;

  modemsim::DeviceRoot root;

 private:
  pid_t modem_ = 0;
  int line_ = -1;
};

// How an operation ended.
struct Answer {
  std::string operation;
  uint32_t status;
  std::string value;
  bool unknown = false;  // the value is one that says that nothing is known
  bool stray = false;    // it may be made of the late answer to an earlier request
  bool operator==(const Answer& other) const {
    return operation == other.operation && status == other.status && value == other.value;
  }
};
using Answers = std::vector<Answer>;

// One life of the library in its host's hands.
class Run {
 public:
  // What stray() needs.
  static constexpr uint32_t kLogMask =
      BRIO_LOG_PORT | BRIO_LOG_SELECT | BRIO_LOG_REQUEST | BRIO_LOG_AT_DETAIL;
  Run(const Device& its_device, bool is_patient) : device(its_device), patient(is_patient) {}
  // Plays the lines of a scenario; one that ends with a status that it does not name is wrong.
  Answers perform(const Words& lines);
  // Follows the query port in the log. Whether a request was sent, since the last look, before all earlier
  // ones were answered and the answers handled: what it received may have been theirs.
  bool stray();

  const Device& device;
  bool patient;  // what is waited for must come
  Answers answers;

 private:
  long owed_ = 0;      // answers to come or to be handled
  long read_ = 0;      // of these, those in the read that is being handled
  long queued_ = 0;    // statuses that nobody has taken
  bool takes_ = true;  // the request under way takes one
};

// scenarios.txt tells how they are written.
struct Scenario {
  std::string name;
  bool whole_life;  // calls fail in wabs_open and wabs_close, too
  Words files, act;
};

const std::vector<Scenario>& scenarios();

#endif
