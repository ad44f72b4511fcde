// One use of the library: the root directory, the simulated modem if asked for, open and close.
#ifndef BRIOCTL_SESSION_H
#define BRIOCTL_SESSION_H

#include <memory>
#include <string>

#include "library.h"

namespace brioctl {

struct Options {
  std::string library;   // "" for the one that belongs to this brioctl
  std::string root;      // "" for the device itself
  std::string scenario;  // simulate this scenario: a file, or the name of an installed one
  bool simulate = false;
  double speed = 1;  // the scenario is played this many times as fast
  bool verbose = false;
  bool identities = false;  // show whole IMSI and ICCID
};

struct Simulation;

class Session {
 public:
  explicit Session(const Options& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Open the host module (wabs_open), or the modem library alone (brio_open). Throw Failure.
  void open_module();
  void open_modem();
  void close();

  Library lib;
  const Options& options() const { return options_; }
  // What the ports belong to, for headings.
  std::string modem_name() const;
  // A file below the root directory as this system sees it.
  std::string host_path(const std::string& device_path) const { return root_ + device_path; }
  bool simulated() const { return simulation_ != nullptr; }

 private:
  Options options_;
  std::string root_;
  std::unique_ptr<Simulation> simulation_;
  enum { kClosed, kModule, kModem } open_ = kClosed;
};

// A sentence about a failed library call, with what the library or the modem said.
std::string explain(const std::string& what);

}  // namespace brioctl

#endif
