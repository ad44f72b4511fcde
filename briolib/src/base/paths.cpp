#include "base/paths.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/log.h"
#include "brio/brio.h"

namespace brio {
namespace {

constexpr char kLogTag[] = "briolib/src/base";

// Written only while the library is closed, read by all its threads.
char s_root_dir[PATH_MAX];

// Takes the descriptor over; none for a negative one.
FILE* prv_stream(int fd) {
  if (fd < 0) return nullptr;
  FILE* file = fdopen(fd, "r");
  if (file == nullptr) close(fd);
  return file;
}

}  // namespace

DevicePath::DevicePath(const char* path) {
  int length = snprintf(text_, sizeof(text_), "%s%s", s_root_dir, path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(text_)) text_[0] = '\0';
}

int open_device(const char* path, int flags, mode_t mode) {
  return open(DevicePath(path).c_str(), flags | O_CLOEXEC, mode);
}

int create_device(const char* path, int flags, mode_t mode) {
  flags |= O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  int fd = open_device(path, flags | O_EXCL, mode);
  if (fd < 0) return errno == EEXIST ? open_device(path, flags, mode) : -1;
  // A mode that cannot be set is no reason to lose the file: the umask only ever takes rights away.
  fchmod(fd, mode);
  return fd;
}

FILE* fopen_to_read(const char* path) {
  return prv_stream(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

FILE* fopen_device(const char* path, Links links) {
  int fd = open_device(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | (links == Links::kNoFollow ? O_NOFOLLOW : 0));
  struct stat file = {};
  if (fd < 0 || fstat(fd, &file) != 0) return prv_stream(fd);
  bool node = S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode);
  if (!node && file.st_size <= kTextFileMax) return prv_stream(fd);
  close(fd);
  errno = node ? EINVAL : EFBIG;
  return nullptr;
}

bool read_failed(FILE* file, const char* path) {
  if (ferror(file) == 0) return false;
  BLIB_E("E blib:%s:%d:readfile:name=%s,errno=%d:can't read file\n", BLIB_HERE, path, errno);
  return true;
}

}  // namespace brio

void brio_set_root_dir(const char* dir) {
  using brio::s_root_dir;
  int length = snprintf(s_root_dir, sizeof(s_root_dir), "%s", dir != nullptr ? dir : "");
  if (length < 0) s_root_dir[0] = '\0';
}
