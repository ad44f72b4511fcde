// The socket through which a running simulator is told what happens next: modemsim ctl.
#ifndef MODEMSIM_CONTROL_H
#define MODEMSIM_CONTROL_H

#include <functional>
#include <string>
#include <vector>

namespace modemsim {

// What a request led to: a text, and whether it was obeyed.
struct Reply {
  bool done = false;
  std::string text;
};

class ControlSocket {
 public:
  ControlSocket() = default;
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  // Makes the socket in `folder`, for its owner alone. One that an ended simulator left is replaced. "" or
  // what is wrong.
  std::string listen(const std::string& folder);
  const std::string& path() const { return path_; }
  int fd() const { return fd_; }  // readable when a request is there
  // Answers one request. A client that stops in the middle holds it for a second at most.
  void serve(const std::function<Reply(const std::vector<std::string>&)>& obey);

 private:
  int fd_ = -1;
  std::string path_;
};

// Where the socket of a simulator below `folder` is.
std::string control_path(const std::string& folder);
// The sockets of this user's running simulators.
std::vector<std::string> control_sockets();
// Sends a request to the simulator that listens there.
Reply control(const std::string& path, const std::vector<std::string>& words);

}  // namespace modemsim

#endif
