// Every device path of the system, and the root directory that may stand in front of them.
#ifndef BRIOLIB_BASE_PATHS_H
#define BRIOLIB_BASE_PATHS_H

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>

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

// open(2) of a device path; every descriptor is close-on-exec.
int open_device(const char* path, int flags, mode_t mode = 0);

// Opens a state file for writing, creates it where it is missing. A file that is created has `mode` whatever
// the umask is; an existing one keeps its own. A symbolic link in its place is not followed (ELOOP), a pipe
// keeps nobody waiting.
int create_device(const char* path, int flags, mode_t mode);

// A file opened for reading. A pipe that somebody planted in its place keeps nobody waiting: without a writer
// it reads as an empty file. A device node is refused (EINVAL): it may never end.
FILE* fopen_to_read(const char* path);

// The same of a device path, for files of a few lines: more than kTextFileMax bytes are refused (EFBIG), too.
// kNoFollow: for the files that the library itself writes.
inline constexpr off_t kTextFileMax = 16 << 20;
enum class Links { kFollow, kNoFollow };
FILE* fopen_device(const char* path, Links links = Links::kFollow);

// To be asked directly behind the read that gave nothing: whether it failed (of a directory, say) instead of
// meeting the file's end. Then an error line names the device path.
bool read_failed(FILE* file, const char* path);

}  // namespace brio

#endif
