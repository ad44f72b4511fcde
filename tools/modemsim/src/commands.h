// The commands that the modem knows: one table from pattern to handler.
#ifndef MODEMSIM_COMMANDS_H
#define MODEMSIM_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include "modemsim/modem.h"
#include "state.h"

namespace modemsim {

// What a handler works on. `last` is where the modem was when it last left a network of automatic selection
// (no numeric: nowhere yet), so that it can return there.
struct Session {
  State& state;
  Network& last;
};

// How a command is written: AT+X, AT+X?, AT+X=?, AT+X=1,2 or AT@X(1).
enum class Form { kPlain, kRead, kTest, kSet, kCall };

using Arguments = std::vector<std::string>;
using Handler = std::function<std::string(Session&, const Arguments&)>;

struct Command {
  std::string name;  // upper case
  Form form;
  Handler run;
  const char* arguments;  // for the list of commands
  const char* what;
};

// The command line taken apart: name in upper case, arguments without their quotes.
struct Parsed {
  std::string name;
  Form form = Form::kPlain;
  Arguments arguments;
};

// The commands of a line, 3GPP TS 27.007 and ITU-T V.250: "ATE0+CSQ;+COPS?" is ATE0, AT+CSQ and AT+COPS?. A
// line without AT comes back as it is.
std::vector<std::string> split_line(const std::string& line);
// False when a quote or bracket is left open.
bool parse_command(const std::string& text, Parsed& parsed);
const std::vector<Command>& command_table();
// What follows the name before the arguments: "", "?", "=?", "=" or "(".
const char* mark_of(Form form);

// How long the modem works on a command before it answers.
Milliseconds command_time(const Parsed& command, const State& state);
bool is_scan(const Parsed& command);

// The modem starts anew: reports off, echo on, radio on. It registers if it was told to stay away.
void boot(Session& session);
// The network sends the modem elsewhere: to the operator of that number, of the list or not. Nothing happens
// while the modem is told to stay away from networks.
void move_to_network(Session& session, const std::string& numeric);

// The whole answer to one command with its line ends, ERROR for what is not known. Errors have the form that
// AT+CMEE chose.
std::string answer_command(const std::string& text, Session& session);

inline constexpr char kOk[] = "\r\nOK\r\n";
inline constexpr char kError[] = "\r\nERROR\r\n";

}  // namespace modemsim

#endif
