// The relay between a modem's query and URC ports and the program that drives them: passes every byte on and
// reports it to a journal.
#ifndef BRIOCTL_RELAY_H
#define BRIOCTL_RELAY_H

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "at_log.h"
#include "modemsim/pty_port.h"

namespace brioctl {

class Relay {
 public:
  // Opens both ports of the modem and begins to pass bytes. Throws Failure.
  Relay(const std::string& query_port, const std::string& urc_port, at_log::Journal* journal);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  // What the host opens instead.
  const std::string& query_device() const { return query_device_; }
  const std::string& urc_device() const { return urc_device_; }
  // The modem hung up; the host was hung up on, too.
  bool gone() const { return gone_; }

  // From so many signals on (0: never) one that is not heeded within half a second hangs up on the host,
  // which ends what it waits for. When even that does not help within two more seconds, `stuck` is called on
  // the relay's thread.
  void arm(int signals);
  void on_stuck(std::function<void()> stuck) { stuck_ = std::move(stuck); }  // before arm()

 private:
  struct Way {
    at_log::Port port = at_log::Port::kQuery;
    int modem = -1;
    modemsim::PtyPort host;
    std::string waiting;   // for the modem
    std::size_t lost = 0;  // bytes for the host, told when it takes some again
  };

  void open_modem(Way& way, const std::string& path);
  void close_all();
  void run();
  void look_who_opened();
  bool from_modem(Way& way);  // whether there was something
  bool from_host(Way& way);
  void pass_the_rest();
  void tell_lost(Way& way);
  void to_modem(Way& way);
  void hang_up();
  int heed_signals();

  at_log::Journal* journal_;
  std::array<Way, 2> ways_;  // the relay's thread alone, once it runs
  std::string query_device_, urc_device_;
  int inotify_ = -1;
  int wake_ = -1;  // readable when `end_` or `armed_` changed
  std::atomic<bool> end_{false};
  std::atomic<int> armed_{0};
  std::function<void()> stuck_;
  std::atomic<bool> gone_{false};
  std::chrono::steady_clock::time_point signalled_{};  // the relay's thread alone
  std::thread thread_;
};

}  // namespace brioctl

#endif
