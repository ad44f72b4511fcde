// Every call below the library is made to fail in turn: fault_tests CALL runs all scenarios, in each the n-th
// call with each of its errors, once and from then on. Whatever fails, operations end with documented
// statuses, nothing stays behind, and the same again without faults gives the right answers in the same
// process. fault_tests --known LIBRARY: whether every call that the library makes stands in a table here.
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <set>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "faults/scenarios.h"
#include "lab/calls.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using faults::kEnd;
using faults::kShort;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kSamples = 3;   // of a call's n, in each scenario and for each error
constexpr double kCap = 0.15;  // real seconds of a wait for an answer that does not come
#else
constexpr long kSamples = 5;
constexpr double kCap = 0.05;
#endif
#if defined(__OPTIMIZE__) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kAllocations = kSamples;
#else
constexpr long kAllocations = 25;
#endif
constexpr int kPatience = 25;  // seconds without a new case after which a scenario hangs
constexpr int kTries = 7;      // of a healthy run behind a fault

struct Row {
  const char* call;
  std::vector<int> errors;
  std::vector<int> harmless;     // nobody but the log notices them, also when they come in a row
  const char* behind = nullptr;  // the call is made when this one fails
  int behind_error = 0;
  long storm = 100;  // times in a row of a harmless error
};

const Row kRows[] = {
    {"malloc", {ENOMEM}, {}},
    {"calloc", {ENOMEM}, {}},
    {"strdup", {ENOMEM}, {}},
    {"pthread_create", {EAGAIN, ENOMEM}, {}},
    {"pthread_mutex_init", {EAGAIN, ENOMEM}, {}},
    {"pthread_condattr_init", {ENOMEM}, {}},
    {"pthread_condattr_setclock", {EINVAL}, {}},
    {"pthread_cond_init", {EAGAIN, ENOMEM}, {}},
    {"open", {EACCES, EINTR, EIO, ELOOP, EMFILE, ENFILE, ENODEV, ENOENT, ENOMEM, ENOSPC, ENXIO, EROFS}, {}},
    {"close", {}, {EINTR, EIO, ENOSPC}},
    {"read", {EAGAIN, EIO, ENODEV, ENXIO, kEnd}, {EINTR, kShort}},
    {"write",
     {EAGAIN, EIO, ENODEV, ENOSPC, EDQUOT, EFBIG, EPIPE, kShort, kEnd},
     {EINTR},
     nullptr,
     0,
     3},  // the sensor's values are tried four times
    {"send", {EAGAIN, EINTR, ENOBUFS, ENOMEM, EPIPE, kShort}, {}},
    {"select", {EBADF, EINVAL, ENOMEM}, {EINTR}},
    {"poll", {EINVAL, ENOMEM, EINTR}, {}, "write", EAGAIN},
    {"fcntl", {}, {EAGAIN, EPERM}},  // F_SETFL
    {"F_DUPFD_CLOEXEC", {EINVAL, EMFILE}, {}},
    {"flock", {EINTR, ENOLCK, EWOULDBLOCK}, {}},
    {"shutdown", {}, {ENOTCONN}},
    {"socket", {EACCES, EMFILE, ENFILE, ENOBUFS, ENOMEM}, {}},
    {"socketpair", {EMFILE, ENFILE, ENOBUFS, ENOMEM}, {}},
    {"ioctl", {EADDRNOTAVAIL, ENODEV, ENOMEM}, {}},
    {"inet_ntop", {ENOSPC}, {}},
    {"tcgetattr", {}, {EIO, ENOTTY}},
    {"tcsetattr", {}, {EINTR, EIO}},
    {"fdopen", {EMFILE, ENOMEM}, {}},
    {"fstat", {}, {EIO, ENOMEM}},
    {"fchmod", {}, {EIO, EPERM}},
    {"fread", {EIO, EISDIR, EINTR, kEnd}, {kShort}},
    {"fclose", {}, {EIO}},
    {"system", {EAGAIN, ENOMEM, kEnd}, {}},
    {"localtime_r", {EOVERFLOW}, {}},
    {"clock_gettime", {EINVAL}, {}},
    {"EVP_MD_CTX_new", {ENOMEM}, {}},
    {"EVP_md5", {ENOENT}, {}},
    {"EVP_DigestInit", {ENOMEM}, {}},
    {"EVP_DigestUpdate", {EIO}, {}},
    {"EVP_DigestFinal", {EIO}, {}},
    {"NipcOpen", {EIO}, {}},
    {"NipcClose", {9}, {}},
    {"NipcGetStringProperty", {9}, {}},
    {"NipcGetEventName", {EIO}, {}},
    {"NipcGetEventSource", {EIO}, {}},
};

