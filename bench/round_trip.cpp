// What one request costs over a pty: its system calls and allocations, and its processor time against a bare
// loop of two threads that does only what it must: write, select, read, condition variable. Both talk to the
// same responder. Prints all; exits 1 when a count or the ratio of the times exceeds its limit.
//
//   round_trip [requests per round] [limit]
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "call_count.h"
#include "pty_port.h"

namespace {

std::atomic<long> s_allocations{0};

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
char* __real_strdup(const char* text);

void* __wrap_malloc(size_t size) {
  s_allocations++;
  return __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  s_allocations++;
  return __real_calloc(count, size);
}
char* __wrap_strdup(const char* text) {
  s_allocations++;
  return __real_strdup(text);
}
}

namespace {

constexpr char kCommand[] = "AT+GTBARS?";
// Write, select, read and three of futex, which rarely meet by chance and make another one.
constexpr double kSystemCallsMax = 6.1;
// The one line with its text, and the final line.
constexpr double kAllocationsMax = 3;
constexpr char kAnswer[] = "\r\n+GTBARS: 0,7,4,60,30\r\n\r\nOK\r\n";

// Answers every CR on a port until it is destroyed.
class Responder {
 public:
  explicit Responder(bench::PtyPort& port) : port_(port), thread_([this] { run(); }) {}
  ~Responder() {
    stop_ = true;
    port_.poke();
    thread_.join();
  }

 private:
  void run() {
    char buffer[256];
    while (!stop_) {
      ssize_t got = read(port_.master(), buffer, sizeof(buffer));
      if (got <= 0) return;
      if (memchr(buffer, '\r', static_cast<size_t>(got)) == nullptr) continue;
      if (write(port_.master(), kAnswer, sizeof(kAnswer) - 1) < 0) return;
    }
  }

  bench::PtyPort& port_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

long switches() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw + usage.ru_nivcsw;
}

// Of all threads, in microseconds. On one processor that no other work delays they add up to the time that
// passes.
double processor_time() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double per_request(double start, int requests) {
  return (processor_time() - start) / requests;
}

struct Bare {
  int fd;
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t answered = PTHREAD_COND_INITIALIZER;
  bool done = false;
  std::atomic<bool> stop{false};
};

void* bare_reader(void* argument) {
  auto* bare = static_cast<Bare*>(argument);
  char buffer[256];
  size_t held = 0;
  for (;;) {
    fd_set reads;
    FD_ZERO(&reads);
    FD_SET(bare->fd, &reads);
    select(bare->fd + 1, &reads, nullptr, nullptr, nullptr);
    ssize_t got = read(bare->fd, buffer + held, sizeof(buffer) - held);
    if (bare->stop || got <= 0) return nullptr;
    held += static_cast<size_t>(got);
    if (held < 4 || memcmp(buffer + held - 4, "OK\r\n", 4) != 0) continue;
    held = 0;
    pthread_mutex_lock(&bare->mutex);
    bare->done = true;
    pthread_mutex_unlock(&bare->mutex);
    pthread_cond_signal(&bare->answered);
  }
}

double bare_round(const bench::PtyPort& port, int requests) {
  Bare bare;
  bare.fd = open(port.slave().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  pthread_t reader;
  pthread_create(&reader, nullptr, bare_reader, &bare);
  std::string command = std::string(kCommand) + "\r";
  const double start = processor_time();
  for (int i = 0; i <= requests; i++) {
    if (i == requests) bare.stop = true;
    if (write(bare.fd, command.data(), command.size()) < 0) abort();
    if (i == requests) break;
    pthread_mutex_lock(&bare.mutex);
    while (!bare.done) pthread_cond_wait(&bare.answered, &bare.mutex);
    bare.done = false;
    pthread_mutex_unlock(&bare.mutex);
  }
  double cost = per_request(start, requests);
  pthread_join(reader, nullptr);
  close(bare.fd);
  return cost;
}

uint32_t recv_func_count(const ATResponse* response, void* user_data, uint16_t) {
  if (response->intermediates == nullptr) return 6;
  ++*static_cast<int*>(user_data);
  return 0;
}

bool open_channel() {
  return blpkt_init() == 0 && pktio_init("/dev/ttyACM2", blpkt_handle_packet, nullptr) == 0;
}

void send_requests(int requests, int& answered) {
  for (int i = 0; i < requests; i++) {
    blpkt_atcmd_request_with_callback(kCommand, SINGLELINE, "+GTBARS", recv_func_count, &answered, 0);
  }
}

double library_round(int requests, int& answered) {
  const double start = processor_time();
  send_requests(requests, answered);
  return per_request(start, requests);
}

// False when a request takes more system calls than it may.
bool count_calls() {
  constexpr int kRequests = 1000;
  const std::map<long, long> counts = bench::count_system_calls([] {
    int answered = 0;
    if (!open_channel()) return false;
    send_requests(kRequests / 10, answered);
    bench::count_begin();
    send_requests(kRequests, answered);
    bench::count_end();
    return answered == kRequests + kRequests / 10;
  });
  static const std::map<long, const char*> kNames = {
      {SYS_write, "write"},   {SYS_read, "read"},       {SYS_futex, "futex"},
      {SYS_fcntl, "fcntl"},   {SYS_pselect6, "select"},
#ifdef SYS_select
      {SYS_select, "select"},
#endif
  };
  double total = 0;
  std::string each;
  for (const auto& [number, count] : counts) {
    const auto name = kNames.find(number);
    char text[64];
    snprintf(text, sizeof(text), "%s%s %.2f", each.empty() ? "" : ", ",
             name != kNames.end() ? name->second : ("call " + std::to_string(number)).c_str(),
             static_cast<double>(count) / kRequests);
    each += text;
    total += static_cast<double>(count) / kRequests;
  }
  printf("system calls %6.2f a request (limit %.2f): %s\n", total, kSystemCallsMax, each.c_str());
  return total > 0 && total <= kSystemCallsMax;
}

}  // namespace

int main(int argc, char** argv) {
  int requests = argc > 1 ? atoi(argv[1]) : 5000;
  double limit = argc > 2 ? atof(argv[2]) : 1.5;
  constexpr int kRounds = 7;

  // One processor for all threads: they take turns anyway, and where the scheduler puts them would decide the
  // result.
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof(one), &one);

