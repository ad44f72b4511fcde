// One use of the library: the root directory, the simulated modem if asked for, open and close.
#ifndef BRIOCTL_SESSION_H
#define BRIOCTL_SESSION_H

#include <memory>
#include <string>

#include "holders.h"
#include "library.h"
#include "modemsim/pty_port.h"
#include "ports.h"
#include "report.h"

namespace brioctl {

struct Options {
  std::string library;   // "" for the one that belongs to this brioctl
  std::string root;      // "" for the device itself
  std::string scenario;  // simulate this scenario: a file, or the name of an installed one
  bool simulate = false;
  double speed = 1;           // the scenario is played this many times as fast
  int verbose = 0;            // 1: the lines of the ports, warnings and errors; 2: the library's whole log
  bool identities = false;    // show whole IMSI, ICCID and IMEI
  std::string at_log;         // a file, "" for none
  PortPaths ports;            // "" for the device's own
  bool force = false;         // drive a modem that another program drives; replace files
  std::string scratch;        // a folder that goes when the session ends at once, "" for none
  bool until_signal = false;  // a signal is the regular end
  bool progress = true;       // tell on a terminal that opening takes its time
  bool json = false;          // objects instead of text (output.h)
};

// The ports as this system sees them: those of the options, else the device's below `root`.
PortPaths device_ports(const Options& options, const std::string& root);

class Recorder;
class Relay;
struct Simulation;

// The ports could be used, but the library did not open the modem.
struct NotOpened : Failure {
  using Failure::Failure;
};

class Session {
 public:
  explicit Session(const Options& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Open the host module (wabs_open), or the modem library alone (brio_open). Throw Failure.
  void open_module();
  void open_modem();
  // The ports alone, without the library: relayed() are the host's. Without `urc` nothing comes from there.
  void open_ports(bool urc = true);
  PortPaths relayed() const;
  void close();
  // Close, to be opened again.
  void disconnect();
  bool modem_gone() const;   // it hung up while the session was open
  void check_modem() const;  // throws Failure when it did
  // From how many signals on what the session waits for ends at once; 1 when it opens.
  void end_at_signals(int signals);

  // The request that failed and the modem's refusal, "" when none did.
  static std::string cause();
  // A sentence about a failed call, with the step that failed, the modem's last words and the library's last
  // error.
  std::string explain(const std::string& what) const;

  Library lib;
  const Options& options() const { return options_; }
  // What the ports belong to, for headings.
  std::string modem_name() const;
  // A file below the root directory as this system sees it.
  std::string host_path(const std::string& device_path) const { return root_ + device_path; }
  bool simulated() const { return simulation_ != nullptr; }
  PortPaths ports() const { return device_ports(options_, root_); }
  // What passes the ports.
  Recorder& recorder() const { return *recorder_; }

 private:
  void place_ports();
  template <typename Open>
  void open_library(const Open& open);
  void end_at_once();

  Options options_;
  std::string root_;
  std::unique_ptr<Simulation> simulation_;
  std::unique_ptr<Recorder> recorder_;
  bool at_log_open_ = false;
  bool gone_ = false;                         // of the relay that was
  modemsim::PtyPort silent_;                  // in the place of a URC port that is not used
  Claim claim_;                               // while open
  std::unique_ptr<Relay> relay_;              // while open
  std::unique_ptr<LinkedRoot> library_root_;  // while open
  enum { kClosed, kModule, kModem } open_ = kClosed;
};

}  // namespace brioctl

#endif
