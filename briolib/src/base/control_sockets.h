// The socket pair that ends a thread: the thread waits on the first socket with select, "STOP" goes into the
// second.
#pragma once

namespace brio {

// A connected local stream pair, close-on-exec, both descriptors above 0 and below FD_SETSIZE. False with
// errno set and both -1; EMFILE when the descriptors do not fit an fd_set.
bool open_control_sockets(int sockets[2]);

// Writes "STOP" with its NUL without raising SIGPIPE. False with errno set; EBADF for -1.
bool send_stop(int socket);

// Ends the conversation from this side, so that the thread's select wakes with end of stream, and closes this
// side only.
void hang_up(int* socket);

}  // namespace brio
