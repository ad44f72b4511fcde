// The simulated modem: a state model with three pseudo terminals.
//
// Modem::start links <root>/dev/ttyACM1..3 to the ptys, so that a library with brio_set_root_dir(<root>)
// opens them. Every public function may be called from any thread. Everything runs on one thread of the
// simulator's own, which sleeps while nothing happens.
//
// Trace bytes go out on the trace port (ttyACM1), answers on the query port (ttyACM2), unsolicited reports on
// the URC port (ttyACM3). What is written while nobody has the port open is lost, as on a real device: open
// the port (or the library) first, then report. A port's unread rest is thrown away when its last user closes
// it. A reader that stops reading never stops the simulator: up to 16 MiB per port wait for it, the rest is
// dropped.
//
// Commands are answered one after the other, in the order in which they came; a slow one (a delay, a scan)
// keeps the later ones waiting. Command names are compared without regard to case. A line may hold several
// commands. Unknown commands answer ERROR.
#ifndef MODEMSIM_MODEM_H
#define MODEMSIM_MODEM_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "modemsim/modem_state.h"

namespace modemsim {

enum class Port { kTrace, kQuery, kUrc };

// How the answer to a command differs from what the state says. Matches count down and then pass. Of several
// faults that fit a command the one that was added first applies; `skip` counts every command that fits. A
// command whose answer is replaced, withheld or cut by unplugging has no effect on the state.
struct Fault {
  std::string command;  // prefix of the command, case does not matter; "" matches every command
  int skip = 0;         // leave this many matching commands alone first
  int times = -1;       // then apply to this many, -1 for ever
  std::string reply;    // raw bytes instead of the answer when `replace`
  bool replace = false;
  bool silent = false;    // no answer at all
  Milliseconds delay{0};  // before the answer
  std::string before;     // raw bytes before the answer (junk)
  std::string after;      // raw bytes after it
  bool joined = false;    // no blank lines: each line ends in CR LF only
  bool unplug = false;    // the modem goes away instead of answering
};

// A report of a scripted answer: so long after the command.
struct TimedLine {
  Milliseconds time{0};
  std::string line;
};

// A scripted answer: it takes the place of what the state gives and has no effect on the state. Of several
// for the same command, those whose `after` holds come first, then those without; among these the first one
// that is not used up.
struct Answer {
  std::string command;             // the whole command, case does not matter
  std::vector<std::string> lines;  // without line ends, the final line included; none: no answer ever comes
  int times = -1;                  // -1 for ever
  Milliseconds delay{0};
  // Holds while this is the last command that set something under its name: after = "AT+COPS=2" until another
  // AT+COPS=... comes. "" holds always.
  std::string after;
  std::vector<TimedLine> reports;
};

// What went over a port, for an observer. Line ends are part of `bytes` in what the modem writes. An answer
// that a fault withholds (silent) is a write of no bytes.
struct Traffic {
  Port port = Port::kQuery;
  bool to_modem = false;
  std::string bytes;
};

struct Scenario;  // modemsim/scenario.h

// The commands that the modem knows, without what is set: "AT+CFUN?", "AT+CFUN=", "ATI".
std::vector<std::string> known_commands();

class Modem {
 public:
  explicit Modem(State state = {});
  ~Modem();
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

  // Opens the ptys and links them below `root`, where it creates the folders that a device has. False with a
  // message in error().
  bool start(const std::string& root);
  // Hangs up, removes the links. What was not written yet is lost. Also done by the destructor.
  void stop();
  std::string error() const;

  // Reads or changes the state on the simulator's thread; returns when done. No report is sent by itself.
  // `change` must not call the modem.
  void with_state(const std::function<void(State&)>& change);
  State state();
  // The same, and sends the reports that a modem sends by itself when these values change: of registration,
  // +GTBARS and +BASURC, each as far as it was switched on.
  void update(const std::function<void(State&)>& change);

  // One line on the URC port, framed with CR LF on both sides.
  void urc(const std::string& line);
  // Raw bytes on a port.
  void raw(Port port, const std::string& bytes);
  // A command as if the query port had brought it. Before start() it is answered at once, to the observer.
  void tell(const std::string& command);

  // Adds a scripted answer. A fault that fits the command comes before it.
  void answer(const Answer& answer);
  void fault(const Fault& fault);
  void clear_faults();  // and scripted answers
  // Answers and reports are written in pieces of this many bytes; 0 writes whole. The next piece follows when
  // the reader has taken the one before, at the latest after 20 ms.
  void chunk(std::size_t bytes);

  // Commands received since start or clear_commands, without their CR.
  std::vector<std::string> commands();
  void clear_commands();
  // Waits until `command` was received `times` times; false after `patience`.
  bool wait_command(const std::string& command, std::size_t times = 1,
                    Milliseconds patience = Milliseconds(10000));
  // Waits until all that was handed to urc(), raw() and answers went out; false after `patience`.
  bool wait_written(Milliseconds patience = Milliseconds(10000));

  // The modem goes away (both ends see a hang-up, the links vanish) and comes back with new ptys under the
  // same links, just booted: echo on, reports off, commands in work and reports of answers forgotten. plug()
  // is false with a message in error().
  void unplug();
  bool plug();
  bool is_plugged() const;

  bool is_open(Port port) const;  // by anybody
  // Waits until somebody has the port open, or nobody; false after `patience`.
  bool wait_open(Port port, bool open = true, Milliseconds patience = Milliseconds(10000));

  // Sends `bytes` trace bytes, generated while they are read (nothing is held in memory), at most
  // `bytes_per_second` of them (0: as fast as they are taken). The byte at position n of the stream, counted
  // since start, is trace_byte(n).
  void stream_trace(std::uint64_t bytes, std::uint64_t bytes_per_second = 0);
  static unsigned char trace_byte(std::uint64_t position);

  // Plays a scenario from its beginning: sets the state, places files and sensor below the root, starts the
  // timeline, `speed` times as fast as written. Call it after start and before the library is opened. False
  // with a message in error(). stop() ends it; a second scenario replaces the first.
  bool play(const Scenario& scenario, double speed = 1);
  // Waits until the last event of the timeline was played; false after `patience`.
  bool wait_played(Milliseconds patience = Milliseconds(10000));

  // From now on the modem answers as it did in an AT log (at_log.h): a file, or the folder of a recording.
  // Reports come at their place among the commands, at the latest when the next command comes. `speed` times
  // as fast as recorded; 0: without waiting. A command that is not the next one of the recording is told to
  // the observer of events, with what was expected. It is answered as among the next 20, where the host is
  // followed to; else as at its last place or any later one, else with ERROR. A host whose next command
  // follows there, too, is followed. False with a message in error().
  bool replay(const std::string& path, double speed = 1);
  // How far a host has followed the recording: a sentence.
  std::string replayed();

  // Called on the simulator's thread for each command and each write; must not call the modem. Set before
  // start.
  void observe(std::function<void(const Traffic&)> observer);
  // The same for each event of a timeline that is played.
  void observe_events(std::function<void(const std::string& text)> observer);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace modemsim

#endif
