// The two serial ports of the read thread.
#pragma once

namespace brio {

// -1 where closed.
struct Ports {
  int query = -1;
  int urc = -1;
  int stop = -1;  // the read thread's own, readable when it is to end
};

// Opens both ports. False with a log line; what was opened until then is in `ports`.
bool open_ports(const char* query_port, Ports* ports);

// Closes the ports that are open. A port that is not open is worth an error line.
void close_ports(const Ports& ports);

}  // namespace brio
