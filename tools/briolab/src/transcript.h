// Sessions as text: commands ("> ...") and below each the lines that it shows. "#" and blank lines are free.
#ifndef BRIOLAB_TRANSCRIPT_H
#define BRIOLAB_TRANSCRIPT_H

#include <cstddef>
#include <string>
#include <vector>

namespace lab {

struct Step {
  size_t line;          // in the file, counted from 1
  std::string command;  // of the first step none: it holds the comments in front
  std::vector<std::string> expected, shown, comments;
};

// Writes what was shown. Throws UsageError.
void write_transcript(const std::string& path, const std::vector<Step>& steps);
// Plays it and prints what differs, or with `update` writes it anew. Whether it holds: everything was shown
// as expected, and nothing was left behind. Throws UsageError, also for a command that could not be run.
bool play_transcript(const std::string& path, bool update);

}  // namespace lab

#endif
