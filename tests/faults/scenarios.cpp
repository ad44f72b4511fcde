#include "faults/scenarios.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <regex>
#include <utility>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "kit/calls.h"
#include "kit/clock.h"
#include "kit/interface.h"
#include "kit/log.h"
#include "lab/functions.h"
#include "modemsim/modem.h"
#include "nipc/nipc_standin.h"

using namespace lab;

namespace {

constexpr std::time_t kNow = 1772892300;

modemsim::State new_modem() {
  modemsim::State state;
  state.carrier_id = 202;  // the proximity monitor runs
  state.imsi = "234151234567890";
  state.bas_detail = "";  // torn reads would make a line of it that the answer must not hold
  state.operators = {{1, "One", "", "23415"}, {1, "Two", "", "26201"}};
  return state;
}

std::string trace_bytes() {
  std::string bytes;
  for (int i = 0; i < 4000; i++) bytes += static_cast<char>(i * 7 + i / 256);
  return bytes;
}

// Texts between the processes; an empty one says that the other end is gone.
void tell(int fd, const std::string& text) {
  [[maybe_unused]] const ssize_t written = write(fd, text.data(), text.size());
}
std::string hear(int fd) {
  char text[256];
  return std::string(text, static_cast<size_t>(std::max<ssize_t>(recv(fd, text, sizeof text, 0), 0)));
}

// The modem's process: obeys one order at a time.
[[noreturn]] void serve(const std::string& root, int host) {
  using modemsim::Port;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  modemsim::Modem modem(new_modem());
  for (std::string order = modem.start(root) ? "started" : "failed";; order = hear(host)) {
    if (order == "new") {
      // Nothing of the life before reaches the next one.
      for (const auto port : {Port::kTrace, Port::kQuery, Port::kUrc}) {
        if (!modem.wait_open(port, false)) order = "a port stays open";
      }
      modem.with_state([](modemsim::State& state) { state = new_modem(); });
    }
    if (order == "untraced") modem.wait_open(Port::kTrace, false);
    if (order == "trace") modem.raw(Port::kTrace, trace_bytes());
    if (order[0] == '+') modem.urc(order);
    tell(host, order);
  }
}

bool one_of(const std::string& value, const Words& all) {
  return std::find(all.begin(), all.end(), value) != all.end();
}

// Waits until `condition` holds: up to ten seconds, then it is wrong, unless the channel is lost; while calls
// fail a moment, if at all.
template <typename Condition>
void await(const Run& run, Condition condition) {
  if (!run.answers.empty() && run.answers.back().status != 0) return;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(run.patient ? 10000 : 30);
  const auto lost = [] { return briolib_check_library_status() != 0; };
  while (!condition() && !lost() && std::chrono::steady_clock::now() < end) usleep(200);
  if (run.patient && !condition() && !lost()) fail("what is waited for never came");
}

// What a scenario does beside the library's operations.
const std::map<std::string, void (*)(Run&, Arguments&)> kSteps = {
    {"file",
     [](Run& run, Arguments& a) {
       const std::string path = a.text();
       run.device.root.write(path, a.more() ? a.text() : "");
     }},
    {"rm", [](Run& run, Arguments& a) { run.device.root.remove(a.text()); }},
    {"show",
     [](Run& run, Arguments& a) {
       // The operation above has written it.
       const std::string path = a.text(), text = quoted(run.device.root.read(path).value_or(""));
       run.answers.push_back({path, 0, text, false, run.answers.back().stray});
     }},
    {"set",
     [](Run&, Arguments& a) {
       const std::string field = a.text();
       set_shared_field(field, a.text());
     }},
    {"modem", [](Run& run, Arguments& a) { run.device.modem(a.text()); }},
    {"advance", [](Run&, Arguments& a) { test_clock::advance(to_real(a.text())); }},
    {"fast", [](Run&, Arguments&) { test_clock::scale_selects(0.0004); }},
    {"mode",
     [](Run& run, Arguments& a) {
       await(run, [mode = a.number()] { return brio::relaxed_load(g_pre_sar_mode) == mode; });
     }},
    {"grown",
     [](Run& run, Arguments& a) {
       const std::string path = a.text();
       const auto size = static_cast<size_t>(a.number());
       await(run, [&] { return run.device.root.read(path).value_or("").size() >= size; });
     }},
    {"handled",
     [](Run& run, Arguments&) {
       await(run, [] { return log_capture::has("No URC Callback func avail SETTLED"); });
       run.stray();
     }},
    {"stdin",
     [](Run&, Arguments& a) {
       static int s_kept;
       const bool off = a.text() == "off";
       off ? s_kept = dup(0) : dup2(s_kept, 0);
       close(off ? 0 : s_kept);
     }},
    {"event",
     [](Run& run, Arguments&) {
       void* event = NipcStandinCreateEvent("com.quarto.power", "suspend");
       run.answers.push_back({"wabs_report_event", wabs_report_event(event), ""});
       NipcStandinFreeEvent(event);
     }},
};

// "STATUSES OPERATION ARGUMENT..."
void call(Run& run, const std::string& statuses, Arguments& a) {
  run.stray();
  const std::string name = a.text(), result = calls().at(name)(a);
  const size_t blank = std::min(result.find(' '), result.size());
  const std::string status =
      result.empty() ? "0" : result.substr(0, blank);  // nothing: a function without a status
  if (!one_of(status, split(statuses, ","))) fail(name + " ended with " + status);
  const std::string value = result.substr(std::min(blank + 1, result.size()));
  run.answers.push_back({name, static_cast<uint32_t>(to_number(status)), value, false, run.stray()});
}

// Final lines in the log's copy of what was read.
long count_finals(const std::string& text) {
  static const std::regex kFinal("[\\[\\r\\n](OK|ERROR|\\+CM[ES] ERROR:[^\\r\\n]*)(?=[\\r\\n])");
  return std::distance(std::sregex_iterator(text.begin(), text.end(), kFinal), std::sregex_iterator());
}

}  // namespace

