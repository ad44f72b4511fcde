// One session: a library on a simulated modem below a temporary root, and what it has shown so far.
#ifndef BRIOLAB_SESSION_H
#define BRIOLAB_SESSION_H

#include <atomic>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kit/log.h"
#include "lab/functions.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"

namespace lab {

// What a command showed, and what happened meanwhile.
struct Seen {
  using Lines = std::vector<std::string>;
  Lines output, sent, events;
  Lines changed;                         // "name=value"; of a row only the elements that changed
  Lines log;                             // those lines that `follow` asks for
  Lines notes;                           // for a person
  std::vector<log_capture::Line> lines;  // all of them

  Lines text() const;  // all as a person sees it
};

struct Session {
  using Lines = Seen::Lines;

  explicit Session(bool start = true);  // the modem, too
  Seen run(const std::string& line);    // one command
  std::string end();                    // closes everything; what is left open, or "none"

  void command(const std::string& line);
  void emit(const std::string& line);
  void observe();  // shows commands, events and changes since the last look
  void forget();   // looks and shows nothing, log and sleeps included
  void settle();   // waits until an open library has handled all reports
  // What the log holds since it was shown or forgotten last, with N for what differs from run to run; forgets
  // it.
  Lines take_log(const Lines& parts);
  void show_log(const Lines& parts);  // and shows it
  Lines readable(const std::vector<log_capture::Line>& lines, const Lines& parts) const;
  std::string leftover() const;
  void unfinished(const std::string& reply);  // an answer that leaves its request waiting
  bool is_unfinished(const modemsim::Traffic& traffic);
  void expire_dropped();

  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  long descriptors = 0, threads = 0;  // at the start
  Seen seen;                          // by the command under way
  Lines follow;                       // log lines that every command shows
  Fields shown;
  std::vector<log_capture::Line> log;  // not yet shown
  std::thread::id event_thread;
  size_t commands_seen = 0, log_seen = 0, sleeps_seen = 0, markers = 0;
  double time_seen = 0;
  std::vector<std::pair<std::string, std::future<std::string>>> running;
  bool holding = false;           // events
  std::atomic<bool> alone{true};  // no `async` runs: whoever waits keeps everybody waiting
  Lines played;                   // events of a scenario
  std::mutex unfinished_mutex;    // guards the next one
  Lines unfinished_replies;
};

std::string did_you_mean(const std::string& name);  // "; did you mean X?", or nothing
double now();                                       // seconds of the library's clock
// The thread that raises an event stays in it until it is let go.
void hold_events(bool hold);
bool wait_held();

using Command = void (*)(Session&, Arguments&);
std::map<std::string, Command>& commands();
// What else may be left at a session's end: a text, or nothing.
inline std::function<std::string()> also_left;
const Call& function(const std::string& name);  // of the library; throws UsageError

}  // namespace lab

#endif
