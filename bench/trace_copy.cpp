// CPU seconds of the trace capture against a bare select/read/write loop of the same block size over the same
// stream through a pty, and how long stopping takes in full stream. Exits 1 when the stream does not
// arrive bit for bit, the capture costs more than 1.3 times the bare loop, or stopping takes 100 ms.
//
//   trace_copy [MiB [rounds]]        (64 MiB, 1 round; files go below TMPDIR)

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_at.h"

// The modem library below the capture: it is open, and every filter command is taken.
extern "C" uint32_t __wrap_briolib_check_library_status() {
  return 0;
}

extern "C" uint32_t __wrap_blpkt_atcmd_request_with_callback(const char*, uint32_t, const char*, recv_func,
                                                             void*, uint16_t) {
  return 0;
}

namespace {

namespace fs = std::filesystem;

constexpr size_t kBlockSize = 1023;
constexpr double kRatioLimit = 1.3;
constexpr double kStopLimit = 0.1;
constexpr int kStops = 20;
constexpr uint64_t kEndless = UINT64_MAX;

[[noreturn]] void die(const char* what) {
  fprintf(stderr, "trace_copy: %s: %s\n", what, strerror(errno));
  exit(2);
}

// Word `index` of the stream: no two places look alike, so a lost or doubled block shows.
uint64_t stream_word(uint64_t index) {
  uint64_t z = (index + 1) * 0x9E3779B97F4A7C15U;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
  return z ^ (z >> 31);
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

struct Usage {
  double user, system, wall;
  long peak_kib;

  static Usage now() {
    rusage self;
    getrusage(RUSAGE_SELF, &self);
    timespec wall;
    clock_gettime(CLOCK_MONOTONIC, &wall);
    return {seconds(self.ru_utime), seconds(self.ru_stime),
            static_cast<double>(wall.tv_sec) + static_cast<double>(wall.tv_nsec) * 1e-9, self.ru_maxrss};
  }
};

// The modem: its own process, so that its CPU time does not count, on the link dev/ttyACM1.
class Modem {
 public:
  Modem(const fs::path& root, uint64_t bytes) {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) die("cannot open a pty");
    const char* name = ptsname(master);
    fs::path link = root / "dev/ttyACM1";
    fs::remove(link);
    fs::create_symlink(name, link);
    int slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    if (slave < 0 || tcgetattr(slave, &settings) != 0) die("cannot open the pty's other end");
    cfmakeraw(&settings);
    tcsetattr(slave, TCSANOW, &settings);
    close(slave);
    child_ = fork();
    if (child_ < 0) die("fork");
    if (child_ == 0) stream(master, bytes);
    close(master);
  }
  ~Modem() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

 private:
  [[noreturn]] static void stream(int master, uint64_t bytes) {
    std::vector<uint64_t> words(8192);
    uint64_t index = 0;
    while (bytes > 0) {
      for (uint64_t& word : words) word = stream_word(index++);
      size_t size = static_cast<size_t>(std::min<uint64_t>(bytes, words.size() * sizeof(words[0])));
      const char* data = reinterpret_cast<const char*>(words.data());
      for (size_t sent = 0; sent < size;) {
        ssize_t count = write(master, data + sent, size - sent);
        if (count < 0) _exit(1);
        sent += static_cast<size_t>(count);
      }
      if (bytes != kEndless) bytes -= size;
    }
    for (;;) pause();  // closing would discard what was not read yet
  }

  pid_t child_;
};

uint64_t size_of(const fs::path& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// Both loops are watched in the same way.
void wait_for_size(const fs::path& path, uint64_t bytes) {
  while (size_of(path) < bytes) usleep(5000);
}

bool check_stream(const fs::path& path, uint64_t bytes) {
  if (size_of(path) != bytes) return false;
  FILE* file = fopen(path.c_str(), "re");
  if (file == nullptr) die("cannot read the trace file");
  std::vector<uint64_t> words(8192);
  uint64_t index = 0;
  bool same = true;
  size_t count;
  while (same && (count = fread(words.data(), sizeof(words[0]), words.size(), file)) > 0) {
    for (size_t i = 0; i < count; i++) same = same && words[i] == stream_word(index + i);
    index += count;
  }
  fclose(file);
  return same && index * sizeof(words[0]) == bytes;
}

void bare_loop(int port, int stop, int log) {
  char block[kBlockSize];
  fd_set both;
  FD_ZERO(&both);
  FD_SET(port, &both);
  FD_SET(stop, &both);
  int nfds = std::max(port, stop) + 1;
  for (;;) {
    fd_set reads = both;
    if (select(nfds, &reads, nullptr, nullptr, nullptr) < 0) die("select");
    if (FD_ISSET(stop, &reads)) return;
    ssize_t count = read(port, block, sizeof(block));
    if (count <= 0) die("read");
    if (write(log, block, static_cast<size_t>(count)) != count) die("write");
  }
}

void run_bare(const fs::path& root, const fs::path& file, uint64_t bytes) {
  int port = open((root / "dev/ttyACM1").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  int log = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0444);
  int sockets[2];
  if (port < 0 || log < 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
    die("cannot start the bare loop");
  }
  std::thread copier(bare_loop, port, sockets[0], log);
  wait_for_size(file, bytes);
  if (write(sockets[1], "STOP", 5) != 5) die("cannot stop the bare loop");
  copier.join();
  for (int fd : {port, log, sockets[0], sockets[1]}) close(fd);
}

fs::path start_capture(const fs::path& root) {
  uint32_t status = brio_trace_tst_log("/filter.cfg", "/trace");
  if (status != 0) {
    fprintf(stderr, "trace_copy: the capture does not start: status %u\n", status);
    exit(2);
  }
  for (const auto& entry : fs::directory_iterator(root)) {
    if (entry.path().extension() == ".istp") return entry.path();
  }
  die("no trace file");
}

struct Cost {
  double cpu;
  bool same;
};

Cost measure(bool capture, const fs::path& root, uint64_t bytes) {
  fs::path file = root / "bare.istp";
  Modem modem(root, bytes);
  Usage before = Usage::now();
  if (capture) {
    file = start_capture(root);
    wait_for_size(file, bytes);
    brio_trace_tst_stop();
  } else {
    run_bare(root, file, bytes);
  }
  Usage after = Usage::now();
  Cost cost = {after.user + after.system - before.user - before.system, check_stream(file, bytes)};
  fs::remove(file);
  printf("%-8s %7.3f s CPU (user %.3f, system %.3f), %7.3f s elapsed, peak memory +%ld KiB, stream %s\n",
         capture ? "capture" : "bare", cost.cpu, after.user - before.user, after.system - before.system,
         after.wall - before.wall, after.peak_kib - before.peak_kib, cost.same ? "bit for bit" : "DIFFERS");
  fflush(stdout);
  return cost;
}

double slowest_stop(const fs::path& root) {
  double slowest = 0;
  Modem modem(root, kEndless);
  for (int i = 0; i < kStops; i++) {
    fs::path file = start_capture(root);
    wait_for_size(file, 4 << 20);
    double before = Usage::now().wall;
    brio_trace_tst_stop();
    slowest = std::max(slowest, Usage::now().wall - before);
    fs::remove(file);
  }
  return slowest;
}

}  // namespace

int main(int argc, char** argv) {
  uint64_t mib = argc > 1 ? strtoull(argv[1], nullptr, 10) : 64;
  long rounds = argc > 2 ? strtol(argv[2], nullptr, 10) : 1;
  if (mib == 0 || rounds <= 0) {
    fprintf(stderr, "usage: trace_copy [MiB [rounds]]\n");
    return 2;
  }
  std::string name = (fs::temp_directory_path() / "trace_copy_XXXXXX").string();
  if (mkdtemp(&name[0]) == nullptr) die("no temporary directory");
  fs::path root = name;
  fs::create_directories(root / "dev");
  FILE* filter = fopen((root / "filter.cfg").c_str(), "we");
  if (filter == nullptr || fputs("AT+TRACE=1\n", filter) < 0 || fclose(filter) != 0) {
    die("cannot write the filter file");
  }
  brio_set_root_dir(root.c_str());

  double bare = 0, capture = 0;
  bool same = true;
  for (long round = 0; round < rounds; round++) {
    for (bool ours : {false, true}) {
      Cost cost = measure(ours, root, mib << 20);
      (ours ? capture : bare) += cost.cpu;
      same = same && cost.same;
    }
  }
  double stop = slowest_stop(root);
  fs::remove_all(root);
  printf("capture / bare: %.3f (limit %.1f)\n", capture / bare, kRatioLimit);
  printf("slowest of %d stops in full stream: %.3f ms (limit %.0f)\n", kStops, stop * 1e3, kStopLimit * 1e3);
  bool good = same && capture <= bare * kRatioLimit && stop < kStopLimit;
  if (!good) printf("LIMIT MISSED\n");
  return good ? 0 : 1;
}