// What the library calls besides: undoes, computes, or fails for wrong arguments only.
constexpr char kNeverFail[] =
    " EVP_MD_CTX_free NipcFreeString free pthread_cond_destroy pthread_condattr_destroy pthread_mutex_destroy"
    " pthread_join pthread_mutex_lock pthread_mutex_unlock pthread_cond_signal pthread_cond_wait pthread_once"
    " cfmakeraw cfsetispeed cfsetospeed ferror memchr memcmp memcpy memmove"
    " memset mktime snprintf strcasestr strchr strcmp strcspn strerror_r strlen strncasecmp strncmp strnlen"
    " strpbrk strrchr strspn strstr strtoll strtoul strtoull syslog time tzset vsnprintf"
    // These read through "fread" above.
    " fgets fread getc_unlocked"
    // Clears away the MCC file that could not be written, which stays short when that fails, too.
    " lseek unlink tcflush"
    // In base/clock.cpp alone, which tests replace.
    " nanosleep sleep pthread_cond_timedwait ";

// ---- What the processes share

struct Shared {
  std::atomic<long> cases, fired, failures, stride;
  std::atomic<long> outcomes[32];      // of operations in runs with faults, by status
  std::atomic<long> errors_fired[16];  // by place in the row
  char current[256];                   // the case that runs
};
Shared* s_shared;

void fail(const std::string& message) {
  s_shared->failures++;
  fprintf(stderr, "  WRONG %s: %s\n", s_shared->current, message.c_str());
}

std::string error_name(int error) {
  return error == kShort ? "short" : error == kEnd ? "end" : strerrorname_np(error);
}

std::string text(const Answer& answer) {
  return answer.operation + " " + std::to_string(answer.status) + " \"" + answer.value + "\"";
}

// ---- One scenario

struct Left {
  long descriptors;
  std::string held;
  bool operator==(const Left& other) const { return descriptors == other.descriptors && held == other.held; }
};

class Player {
 public:
  Player(const Device& device, const Scenario& scenario, const Row& row)
      : device_(device), scenario_(scenario), row_(row) {}
  void play();

 private:
  using Answers = std::vector<Answer>;
  // One life: open, act, close; what is open afterwards. `arm` is called where calls begin to fail.
  template <typename Arm>
  Run live(bool patient, Arm arm);
  void one(int error, bool harmless, long skip, long times);
  void compare(const char* what, const Run& run, const Answers& answers, const Answers& right);
  void compare(const char* what, const Run& run) {
    compare(what, run, run.answers, right_);
    compare(what, run, again_, right_again_);
  }

  const Device& device_;
  const Scenario& scenario_;
  const Row& row_;
  Answers right_, right_again_;  // answers without faults, and of a second act in the same life
  Answers again_;                // those of the last life
  bool unanswered_ = false;      // a request of the last life was given up
  Left nothing_ = {};            // what is open while the library is closed
  long begin_ = 0, end_ = 0;     // calls before and behind those that may fail
};

void Player::compare(const char* what, const Run& run, const Answers& answers, const Answers& right) {
  for (const auto& each : run.wrong) fail(std::string(what) + ": " + each);
  for (size_t i = 0; i < std::max(answers.size(), right.size()); i++) {
    const std::string got = i < answers.size() ? text(answers[i]) : "nothing";
    const std::string wanted = i < right.size() ? text(right[i]) : "nothing";
    if (got != wanted) return fail(std::string(what) + ": " + got + " for " + wanted);
  }
}

