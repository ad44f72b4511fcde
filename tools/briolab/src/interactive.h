// A session that is typed.
#ifndef BRIOLAB_INTERACTIVE_H
#define BRIOLAB_INTERACTIVE_H

#include <string>

namespace lab {

// Takes commands from the standard input until it ends and shows what each brings. `record` is a file for the
// session, or empty; with `verbose` every command shows the library's whole log. False when something is
// left behind. A command that cannot be run is told at a terminal, and else throws UsageError.
bool run_interactively(const std::string& record, bool verbose);

// All of commands.txt, the lines about one command, or the arguments of one function. Empty: there is
// neither.
std::string help(const std::string& name = "");
// Every function that `call` knows, with its arguments.
std::string function_list();

}  // namespace lab

#endif
