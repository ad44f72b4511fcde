// Makes every call below the library fail in turn: fault_tests CALL plays the sessions of scenarios/ and in
// each fails the n-th CALL of the last paragraph with each of its errors, once and from then on. Whatever
// fails, operations end with documented statuses, nothing is leaked, and the same again without faults yields
// the right answers. nm -D LIBRARY | fault_tests --known: checks that every call that the library makes is in
// table.txt.
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "functions.h"
#include "kit/calls.h"
#include "kit/clock.h"
#include "kit/interface.h"
#include "kit/process.h"
#include "kit_commands.h"
#include "nipc/nipc_standin.h"
#include "session.h"
#include "session_file.h"

// The sanitizers call it before they end the program.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

using fuzz::require;
using Lines = std::vector<std::string>;

#ifdef SLOW
constexpr bool kSlow = true;
#else
constexpr bool kSlow = false;
#endif
constexpr long kSamples = kSlow ? 3 : 5;  // of a call's n, in each scenario and for each error
constexpr long kAllocations = kSlow ? kSamples : 25;
constexpr double kCap = kSlow ? 0.15 : 0.05;  // real seconds of a wait for an answer that does not come
constexpr unsigned kPatience = 60;            // seconds after which a life hangs
constexpr int kTries = 7;                     // of a healthy run after a fault

char s_case[512];  // the one under way: scenario, call, which one, error, command

void begin(const std::string& name, const std::string& command = "") {
  snprintf(s_case, sizeof s_case, "  WRONG %s: %s\n", name.c_str(), command.c_str());
}
void tell_case() {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, s_case, strlen(s_case));
}

// ---- table.txt

struct Row {
  Lines errors, harmless, times, behind;
  std::string call = {};
};

std::vector<Row> read_table() {
  std::vector<Row> rows;
  std::ifstream file(FAULTS "/table.txt");
  for (std::string line, word; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    Row& row = rows.emplace_back();
    Lines* list = &row.errors;
    std::istringstream words(line);
    for (words >> row.call; words >> word;) {
      Lines* const other = word == "|"        ? &row.harmless
                           : word == "times"  ? &row.times
                           : word == "behind" ? &row.behind
                                              : nullptr;
      other != nullptr ? void(list = other) : list->push_back(word);
    }
  }
  return rows;
}

// ---- One scenario

// Nothing is set for a life without faults.
struct Fault {
  std::string error = "0";
  bool harmless = true;
  long times = 0, skip = 0;
  std::string trigger = "0";  // the error of the call after which the row's is made
};

struct Answer {
  std::string command, shown;
  bool judged;  // no request was given up before: a later one may meet its answer
  bool operator==(const Answer& other) const { return shown == other.shown; }
};
using Answers = std::vector<Answer>;

// What one life showed: the last paragraph, and the same again where the library goes on.
struct Life {
  Answers first, again;
  long calls = 0;  // that may fail
  bool lost = false;
};

struct Scenario {
  void play();
  void one(const Fault& fault);
  Life live(const Fault& fault);
  Answers perform(lab::Session& session, const Lines& commands);

  const Row& row;
  const std::string name;
  Lines before = {}, last = {};  // the paragraphs
  Life right = {};               // without faults
  std::string under_way = {};
  long lives = 0, cases = 0, fired = 0;
};

Answers Scenario::perform(lab::Session& session, const Lines& commands) {
  Answers answers;
  for (const auto& command : commands) {
    begin(under_way, command);
    lab::Arguments words(command);
    std::string shown;
    session.seen = {};
    try {
      words.text() == "call" ? void(shown = lab::function(words.text())(words)) : session.command(command);
      for (const auto& each : session.seen.output) shown += each;
    } catch (const std::exception& error) {  // what it waits for has not come
      shown = error.what();
    }
    bool judged = true;
    for (const char* part : {" timed out", ":q_get failed", ":can't send req packet"})
      judged = judged && !log_capture::has(part);
    answers.push_back({command, shown, judged});
  }
  return answers;
}

void compare(const Answers& got, const Answers& wanted, const std::string& name) {
  for (size_t i = 0; i < wanted.size(); i++) {
    if (got[i] == wanted[i]) continue;
    begin(name, wanted[i].command);
    require(false, (got[i].shown + " for " + wanted[i].shown).c_str());
  }
}