template <typename Arm>
Run Player::live(bool patient, Arm arm) {
  device_.reset();
  const char* counted = row_.behind != nullptr ? row_.behind : row_.call;
  const bool whole = scenario_.whole_life;
  Run run;
  Scenario::perform(scenario_.files, device_, run);
  run.patient = patient;
  again_.clear();
  const auto begin = [&] { begin_ = faults::calls(counted), arm(); };
  const auto end = [&] { end_ = faults::calls(counted), faults::stop(), test_clock::cap_waits(1e9); };
  if (whole) begin();
  const uint32_t opened = wabs_open();
  run.answers.push_back({"wabs_open", opened, "", false});
  if (opened != 0 && (!whole || opened != 2)) fail("wabs_open ended with " + std::to_string(opened));
  if (!whole) begin();
  if (opened == 0) Scenario::perform(scenario_.act, device_, run);
  if (!whole) end();
  unanswered_ = log_capture::has(" timed out") || log_capture::has("q_get failed");
  // It goes on without being opened again; late answers may have to pass first.
  for (int i = 0; !whole && briolib_check_library_status() == 0 && i < kTries; i++) {
    if (!patient && i < kTries - 1) test_clock::cap_waits(kCap * (1 << i));
    Run again;
    again.patient = patient;
    Scenario::perform(scenario_.act, device_, again);
    for (const auto& each : again.wrong) fail("without reopening: " + each);
    again_ = again.answers;
    test_clock::cap_waits(1e9);
    if (patient || again_ == right_again_) break;
  }
  // The fault may have ended the channel a moment later than its operation.
  if (!patient && briolib_check_library_status() != 0) again_.clear();
  const uint32_t closed = wabs_close();
  run.answers.push_back({"wabs_close", closed, "", false});
  if (closed != 0 && closed != 9) fail("wabs_close ended with " + std::to_string(closed));
  if (whole) end();
  if (!patient) prox_close();  // a monitor whose sensor could not be switched off is joined now
  if (const long stray = faults::stray_closes())
    fail(std::to_string(stray) + " closes of closed descriptors");
  const Left now = {process::descriptors(), faults::held()};
  if (!right_.empty() && !(now == nothing_)) {
    fail("left behind: descriptors " + std::to_string(now.descriptors) + " for " +
         std::to_string(nothing_.descriptors) + ", " + now.held + " for " + nothing_.held);
  }
  nothing_ = now;
  return run;
}

void Player::one(int error, bool harmless, long skip, long times) {
  snprintf(s_shared->current, sizeof s_shared->current, "%s/%s[%ld] %s x%ld", scenario_.name.c_str(),
           row_.call, skip, error_name(error).c_str(), times);
  if (getenv("FAULT_TESTS_SHOW") != nullptr) fprintf(stderr, "  %s\n", s_shared->current);
  const Run run = live(harmless, [&] {
    if (!harmless) faults::on_fault([] { test_clock::cap_waits(kCap); });
    if (row_.behind != nullptr) faults::fail(row_.behind, row_.behind_error, skip, times);
    faults::fail(row_.call, error, row_.behind != nullptr ? 0 : skip, times);
  });
  const long fired = faults::fired(row_.call);
  s_shared->cases++;
  s_shared->fired += fired != 0;
  const auto& all = harmless ? row_.harmless : row_.errors;
  const auto place = std::find(all.begin(), all.end(), error) - all.begin();
  s_shared->errors_fired[place + (harmless ? 0 : row_.harmless.size())] += fired != 0;
  for (const auto& each : run.answers) s_shared->outcomes[std::min(each.status, 31U)]++;
  const bool goes_on = !again_.empty();
  if (harmless) {
    compare("harmless fault", run);
  } else {
    compare("fault", run, {}, {});
    // The answer of a request that was given up may count as that of the next.
    for (const auto& each : unanswered_ ? Answers() : run.answers) {
      if (each.status != 0 || each.unknown || std::find(right_.begin(), right_.end(), each) != right_.end())
        continue;
      fail("good status with a wrong value: " + text(each));
    }
    if (goes_on) compare("without reopening", run, again_, right_again_);
  }
  if (!goes_on) compare("afterwards", live(true, [] {}));
}

void Player::play() {
  snprintf(s_shared->current, sizeof s_shared->current, "%s", scenario_.name.c_str());
  live(true, [] {});  // some state lives as long as the process
  right_ = live(true, [] {}).answers;
  right_again_ = again_;
  for (const auto& each : right_) {
    if (each.status != 0) fail("no answer to compare with: " + text(each));
    const bool known = each.value != "\"\"" && each.value != "4294967295";
    if (!known && each.operation.compare(0, 5, "wabs_") == 0 && each.unknown) {
      fail("nothing known to compare with: " + text(each));
    }
  }
  if (end_ == begin_) return;
  compare("second run", live(true, [] {}));
  const long count = end_ - begin_;
  if (count == 0) return;
  const bool allocation = row_.errors.size() == 1 && row_.errors[0] == ENOMEM;
  const long samples = allocation ? kAllocations : kSamples;
  const long stride = (count + samples - 1) / samples;
  long first = 0;
  const long fired = s_shared->fired;
  for (const int error : row_.harmless) {
    for (long n = first++ % stride; n < count; n += stride)
      one(error, true, n, error == kShort ? LONG_MAX : row_.storm);
  }
  for (const int error : row_.errors) {
    for (long n = first++ % stride; n < count; n += stride) one(error, false, n, 1);
  }
  if (!row_.errors.empty()) {
    for (long n = first % stride; n < count; n += stride) one(row_.errors[0], false, n, LONG_MAX);
  }
  fprintf(stderr, "  %-12s %5ld calls, every %ld\n", scenario_.name.c_str(), count, stride);
  if (row_.behind == nullptr && s_shared->fired == fired) fail("no fault fired");
}

