#include "interactive.h"

#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "commands_text.h"
#include "line_editor.h"
#include "session.h"
#include "session_file.h"

namespace lab {

namespace {

constexpr size_t kCommandColumn = 4;  // in commands.txt; what goes on is further to the right
volatile sig_atomic_t s_interrupted = 0;

bool begins_with(const std::string& line, const std::string& word) {
  return line.compare(0, word.size(), word) == 0 && (line.size() == word.size() || line[word.size()] == ' ');
}

// Whether one of the names before the text is this one: "    play FILE SPEED, played     a scenario ...".
bool is_about(const std::string& line, const std::string& name) {
  const std::string usage = line.substr(kCommandColumn, line.find("   ", kCommandColumn) - kCommandColumn);
  const size_t comma = usage.find(", ");
  return begins_with(usage, name) ||
         (comma != std::string::npos && begins_with(usage.substr(comma + 2), name));
}

std::string usage(const std::pair<const std::string, Call>& function) {
  return function.first + (function.second.words.empty() ? "" : " ") + function.second.words + "\n";
}

// Ctrl-C ends the input, and then the session as Ctrl-D does: the temporary folder goes away. A second one
// kills.
void end_at_interrupt() {
  struct sigaction action = {};
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  action.sa_handler = [](int) { s_interrupted = 1; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT}) sigaction(number, &action, nullptr);
}

// A command of the prompt itself; false when it is none.
bool answer_at_prompt(const std::string& line) {
  if (line == "functions") return std::cout << function_list(), true;
  if (!begins_with(line, "help")) return false;
  const std::string name = line.size() > 5 ? line.substr(5) : "";
  const std::string text = help(name);
  std::cout << (text.empty() ? "Neither a command nor a function: " + name + did_you_mean(name) + "\n"
                             : text);
  return true;
}

}  // namespace

std::string help(const std::string& name) {
  if (name.empty()) return kCommandsText;
  std::istringstream text(kCommandsText);
  std::string found;
  bool about = false;
  for (std::string line; std::getline(text, line);) {
    const size_t column = line.find_first_not_of(' ');
    if (column == kCommandColumn) about = is_about(line, name);
    about = about && column != std::string::npos && column >= kCommandColumn;
    if (about) found += line + "\n";
  }
  const auto function = calls().find(name);
  if (function != calls().end()) found += "    call " + usage(*function);
  return found;
}

std::string function_list() {
  std::string text;
  for (const auto& function : calls()) text += "  " + usage(function);
  return text;
}

bool run_interactively(const std::string& record, bool verbose) {
  LineEditor input;
  const bool terminal = input.terminal();
  // Known before anybody types.
  if (!record.empty() && std::filesystem::exists(record)) throw UsageError(record + " exists");
  std::ofstream kept(record.empty() ? "/dev/null" : record);
  if (!kept) throw UsageError(record + " cannot be written");
  end_at_interrupt();
  Session session;
  if (verbose) {
    session.run("set lib_mask=0xffffffff module_mask=0xffffffff");
    session.run("follow \"\"");
  }
  if (terminal) {
    std::cout << "The library on a simulated modem, below " << session.root.dir()
              << ".\n`help`, `help NAME` and `functions` tell what can be said; `quit` or Ctrl-D ends.\n";
  }
  std::string unusable;
  for (std::string line; s_interrupted == 0 && unusable.empty();) {
    std::cout << std::flush;
    if (!input.take("> ", &line)) break;
    if (terminal && !line.empty()) input.remember(line);
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty() || line[0] == '#') {
      kept << line << "\n";
      continue;
    }
    if (line == "quit" || line == "exit") break;
    if (answer_at_prompt(line)) continue;
    if (!terminal) std::cout << "> " << line << "\n";
    try {
      const Seen seen =
          session.run(calls().count(line.substr(0, line.find(' '))) != 0 ? "call " + line : line);
      for (const auto& each : seen.text()) std::cout << each << "\n";
      kept << session_line(line, seen) << "\n";
    } catch (const std::exception& error) {
      const std::string problem = line + ": " + error.what() + "\n" + help(line.substr(0, line.find(' ')));
      if (terminal) {
        std::cout << problem;
      } else {
        unusable = problem.substr(0, problem.size() - 1);
      }
    }
  }
  if (terminal) std::cout << "\n";
  const std::string left = session.end();
  if (left != "none") std::cout << "left behind: " << left << "\n";
  if (!kept.flush()) throw UsageError(record + " cannot be written");
  if (!unusable.empty()) throw UsageError(unusable);
  return left == "none";
}

}  // namespace lab
