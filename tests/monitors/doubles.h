// Stand-ins for what lies below the proximity monitor and the trace capture: the modem library's calls, and
// system calls that are made to fail on purpose. Everything else goes through to the real ones.
#ifndef TESTS_MONITORS_DOUBLES_H
#define TESTS_MONITORS_DOUBLES_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace doubles {

// No failures, nothing recorded; library open, every request succeeds, carrier 0xFFFF.
void reset();

// ---- Modem library
void set_library_status(uint32_t status);
// Status of requests whose command begins with `prefix`.
void set_request_status(const std::string& prefix, uint32_t status);
// "type:command" of each request.
std::vector<std::string> requests();

void set_carrier(uint16_t carrier, uint32_t status = 0);  // a status other than 0 leaves the output alone
unsigned carrier_questions();
void set_sar_status(uint32_t status);
std::vector<uint32_t> sar_commands();
// SAR commands wait inside until let go.
void hold_sar(bool hold);
bool wait_sar_held();

// ---- Failing system calls: the next calls fail with `error`; 0 ends it.
void fail_send(int error);
void fail_socketpair(int error);
void fail_pthread_create(int error);
void fail_select_once(int error);  // of selects without time-out
void fail_tty_read_once(int error);

// Writes into files whose name ends in `suffix` go through `hook` instead (null: real). It returns what
// write(2) returns, with errno set.
using WriteHook = std::function<ssize_t(int fd, const void* data, size_t size)>;
void hook_writes(const std::string& suffix, WriteHook hook);
ssize_t real_write(int fd, const void* data, size_t size);

// Sent through send(2) so far.
unsigned sends();

// "entry=text" of every write below the sensor's directory, failed attempts included.
std::vector<std::string> sensor_writes();

}  // namespace doubles

#endif
