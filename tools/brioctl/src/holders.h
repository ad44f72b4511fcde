// Who else has a serial port, and brioctl's own claim to it.
#ifndef BRIOCTL_HOLDERS_H
#define BRIOCTL_HOLDERS_H

#include <string>
#include <vector>

#include "ports.h"

namespace brioctl {

struct Holder {
  int pid = 0;
  std::string name;  // of the program
  std::string port;  // as it was asked for
};

// First line of a file, as those of /proc; "" where none can be read.
std::string first_line(const std::string& path);
// Other processes that have one of the ports open, as far as /proc shows them to this user.
std::vector<Holder> holders(const std::vector<std::string>& ports);

// Two brioctl never drive one modem: the second one fails. Released with the object, and when the process
// dies.
class Claim {
 public:
  Claim() = default;
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

  // False when another brioctl has it.
  bool take(const std::string& query_port);
  // Of a tap, to the port that it has set aside.
  bool take_tapped(const std::string& aside);
  void release();

 private:
  bool take_name(const std::string& name);

  int socket_ = -1;
};

std::string another_brioctl(const PortPaths& ports);  // what to say then

// Whether the port is what a tap left that was killed: a link to a pty whose number may be another's by now.
bool tap_was_killed(const std::string& path);

struct NamedPort {
  std::string path, name;  // "query"
};

// "" or what is wrong with the port and what to do.
std::string port_problem(const NamedPort& port);
// Throws Failure, with what to do, when a port is missing, may not be used, or is somebody else's (unless
// `force`).
void check_ports(const std::vector<NamedPort>& ports, bool force);

}  // namespace brioctl

#endif