Words split(std::string text, const std::string& separator) {
  Words parts;
  for (text += separator; !text.empty();) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    text.erase(0, end + separator.size());
  }
  return parts;
}

Words read_lines(const char* path) {
  Words lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

bool Run::stray() {
  bool stray = false;
  for (const auto& line : log_capture::take()) {
    const auto has = [&](const char* part) { return line.text.find(part) != std::string::npos; };
    const bool answered = has(":prv_convert_and_queue_resp_packet");
    if (has(":atcmd request:")) {
      stray |= owed_++ > 0 || queued_ > 0;
      takes_ = true;
    } else if (has(":Unable to send command")) {
      owed_--;
    } else if (has(":AT resp[")) {
      read_ = count_finals(line.text);
    } else if (answered || has(":cleaning up!") || has(":entered select")) {
      owed_ -= std::exchange(read_, 0);
      queued_ += answered;
    } else if (has(":can't queue response")) {
      queued_--;
    } else if (has(" timed out") || has(":q_get failed") || has(":can't send req packet")) {
      takes_ = false;
    } else if (has(":<<<<<Exit sending")) {
      queued_ -= takes_;
    }
  }
  return stray;
}

Answers Run::perform(const Words& lines) {
  answers.clear();
  for (const auto& line : lines) {
    const Words parts = split(line, " ?? ");
    Arguments a(parts[0]);
    const std::string word = a.text();
    const size_t before = answers.size();
    const auto step = kSteps.find(word);
    step == kSteps.end() ? call(*this, word, a) : step->second(*this, a);
    if (answers.size() == before) continue;
    answers.back().unknown = one_of("*", parts) || one_of(answers.back().value, parts);
  }
  return answers;
}

const std::vector<Scenario>& scenarios() {
  static std::vector<Scenario> all;
  if (!all.empty()) return all;
  Words* lines = nullptr;
  for (const auto& line : read_lines(SCENARIOS)) {
    const Words words = split(line, " ");
    if (words[0] == "scenario") {
      all.push_back({words[1], words.size() > 2, {}, {}});
      lines = &all.back().files;
    } else if (words[0] == "act") {
      lines = &all.back().act;
      if (words.size() > 1) *lines = (all.end() - 2)->act;  // the same
    } else {
      lines->push_back(line);
    }
  }
  return all;
}

Device::Device() {
  setenv("TZ", "UTC0", 1);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) abort();
  modem_ = fork();
  if (modem_ == 0) serve(root.dir(), ends[1]);
  line_ = ends[0];
  close(ends[1]);
  if (hear(line_) != "started") abort();
}

Device::~Device() {
  kill(modem_, SIGKILL);
  waitpid(modem_, nullptr, 0);
  close(line_);
}

void Device::modem(const std::string& order) const {
  tell(line_, order);
  const std::string answer = hear(line_);
  if (answer == order) return;
  fail("modem: " + answer);
  _exit(1);
}

void Device::reset() const {
  for (const char* folder : {"/var", "/mnt", "/proc", "/sys"}) root.remove(folder);
  for (const char* folder : {"/var/local/wan/debug", "/var/run", "/mnt/us", "/proc/net"}) {
    root.make_directory(folder);
  }
  modem("new");
  test_clock::reset();
  test_clock::set_wall(kNow);
  std::string addresses;
  for (int i = 0; i < 100; i++) addresses += "0 10.1.2.3 ";
  interface::answer(addresses);
  log_capture::clear();
  NipcStandinReset();
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp", "com.quarto.shelf.viewer");
}
