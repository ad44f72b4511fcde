// What can stand around a session: a plain client in the library's place, operations of the library that
// answer as told, scenario files, descriptors that are taken.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "lab/interface.h"
#include "modemsim/scenario.h"
#include "nipc/nipc_standin.h"
#include "process/process.h"
#include "session.h"

namespace lab {

// One end of a serial line, as a host has it.
class Client {
 public:
  explicit Client(const std::string& path) : fd_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
  ~Client() { close(fd_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  void send(const std::string& text) const {
    if (write(fd_, text.data(), text.size()) < 0) throw UsageError("nothing can be sent");
  }
  // Lines up to the first that begins with one of `lasts`, empty ones left out; ends with a hang-up, too, or
  // after ten seconds.
  Session::Lines hear(const Session::Lines& lasts) {
    Session::Lines lines;
    while (lines.empty() || !begins(lines.back(), lasts)) {
      while (held_.find("\r\n") == std::string::npos) {
        pollfd item{fd_, POLLIN, 0};
        char bytes[8192];
        const ssize_t size = poll(&item, 1, 10000) > 0 ? read(fd_, bytes, sizeof bytes) : 0;
        if (size <= 0) return lines.emplace_back("(no more)"), lines;
        held_.append(bytes, static_cast<size_t>(size));
      }
      const size_t end = held_.find_first_of("\r\n");
      if (end > 0) lines.push_back(held_.substr(0, end));
      held_.erase(0, end + 1);
    }
    return lines;
  }

 private:
  static bool begins(const std::string& line, const Session::Lines& parts) {
    for (const auto& part : parts) {
      if (line.compare(0, part.size(), part) == 0) return true;
    }
    return false;
  }

  int fd_;
  std::string held_;
};

namespace {

Client& client(Session& s, const char* device) {
  auto& place = s.clients[device];
  if (!place) place = std::make_shared<Client>(s.root.path(device));
  return *place;
}

void hear(Session& s, Arguments& a) {
  for (const auto& line : client(s, "/dev/ttyACM3").hear({a.text()})) s.emit("| " + line);
}

// A marker on the other port tells where the reports end that the command brought.
void ask(Session& s, Arguments& a) {
  Client& reports = client(s, "/dev/ttyACM3");
  client(s, "/dev/ttyACM2").send(a.rest() + "\r");
  for (const auto& line : client(s, "/dev/ttyACM2").hear({"OK", "ERROR", "+CME ERROR"})) s.emit("| " + line);
  s.modem.raw(modemsim::Port::kUrc, "\r\n=\r\n");
  for (const auto& line : reports.hear({"="})) {
    if (line != "=") s.emit("report " + line);
  }
}

// ---- Scenario files

void play(Session& s, Arguments& a) {
  if (briolib_check_library_status() != BRIO_STATUS_NOT_OPEN) throw UsageError("the library is open");
  const std::string name = a.text(), path = modemsim::find_scenario(name);
  const auto scenario = modemsim::load_scenario(path.empty() ? name : path);
  if (!s.modem.play(scenario, to_real(a.text()))) throw UsageError(s.modem.error());
}

void played(Session& s, Arguments&) {
  if (!s.modem.wait_played()) throw UsageError("it does not end");
  s.modem.state();  // all that it brought was done
  s.settle();
  for (const auto& event : s.played) s.emit(event);
  s.played.clear();
}

void scenario(Session& s, Arguments& a) {
  try {
    modemsim::parse_scenario(a.text(), "s.toml");
    s.emit("taken");
  } catch (const modemsim::ScenarioError& error) {
    s.emit(error.what());
  }
}

// ---- Operations of the library, as the module calls them

std::mutex s_mutex;  // guards the three below
Session::Lines s_called;
std::map<std::string, std::deque<uint32_t>> s_answers;
network_time s_time;

// Notes the call; whether the transcript answers it. The last answer stays.
bool answered(const char* name, uint32_t* status) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_called.push_back((wabs_is_blib_open() != 0 ? "+ " : "- ") + std::string(name));
  auto& left = s_answers[name];
  if (left.empty()) return false;
  *status = left.front();
  if (left.size() > 1) left.pop_front();
  return true;
}

}  // namespace

// Each argument of these fits a register.
using Operation = uint32_t (*)(long a, long b, long c);
template <typename F>
Operation operation_of(F* function) {
  return reinterpret_cast<Operation>(reinterpret_cast<void (*)()>(function));
}

#define OPERATION(name)                                                        \
  extern "C" uint32_t __wrap_##name(long a, long b, long c) {                  \
    uint32_t status = 0;                                                       \
    return answered(#name, &status) ? status : operation_of(&::name)(a, b, c); \
  }
OPERATION(brio_open)
OPERATION(brio_close)
OPERATION(brio_trace_tst_log)
OPERATION(brio_trace_tst_stop)
OPERATION(prox_open)
OPERATION(prox_close)
OPERATION(brio_get_carrier_id)
OPERATION(brio_get_modem_info)
OPERATION(brio_set_callback_for_event_id)
OPERATION(brio_get_sim_info)
OPERATION(brio_get_sim_static_info)
OPERATION(brio_check_for_fatal_failure)
OPERATION(brio_get_bars)
OPERATION(brio_atcmd_scan_network)
OPERATION(brio_abort_manual_nw_scan)
OPERATION(brio_atcmd_set_auto_mode)
OPERATION(brio_atcmd_scan_abort)
OPERATION(brio_get_current_network)

// Here the answers are the SIM's statuses.
extern "C" uint32_t __wrap_brio_get_wn3_sim_status(uint32_t* sim_status) {
  return answered("brio_get_wn3_sim_status", sim_status) ? 0 : ::brio_get_wn3_sim_status(sim_status);
}
// Here an answer stands for a network that changes behind the copy.
extern "C" uint32_t __wrap_brio_get_mcc_mnc(char* out) {
  uint32_t event = 0;
  const bool changes = answered("brio_get_mcc_mnc", &event);
  const uint32_t status = ::brio_get_mcc_mnc(out);
  if (changes) briolib_exec_event_callback(event, 0, nullptr);
  return status;
}
extern "C" uint32_t __wrap_brio_get_network_time(network_time* time) {
  uint32_t status = 0;
  if (!answered("brio_get_network_time", &status)) return ::brio_get_network_time(time);
  std::lock_guard<std::mutex> lock(s_mutex);
  *time = s_time;
  return status;
}

namespace {

void operation(Session&, Arguments& a) {
  std::lock_guard<std::mutex> lock(s_mutex);
  auto& answers = s_answers[a.text()];
  answers.clear();
  while (a.more()) answers.push_back(static_cast<uint32_t>(a.number()));
}

void operations(Session& s, Arguments&) {
  std::lock_guard<std::mutex> lock(s_mutex);
  for (const auto& name : s_called) s.emit(name);
  s_called.clear();
}

void set_network_time(Session&, Arguments& a) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_time = {};
  s_time.year = static_cast<uint16_t>(a.number());
  for (uint8_t* each : {&s_time.month, &s_time.day, &s_time.hour, &s_time.minute, &s_time.second}) {
    *each = static_cast<uint8_t>(a.number());
  }
}

void report_event(Session& s, Arguments& a) {
  const std::string source = a.text();
  void* event = NipcStandinCreateEvent(source.c_str(), a.text().c_str());
  s.emit(std::to_string(wabs_report_event(event)) + " " + std::to_string(wabs_report_event(nullptr)));
  NipcStandinFreeEvent(event);
}

// hold LINE: until `release` whoever raises an event stays in it; the report is to raise the first.
void hold(Session& s, Arguments& a) {
  s.holding = true;
  hold_events(true);
  s.modem.urc(a.rest());
  if (!wait_held()) throw UsageError("no event came");
}

void release(Session& s, Arguments&) {
  hold_events(false);
  s.holding = false;
}

// ---- Descriptors

int open_port(Session& s, Arguments& a) {
  const int fd = ::open(s.root.path(a.text()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) throw UsageError(strerror(errno));
  return fd;
}

// The library's descriptors of a port, and how the port is set.
void port(Session& s, Arguments& a) {
  namespace fs = std::filesystem;
  std::error_code none;
  const auto device = fs::read_symlink(s.root.path(a.text()), none);
  if (none) throw UsageError(none.message());
  int last = -1;
  for (int fd = 0; fd < FD_SETSIZE; fd++) {
    std::error_code error;
    if (fs::read_symlink("/proc/self/fd/" + std::to_string(fd), error) != device || error) continue;
    last = fd;
    const int flags = fcntl(fd, F_GETFL);
    s.emit(std::string((flags & O_ACCMODE) == O_RDWR ? "read and write" : "one way") +
           ((flags & O_NONBLOCK) != 0 ? ", never waits" : "") +
           ((fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? ", closes on exec" : ""));
  }
  termios now;
  if (tcgetattr(last, &now) != 0) return s.emit("not open");
  char text[128];
  snprintf(text, sizeof text, "in %#x out %#x control %#x local %#x least %d timeout %d", now.c_iflag,
           now.c_oflag, now.c_cflag, now.c_lflag, now.c_cc[VMIN], now.c_cc[VTIME]);
  s.emit(text);
}

// As another process would lock it, not even alone, until `unlock`.
int s_lock = -1;

void lock(Session& s, Arguments& a) {
  s_lock = open_port(s, a);
  s.emit(flock(s_lock, LOCK_SH | LOCK_NB) == 0 ? "locked" : "somebody else has it");
}

// A port as the system makes it: lines, echo, signals.
void cook(Session& s, Arguments& a) {
  const int fd = open_port(s, a);
  termios settings;
  tcgetattr(fd, &settings);
  settings.c_iflag |= ICRNL | IXON;
  settings.c_oflag |= OPOST | ONLCR;
  settings.c_cflag = B38400 | CS7 | PARENB | CREAD;
  settings.c_lflag |= ICANON | ECHO | ISIG | IEXTEN;
  tcsetattr(fd, TCSANOW, &settings);
  close(fd);
}

// Takes all below NUMBER; 0 gives them back.
void occupy(Session&, Arguments& a) {
  static std::vector<int> s_taken;
  for (const int fd : s_taken) close(fd);
  s_taken.clear();
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, FD_SETSIZE + 64);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) throw UsageError("too few descriptors are allowed");
  for (const auto next = a.number(); s_taken.empty() || s_taken.back() < next - 1;) {
    if (next == 0) return;
    s_taken.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (s_taken.back() < 0) return s_taken.pop_back();
  }
}

}  // namespace

void add_stand_ins(std::map<std::string, Command>& table) {
  table.insert({{"ask", ask},
                {"hear", hear},
                {"listen", [](Session& s, Arguments&) { client(s, "/dev/ttyACM3"); }},
                {"play", play},
                {"played", played},
                {"scenario", scenario},
                {"operation", operation},
                {"operations", operations},
                {"network_time", set_network_time},
                {"report_event", report_event},
                {"occupy", occupy},
                {"hold", hold},
                {"release", release},
                {"port", port},
                {"lock", lock},
                {"cook", cook}});
  table["tell"] = [](Session& s, Arguments& a) {
    const size_t received = s.modem.commands().size();
    client(s, "/dev/ttyACM2").send(a.rest() + "\r");
    if (!process::eventually([&] { return s.modem.commands().size() > received; })) {
      throw UsageError("the modem received no command");
    }
  };
  // A host without a standard input: descriptor 0 is the first that the library gets.
  table["stdin"] = [](Session&, Arguments& a) {
    const std::string state = a.text();
    if (state != "off" && state != "on") throw UsageError("stdin is off or on");
    state == "off" ? close(0) : open("/dev/null", O_RDONLY);
  };
  table["unlock"] = [](Session&, Arguments&) { close(s_lock); };
  table["address"] = [](Session&, Arguments& a) { interface::answer(a.rest()); };
}

}  // namespace lab
