#include "base/files.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/log.h"
#include "base/paths.h"

constexpr char kLogTag[] = "briolib/src/base";

namespace brio {
namespace {

// Nothing is lost on regular files by not waiting.
constexpr int kSafely = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// 0, or why this is no regular file of one name. One without a name was replaced since it was opened.
int prv_refusal(int fd, struct stat* file) {
  if (fstat(fd, file) != 0) return errno;
  if (S_ISDIR(file->st_mode)) return EISDIR;
  if (!S_ISREG(file->st_mode)) return EINVAL;
  return file->st_nlink > 1 ? EMLINK : 0;
}

int prv_input_refusal(int fd) {
  struct stat file = {};
  int error = prv_refusal(fd, &file);
  return error == 0 && file.st_size > kInputMax ? EFBIG : error;
}

int prv_output_refusal(int fd) {
  struct stat file = {};
  int error = prv_refusal(fd, &file);
  if (error != 0) return error;
  if (file.st_nlink == 0) return ENOENT;
  return file.st_uid == geteuid() ? 0 : EPERM;
}

// The descriptor, or -1 with errno where there is an error.
int prv_unless(int error, int fd) {
  if (error == 0) return fd;
  close(fd);
  errno = error;
  return -1;
}

}  // namespace

int open_input(const char* path) {
  int fd = open(path, O_RDONLY | kSafely);
  return fd < 0 ? -1 : prv_unless(prv_input_refusal(fd), fd);
}

int open_output(const char* device_path, int flags, mode_t mode) {
  const DevicePath path(device_path);
  int fd = open(path.c_str(), flags | kSafely | O_CREAT | O_EXCL, mode);
  if (fd >= 0) {
    // A mode that cannot be set is no reason to lose the file: the umask only ever takes rights away.
    fchmod(fd, mode);
    return fd;
  }
  if (errno != EEXIST) return -1;
  // Emptied only when it is known to be ours.
  fd = open(path.c_str(), (flags & ~O_TRUNC) | kSafely);
  if (fd < 0) return -1;
  int error = prv_output_refusal(fd);
  if (error == 0 && (flags & O_TRUNC) != 0 && ftruncate(fd, 0) != 0) error = errno;
  return prv_unless(error, fd);
}

size_t write_all(int fd, const char* data, size_t size) {
  size_t done = 0;
  while (done < size) {
    errno = 0;
    const ssize_t count = write(fd, data + done, size - done);
    if (count > 0) {
      done += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      break;
    }
  }
  return done;
}

InputFile::InputFile(const char* device_path)
    : fd_(open_input(DevicePath(device_path).c_str())), name_(device_path) {
  if (!fd_.valid() && errno != ENOENT) fail();
}

int InputFile::next() {
  if (used_ == filled_ && !fill()) return -1;
  return static_cast<unsigned char>(buffer_[used_++]);
}

size_t InputFile::read(char* data, size_t size) {
  size_t length = 0;
  for (int c = 0; length < size && (c = next()) >= 0; length++) data[length] = static_cast<char>(c);
  return length;
}

size_t InputFile::line(char* text, size_t size) {
  size_t length = 0;
  int c = 0;
  while (length + 1 < size && c != '\n' && (c = next()) >= 0) text[length++] = static_cast<char>(c);
  text[length] = '\0';
  return length;
}

size_t InputFile::cut_line(char* text, size_t size) {
  const size_t length = line(text, size);
  bool ended = length == 0 || text[length - 1] == '\n';
  while (!ended) {
    const int c = next();
    ended = c < 0 || c == '\n';
  }
  return length;
}

bool InputFile::fill() {
  if (ended_ || !fd_.valid()) return false;
  used_ = 0;
  do {
    filled_ = ::read(fd_.get(), buffer_, sizeof(buffer_));
  } while (filled_ < 0 && errno == EINTR);
  if (filled_ > left_) {
    filled_ = -1;
    errno = EFBIG;
  }
  if (filled_ > 0) {
    left_ -= filled_;
    return true;
  }
  ended_ = true;
  if (filled_ < 0) fail();
  filled_ = 0;
  return false;
}

void InputFile::fail() {
  failed_ = true;
  if (name_ != nullptr) BLIB_E("readfile:name=%s,errno=%d:can't read file\n", name_, errno);
}

}  // namespace brio
