// The library's files: how each is opened safely, even in folders that others can write. docs/security.md
// lists them. Ports and the kernel's entries are opened by open_device instead.
#pragma once

#include <fcntl.h>
#include <stddef.h>
#include <sys/types.h>

#include "base/guards.h"

namespace brio {

// Far larger than any file the library uses.
inline constexpr ssize_t kInputMax = 16 << 20;

// A file to be read. The path is taken as it is. -1 with errno for anything but a regular file of one name: a
// link (ELOOP, which is not followed), a second name (EMLINK), a folder (EISDIR), a pipe or node (EINVAL;
// never blocks on a FIFO), and for more than kInputMax bytes (EFBIG).
int open_input(const char* path);

// A file of a device path to be written. It is created exclusively, with `mode` whatever the umask is. One
// that is there keeps its mode and has to be a regular file of one name and of this user (EPERM), else it is
// left as it is; O_TRUNC and O_APPEND in `flags` are meant for this one.
int open_output(const char* device_path, int flags, mode_t mode);

// Writes until all bytes are done; how many were. Fewer with errno, which is 0 where nothing moved any more
// without an error.
size_t write_all(int fd, const char* data, size_t size);

// Reads an input, kInputMax bytes at most, however it grows meanwhile (EFBIG).
class InputFile {
 public:
  // A device path, for the error line of a file that is there and cannot be read.
  explicit InputFile(const char* device_path);
  // Takes the descriptor over; no error lines.
  explicit InputFile(int fd) : fd_(fd) {}

  explicit operator bool() const { return fd_.valid(); }
  // The next byte, -1 at the end.
  int next();
  // The next bytes, fewer at the end.
  size_t read(char* data, size_t size);
  // The next line with its "\n" and a NUL after it, of a longer one what fits. Its length, 0 at the end.
  size_t line(char* text, size_t size);
  // The same, but the rest of a longer line is skipped.
  size_t cut_line(char* text, size_t size);
  // The end was an error's.
  bool failed() const { return failed_; }
  int release() { return fd_.release(); }

 private:
  bool fill();
  void fail();

  Descriptor fd_;
  const char* name_ = nullptr;
  ssize_t left_ = kInputMax;
  bool ended_ = false, failed_ = false;
  ssize_t used_ = 0, filled_ = 0;
  char buffer_[1024];
};

}  // namespace brio
