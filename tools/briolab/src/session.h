// One session: a library on a simulated modem below a temporary root, and what it has shown so far.
#ifndef BRIOLAB_SESSION_H
#define BRIOLAB_SESSION_H

#include <future>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/functions.h"
#include "lab/log_capture.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"

namespace lab {

class Client;

struct Session {
  using Lines = std::vector<std::string>;

  Session();
  Lines run(const std::string& line);  // one command; its output
  std::string end();                   // closes everything; what is left behind, or "none"

  void command(const std::string& line);
  void emit(const std::string& line);
  void observe();                     // shows commands, events and changes since the last look
  void forget();                      // looks and shows nothing, log and sleeps included
  void settle();                      // waits until an open library has handled all reports
  void show_log(const Lines& parts);  // and forgets it
  std::string leftover() const;

  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  long descriptors = 0, threads = 0;  // at the start
  Lines output;
  Lines follow;          // log lines that every command shows
  Lines shown_commands;  // of those that the modem received; none: all
  Fields shown;
  std::vector<log_capture::Line> log;  // not yet shown
  std::thread::id event_thread;
  size_t commands_seen = 0, log_seen = 0, sleeps_seen = 0, markers = 0;
  double time_seen = 0;
  std::map<std::string, std::string> touched;
  std::vector<std::pair<std::string, std::future<std::string>>> running;
  bool holding = false;                                    // events
  std::map<std::string, std::shared_ptr<Client>> clients;  // on ports, by device
  Lines played;                                            // events of a scenario
};

double now();  // seconds of the library's clock
// Whoever raises an event stays in it until it is let go.
void hold_events(bool hold);
bool wait_held();

using Command = void (*)(Session&, Arguments&);
const std::map<std::string, Command>& commands();
void add_stand_ins(std::map<std::string, Command>& table);  // those of stand_ins.cpp

}  // namespace lab

#endif
