#include "support/pty_modem.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "brio/brio.h"

namespace {

// The modem's side of a new port, linked as `link`.
int open_port(const std::string& link) {
  int controller = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  char name[64];
  if (controller < 0 || grantpt(controller) != 0 || unlockpt(controller) != 0 ||
      ptsname_r(controller, name, sizeof(name)) != 0 || symlink(name, link.c_str()) != 0) {
    ADD_FAILURE() << "no pseudo terminal for " << link;
    return controller;
  }
  // Raw from the start, so that nothing is echoed before the library opens it.
  termios attributes;
  tcgetattr(controller, &attributes);
  cfmakeraw(&attributes);
  tcsetattr(controller, TCSANOW, &attributes);
  return controller;
}

}  // namespace

bool write_all(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

PtyModem::PtyModem() {
  query_ = open_port(root_.path("/dev/ttyACM2"));
  urc_ = open_port(root_.path("/dev/ttyACM3"));
  brio_set_root_dir(root_.dir().c_str());
  if (pipe2(stop_, O_CLOEXEC) != 0) ADD_FAILURE() << "no pipe";
}

PtyModem::~PtyModem() {
  unplug();
  brio_set_root_dir(nullptr);
}

void PtyModem::script(std::function<std::string(const std::string&)> script) {
  script_ = std::move(script);
  thread_ = std::thread([this] { serve(); });
}

std::string PtyModem::received() {
  std::string bytes;
  pollfd watched = {query_, POLLIN, 0};
  while (poll(&watched, 1, 0) == 1) {
    char piece[4096];
    ssize_t got = read(query_, piece, sizeof(piece));
    if (got <= 0) break;
    bytes.append(piece, static_cast<size_t>(got));
  }
  return bytes;
}

void PtyModem::unplug() {
  if (stop_[1] >= 0) close(stop_[1]);
  stop_[1] = -1;
  if (thread_.joinable()) thread_.join();
  for (int* fd : {&query_, &urc_, &stop_[0]}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

void PtyModem::serve() {
  std::string pending;
  for (;;) {
    pollfd watched[] = {{query_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    poll(watched, 2, -1);
    if (watched[1].revents != 0) return;
    if ((watched[0].revents & POLLIN) == 0) {
      // Nobody has the port open.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    char piece[1024];
    ssize_t got = read(query_, piece, sizeof(piece));
    if (got <= 0) continue;
    pending.append(piece, static_cast<size_t>(got));
    for (size_t end; (end = pending.find('\r')) != std::string::npos;) {
      std::string answer = script_(pending.substr(0, end));
      pending.erase(0, end + 1);
      if (!write_all(query_, answer)) break;
    }
  }
}
