#include "base/paths.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "base/log.h"
#include "brio/brio.h"

namespace brio {
namespace {

constexpr char kLogTag[] = "briolib/src/base";

constexpr off_t kFileMax = std::numeric_limits<off_t>::max();

// Written only while the library is closed, read by all its threads.
char s_root_dir[PATH_MAX];

// Takes the descriptor over; none for a negative one, a device node and a file that is too large.
FILE* prv_stream(int fd, off_t most) {
  if (fd < 0) return nullptr;
  struct stat file = {};
  if (fstat(fd, &file) == 0) {
    bool node = S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode);
    if (node || file.st_size > most) {
      close(fd);
      errno = node ? EINVAL : EFBIG;
      return nullptr;
    }
  }
  FILE* stream = fdopen(fd, "r");
  if (stream == nullptr) close(fd);
  return stream;
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
  return prv_stream(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC), kFileMax);
}

FILE* fopen_device(const char* path, Links links) {
  int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | (links == Links::kNoFollow ? O_NOFOLLOW : 0);
  return prv_stream(open_device(path, flags), kTextFileMax);
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
