// Where the modem's ports are, and a root directory for the library in which they are elsewhere.
#ifndef BRIOCTL_PORTS_H
#define BRIOCTL_PORTS_H

#include <string>

namespace brioctl {

struct PortPaths {  // in this file system
  std::string trace, query, urc;
};

// A temporary folder whose entries lead to those of `root`, but for /dev: there the ports lead to `ports`.
class LinkedRoot {
 public:
  // Throws Failure.
  LinkedRoot(const std::string& root, const PortPaths& ports);
  ~LinkedRoot();
  LinkedRoot(const LinkedRoot&) = delete;
  LinkedRoot& operator=(const LinkedRoot&) = delete;

  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
};

}  // namespace brioctl

#endif
