// A serial port of the modem.
#pragma once

namespace brio {

// Raw bytes at 921,600 baud; a read takes what is there and never waits. What is no tty stays as it is.
void set_raw(int fd);

}  // namespace brio
