// Both serial ports of a modem as raw pseudo terminals, with a script that answers commands: for tests that
// need every byte and every moment in their own hands.
#ifndef TESTS_SUPPORT_PTY_MODEM_H
#define TESTS_SUPPORT_PTY_MODEM_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/sim_fixture.h"

class PtyModem {
 public:
  // Links <root>/dev/ttyACM2 and ttyACM3 and makes <root> the library's root directory.
  PtyModem();
  ~PtyModem();
  PtyModem(const PtyModem&) = delete;
  PtyModem& operator=(const PtyModem&) = delete;

  const DeviceRoot& root() const { return root_; }
  int query() const { return query_; }
  int urc() const { return urc_; }

  // Answers each command (without its CR) with what the script returns; nothing for "". Runs on a thread of
  // its own.
  void script(std::function<std::string(const std::string& command)> script);
  // Bytes of the commands received so far, when no script runs.
  std::string received();

  // Closes both ends that stand for the modem.
  void unplug();

 private:
  void serve();

  DeviceRoot root_;
  int query_ = -1;
  int urc_ = -1;
  int stop_[2] = {-1, -1};
  std::function<std::string(const std::string&)> script_;
  std::thread thread_;
};

// Writes everything; false on an error.
bool write_all(int fd, const std::string& bytes);

#endif
