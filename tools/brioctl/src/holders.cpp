#include "holders.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "errors.h"
#include "printable.h"
#include "report.h"

namespace brioctl {

namespace fs = std::filesystem;

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

std::vector<Holder> holders(const std::vector<std::string>& ports) {
  std::vector<std::pair<std::string, std::string>> devices;  // path, as asked for
  for (const std::string& port : ports) {
    std::error_code failed;
    const fs::path device = fs::canonical(port, failed);
    if (!failed) devices.emplace_back(device.string(), port);
  }
  std::vector<Holder> found;
  std::error_code failed;
  for (fs::directory_iterator process("/proc", failed), last; !failed && process != last;
       process.increment(failed)) {
    const int pid = std::atoi(process->path().filename().c_str());
    if (pid <= 0 || pid == getpid()) continue;
    std::error_code hidden;  // another user's descriptors, or a process that has just ended
    for (fs::directory_iterator fd(process->path() / "fd", hidden), end; !hidden && fd != end;
         fd.increment(hidden)) {
      std::error_code gone;
      const std::string target = fs::read_symlink(fd->path(), gone).string();
      for (const auto& [device, port] : devices) {
        const bool known = std::any_of(found.begin(), found.end(), [&, &which = port](const Holder& holder) {
          return holder.pid == pid && holder.port == which;
        });
        if (target == device && !known) found.push_back({pid, first_line(process->path() / "comm"), port});
      }
    }
  }
  return found;
}

Claim::~Claim() {
  release();
}

void Claim::release() {
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
}

// The kernel forgets the name with the socket, so a process that dies leaves nothing behind.
bool Claim::take(const std::string& query_port) {
  struct stat device {};
  if (stat(query_port.c_str(), &device) != 0) return true;
  return take_name("brioctl " + std::to_string(major(device.st_rdev)) + ":" +
                   std::to_string(minor(device.st_rdev)));
}

bool Claim::take_tapped(const std::string& aside) {
  struct stat entry {};
  if (lstat(aside.c_str(), &entry) != 0) return true;
  return take_name("brioctl tap " + std::to_string(entry.st_dev) + ":" + std::to_string(entry.st_ino));
}

bool Claim::take_name(const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const int length = std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "%s", name.c_str());
  socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0) return true;
  const auto size =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(length));
  if (bind(socket_, reinterpret_cast<sockaddr*>(&address), size) == 0) return true;
  release();
  return errno != EADDRINUSE;
}

std::string another_brioctl(const PortPaths& ports) {
  return "Another brioctl drives the modem on " + ports.query + ". End it, or go on with --force.";
}

bool tap_was_killed(const std::string& path) {
  std::error_code failed;
  const std::string aside = path + kTapped;
  return fs::read_symlink(path, failed).string().rfind(kTapLink, 0) == 0 &&
         fs::exists(fs::symlink_status(aside, failed)) && Claim().take_tapped(aside);
}

std::string port_problem(const NamedPort& port) {
  const bool killed = tap_was_killed(port.path);
  if (!killed && access(port.path.c_str(), R_OK | W_OK) == 0) return "";
  return port.path + ", the modem's " + port.name +
         " port: " + open_problem(killed ? ENOENT : errno, port.path) + ".";
}

void check_ports(const std::vector<NamedPort>& ports, bool force) {
  std::vector<std::string> paths;
  for (const NamedPort& port : ports) {
    const std::string problem = port_problem(port);
    if (!problem.empty()) throw Failure(problem);
    paths.push_back(port.path);
  }
  if (force) return;
  std::string text;
  for (const Holder& holder : holders(paths)) {
    text += holder.port + " is held by " + printable(holder.name) + " (pid " + std::to_string(holder.pid) +
            ").\n";
  }
  if (text.empty()) return;
  throw Failure(
      text +
      "Two programs on one modem take each other's answers. End the other one, or go on with --force.");
}

}  // namespace brioctl
