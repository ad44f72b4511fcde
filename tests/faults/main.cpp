// Every call below the library is made to fail in turn: fault_tests CALL runs all scenarios, in each the n-th
// call with each of its errors, once and from then on. Whatever fails, operations end with documented
// statuses, nothing stays behind, and the same again without faults gives the right answers in the same
// process. nm -D LIBRARY | fault_tests --known: whether every call that the library makes stands in
// table.txt.
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <iostream>
#include <set>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "faults/scenarios.h"
#include "kit/calls.h"
#include "kit/clock.h"
#include "kit/log.h"
#include "kit/process.h"
#include "lab/functions.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSlow = true;
#else
constexpr bool kSlow = false;
#endif
constexpr long kSamples = kSlow ? 3 : 5;  // of a call's n, in each scenario and for each error
constexpr long kAllocations = kSlow ? kSamples : 25;
constexpr double kCap = kSlow ? 0.15 : 0.05;  // real seconds of a wait for an answer that does not come
constexpr int kPatience = 25;                 // seconds after which a life hangs
constexpr int kTries = 7;                     // of a healthy run behind a fault

// ---- table.txt

struct Row {
  std::string call;
  Words errors, harmless, times, behind;
};

std::vector<Row> read_table() {
  std::vector<Row> rows;
  for (std::string line : read_lines(TABLE)) {
    // The words behind a mark; the line then ends before it.
    const auto cut = [&line](const char* mark) {
      const Words parts = split(line, mark);
      line = parts[0];
      return parts.size() > 1 ? split(parts[1], " ") : Words();
    };
    Row& row = rows.emplace_back();
    row.behind = cut(" behind ");
    row.times = cut(" times ");
    row.harmless = cut(" | ");
    row.errors = split(line, " ");
    row.call = row.errors[0];
    row.errors.erase(row.errors.begin());
  }
  return rows;
}

// ---- What the processes share

struct Shared {
  std::atomic<long> scenarios, cases, fired, failures;
  std::atomic<long> outcomes[32];       // of operations in lives with faults, by status
  std::atomic<long> errors_fired[256];  // by number, from kEnd on
  char current[256];                    // the case that runs
};
Shared* s_shared;

void begin(const std::string& name) {
  snprintf(s_shared->current, sizeof s_shared->current, "%s", name.c_str());
}

std::string text(const Answer& answer) {
  return answer.operation + " " + std::to_string(answer.status) + " \"" + answer.value + "\"";
}

// With `or_unknown` a value may say that nothing is known.
void compare(const Answers& got, const Answers& wanted, bool or_unknown = false) {
  const auto [a, b] =
      std::mismatch(got.begin(), got.end(), wanted.begin(), wanted.end(), [=](const auto& x, const auto& y) {
        return x == y || (or_unknown && x.unknown && x.operation == y.operation && x.status == y.status);
      });
  if (a == got.end() && b == wanted.end()) return;
  fail((a == got.end() ? "nothing" : text(*a)) + " for " + (b == wanted.end() ? "nothing" : text(*b)));
}

// ---- One scenario

// Of a life without faults nothing is set; one with a trigger alone shows what the row's call clears away.
struct Fault {
  std::string error = "0";
  bool harmless = true;
  long times = 0, skip = 0;
  std::string trigger = {};  // the error of the call that the row's is made behind
};

// What one life has shown: open, act, act again where the library goes on, close.
struct Life {
  Answers first, again;
  long calls = 0;  // that may fail
};

struct Player {
  void play();
  void one(const Fault& fault);
  Life live(const Fault& fault);

  const Device& device;
  const Scenario& scenario;
  const Row& row;
  Life right = {};        // without faults
  std::string left = {};  // what is held while the library is closed
};

