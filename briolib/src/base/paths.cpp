#include "base/paths.h"

#include <stdio.h>
#include <termios.h>

#include "brio/brio.h"

namespace brio {
namespace {

// Written only while the library is closed, read by all its threads.
char s_root_dir[PATH_MAX];

}  // namespace

DevicePath::DevicePath(const char* path) {
  int length = snprintf(text_, sizeof(text_), "%s%s", s_root_dir, path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(text_)) text_[0] = '\0';
}

int open_device(const char* path, int flags) {
  return open(DevicePath(path).c_str(), flags | O_CLOEXEC);
}

void set_raw(int fd) {
  termios attributes;
  if (tcgetattr(fd, &attributes) != 0) return;
  cfmakeraw(&attributes);
  attributes.c_cflag |= CLOCAL | CREAD;
  attributes.c_cc[VMIN] = 0;
  attributes.c_cc[VTIME] = 0;
  cfsetispeed(&attributes, B921600);
  cfsetospeed(&attributes, B921600);
  tcsetattr(fd, TCSANOW, &attributes);
}

}  // namespace brio

using namespace brio;

void brio_set_root_dir(const char* dir) {
  int length = snprintf(s_root_dir, sizeof(s_root_dir), "%s", dir != nullptr ? dir : "");
  if (length < 0) s_root_dir[0] = '\0';
}
