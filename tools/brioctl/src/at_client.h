// The ports of a modem without the library: bytes out as they are, lines in, and which line ends an answer.
#ifndef BRIOCTL_AT_CLIENT_H
#define BRIOCTL_AT_CLIENT_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace brioctl {

struct AtAnswer {
  std::string command;
  std::vector<std::string> lines;  // as they came; the final one is `result`
  std::string result;              // "" for none in time, or when nobody waited for it
  double seconds = 0;
  bool ok() const;
};

class AtClient {
 public:
  using Clock = std::chrono::steady_clock;

  // Opens both ports. Throws Failure.
  AtClient(const std::string& query_port, const std::string& urc_port);
  ~AtClient();
  AtClient(const AtClient&) = delete;
  AtClient& operator=(const AtClient&) = delete;

  // A line of the answer, as it comes; a report, and whether the URC port brought it. The answer to an
  // earlier command is shown like reports; on_late tells, as a sentence, when it has ended.
  std::function<void(const std::string& line)> on_line;
  std::function<void(bool urc, const std::string& line)> on_report;
  std::function<void(const std::string& sentence)> on_late;

  // What waits in the query port already is no answer to what is sent next: it is shown like reports.
  bool take_waiting();                       // false when the modem went away
  void send(const std::string& command);     // with a CR after it
  void send_text(const std::string& bytes);  // as they are: what a prompt of the modem asked for
  enum class State { kIdle, kWaiting, kPrompted };
  State state() const { return state_; }
  // Nobody waits any more; an answer that still comes is shown like reports. `silent`: the modem had its
  // time.
  void give_up(bool silent);
  double waited() const;                              // seconds since something was sent
  const AtAnswer& answer() const { return answer_; }  // the last one; whole when idle

  int query_fd() const { return query_; }
  int urc_fd() const { return urc_; }
  // Takes what a port has. False when the modem went away.
  bool take(bool urc);

 private:
  void write_all(const std::string& bytes);
  void line(bool urc, const std::string& text);
  void query_line(const std::string& text);
  bool is_late_line(const std::string& text);
  void end(const std::string& text);
  void done();

  int query_ = -1, urc_ = -1;
  State state_ = State::kIdle;
  AtAnswer answer_;
  std::string partial_[2];  // of the query and the URC port
  std::string echo_;        // what the modem may repeat
  std::deque<std::string>
      owed_;               // commands that were given up and may still be answered, before the next one
  bool others_ = false;    // of the lines since the last end, one belongs to another command
  bool late_end_ = false;  // the end of an earlier answer came while this one was waited for
  Clock::time_point sent_, begun_;
};

}  // namespace brioctl

#endif
