#include "line_editor.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>
#ifdef BRIO_EDITS_LINES
#include <editline/readline.h>
#endif

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef BRIO_EDITS_LINES
namespace {

std::vector<std::string> s_words;  // of the completion
// What the handler of libedit took last.
bool s_taken = false, s_end = false;
std::string s_line;

void on_line(char* typed) {
  rl_callback_handler_remove();
  s_taken = true;
  s_end = typed == nullptr;
  s_line = s_end ? "" : typed;
  std::free(typed);
}

char* next_word(const char* begin, int again) {
  static std::size_t s_next;
  if (again == 0) s_next = 0;
  while (s_next < s_words.size()) {
    const std::string& word = s_words[s_next++];
    if (strncasecmp(word.c_str(), begin, std::strlen(begin)) == 0) return strdup(word.c_str());
  }
  return nullptr;
}

char** complete_word(const char* text, int, int) {
  rl_attempted_completion_over = 1;  // no names of files
  return rl_completion_matches(text, next_word);
}

}  // namespace
#endif

LineEditor::LineEditor() : terminal_(isatty(STDIN_FILENO) != 0) {
#ifdef BRIO_EDITS_LINES
  edits_ = terminal_;
  if (!edits_) return;
  static char s_blank[] = " ";
  rl_catch_signals = 0;  // signals are the program's
  rl_initialize();
  using_history();
  rl_attempted_completion_function = complete_word;
  rl_completer_word_break_characters = s_blank;
  rl_completion_append_character = '\0';
#endif
}

LineEditor::~LineEditor() {
  stop();
}

void LineEditor::remember(const std::string& line) {
#ifdef BRIO_EDITS_LINES
  constexpr int kKept = 1000;
  if (!edits_) return;
  add_history(line.c_str());
  stifle_history(kKept);
#else
  static_cast<void>(line);
#endif
}

void LineEditor::complete(const std::vector<std::string>& words) {
#ifdef BRIO_EDITS_LINES
  s_words = words;
#else
  static_cast<void>(words);
#endif
}

bool LineEditor::take(const std::string& prompt, std::string* line) {
  for (begin(prompt);;) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    const Got got = ready() || poll(&input, 1, -1) > 0 ? feed(line) : Got::kEnd;
    if (got == Got::kNothing) continue;
    stop();
    return got == Got::kLine;
  }
}

void LineEditor::begin(const std::string& prompt) {
  begun_ = true;
#ifdef BRIO_EDITS_LINES
  if (edits_) {
    rl_callback_handler_install(prompt.c_str(), on_line);
    return;
  }
#endif
  if (!terminal_) return;
  fputs(prompt.c_str(), stdout);
  fflush(stdout);
}

bool LineEditor::ready() const {
  return !edits_ && (ended_ || waiting_.find('\n') != std::string::npos);
}

LineEditor::Got LineEditor::feed(std::string* line) {
#ifdef BRIO_EDITS_LINES
  if (edits_) {
    rl_callback_read_char();
    if (!s_taken) return Got::kNothing;
    s_taken = begun_ = false;
    *line = s_line;
    return s_end ? Got::kEnd : Got::kLine;
  }
#endif
  if (!ready()) {
    char bytes[4096];
    const ssize_t size = read(STDIN_FILENO, bytes, sizeof bytes);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) return Got::kNothing;
    if (size > 0) waiting_.append(bytes, static_cast<std::size_t>(size));
    ended_ = size <= 0;
    if (!ready()) return Got::kNothing;
  }
  begun_ = false;
  if (waiting_.empty()) return Got::kEnd;
  const std::size_t end = waiting_.find('\n');
  *line = waiting_.substr(0, end);
  waiting_.erase(0, end == std::string::npos ? end : end + 1);
  if (!line->empty() && line->back() == '\r') line->pop_back();
  return Got::kLine;
}

void LineEditor::stop() {
#ifdef BRIO_EDITS_LINES
  if (edits_ && begun_) rl_callback_handler_remove();
#endif
  begun_ = false;
}

void LineEditor::print_above(const std::string& text) {
  const bool over = terminal_ && begun_;
  printf("%s%s\n", over ? "\r\033[K" : "", text.c_str());
  fflush(stdout);
#ifdef BRIO_EDITS_LINES
  if (edits_ && begun_) rl_forced_update_display();
#endif
}
