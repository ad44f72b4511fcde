// One transcript's run: a library on a simulated modem below a temporary root, and what it has shown so far.
#ifndef TESTS_TRANSCRIPT_SESSION_H
#define TESTS_TRANSCRIPT_SESSION_H

#include <functional>
#include <future>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/sim_fixture.h"

// A transcript that cannot be run as it stands: unknown command, wrong argument, a step that failed to set
// up.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What stands behind a command's name. Words are separated by blanks; parts of a word may stand in "..." with
// the escapes of C or in '...' as they are, and "A"*200 repeats a quoted part.
class Arguments {
 public:
  explicit Arguments(std::string line) : line_(std::move(line)) {}
  bool more();
  std::string text();
  bool take_null();  // the word null, not quoted
  long long number();
  bool option(const std::string& key, std::string* value);  // key=value, if that comes next
  std::string rest();  // all that is left as it stands, or one word in double quotes
  std::vector<std::string> words();
  void finish();  // nothing may be left

 private:
  std::string line_;
  size_t at_ = 0;
};

long long to_number(const std::string& text);
double to_real(const std::string& text);
std::string escaped(const std::string& bytes);
std::string quoted(const std::string& bytes);
// Whether the text holds one of the parts; without parts every text does.
bool holds_one(const std::string& text, const std::vector<std::string>& parts);
// The words between the commas; of a qualified or bracketed word its last part.
std::vector<std::string> split_names(const std::string& names);

using Fields = std::vector<std::pair<std::string, std::string>>;

// Shared record, SIM blocks, SIM status and the exported words.
Fields shared_fields();
// Sets a field of the shared record, lib_mask or module_mask.
void set_shared_field(const std::string& name, const std::string& value);
// A record of the library as "name=value ...".
template <typename R>
std::string describe(const R& record);

// Takes the arguments, calls, and gives the line that shows the result.
using Call = std::function<std::string(Arguments&)>;
const std::map<std::string, Call>& calls();
void add_channel(std::map<std::string, Call>& table);  // those of channel.cpp

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

  DeviceRoot root;
  modemsim::Modem modem;
  size_t descriptors = 0, threads = 0;  // at the start
  Lines output;
  Lines follow;  // log lines that every command shows
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

#endif
