// The commands of a session that only tests need: calls that fail, descriptors that are taken.
// docs/testing.md describes them.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/wabs.h"
#include "kit/calls.h"
#include "kit/interface.h"
#include "kit/process.h"
#include "kit_commands.h"
#include "modemsim/scenario.h"
#include "nipc/nipc_standin.h"
#include "session.h"

namespace lab {

namespace {

// ---- Scenario files

void scenario(Session& s, Arguments& a) {
  try {
    modemsim::parse_scenario(a.text(), "s.toml");
    s.emit("taken");
  } catch (const modemsim::ScenarioError& error) {
    s.emit(error.what());
  }
}

// ---- The library

void report_event(Session& s, Arguments& a) {
  const std::string source = a.text();
  void* event = NipcStandinCreateEvent(source.c_str(), a.text().c_str());
  s.emit(std::to_string(wabs_report_event(event)) + " " + std::to_string(wabs_report_event(nullptr)));
  NipcStandinFreeEvent(event);
}

// hold LINE: until `release` a thread that raises an event stays in it; this report raises the first.
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

void wait_command(Session& s, Arguments& a) {
  const std::string command = a.text();
  const auto all = s.modem.commands();
  const auto before =
      std::count(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(s.commands_seen), command);
  const size_t times = a.more() ? static_cast<size_t>(a.number()) : 1;
  const bool came = s.modem.wait_command(command, static_cast<size_t>(before) + times, process::g_patience);
  if (!came) throw UsageError("it did not come");
}

void wait_log(Session& s, Arguments& a) {
  const std::string part = a.text();
  const auto times = a.more() ? a.number() : 1;
  const auto came = [&] {
    auto lines = log_capture::lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(s.log_seen));
    lines.insert(lines.end(), s.log.begin(), s.log.end());
    return std::count_if(lines.begin(), lines.end(), [&](const auto& each) {
             return each.text.find(part) != std::string::npos;
           }) >= times;
  };
  if (!process::eventually(came)) throw UsageError("it was not logged");
}

void await(Session& s, Arguments& a) {
  const std::string status = a.text();
  const Call& chosen = function(a.text());
  std::string line;
  const bool came = process::eventually([&] {
    Arguments again = a;
    line = chosen(again);
    return line.substr(0, line.find(' ')) == status;
  });
  if (!came) throw UsageError("the status did not come; it gave " + line);
  s.emit(line);
  a.rest();
}

void make_link(Session& s, Arguments& a) {
  const std::string path = s.root.path(a.text());
  if (symlink(s.root.path(a.text()).c_str(), path.c_str()) != 0) throw UsageError(strerror(errno));
}

void grown(Session& s, Arguments& a) {
  const std::string path = s.root.path(a.text());
  const long long size = a.number();
  struct stat info;
  const auto came = [&] { return stat(path.c_str(), &info) == 0 && info.st_size >= size; };
  if (!process::eventually(came)) s.emit("no");
}

// Commands between " ; ", run under each bit of the module's log mask alone: the lines that it lets through.
void bits(Session& s, Arguments& a) {
  const std::string list = a.rest() + " ; ";
  const uint32_t mask = brio::relaxed_load(gBrioModuleLogMask);
  Session::Lines follow, shown;
  std::swap(follow, s.follow);
  s.forget();
  for (uint32_t bit = 1; bit != 0; bit <<= 1U) {
    wabs_set_log_mask(bit);
    for (size_t at = 0, end; (end = list.find(" ; ", at)) != std::string::npos; at = end + 3) {
      s.command(list.substr(at, end - at));
    }
    s.settle();
    wabs_set_log_mask(mask);
    s.observe();
    char name[16];
    snprintf(name, sizeof name, "0x%x ", bit);
    for (const auto& each : s.take_log({" brio:", " def:", " proxlib:"})) shown.push_back(name + each);
  }
  std::swap(follow, s.follow);
  s.seen = {};
  s.seen.output = shown;
}

// The log lines of the whole session that hold eight characters in a row of one of the words.
void seen(Session& s, Arguments& a) {
  constexpr size_t kRow = 8;
  const auto words = a.words();
  s.observe();
  s.log = log_capture::lines();
  const auto clean = [&words](const log_capture::Line& line) {
    for (const auto& word : words) {
      for (size_t at = 0; at + kRow <= word.size(); at++) {
        if (line.text.find(word.substr(at, kRow)) != std::string::npos) return false;
      }
    }
    return true;
  };
  s.log.erase(std::remove_if(s.log.begin(), s.log.end(), clean), s.log.end());
  if (s.log.empty()) s.emit("none");
  s.show_log({});
}

// The size that no file may grow beyond, as on a full disk; without a word: any.
void room(Session&, Arguments& a) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = a.more() ? static_cast<rlim_t>(a.number()) : limit.rlim_max;
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw UsageError(strerror(errno));
}

