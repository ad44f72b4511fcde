// What the packet layer needs of the serial ports beyond the exported interface.
#pragma once

#include <stdint.h>

namespace brio {

// What the packet callback is handed.
enum PacketKind : uint32_t { kKindResponse = 0, kKindUrc = 1 };

}  // namespace brio

// No command is outstanding any more: what arrives on the query port from now on is discarded. When this
// returns, the read thread uses neither the type nor the prefix of the last command. Returns the number of
// that command.
uint32_t pktio_reset_command();

// Whether the answer that the read thread is handing to the packet callback belongs to a command that is
// over, `*command`: its request has returned, and the next one may wait already. False on any other thread.
bool pktio_answer_is_late(uint32_t* command);
