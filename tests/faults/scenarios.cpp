#include "faults/scenarios.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>

#include "base/words.h"
#include "brio/brio.h"
#include "brio/wabs.h"
#include "lab/functions.h"
#include "lab/interface.h"
#include "nipc/nipc_standin.h"

using namespace lab;

namespace {

constexpr std::time_t kNow = 1772892300;

modemsim::State new_modem() {
  modemsim::State state;
  state.carrier_id = 202;  // the proximity monitor runs
  state.imsi = "234151234567890";
  state.bas_detail = "";  // torn reads would make a line of it that the answer must not hold
  state.operators.resize(2);
  state.operators[0].numeric = "23415", state.operators[0].long_name = "One";
  state.operators[1].numeric = "26201", state.operators[1].long_name = "Two";
  return state;
}

std::string trace_bytes() {
  std::string bytes;
  for (int i = 0; i < 4000; i++) bytes += static_cast<char>(i * 7 + i / 256);
  return bytes;
}

// One letter through a pipe, beside the calls that fail.
bool put(int fd, char letter) {
  const iovec piece = {&letter, 1};
  return writev(fd, &piece, 1) == 1;
}
char take(int fd) {
  char letter = '-';
  const iovec piece = {&letter, 1};
  return readv(fd, &piece, 1) == 1 ? letter : '-';
}

// The modem's process: obeys one letter at a time.
[[noreturn]] void serve(const std::string& root, int orders, int done) {
  using modemsim::Port;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  modemsim::Modem modem(new_modem());
  char order = modem.start(root) ? '+' : '-';
  while (put(done, order) && order != '-') {
    order = take(orders);
    if (order == 'r') {
      // Nothing of the life before reaches the next one.
      for (const auto port : {Port::kTrace, Port::kQuery, Port::kUrc}) modem.wait_open(port, false);
      modem.with_state([](modemsim::State& state) { state = new_modem(); });
    }
    if (order == 'c') modem.wait_open(Port::kTrace, false);
    if (order == 't') modem.raw(Port::kTrace, trace_bytes());
    if (order != 'u') continue;
    for (const char* line : {"+CTZV: -28,\"26/03/07,09:05:00\"", "+STKPCI: 2", "+GTOTAREJECT: 1,5,7,310,410",
                             "+GTBARS: 1,0,7,30,20,2", "+SETTLED: "}) {
      modem.urc(line);
    }
  }
  _exit(0);
}

using Values = std::vector<std::string>;
using Step = void (*)(const Device&, Run&, Arguments&, const Values& unknown);

bool one_of(const std::string& value, const Values& all) {
  return std::find(all.begin(), all.end(), value) != all.end();
}

// The parts between the separators, without blanks around them.
Values split(std::string text, const std::string& separator) {
  Values parts;
  for (text += separator; !text.empty();) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    text.erase(0, end + separator.size());
  }
  return parts;
}

void answer(Run& run, const std::string& operation, uint32_t status, const std::string& value,
            const Values& unknown) {
  run.answers.push_back({operation, status, value, one_of("*", unknown) || one_of(value, unknown)});
}

// "STATUSES OPERATION ARGUMENT..."
void call(Run& run, const std::string& statuses, Arguments& a, const Values& unknown) {
  const std::string name = a.text(), result = calls().at(name)(a);
  const size_t blank = std::min(result.find(' '), result.size());
  const std::string status = result.compare(0, 4, "done") == 0 ? "0" : result.substr(0, blank);
  if (!one_of(status, split(statuses, ","))) run.wrong.push_back(name + " ended with " + status);
  answer(run, name, static_cast<uint32_t>(to_number(status)),
         result.substr(std::min(blank + 1, result.size())), unknown);
}

bool went_well(const Run& run) {
  return run.answers.back().status == 0;
}

void write_file(const Device& device, Run&, Arguments& a, const Values&) {
  const std::string path = a.text();
  device.root.write(path, a.more() ? a.text() : "");
}

void show_file(const Device& device, Run& run, Arguments& a, const Values& unknown) {
  const std::string path = a.text();
  answer(run, path, 0, quoted(device.root.read(path).value_or("")), unknown);
}

void set_field(const Device&, Run&, Arguments& a, const Values&) {
  const auto parts = split(a.text(), "=");
  set_shared_field(parts[0], parts[1]);
}

void await_mode(const Device&, Run& run, Arguments& a, const Values&) {
  const auto mode = a.number();
  if (went_well(run)) run.wait("the SAR mode", [mode] { return brio::relaxed_load(g_pre_sar_mode) == mode; });
}

