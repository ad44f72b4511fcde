// Where the modem's ports are, and a root directory for the library in which they are elsewhere.
#ifndef BRIOCTL_PORTS_H
#define BRIOCTL_PORTS_H

#include <string>

namespace brioctl {

struct PortPaths {  // in this file system
  std::string trace, query, urc;
};

// Gone with the object, whatever is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();  // throws Failure
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
};

// A temporary folder whose entries lead to those of `root`, but for /dev: there the ports lead to `ports`.
struct LinkedRoot : TemporaryFolder {
  // Throws Failure.
  LinkedRoot(const std::string& root, const PortPaths& ports);
};

}  // namespace brioctl

#endif
