#include "base/serial.h"

#include <termios.h>

namespace brio {

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