Life Player::live(const Fault& fault) {
  alarm(kPatience);
  device.reset();
  const bool faultless = fault.harmless && fault.trigger.empty();
  Run run(device, faultless);
  run.perform(scenario.files);
  Life life;
  const bool whole = scenario.whole_life, behind = !row.behind.empty();
  const std::string& counted = behind ? row.behind[0] : row.call;
  const auto begin_faults = [&] {
    life.calls = -faults::calls(counted);
    if (!fault.harmless) faults::on_fault([] { test_clock::cap_waits(kCap); });
    if (!fault.trigger.empty()) {
      faults::fail(counted, *faults::error_number(fault.trigger), fault.skip,
                   fault.harmless ? 1 : fault.times);
    }
    faults::fail(row.call, *faults::error_number(fault.error), behind ? 0 : fault.skip, fault.times);
  };
  const auto end_faults = [&] {
    life.calls += faults::calls(counted);
    faults::stop();
    test_clock::cap_waits(1e9);
  };
  if (whole) begin_faults();
  const uint32_t opened = wabs_open();
  if (opened != 0 && (!whole || opened != 2)) fail("wabs_open ended with " + std::to_string(opened));
  if (!whole) begin_faults();
  if (opened == 0) life.first = run.perform(scenario.act);
  if (!whole) end_faults();
  // It goes on without being opened again; late answers may have to pass first.
  const int tries = whole ? 0 : fault.harmless ? 1 : kTries;
  for (int i = 0; i < tries && briolib_check_library_status() == 0; i++) {
    if (i < tries - 1) test_clock::cap_waits(kCap * (1 << i));
    run.patient |= i == tries - 1;
    life.again = run.perform(scenario.act);
    test_clock::cap_waits(1e9);
    if (life.again == right.again) break;
  }
  // The fault may have ended the channel a moment later than its operation.
  if (!fault.harmless && briolib_check_library_status() != 0) life.again.clear();
  const uint32_t closed = wabs_close();
  if (closed != 0 && closed != 9) fail("wabs_close ended with " + std::to_string(closed));
  if (whole) end_faults();
  life.first.insert(life.first.begin(), {"wabs_open", opened, ""});
  life.first.push_back({"wabs_close", closed, ""});
  if (!faultless) prox_close();  // a monitor whose sensor could not be switched off is joined now
  if (const long stray = faults::stray_closes())
    fail(std::to_string(stray) + " closes of closed descriptors");
  const std::string now = "descriptors=" + std::to_string(process::descriptors()) + " " + faults::held();
  if (!right.first.empty() && now != left) fail("left behind: " + now + " for " + left);
  left = now;
  return life;
}

void Player::one(const Fault& fault) {
  const std::string name = scenario.name + "/" + row.call + "[" + std::to_string(fault.skip) + "] " +
                           fault.error + " x" + std::to_string(fault.times);
  begin(name);
  Life wanted = right;
  const bool clears_away = fault.harmless && !fault.trigger.empty();
  if (clears_away) {
    const long before = faults::calls(row.call);
    wanted = live({"0", true, 0, fault.skip, fault.trigger});
    if (faults::calls(row.call) == before) return;
  }
  if (getenv("FAULT_TESTS_SHOW") != nullptr) fprintf(stderr, "  %s\n", s_shared->current);
  const Life life = live(fault);
  const bool fired = faults::fired(row.call) != 0;
  s_shared->cases++;
  s_shared->fired += fired;
  s_shared->errors_fired[*faults::error_number(fault.error) - faults::kEnd] += fired;
  for (const auto& each : life.first) s_shared->outcomes[std::min(each.status, 31U)]++;
  if (fault.harmless) compare(life.first, wanted.first, clears_away);
  for (const auto& each : life.first) {
    if (each.status != 0 || each.unknown || each.stray) continue;
    if (std::find(wanted.first.begin(), wanted.first.end(), each) != wanted.first.end()) continue;
    fail("good status with a wrong value: " + text(each));
  }
  begin(name + " without reopening");
  if (fault.harmless || !life.again.empty()) compare(life.again, wanted.again, clears_away);
  begin(name + " afterwards");
  if (life.again.empty()) compare(live({}).first, right.first);
}

void Player::play() {
  begin(scenario.name);
  live({});  // some state lives as long as the process
  right = live({});
  for (const auto& each : right.first) {
    if (each.status != 0) fail("no answer to compare with: " + text(each));
    const bool known = each.value != "\"\"" && each.value != "4294967295";
    if (!known && each.operation.compare(0, 5, "wabs_") == 0 && each.unknown) {
      fail("nothing known to compare with: " + text(each));
    }
  }
  if (right.calls == 0) {
    fprintf(stderr, "  %-12s skipped\n", scenario.name.c_str());
    return;
  }
  s_shared->scenarios++;
  const Life second = live({});
  compare(second.first, right.first);
  compare(second.again, right.again);
  const long samples = row.errors == Words{"ENOMEM"} ? kAllocations : kSamples;
  // Few of the places behind which something is cleared away do it.
  const bool behind = !row.behind.empty();
  const long stride = behind && row.errors.empty() ? 1 : (right.calls + samples - 1) / samples;
  const long fired = s_shared->fired;
  long first = 0;
  const Words triggers = behind ? Words(row.behind.begin() + 1, row.behind.end()) : Words{""};
  const auto sweep = [&](Fault fault) {
    for (const auto& trigger : triggers) {
      fault.trigger = trigger;
      for (fault.skip = first % stride; fault.skip < right.calls; fault.skip += stride) one(fault);
    }
    first++;
  };
  const long storm = row.times.empty() ? 100 : std::stol(row.times[0]);
  for (const auto& error : row.harmless) sweep({error, true, error == "short" ? LONG_MAX : storm});
  for (const auto& error : row.errors) sweep({error, false, 1});
  if (!row.errors.empty()) sweep({row.errors[0], false, LONG_MAX});
  fprintf(stderr, "  %-12s %5ld calls, every %ld\n", scenario.name.c_str(), right.calls, stride);
  if (!behind && s_shared->fired == fired) fail("no fault fired");
}

