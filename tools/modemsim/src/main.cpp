// modemsim: the simulated modem as a program.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "control.h"
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

void list_commands() {
  for (const modemsim::Command& command : modemsim::command_table()) {
    const std::string usage = command.name + mark_of(command.form) + command.arguments +
                              (command.form == modemsim::Form::kCall ? ")" : "");
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

// -- modemsim ctl

std::string joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::string told_status(modemsim::Modem& modem, const std::string& root) {
  using modemsim::Port;
  const bool plugged = modem.is_plugged();
  std::string text = std::string("modem      ") + (plugged ? "plugged in" : "unplugged") + "\n";
  constexpr std::tuple<const char*, const char*, Port> kPorts[] = {
      {"query port ", "/dev/ttyACM2", Port::kQuery},
      {"URC port   ", "/dev/ttyACM3", Port::kUrc},
      {"trace port ", "/dev/ttyACM1", Port::kTrace}};
  for (const auto& [name, path, port] : kPorts) {
    if (plugged) text += name + root + path + (modem.is_open(port) ? ", open\n" : ", not open\n");
  }
  text += "commands   " + std::to_string(modem.commands().size()) + "\n";
  if (!modem.replayed().empty()) return text + modem.replayed();
  return text + joined(settings_of(modem.state()), "\n");
}

// What a request asks for is done; a text says what was wrong with it.
modemsim::Reply obey(modemsim::Modem& modem, const std::string& root, const std::vector<std::string>& words) {
  if (words.empty()) return {false, "an empty request"};
  const std::string& verb = words[0];
  const std::vector<std::string> rest(words.begin() + 1, words.end());
  const bool plugged = modem.is_plugged();
  if (verb == "status") return {true, told_status(modem, root)};
  if (verb == "unplug") {
    if (!plugged) return {false, "the modem is unplugged already"};
    modem.unplug();
    return {true, ""};
  }
  if (verb == "replug") {
    modem.unplug();
    return {modem.plug(), modem.error()};
  }
  if (verb == "set") {
    if (!modem.replayed().empty()) return {false, "the modem answers from a recording, not from its state"};
    modem.update(modemsim::parse_settings(rest));
    return {true, ""};
  }
  if (verb != "urc") return {false, verb + ": there is no such request"};
  const std::string line = joined(rest, " ");
  if (line.find_first_of("\r\n") != std::string::npos) return {false, "a report is one line"};
  if (!plugged) return {false, "the modem is unplugged"};
  const bool heard = modem.is_open(modemsim::Port::kUrc);
  if (!heard) return {false, "nobody has the URC port open: the report is lost"};
  modem.urc(line);
  return {true, ""};
}

int control(const std::string& root, std::string socket, const std::vector<std::string>& words) {
  if (socket.empty() && !root.empty()) socket = modemsim::control_path(root);
  if (std::filesystem::is_directory(socket)) socket = modemsim::control_path(socket);
  if (socket.empty()) {
    const std::vector<std::string> running = modemsim::control_sockets();
    if (running.empty()) return complain("no simulated modem runs; name its --root or its --socket");
    if (running.size() > 1) {
      return complain("several simulated modems run; name one by --socket:\n  " + joined(running, "\n  "));
    }
    socket = running[0];
  }
  const modemsim::Reply reply = modemsim::control(socket, words);
  if (!reply.done) return complain(reply.text);
  if (!reply.text.empty()) std::printf("%s\n", printable(reply.text, '\n').c_str());
  return std::fflush(stdout) == 0 ? 0 : complain("the output cannot be written");
}

// -- Playing

// Until a signal comes, at most for `seconds` (0: without limit). Requests are served meanwhile.
void serve_until_the_end(const sigset_t& signals, double seconds, modemsim::ControlSocket& socket,
                         const std::function<modemsim::Reply(const std::vector<std::string>&)>& request) {
  const int signal_event = signalfd(-1, &signals, SFD_CLOEXEC);
  const auto start = std::chrono::steady_clock::now();
  for (bool ended = false; !ended;) {
    int patience = -1;
    if (seconds > 0) {
      const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
      if (passed.count() >= seconds) break;
      patience = static_cast<int>(std::ceil(std::min((seconds - passed.count()) * 1000, 1e9)));
    }
    pollfd items[] = {{signal_event, POLLIN, 0}, {socket.fd(), POLLIN, 0}};
    poll(items, 2, patience);
    ended = items[0].revents != 0;
    if (!ended && items[1].revents != 0) socket.serve(request);
  }
  close(signal_event);
}

struct Game {
  std::string root, scenario, recording;
  bool verbose = false;
  double seconds = 0, speed = 1;
};

int play(const Game& game) {
  modemsim::Scenario scenario;
  if (!game.scenario.empty()) {
    const std::string file = modemsim::find_scenario(game.scenario);
    if (file.empty()) {
      return complain("there is no scenario " + game.scenario + ": name a file or an installed scenario");
    }
    scenario = modemsim::load_scenario(file);
  }

  // Signals first: every thread from here on leaves them to serve_until_the_end.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  std::optional<modemsim::DeviceRoot> own_root;
  std::string root = game.root;
  if (root.empty()) root = own_root.emplace("modemsim").dir();
  std::string problem = claim(root);
  if (!problem.empty()) return complain(problem);
  Printer printer;
  modemsim::Modem modem;
  modemsim::ControlSocket socket;
  if (game.verbose) modem.observe([&](const modemsim::Traffic& traffic) { printer.traffic(traffic); });
  // Of a recording the events are what one wants to know: where the host left it.
  const bool events = game.verbose || !game.recording.empty();
  if (events) modem.observe_events([&](const std::string& text) { printer.event(text); });
  if (std::filesystem::is_directory(root)) problem = socket.listen(root);
  if (!problem.empty()) return complain(problem);
  if (!modem.start(root)) return complain(modem.error());
  const bool ready =
      game.recording.empty() ? modem.play(scenario, game.speed) : modem.replay(game.recording, game.speed);
  if (!ready) return complain(modem.error());
  if (!scenario.title.empty()) std::printf("%s\n", printable(scenario.title).c_str());
  std::printf("query port %s/dev/ttyACM2\nURC port   %s/dev/ttyACM3\ntrace port %s/dev/ttyACM1\n",
              root.c_str(), root.c_str(), root.c_str());
  std::printf("control    %s (modemsim ctl)\nEnd with Ctrl-C.\n", socket.path().c_str());
  std::fflush(stdout);
  serve_until_the_end(signals, game.seconds, socket, [&](const std::vector<std::string>& words) {
    if (events && !words.empty() && words[0] != "status") printer.event("ctl " + joined(words, " "));
    try {
      return obey(modem, root, words);
    } catch (const modemsim::ScenarioError& wrong) {
      return modemsim::Reply{false, wrong.what()};
    }
  });
  if (!game.recording.empty()) std::printf("%s\n", printable(modem.replayed()).c_str());
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : complain("the output cannot be written");
}

int run(int argc, char** argv) {
  CLI::App app{kAbout, "modemsim"};
  app.footer(kExample);
  Game game;
  bool commands = false;
  app.add_option("--root", game.root, "Folder used as the device's \"/\" (default: a temporary one)")
      ->check(command_line::not_empty);
  app.add_option("--scenario", game.scenario, "Scenario file, or an installed one: demo, home-lte, rough-day")
      ->check(command_line::not_empty);
  auto* replay =
      app.add_option("--replay", game.recording,
                     "Answer as in this AT log, or folder of brioctl record, and tell where the host "
                     "leaves it")
          ->type_name("FILE|DIR")
          ->check(command_line::not_empty);
  app.get_option("--scenario")->excludes(replay);
  app.add_option("--speed", game.speed,
                 "Play the scenario or the recording this many times as fast; 0: a recording without waiting")
      ->check(command_line::not_negative);
  app.add_option("--seconds", game.seconds, "End after this time (default: at Ctrl-C)")
      ->check(command_line::above_zero);
  app.add_flag("--list-commands", commands, "Print the commands that the modem knows");
  app.add_flag("-v,--verbose", game.verbose, "Print each command, answer, report and event");
  std::string socket;
  std::vector<std::string> report, settings;
  auto* ctl = app.add_subcommand("ctl", "Tell a running simulator what happens next, or ask it");
  ctl->footer("Example:\n  modemsim ctl set bars=1\n  modemsim ctl urc '+CREG: 5'");
  ctl->add_option("--socket", socket,
                  "Its socket (default: below --root, else that of the only one that runs)")
      ->type_name("PATH")
      ->check(command_line::not_empty);
  ctl->require_subcommand(1);
  ctl->fallthrough();
  ctl->add_subcommand("urc", "Send a report")->add_option("LINE", report, "\"+CREG: 5\"")->required();
  ctl->add_subcommand("unplug", "The modem goes away");
  ctl->add_subcommand("replug", "It comes back; when it is there, it goes away before");
  ctl->add_subcommand("set", "Change its state and send the reports that are switched on")
      ->add_option("KEY=VALUE", settings, "As of [state] in a scenario: bars=1 apn=internet")
      ->required();
  ctl->add_subcommand("status", "Ports and state");
  int ended = 0;
  if (!command_line::parse(app, argc, argv, &ended)) return ended;
  if (commands) {
    list_commands();
    return 0;
  }
  if (*ctl) {
    std::vector<std::string> words = {ctl->get_subcommands()[0]->get_name()};
    for (const auto* more : {&report, &settings}) words.insert(words.end(), more->begin(), more->end());
    return control(game.root, socket, words);
  }
  if (game.speed == 0 && game.recording.empty()) {
    std::fprintf(stderr, "--speed: only a recording can be played without waiting; give a number above 0\n");
    return command_line::kUsage;
  }
  return play(game);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return complain(error.what());
  }
}