  bench::PortRoot root;
  bench::PtyPort bare_port(root, "bare"), query(root, "ttyACM2"), urc(root, "ttyACM3");
  Responder bare_modem(bare_port), query_modem(query);
  brio_set_root_dir(root.path().c_str());
  const bool few_calls = count_calls();
  if (!open_channel()) {
    fprintf(stderr, "round_trip: the channel did not open\n");
    return 1;
  }

  // Alternating rounds, best of each: what else runs on the machine disturbs both alike.
  double bare = 1e9, library = 1e9;
  long bare_switches = 0, library_switches = 0;
  int answered = 0;
  long allocations = 0;
  for (int round = 0; round < kRounds; round++) {
    long at_start = switches();
    bare = std::min(bare, bare_round(bare_port, requests));
    long at_half = switches();
    allocations -= s_allocations;
    library = std::min(library, library_round(requests, answered));
    allocations += s_allocations;
    bare_switches += at_half - at_start;
    library_switches += switches() - at_half;
  }
  pktio_shutdown();
  blpkt_shutdown();

  double total = static_cast<double>(requests) * kRounds;
  printf("bare loop   %7.2f us, %.2f context switches per round trip\n", bare,
         static_cast<double>(bare_switches) / total);
  printf("library     %7.2f us, %.2f context switches per round trip\n", library,
         static_cast<double>(library_switches) / total);
  printf("allocations %7.2f a request (limit %.2f)\n", static_cast<double>(allocations) / total,
         kAllocationsMax);
  printf("ratio       %7.2f (limit %.2f)\n", library / bare, limit);
  if (answered != requests * kRounds) {
    fprintf(stderr, "round_trip: %d of %d requests were answered\n", answered, requests * kRounds);
    return 1;
  }
  const bool few_allocations = static_cast<double>(allocations) <= kAllocationsMax * total;
  return few_calls && few_allocations && library <= limit * bare ? 0 : 1;
}