// ---- All scenarios of one call

int run_all(const Row& row, const char* only) {
  for (const Scenario& scenario : scenarios()) {
    if (only != nullptr && scenario.name != only) continue;
    const Device device;
    const pid_t child = fork();
    if (child == 0) {
      brio_set_root_dir(device.root.dir().c_str());
      signal(SIGALRM, [](int) {
        fail("hangs");
        for (const auto& line : log_capture::lines()) fprintf(stderr, "  %s\n", line.text.c_str());
        _exit(1);
      });
      briolib_log_set_log_mask(getenv("FAULT_TESTS_SHOW") != nullptr ? 0xFFFFFFFF : Run::kLogMask);
      Player{device, scenario, row}.play();
#if defined(__SANITIZE_ADDRESS__)
      if (__lsan_do_recoverable_leak_check() != 0) fail("memory leaks");
#endif
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) fail(std::string("died of ") + strsignal(WTERMSIG(status)));
    if (WIFEXITED(status) && status != 0) fail("ended with " + std::to_string(WEXITSTATUS(status)));
  }
  printf("%s: %ld cases in %ld scenarios, %ld fired; operations by status:", row.call.c_str(),
         s_shared->cases.load(), s_shared->scenarios.load(), s_shared->fired.load());
  for (int i = 0; i < 32; i++) {
    if (s_shared->outcomes[i] != 0) printf(" %d: %ld", i, s_shared->outcomes[i].load());
  }
  printf("\n");
  begin(row.call);
  if (s_shared->scenarios == 0) fail("every scenario was skipped");
  Words errors = row.errors;
  errors.insert(errors.end(), row.harmless.begin(), row.harmless.end());
  for (const auto& error : errors) {
    const bool fired = s_shared->errors_fired[*faults::error_number(error) - faults::kEnd] != 0;
    if (only == nullptr && !fired) fail(error + " never fired");
  }
  return s_shared->failures == 0 ? 0 : 1;
}

// Whether the table holds the library's undefined names (standard input, from nm) and all calls that can
// fail.
int check_known(const std::vector<Row>& table) {
  std::set<std::string> names = faults::names();
  int seen = 0;
  for (std::string word; std::cin >> word;) {
    if (word != "U" || !(std::cin >> word) || word.compare(0, 2, "__") == 0) continue;  // the compiler's own
    names.insert(word.substr(0, word.find('@')));
    seen++;
  }
  for (const Row& row : table) {
    names.erase(row.call);
    for (const auto& each : row.errors) names.erase(each);  // of a line of those that never fail
  }
  for (const auto& each : names) printf("the library calls %s, which fails in no test\n", each.c_str());
  printf("%d calls, %zu unknown\n", seen, names.size());
  return seen > 0 && names.empty() ? 0 : 1;
}

}  // namespace

void fail(const std::string& message) {
  s_shared->failures++;
  fprintf(stderr, "  WRONG %s: %s\n", s_shared->current, message.c_str());
}

int main(int argc, char** argv) {
  const std::vector<Row> table = read_table();
  if (argc > 1 && strcmp(argv[1], "--known") == 0) return check_known(table);
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  s_shared = new (memory) Shared{};
  for (const Row& row : table) {
    if (argc > 1 && row.call == argv[1]) return run_all(row, argc > 2 ? argv[2] : nullptr);
  }
  printf("usage: fault_tests CALL [SCENARIO] | --known < SYMBOLS\ncalls:");
  for (const Row& row : table) printf(" %s", row.call.c_str());
  printf("\n");
  return 2;
}
