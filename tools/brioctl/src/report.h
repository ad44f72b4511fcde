// What a person or a script reads: failures as sentences, values as a table or as JSON.
#ifndef BRIOCTL_REPORT_H
#define BRIOCTL_REPORT_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace brioctl {

// A failure told as a sentence that says what to do next.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One value that the library was asked for.
struct Row {
  std::string operation;
  uint32_t status = 0;
  std::string value;    // as printed; "" when there is none
  std::string unit;     // or what the number means
  bool number = false;  // `value` is a decimal number

  bool of_library() const { return operation.rfind("brio_", 0) == 0; }  // its status is a BRIO_STATUS_*
  std::string status_text() const;
};

// For people: control characters of a value are escaped.
std::string render_table(std::vector<Row> rows);
nlohmann::ordered_json rows_json(const std::vector<Row>& rows);

// The names that wabs.h and brio.h give to a WABS_STATUS_* and a BRIO_STATUS_* code.
std::string status_name(uint32_t status);
std::string library_status_name(uint32_t status);
// All but the first six digits replaced, unless `show`.
std::string masked(const std::string& digits, bool show);

// How often a signal asked for the end (SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE); install_signals() must
// have run.
int interrupted();
// The exit status of a program that a signal ended: 128 and the signal's number.
int interrupted_status();
// Readable while interrupted() is not 0.
int interrupt_event();
// As if there had been no signal yet: for a prompt that Ctrl-C does not end.
void forget_interrupt();
// Readable when a signal came since it was read last: for the relay.
int signal_event();
void install_signals();
// Waits, at most until interrupted or until `event` is readable; false when interrupted.
bool pause_for(double seconds, int event = -1);

}  // namespace brioctl

#endif
