// Every device path of the system, the root directory that may precede them, and the opening of ports.
#pragma once

#include <fcntl.h>
#include <limits.h>

namespace brio {

inline constexpr char kTracePort[] = "/dev/ttyACM1";
inline constexpr char kQueryPort[] = "/dev/ttyACM2";
inline constexpr char kUrcPort[] = "/dev/ttyACM3";

inline constexpr char kLogConfigFile[] = "/var/local/wan/briolib_log_config";
inline constexpr char kManualSelectionFile[] = "/var/run/mcsdwc.dat";
inline constexpr char kFatalRejectFile[] = "/var/run/fatal_reject";
inline constexpr char kMccFile[] = "/var/local/wan/mcc";
inline constexpr char kStaticInfoFile[] = "/var/local/wan/static_info";
inline constexpr char kWanInfoFile[] = "/var/local/wan/info";
inline constexpr char kApnOverrideFile[] = "/mnt/us/apn";
inline constexpr char kTraceFilterFile[] = "/var/local/wan/debug/trace_filter.cfg";
inline constexpr char kTraceLogPrefix[] = "/mnt/us/trace_log";
inline constexpr char kProxDirectory[] = "/sys/devices/virtual/proximity/proximity0/";
inline constexpr char kNetDevFile[] = "/proc/net/dev";

// A device path below the root directory. An over-long result is empty, so that opening it fails with ENOENT.
class DevicePath {
 public:
  explicit DevicePath(const char* path);
  const char* c_str() const { return text_; }

 private:
  char text_[PATH_MAX];
};

// open(2) of a port or of an entry that only the kernel fills, close-on-exec. Below a root directory these
// may be links, to the ttys of a modem on a desk for instance. All other files: base/files.h.
int open_device(const char* path, int flags);

// Raw bytes at 921,600 baud; a read takes what is there and never waits. What is no tty stays as it is.
void set_raw(int fd);

}  // namespace brio
