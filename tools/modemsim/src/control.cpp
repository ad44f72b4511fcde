#include "control.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace modemsim {
namespace {

constexpr char kName[] = "modemsim.sock";
constexpr std::size_t kMostBytes = 65536;

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::string problem(const std::string& path) {
  return path + ": " + std::strerror(errno);
}

// A path that is too long for an address is reached through its folder's descriptor.
sockaddr_un address_of(const std::string& path, const Descriptor& folder) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name =
      path.size() < sizeof address.sun_path
          ? path
          : "/proc/self/fd/" + std::to_string(folder.get()) + path.substr(path.rfind('/'));
  name.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

int open_folder_of(const std::string& path) {
  return open(path.substr(0, path.rfind('/') + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

void limit_waits(int fd, int seconds) {
  const timeval patience{seconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

// Until the other side has said all; false when it did not in time.
bool read_all(int fd, std::string& text) {
  char bytes[4096];
  for (;;) {
    const ssize_t size = recv(fd, bytes, sizeof bytes, 0);
    if (size == 0) return true;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 || text.size() > kMostBytes) return false;
    text.append(bytes, static_cast<std::size_t>(size));
  }
}

bool send_all(int fd, const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const ssize_t size = send(fd, text.data() + at, text.size() - at, MSG_NOSIGNAL);
    if (size < 0 && errno != EINTR) return false;
    at += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
  }
  return shutdown(fd, SHUT_WR) == 0;
}

}  // namespace

std::string control_path(const std::string& folder) {
  std::string path = folder;
  if (path.empty() || path[0] != '/') {
    char here[4096];
    if (getcwd(here, sizeof here) != nullptr) path = here + ("/" + path);
  }
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path + "/" + kName;
}

ControlSocket::~ControlSocket() {
  if (fd_ < 0) return;
  close(fd_);
  unlink(path_.c_str());
}

std::string ControlSocket::listen(const std::string& folder) {
  path_ = control_path(folder);
  struct stat info {};
  if (lstat(path_.c_str(), &info) == 0) {
    if (!S_ISSOCK(info.st_mode)) return path_ + " is in the way: it is not a socket";
    unlink(path_.c_str());
  }
  const Descriptor place(open_folder_of(path_));
  const sockaddr_un address = address_of(path_, place);
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const mode_t before = umask(0177);
  const bool bound = fd_ >= 0 && bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  umask(before);
  std::string wrong;
  if (!bound || ::listen(fd_, 8) != 0) {
    wrong = problem(path_);
    if (bound) unlink(path_.c_str());
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  return wrong;
}

void ControlSocket::serve(const std::function<Reply(const std::vector<std::string>&)>& obey) {
  const Descriptor client(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
  if (client.get() < 0) return;
  limit_waits(client.get(), 1);
  std::string text;
  if (!read_all(client.get(), text)) return;
  std::vector<std::string> words;
  std::istringstream request(text);
  for (std::string word; std::getline(request, word, '\0');) words.push_back(word);
  const Reply reply = obey(words);
  send_all(client.get(), (reply.done ? "0" : "1") + reply.text);
}

std::vector<std::string> control_sockets() {
  constexpr unsigned long kListens = 0x10000;
  std::vector<std::string> paths;
  std::ifstream list("/proc/net/unix");
  std::string line;
  while (std::getline(list, line)) {
    std::istringstream columns(line);
    std::string number, references, protocol, type, state, inode, path;
    unsigned long flags = 0;
    columns >> number >> references >> protocol >> std::hex >> flags >> type >> state >> inode >> std::ws;
    std::getline(columns, path);
    const std::string end = std::string("/") + kName;
    struct stat info {};
    if ((flags & kListens) == 0 || path.size() <= end.size() ||
        path.compare(path.size() - end.size(), end.size(), end) != 0 || stat(path.c_str(), &info) != 0 ||
        info.st_uid != geteuid()) {
      continue;
    }
    paths.push_back(path);
  }
  return paths;
}

Reply control(const std::string& path, const std::vector<std::string>& words) {
  const Descriptor folder(open_folder_of(path)), server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = address_of(path, folder);
  if (connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == ECONNREFUSED) return {false, path + ": nobody listens; the simulated modem has ended"};
    return {false, problem(path)};
  }
  limit_waits(server.get(), 20);
  std::string request, text;
  for (const std::string& word : words) request += word + '\0';
  if (!send_all(server.get(), request) || !read_all(server.get(), text) || text.empty()) {
    return {false, path + ": the simulated modem did not answer"};
  }
  return {text[0] == '0', text.substr(1)};
}

}  // namespace modemsim
