// Sessions as text files: commands, each with what it is expected to show after "=>" (docs/briolab.md).
#ifndef BRIOLAB_SESSION_FILE_H
#define BRIOLAB_SESSION_FILE_H

#include <string>

#include "session.h"

namespace lab {

// Plays a file and prints what differs, or with `update` writes into it what is shown. Whether it holds: what
// is expected was shown, and no thread or descriptor was left. Throws UsageError, also for a command that
// could not be run.
bool play_session(const std::string& path, bool update);

// Prints a file's commands, one a line, with its cases and names filled in; a blank line where the file has
// one.
void list_session(const std::string& path);

// One line of such a file that expects all that was seen.
std::string session_line(const std::string& command, const Seen& seen);

}  // namespace lab

#endif
