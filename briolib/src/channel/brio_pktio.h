// What the packet layer needs of the serial ports beyond the exported interface.
#pragma once

#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// What the packet callback is handed.
enum PacketKind : uint32_t { kKindResponse = 0, kKindUrc = 1 };

}  // namespace brio

// No command is outstanding any more: what arrives on the query port from now on is discarded. When this
// returns, the read thread uses neither the type nor the prefix of the last command. Returns the number of
// that command.
uint32_t pktio_reset_command();

// Whether this is an answer of the read thread to a command that is over, `*command`: its request has
// returned, and the next one may wait already. False for a record that is not the read thread's.
bool pktio_answer_is_late(const ATResponse* answer, uint32_t* command);
