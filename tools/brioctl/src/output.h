// What a verb leaves on standard output: text for people, or with --json objects, one a line. docs/json.md
// lists their members.
#ifndef BRIOCTL_OUTPUT_H
#define BRIOCTL_OUTPUT_H

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace brioctl::output {

// Before the first verb's work. `json`: objects are printed.
void begin(const std::string& verb, bool json);
bool json();

// The members that the verb adds to its object. ASCII only is printed: terminals take DEL and C1 for
// controls.
nlohmann::ordered_json& result();
// Prints the object now, for a verb that goes on; result() is empty afterwards.
void line();
// A sentence beside the result: on standard error, and among the object's notes.
void note(const std::string& sentence);

// What went wrong, where no Failure tells it: for the last object.
void error(const std::string& sentence);

// What was printed is handed on. Throws Failure when it cannot be.
void flush();
// Prints the last object, which tells how the verb ended, and hands on what was printed. The exit status:
// `status`, or 1 when the output cannot be written.
int end(int status, const std::string& error);

}  // namespace brioctl::output

#endif