// As new: a modem with a proximity monitor and without the line that a torn read would turn into an answer.
void prepare(lab::Session& session) {
  for (const char* command :
       {"sim carrier_id = 202, imsi = \"234151234567890\", bas_detail = \"\"", "clock wall=1772892300",
        "operators stat = 1, long_name = \"One\", numeric = \"23415\"",
        "operators stat = 1, long_name = \"Two\", numeric = \"26201\"",
        "nipc com.quarto.appmgrd activeApp com.quarto.shelf.viewer"})
    session.command(command);
  session.root.rest_sensor();
  std::string addresses;
  for (int i = 0; i < 100; i++) addresses += "0 10.1.2.3 ";
  interface::answer(addresses);
}

Life Scenario::live(const Fault& fault) {
  alarm(kPatience);
  log_capture::clear();
  lab::Session session;
  prepare(session);
  const bool behind = !row.behind.empty();
  const std::string held = faults::held(), &counted = behind ? row.behind[0] : row.call;
  perform(session, before);
  Life life;
  life.calls = -faults::calls(counted);
  if (!fault.harmless) faults::on_fault([] { test_clock::cap_waits(kCap); });
  if (behind) faults::fail(counted, *faults::error_number(fault.trigger), fault.skip, fault.times);
  faults::fail(row.call, *faults::error_number(fault.error), behind ? 0 : fault.skip, fault.times);
  process::g_patience = std::chrono::milliseconds(fault.harmless ? 10000 : 100);
  life.first = perform(session, last);
  life.calls += faults::calls(counted);
  faults::stop();
  test_clock::cap_waits(1e9);
  const bool warms_up = lives++ == 0;  // the library keeps the last override of the APN open
  process::g_patience = std::chrono::milliseconds(warms_up ? 100 : 10000);
  const auto nothing_is_left = [&] {
    begin(under_way, "end");
    if (!fault.harmless) prox_close();  // a monitor whose sensor could not be switched off is joined now
    if (warms_up) return;
    const std::string left = session.leftover(), now = faults::held();
    require(left == "none", left.c_str());
    require(now == held, ("held " + now + " for " + held).c_str());
  };
  if (briolib_check_library_status() == BRIO_STATUS_NOT_OPEN) nothing_is_left();
  // It goes on without being opened again; late answers may have to pass first.
  const int tries = fault.harmless ? 1 : kTries;
  for (int i = 0; i < tries && briolib_check_library_status() != BRIO_STATUS_FATAL; i++) {
    log_capture::clear();
    session.markers = 0;
    if (i < tries - 1) test_clock::cap_waits(kCap * (1 << i));
    life.again = perform(session, last);
    test_clock::cap_waits(1e9);
    if (life.again == right.again) break;
  }
  life.lost = briolib_check_library_status() == BRIO_STATUS_FATAL;
  wabs_close();
  nothing_is_left();
  session.end();
  return life;
}

// Values that say that nothing is known, and those that depend on what was done before.
constexpr char kUnknown[] = "0 (\"\"|4294967295|0|6|8|65535|untouched untouched|[0-9]+ untouched)";
constexpr char kAnyValue[] =
    "call (wabs_get_mcc_mnc|brio_get_bas_status|brio_get_sim_plmn_info|brio_get_modem_info"
    "|wabs_get_log_string) ?.*";

void Scenario::one(const Fault& fault) {
  under_way = name + "/" + row.call + "[" + std::to_string(fault.skip) + "] " + fault.error + " x" +
              std::to_string(fault.times);
  if (getenv("FAULT_TESTS_SHOW") != nullptr) fprintf(stderr, "  %s\n", under_way.c_str());
  const Life life = live(fault);
  cases++;
  fired += faults::fired(row.call) != 0;
  if (fault.harmless) compare(life.first, right.first, under_way);
  for (size_t i = 0; i < life.first.size(); i++) {
    const auto& [command, shown, judged] = life.first[i];
    if (!judged || shown.compare(0, 2, "0 ") != 0 || life.first[i] == right.first[i]) continue;
    begin(under_way, command);
    require(fuzz::matches(kUnknown, shown) || fuzz::matches(kAnyValue, command),
            ("a wrong value: " + shown + " for " + right.first[i].shown).c_str());
  }
  if (!life.lost) return compare(life.again, right.again, under_way + ", again");
  under_way += ", opened anew";
  compare(live({}).first, right.first, under_way);
}

