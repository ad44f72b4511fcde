// A pseudo terminal in the place of one of the modem's ports below a temporary root directory.
#ifndef BENCH_PTY_PORT_H
#define BENCH_PTY_PORT_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <string>

namespace bench {

class PortRoot {
 public:
  PortRoot() {
    char name[] = "/tmp/bench-XXXXXX";
    if (mkdtemp(name) != nullptr) path_ = name;
    mkdir((path_ + "/dev").c_str(), 0755);
  }
  ~PortRoot() {
    rmdir((path_ + "/dev").c_str());
    rmdir(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class PtyPort {
 public:
  PtyPort(const PortRoot& root, const char* name) : link_(root.path() + "/dev/" + name) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    grantpt(master_);
    unlockpt(master_);
    slave_ = ptsname(master_);
    // Held open, so that the master never sees a hang-up between two users of the port.
    keep_ = open(slave_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    tcgetattr(keep_, &settings);
    cfmakeraw(&settings);
    tcsetattr(keep_, TCSANOW, &settings);
    if (symlink(slave_.c_str(), link_.c_str()) != 0) abort();
  }
  ~PtyPort() {
    unlink(link_.c_str());
    close(keep_);
    close(master_);
  }
  PtyPort(const PtyPort&) = delete;
  PtyPort& operator=(const PtyPort&) = delete;

  int master() const { return master_; }
  const std::string& slave() const { return slave_; }
  // Wakes a thread that reads the master.
  void poke() {
    if (write(keep_, "\r", 1) < 0) abort();
  }

 private:
  std::string link_, slave_;
  int master_ = -1, keep_ = -1;
};

}  // namespace bench

#endif
