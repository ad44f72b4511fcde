// What a shell of AT commands knows before anybody types, and what it keeps of what was typed.
#ifndef BRIOCTL_AT_WORDS_H
#define BRIOCTL_AT_WORDS_H

#include <string>
#include <vector>

namespace brioctl {

// For completion.
std::vector<std::string> known_at_commands();

// The commands typed in earlier sessions: at_history in $XDG_STATE_HOME/brioctl, else in
// ~/.local/state/brioctl, which nobody else may read. Where it cannot be kept, nothing is.
class AtHistory {
 public:
  AtHistory();
  ~AtHistory();
  AtHistory(const AtHistory&) = delete;
  AtHistory& operator=(const AtHistory&) = delete;

  const std::vector<std::string>& lines() const { return lines_; }  // the oldest first
  // False for a line that holds an identity, a phone number or a secret: that one is not kept.
  bool keep(const std::string& line);

 private:
  int file_ = -1;
  std::vector<std::string> lines_;
};

}  // namespace brioctl

#endif
