// modemsim: the simulated modem as a program.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "device_files.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "modemsim/scenario.h"
#include "printable.h"

namespace {

constexpr char kAbout[] =
    "modemsim plays a cellular modem: it makes the three serial ports of the device below a root folder, "
    "answers AT "
    "commands on the query port, sends reports on the URC port and trace bytes on the trace port.";

constexpr char kExample[] =
    "Example, in two terminals:\n"
    "  modemsim --root ~/device --scenario home-lte -v\n"
    "  brioctl --root ~/device status\n"
    "or by hand, with any serial terminal:\n"
    "  picocom ~/device/dev/ttyACM2\n"
    "\n"
    "A scenario is a TOML file: [state] sets what the modem knows, [[at]] tells what happens when. Those "
    "that are\n"
    "installed are found by their name (home-lte, rough-day).";

const char* form_of(modemsim::Form form) {
  switch (form) {
    case modemsim::Form::kRead:
      return "?";
    case modemsim::Form::kTest:
      return "=?";
    case modemsim::Form::kSet:
      return "=";
    default:
      return "";
  }
}

void list_commands() {
  for (const modemsim::Command& command : modemsim::command_table()) {
    std::string usage = std::string(command.name) + form_of(command.form) + command.arguments;
    if (command.form == modemsim::Form::kCall) {
      usage = std::string(command.name) + "(" + command.arguments + ")";
    }
    std::printf("%-60s %s\n", usage.c_str(), command.what);
  }
  std::printf("Everything else is answered with ERROR. Case does not matter.\n");
}

// Bytes as they went over the wire, on one line.
std::string visible(const std::string& bytes) {
  constexpr std::size_t kShown = 2000;
  return printable(bytes.substr(0, kShown)) + (bytes.size() > kShown ? "..." : "");
}

class Printer {
 public:
  void traffic(const modemsim::Traffic& traffic) {
    const char* const names[] = {"trace", "query", "urc  "};
    line(std::string(names[static_cast<int>(traffic.port)]) + (traffic.to_modem ? " > " : " < ") +
         visible(traffic.bytes));
  }
  void event(const std::string& text) { line("event   " + printable(text)); }

 private:
  void line(const std::string& text) {
    const std::chrono::duration<double> now = std::chrono::steady_clock::now() - start_;
    std::printf("%9.3f %s\n", now.count(), text.c_str());
    if (std::fflush(stdout) != 0) kill(getpid(), SIGTERM);  // nobody reads any more: the end
  }

  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Waits for a signal to end, at most `seconds` (0: without limit).
void wait_for_the_end(const sigset_t& signals, double seconds) {
  if (seconds <= 0) {
    int which = 0;
    sigwait(&signals, &which);
    return;
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  do {
    const std::chrono::duration<double> left = end - std::chrono::steady_clock::now();
    if (left.count() <= 0) return;
    timespec patience{};
    patience.tv_sec = static_cast<time_t>(left.count());
    patience.tv_nsec = static_cast<long>((left.count() - static_cast<double>(patience.tv_sec)) * 1e9);
    if (sigtimedwait(&signals, nullptr, &patience) > 0) return;
  } while (errno == EINTR);
}

int complain(const std::string& what) {
  std::fprintf(stderr, "modemsim: %s\n", printable(what, '\n').c_str());
  return 1;
}

// Makes `root` this modem's, or says why it cannot be: a second modem in the same folder would take the first
// one's ports away. Held until the program ends. A folder that cannot be made is for the modem to complain
// about.
std::string claim(const std::string& root) {
  std::string problem = modemsim::foreign_root(root);
  if (!problem.empty()) return problem;
  std::error_code failed;
  std::filesystem::create_directories(root, failed);
  const int folder = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0 && flock(folder, LOCK_EX | LOCK_NB) != 0) return "another simulated modem runs in " + root;
  return modemsim::foreign_root(root);
}

int play(std::string root, const std::string& scenario_name, const std::string& recording, bool verbose,
         double seconds, double speed) {
  modemsim::Scenario scenario;
  if (!scenario_name.empty()) {
    const std::string file = modemsim::find_scenario(scenario_name);
    if (file.empty()) {
      return complain("there is no scenario " + scenario_name + ": name a file or an installed scenario");
    }
    scenario = modemsim::load_scenario(file);
  }

  // Signals first: every thread from here on leaves them to wait_for_the_end.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  std::optional<modemsim::DeviceRoot> own_root;
  if (root.empty()) root = own_root.emplace("modemsim").dir();
  const std::string problem = claim(root);
  if (!problem.empty()) return complain(problem);
  Printer printer;
  modemsim::Modem modem;
  if (verbose) modem.observe([&](const modemsim::Traffic& traffic) { printer.traffic(traffic); });
  // Of a recording the events are what one wants to know: where the host left it.
  if (verbose || !recording.empty()) {
    modem.observe_events([&](const std::string& text) { printer.event(text); });
  }
  if (!modem.start(root)) return complain(modem.error());
  const bool ready = recording.empty() ? modem.play(scenario, speed) : modem.replay(recording, speed);
  if (!ready) return complain(modem.error());
  if (!scenario.title.empty()) std::printf("%s\n", printable(scenario.title).c_str());
  std::printf("query port %s/dev/ttyACM2\nURC port   %s/dev/ttyACM3\ntrace port %s/dev/ttyACM1\n",
              root.c_str(), root.c_str(), root.c_str());
  std::printf("End with Ctrl-C.\n");
  std::fflush(stdout);
  wait_for_the_end(signals, seconds);
  if (!recording.empty()) std::printf("%s\n", printable(modem.replayed()).c_str());
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : complain("the output cannot be written");
}

int run(int argc, char** argv) {
  CLI::App app{kAbout, "modemsim"};
  app.footer(kExample);
  std::string root;
  std::string scenario, recording;
  bool commands = false;
  bool verbose = false;
  double seconds = 0;
  double speed = 1;
  app.add_option("--root", root, "Folder used as the device's \"/\" (default: a temporary one)")
      ->check(command_line::not_empty);
  app.add_option("--scenario", scenario, "Scenario file, or an installed one: demo, home-lte, rough-day")
      ->check(command_line::not_empty);
  auto* replay =
      app.add_option("--replay", recording,
                     "Answer as in this AT log, or folder of brioctl record, and tell where the host "
                     "leaves it")
          ->type_name("FILE|DIR")
          ->check(command_line::not_empty);
  app.get_option("--scenario")->excludes(replay);
  app.add_option("--speed", speed,
                 "Play the scenario or the recording this many times as fast; 0: a recording without waiting")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--seconds", seconds, "End after this time (default: at Ctrl-C)")
      ->check(command_line::above_zero);
  app.add_flag("--list-commands", commands, "Print the commands that the modem knows");
  app.add_flag("-v,--verbose", verbose, "Print each command, answer, report and event");
  int ended = 0;
  if (!command_line::parse(app, argc, argv, &ended)) return ended;
  if (commands) {
    list_commands();
    return 0;
  }
  if (speed == 0 && recording.empty()) {
    std::fprintf(stderr, "--speed: only a recording can be played without waiting; give a number above 0\n");
    return command_line::kUsage;
  }
  return play(root, scenario, recording, verbose, seconds, speed);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return complain(error.what());
  }
}
