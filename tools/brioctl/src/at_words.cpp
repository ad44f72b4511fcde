#include "at_words.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "at_log.h"
#include "modemsim/modem.h"
#include "text.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kKept = 1000;

std::string history_path() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  // A relative one does not count.
  if (state != nullptr && state[0] == '/') return std::string(state) + "/brioctl/at_history";
  return home == nullptr || home[0] != '/' ? "" : std::string(home) + "/.local/state/brioctl/at_history";
}

bool is_private(const std::string& line) {
  // After "AT"; those that only ask hold nothing.
  static constexpr const char* kCommands[] = {"D",     "+CPIN=",   "+CPWD=", "+CLCK=", "+CMGS", "+CMGW",
                                              "+CSCA", "+CGAUTH=", "+CCFC=", "+CPBW=", "+EGMR="};
  const std::string command = at_log::compact(line);
  std::istringstream chain(starts(command, "AT") ? command.substr(2) : command);
  for (std::string part; std::getline(chain, part, ';');) {
    for (const char* kept : kCommands) {
      if (starts(part, kept)) return true;
    }
  }
  at_log::Line masked;
  masked.to_modem = true;
  masked.text = line;
  at_log::Mask().hide(masked);
  return masked.text != line;
}

}  // namespace

std::vector<std::string> known_at_commands() {
  std::vector<std::string> commands = modemsim::known_commands();
  // Usual ones that only real modems know.
  commands.insert(commands.end(), {"AT", "AT+CEREG=", "AT+CEREG?", "AT+CGATT=", "AT+CGATT?", "AT+CGCONTRDP",
                                   "AT+CMGF=", "AT+CMGF?", "AT+CMGL=", "AT+CMGS=", "AT+CTZR?"});
  return commands;
}

AtHistory::AtHistory() {
  const std::string path = history_path();
  if (path.empty()) return;
  const fs::path folder = fs::path(path).parent_path();
  std::error_code failed;
  fs::create_directories(folder.parent_path(), failed);
  mkdir(folder.c_str(), 0700);
  file_ = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  struct stat status {};
  if (file_ < 0 || fstat(file_, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
      fchmod(file_, 0600) != 0) {
    if (file_ >= 0) close(file_);
    file_ = -1;
    return;
  }
  std::string text;
  char bytes[4096];
  for (ssize_t size; (size = read(file_, bytes, sizeof bytes)) > 0;) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines_.push_back(line);
  if (lines_.size() <= 2 * kKept) return;
  lines_.erase(lines_.begin(), lines_.end() - static_cast<std::ptrdiff_t>(kKept));
  text.clear();
  for (const std::string& line : lines_) text += line + "\n";
  if (ftruncate(file_, 0) == 0) {
    [[maybe_unused]] const ssize_t written = write(file_, text.data(), text.size());
  }
}

AtHistory::~AtHistory() {
  if (file_ >= 0) close(file_);
}

bool AtHistory::keep(const std::string& line) {
  if (line.empty() || is_private(line)) return false;
  const std::string text = line + "\n";
  if (file_ >= 0) {
    [[maybe_unused]] const ssize_t written = write(file_, text.data(), text.size());
  }
  return true;
}

}  // namespace brioctl
