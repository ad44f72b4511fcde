#include "base/paths.h"

#include <errno.h>
#include <string.h>
#include <sys/types.h>

#include "base/guards.h"
#include "base/log.h"
#include "brio/brio.h"

namespace brio {
namespace {

constexpr char kLogTag[] = "briolib/src/base";

// Written only while the library is closed, read by all its threads.
char s_root_dir[PATH_MAX];

}  // namespace

DevicePath::DevicePath(const char* path) {
  int length = snprintf(text_, sizeof(text_), "%s%s", s_root_dir, path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(text_)) text_[0] = '\0';
}

int open_device(const char* path, int flags, mode_t mode) {
  return open(DevicePath(path).c_str(), flags | O_CLOEXEC, mode);
}

FILE* fopen_to_read(const char* path) {
  Descriptor fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) return nullptr;
  FILE* file = fdopen(fd.get(), "r");
  if (file != nullptr) fd.release();
  return file;
}

FILE* fopen_device(const char* path) {
  return fopen_to_read(DevicePath(path).c_str());
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
