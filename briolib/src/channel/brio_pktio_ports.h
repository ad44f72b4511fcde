// The descriptors of the read thread: the two serial ports and the socket pair that stops the thread.
#pragma once

namespace brio {

// -1 where closed.
struct Ports {
  int query = -1;
  int urc = -1;
  int stop_read = -1;   // watched by the read thread; readable once the thread is to end
  int stop_write = -1;  // pktio_shutdown's end
};

// Opens all four. False with a log line; what was opened until then stands in `ports`.
bool open_ports(const char* query_port, Ports* ports);

// Closes what is open. A port that is not open is worth an error line.
void close_ports(const Ports& ports);

}  // namespace brio
