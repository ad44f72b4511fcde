#include "channel/brio_pktio_ports.h"

#include <errno.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include "base/log.h"
#include "base/paths.h"

constexpr char kLogTag[] = "briolib/src/brio_pktio";

namespace brio {
namespace {

// A serial port, ready for use, or -1 with errno. Non-blocking, because an open must not wait for a carrier.
int prv_open_serial(const char* path) {
  int fd = open_device(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (fd >= 0) set_raw(fd);
  return fd;
}

bool prv_fits_select(int fd) {
  if (fd < FD_SETSIZE) return true;
  BLIB_E("open:fd=%d,limit=%d:descriptor too large for select\n", fd, FD_SETSIZE);
  return false;
}

}  // namespace

bool open_ports(const char* query_port, Ports* ports) {
  if (query_port == nullptr) query_port = "";
  ports->query = prv_open_serial(query_port);
  if (ports->query < 0) {
    BLIB_E("open:device: %s, errno: %d:can't open device\n", query_port, errno);
    return false;
  }
  // It stays non-blocking: a modem that has stopped reading must not keep the ports from being closed. A read
  // of a raw port waits in neither mode.
  if (!prv_fits_select(ports->query)) return false;
  BLIB_D(BRIO_LOG_PORT, "pktio_init QRY fd:%d port:%s\n", ports->query, query_port);

  ports->urc = prv_open_serial(kUrcPort);
  if (ports->urc < 0) {
    // The line names the query port; this is meant.
    BLIB_E("open:device=%s,errno=%d:cant open device\n", query_port, errno);
    return false;
  }
  fcntl(ports->urc, F_SETFL, 0);
  if (!prv_fits_select(ports->urc)) return false;
  BLIB_D(BRIO_LOG_PORT, "pktio_init URC fd:%d port:%s\n", ports->urc, kUrcPort);
  return true;
}

void close_ports(const Ports& ports) {
  if (ports.query >= 0) {
    // What a modem that has stopped reading did not take would hold the close.
    int unsent = 0;
    if (ioctl(ports.query, TIOCOUTQ, &unsent) == 0 && unsent > 0) tcflush(ports.query, TCOFLUSH);
    close(ports.query);
  } else {
    BLIB_E("cleanup:fd val=%d:pktIO fd has garbage value\n", ports.query);
  }
  if (ports.urc >= 0) {
    close(ports.urc);
  } else {
    BLIB_E("cleanup:fd val=%d:urcpktIO fd has garbage value\n", ports.urc);
  }
}

}  // namespace brio
