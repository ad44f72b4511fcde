#include "watch_screen.h"

#include "report.h"

#ifdef BRIOCTL_SCREEN

#include <langinfo.h>
#include <locale.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>

// The macros of the plain names would hide std::move and the like.
#define NCURSES_NOMACROS
#include <curses.h>
#include <term.h>

namespace brioctl::watch {
namespace {

constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

std::atomic<bool> s_taken{false};
static_assert(std::atomic<bool>::is_always_lock_free);
termios s_before;   // what restore_terminal() puts back; set before s_taken
char s_leave[256];  // the terminal's own words for it
SCREEN* s_screen = nullptr;
bool s_ascii = false;

std::string capability(const char* name) {
  const char* text = tigetstr(name);
  return text == nullptr || text == reinterpret_cast<const char*>(-1) ? "" : text;
}

void on_crash(int number) {
  restore_terminal();
  raise(number);
}

// A debugger's or a sanitizer's own handler stays.
void at_crash(void (*handler)(int), void (*instead_of)(int)) {
  for (const int number : kCrashes) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler != instead_of) continue;
    action = {};
    action.sa_handler = handler;
    if (handler == on_crash) action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(number, &action, nullptr);
  }
}

}  // namespace

bool screen_possible() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return false;
  int error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) return false;
  const bool able = !capability("cup").empty() && !capability("clear").empty();
  del_curterm(cur_term);  // newterm() sets up its own
  return able;
}

Terminal::Terminal() {
  setlocale(LC_CTYPE, "");
  s_ascii = std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0;
  if (tcgetattr(STDOUT_FILENO, &s_before) != 0 || (s_screen = newterm(nullptr, stdout, stdin)) == nullptr) {
    throw Failure("The terminal cannot be drawn on; --lines needs none.");
  }
  const std::string leave = capability("sgr0") + capability("cnorm") + capability("rmcup");
  std::strncpy(s_leave, leave.c_str(), sizeof s_leave - 1);
  s_taken = true;
  at_crash(on_crash, SIG_DFL);
  cbreak();
  noecho();
  curs_set(0);
  keypad(stdscr, TRUE);
}

Terminal::~Terminal() {
  if (s_taken.exchange(false)) endwin();
  at_crash(SIG_DFL, on_crash);
  delscreen(s_screen);
  s_screen = nullptr;
}

void restore_terminal() {
  if (!s_taken.exchange(false)) return;
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, s_leave, strnlen(s_leave, sizeof s_leave));
  tcsetattr(STDOUT_FILENO, TCSANOW, &s_before);
}

int Terminal::width() const {
  return getmaxx(stdscr);
}

int Terminal::height() const {
  return getmaxy(stdscr);
}

bool Terminal::ascii() const {
  return s_ascii;
}

void Terminal::draw(const std::vector<Row>& rows) {
  erase();
  for (std::size_t i = 0; i < rows.size(); i++) {
    const attr_t style = rows[i].style == Row::kTitle   ? A_REVERSE
                         : rows[i].style == Row::kAlarm ? A_BOLD
                                                        : A_NORMAL;
    attr_set(style, 0, nullptr);
    mvaddstr(static_cast<int>(i), 0, rows[i].text.c_str());
  }
  attr_set(A_NORMAL, 0, nullptr);
  refresh();
}

int Terminal::key(int milliseconds) {
  timeout(milliseconds);
  const int key = getch();
  return key == ERR || key == KEY_RESIZE ? 0 : key;
}

}  // namespace brioctl::watch

#else

namespace brioctl::watch {

bool screen_possible() {
  return false;
}

Terminal::Terminal() {
  throw Failure("This brioctl was built without ncurses; --lines needs no screen.");
}
Terminal::~Terminal() = default;
int Terminal::width() const {
  return 0;
}
int Terminal::height() const {
  return 0;
}
bool Terminal::ascii() const {
  return true;
}
void Terminal::draw(const std::vector<Row>&) {}
int Terminal::key(int) {
  return 0;
}
void restore_terminal() {}

}  // namespace brioctl::watch

#endif