void await_size(const Device& device, Run& run, Arguments& a, const Values&) {
  const std::string path = device.root.path(a.text());
  const auto size = a.number();
  struct stat info = {};
  if (went_well(run))
    run.wait("the file's size", [&] { return stat(path.c_str(), &info) == 0 && info.st_size >= size; });
}

void await_reports(const Device&, Run& run, Arguments&, const Values&) {
  run.wait("the last report", [] { return log_capture::has("No URC Callback func avail SETTLED"); });
  log_capture::clear();
}

void switch_stdin(const Device&, Run&, Arguments& a, const Values&) {
  static int s_kept;
  if (a.text() == "off") {
    s_kept = dup(0);
    close_range(0, 0, 0);
  } else {
    dup2(s_kept, 0);
    close_range(static_cast<unsigned>(s_kept), static_cast<unsigned>(s_kept), 0);
  }
}

void report_event(const Device&, Run& run, Arguments&, const Values&) {
  void* event = NipcStandinCreateEvent("com.quarto.power", "suspend");
  answer(run, "wabs_report_event", wabs_report_event(event), "", {});
  NipcStandinFreeEvent(event);
}

const std::map<std::string, Step> kSteps = {
    {"file", write_file},
    {"show", show_file},
    {"set", set_field},
    {"mode", await_mode},
    {"grown", await_size},
    {"handled", await_reports},
    {"stdin", switch_stdin},
    {"event", report_event},
    {"rm", [](const Device& d, Run&, Arguments& a, const Values&) { d.root.remove(a.text()); }},
    {"modem", [](const Device& d, Run&, Arguments& a, const Values&) { d.modem(a.text()[0]); }},
    {"advance",
     [](const Device&, Run&, Arguments& a, const Values&) { test_clock::advance(to_real(a.text())); }},
    {"fast", [](const Device&, Run&, Arguments&, const Values&) { test_clock::scale_selects(0.0004); }},
};

}  // namespace

void Scenario::perform(const std::vector<std::string>& lines, const Device& device, Run& run) {
  for (const auto& line : lines) {
    Values parts = split(line, " ?? ");
    Arguments arguments(parts[0]);
    parts.erase(parts.begin());
    const std::string word = arguments.text();
    const auto step = kSteps.find(word);
    step == kSteps.end() ? call(run, word, arguments, parts) : step->second(device, run, arguments, parts);
  }
}

const std::vector<Scenario>& scenarios() {
  static std::vector<Scenario> all;
  if (!all.empty()) return all;
  std::ifstream file(SCENARIOS);
  std::vector<std::string>* lines = nullptr;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto words = split(line, " ");
    if (words[0] == "scenario") {
      all.push_back({words[1], words.size() > 2, {}, {}});
      lines = &all.back().files;
    } else if (words[0] == "act") {
      lines = &all.back().act;
    } else {
      lines->push_back(line);
    }
  }
  for (auto& each : all) {
    if (split(each.act[0], " ")[0] != "like") continue;
    const std::string name = each.act[0].substr(5);
    each.act = std::find_if(all.begin(), all.end(), [&](const Scenario& s) { return s.name == name; })->act;
  }
  return all;
}

Device::Device() {
  setenv("TZ", "UTC0", 1);
  if (pipe2(orders_, O_CLOEXEC) != 0 || pipe2(done_, O_CLOEXEC) != 0) abort();
  modem_ = fork();
  if (modem_ == 0) serve(root.dir(), orders_[0], done_[1]);
  if (take(done_[0]) != '+') abort();
}

Device::~Device() {
  kill(modem_, SIGKILL);
  waitpid(modem_, nullptr, 0);
  for (const int* pipe : {orders_, done_}) close(pipe[0]), close(pipe[1]);
}

void Device::modem(char what) const {
  if (!put(orders_[1], what) || take(done_[0]) != what) abort();
}

void Device::reset() const {
  for (const char* folder : {"/var", "/mnt", "/proc", "/sys"}) root.remove(folder);
  for (const char* folder : {"/var/local/wan/debug", "/var/run", "/mnt/us", "/proc/net",
                             "/sys/devices/virtual/proximity/proximity0"}) {
    root.make_directory(folder);
  }
  modem('r');
  test_clock::reset();
  test_clock::set_wall(kNow);
  std::string addresses;
  for (int i = 0; i < 100; i++) addresses += "0 10.1.2.3 ";
  interface::answer(addresses);
  log_capture::clear();
  NipcStandinReset();
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp", "com.quarto.shelf.viewer");
}