void Scenario::play() {
  under_way = name;
  live({});  // some state lives as long as the process
  right = live({});
  const Life second = live({});
  compare(second.first, right.first, name);
  compare(second.again, right.again, name);
  if (right.calls == 0) return;
  // Few of the places where the trigger fails then make the row's call.
  const bool behind = !row.behind.empty();
  const long samples = behind                          ? 60 / static_cast<long>(row.errors.size())
                       : row.errors == Lines{"ENOMEM"} ? kAllocations
                                                       : kSamples;
  const long stride = (right.calls + samples - 1) / samples;
  long first = 0;
  const auto sweep = [&](Fault fault) {
    for (size_t i = behind ? 1 : 0; i < (behind ? row.behind.size() : 1); i++) {
      if (behind) fault.trigger = row.behind[i];
      for (fault.skip = first % stride; fault.skip < right.calls; fault.skip += stride) one(fault);
    }
    first++;
  };
  const long storm = row.times.empty() ? 100 : std::stol(row.times[0]);
  for (const auto& error : row.harmless) sweep({error, true, error == "short" ? LONG_MAX : storm});
  for (const auto& error : row.errors) sweep({error, false, 1});
  if (!row.errors.empty()) sweep({row.errors[0], false, LONG_MAX});
  printf("%s: %ld calls, every %ld; %ld cases, %ld fired\n", name.c_str(), right.calls, stride, cases, fired);
  require(behind || fired != 0, "no fault fired");
}

// ---- All scenarios of one call

int run_all(const Row& row, const std::string& only) {
  lab::add_kit_commands();
  lab::commands()["polls"] = [](lab::Session&, lab::Arguments&) { test_clock::scale_selects(0.0004); };
  lab::commands()["mode"] = [](lab::Session&, lab::Arguments& words) {
    const auto is_it = [mode = words.number()] { return brio::relaxed_load(g_pre_sar_mode) == mode; };
    if (!process::eventually(is_it)) throw lab::UsageError("it did not come");
  };
  lab::also_left = [] {
    const long strays = faults::stray_closes();
    return strays == 0 ? std::string() : std::to_string(strays) + " closed that were not open";
  };
  fuzz::check_functions();
  const auto tell = [](int) { tell_case(), _exit(1); };
  signal(SIGALRM, tell);  // it hangs
  signal(SIGABRT, tell);
  signal(SIGSEGV, tell);
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(tell_case);
  long fired = 0;
  namespace fs = std::filesystem;
  const fs::directory_iterator folder(FAULTS "/scenarios");
  for (const auto& file : std::set<fs::path>(begin(folder), end(folder))) {
    Scenario scenario{row, file.stem().string()};
    if (!only.empty() && scenario.name != only) continue;
    std::stringstream list;
    auto* const console = std::cout.rdbuf(list.rdbuf());
    lab::list_session(file.string());
    std::cout.rdbuf(console);
    for (std::string line; std::getline(list, line);) {
      if (line.empty()) scenario.before.swap(scenario.last);
      if (!line.empty()) scenario.last.push_back(line);
    }
    scenario.play();
    fired += scenario.fired;
  }
  begin(row.call);
  require(fired > 0, "is called in no scenario");
  return 0;
}

// Whether the table holds the library's undefined names (standard input, from nm) and every call that can
// fail.
int check_known(const std::vector<Row>& table) {
  std::set<std::string> names = faults::names();
  int seen = 0;
  for (std::string word; std::cin >> word;) {
    if (word != "U" || !(std::cin >> word)) continue;
    if (word.compare(0, 2, "__") == 0 || word.compare(0, 4, "_ZTV") == 0) continue;  // the compiler's own
    names.insert(word.substr(0, word.find('@')));
    seen++;
  }
  for (const Row& row : table) {
    names.erase(row.call);
    for (const auto& each : row.errors) names.erase(each);  // on a line of calls that never fail
  }
  for (const auto& each : names) printf("the library calls %s, which fails in no test\n", each.c_str());
  printf("%d calls, %zu unknown\n", seen, names.size());
  return seen > 0 && names.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Row> table = read_table();
  if (argc > 1 && strcmp(argv[1], "--known") == 0) return check_known(table);
  for (const Row& row : table)
    if (argc > 1 && row.call == argv[1]) return run_all(row, argc > 2 ? argv[2] : "");
  printf("usage: fault_tests CALL [SCENARIO] | --known < SYMBOLS\ncalls:");
  for (const Row& row : table) printf(" %s", row.call.c_str());
  printf("\n");
  return 2;
}
