#include "base/control_sockets.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace brio {
namespace {

void prv_close_both(int sockets[2]) {
  for (int i = 0; i < 2; i++) {
    if (sockets[i] >= 0) close(sockets[i]);
    sockets[i] = -1;
  }
}

}  // namespace

bool open_control_sockets(int sockets[2]) {
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
    sockets[0] = sockets[1] = -1;
    return false;
  }
  for (int i = 0; i < 2; i++) {
    if (sockets[i] != 0) continue;
    // The host runs without standard input. The owners take 0 for "not open", so it must not be a socket.
    sockets[i] = fcntl(0, F_DUPFD_CLOEXEC, 1);
    int error = errno;
    close(0);
    if (sockets[i] < 0) {
      prv_close_both(sockets);
      errno = error;
      return false;
    }
  }
  if (sockets[0] >= FD_SETSIZE || sockets[1] >= FD_SETSIZE) {
    prv_close_both(sockets);
    errno = EMFILE;
    return false;
  }
  return true;
}

bool send_stop(int socket) {
  static constexpr char kStop[] = "STOP";
  ssize_t sent = send(socket, kStop, sizeof(kStop), MSG_NOSIGNAL);
  if (sent >= 0 && sent != static_cast<ssize_t>(sizeof(kStop))) errno = EIO;
  return sent == static_cast<ssize_t>(sizeof(kStop));
}

void hang_up(int* socket) {
  if (*socket <= 0) return;
  // shutdown reaches the thread even when a forked child still holds a copy of this side.
  shutdown(*socket, SHUT_RDWR);
  close(*socket);
  *socket = -1;
}

}  // namespace brio