// ---- All scenarios of one call

// Waits for the process; ends it when it hangs.
void watch(pid_t child) {
  int status = 0;
  long seen = -1;
  for (int quiet = 0; waitpid(child, &status, WNOHANG) == 0; quiet++) {
    if (s_shared->cases != seen) quiet = 0;
    seen = s_shared->cases;
    if (quiet > kPatience * 100) {
      fail("hangs");
      kill(child, SIGABRT);
      waitpid(child, &status, 0);
      return;
    }
    usleep(10000);
  }
  if (WIFSIGNALED(status)) fail(std::string("died of ") + strsignal(WTERMSIG(status)));
  if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
    fail("ended with " + std::to_string(WEXITSTATUS(status)));
}

int run_all(const Row& row, const char* only) {
  for (const Scenario& scenario : scenarios()) {
    if (only != nullptr && scenario.name != only) continue;
    const Device device;
    const pid_t child = fork();
    if (child == 0) {
      brio_set_root_dir(device.root.dir().c_str());
      signal(SIGABRT, [](int) {
        for (const auto& line : log_capture::lines()) fprintf(stderr, "  %s\n", line.text.c_str());
        _exit(1);
      });
      if (getenv("FAULT_TESTS_SHOW") != nullptr) briolib_log_set_log_mask(0xFFFFFFFF);
      Player(device, scenario, row).play();
#if defined(__SANITIZE_ADDRESS__)
      if (__lsan_do_recoverable_leak_check() != 0) fail("memory leaks");
#endif
      _exit(0);
    }
    watch(child);
  }
  printf("%s: %ld cases, %ld fired; operations by status:", row.call, s_shared->cases.load(),
         s_shared->fired.load());
  for (int i = 0; i < 32; i++) {
    if (s_shared->outcomes[i] != 0) printf(" %d: %ld", i, s_shared->outcomes[i].load());
  }
  printf("\n");
  size_t place = 0;
  snprintf(s_shared->current, sizeof s_shared->current, "%s", row.call);
  for (const auto* errors : {&row.harmless, &row.errors}) {
    for (const int error : *errors) {
      if (only == nullptr && s_shared->errors_fired[place] == 0) fail(error_name(error) + " never fired");
      place++;
    }
  }
  return s_shared->failures == 0 ? 0 : 1;
}

// Every undefined symbol of the library that this build can see.
int check_known(const std::string& library) {
  FILE* list = popen(("nm -D --undefined-only " + library).c_str(), "r");
  int unknown = 0, seen = 0;
  char line[256], name[200];
  while (list != nullptr && fgets(line, sizeof line, list) != nullptr) {
    if (sscanf(line, " U %199[^@ \n]", name) != 1 || strncmp(name, "__", 2) == 0)
      continue;  // the compiler's own
    seen++;
    const bool in_table = std::any_of(std::begin(kRows), std::end(kRows),
                                      [&](const Row& row) { return row.call == std::string(name); });
    if (in_table || strstr(kNeverFail, (" " + std::string(name) + " ").c_str()) != nullptr) continue;
    printf("the library calls %s, which fails in no test\n", name);
    unknown++;
  }
  if (list != nullptr) pclose(list);
  printf("%d calls, %d unknown\n", seen, unknown);
  return seen > 0 && unknown == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && strcmp(argv[1], "--known") == 0) return check_known(argv[2]);
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  s_shared = new (memory) Shared{};
  for (const Row& row : kRows) {
    if (argc > 1 && strcmp(argv[1], row.call) == 0) return run_all(row, argc > 2 ? argv[2] : nullptr);
  }
  printf("usage: fault_tests CALL [SCENARIO] | --known LIBRARY\ncalls:");
  for (const Row& row : kRows) printf(" %s", row.call);
  printf("\n");
  return 2;
}