// CALL ERROR [SKIP [TIMES]]
void fail(Session&, Arguments& a) {
  const std::string name = a.text();
  if (faults::names().count(name) == 0) throw UsageError("no such call: " + name);
  const auto error = faults::error_number(a.text());
  if (!error) throw UsageError("not an error: it is a name of errno.h, short, end or a number");
  const int skip = a.more() ? static_cast<int>(a.number()) : 0;
  faults::fail(name, *error, skip, a.more() ? static_cast<int>(a.number()) : 1);
}

// What a shell in the root prints.
void shell(Session& s, Arguments& a) {
  FILE* pipe = popen(("cd " + s.root.dir() + " && " + a.rest()).c_str(), "re");
  char line[512];
  while (pipe != nullptr && fscanf(pipe, " %511[^\n]", line) == 1) s.emit(line);
  if (pipe == nullptr || pclose(pipe) != 0) s.emit("failed");
}

// ---- Descriptors

// Locked until `unlock` as by another process, with a shared lock.
int s_lock = -1;

void lock(Session& s, Arguments& a) {
  s_lock = ::open(s.root.path(a.text()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  s.emit(flock(s_lock, LOCK_SH | LOCK_NB) == 0 ? "locked" : "somebody else has it");
}

// Takes all below NUMBER; 0 frees them.
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

void add_kit_commands() {
  auto& table = commands();
  table.insert({{"scenario", scenario},
                {"sh", shell},
                {"report_event", report_event},
                {"occupy", occupy},
                {"hold", hold},
                {"release", release},
                {"lock", lock},
                {"wait_command", wait_command},
                {"wait_log", wait_log},
                {"await", await},
                {"link", make_link},
                {"grown", grown},
                {"bits", bits},
                {"seen", seen},
                {"room", room},
                {"fail", fail}});
  table["settle"] = [](Session& s, Arguments&) { s.settle(); };
  table["chunk"] = [](Session& s, Arguments& a) { s.modem.chunk(static_cast<size_t>(a.number())); };
  table["keeps"] = [](Session& s, Arguments& words) { s.descriptors += static_cast<long>(words.number()); };
  table["leftover"] = [](Session& s, Arguments&) { s.emit(s.leftover()); };
  table["dir"] = [](Session& s, Arguments& a) { s.root.make_directory(a.text()); };
  table["umask"] = [](Session&, Arguments& a) {
    umask(static_cast<mode_t>(std::stoul(a.text(), nullptr, 8)));
  };
  table["fifo"] = [](Session& s, Arguments& a) { mkfifo(s.root.path(a.text()).c_str(), 0600); };
  // A host without a standard input: descriptor 0 is the first that the library gets.
  table["stdin"] = [](Session&, Arguments& a) {
    a.text() == "off" ? close(0) : ::open("/dev/null", O_RDONLY);
  };
  table["unlock"] = [](Session&, Arguments&) { close(s_lock); };
  table["address"] = [](Session&, Arguments& a) { interface::answer(a.rest()); };
}

}  // namespace lab
