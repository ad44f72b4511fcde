// Steps that several operations take.
#pragma once

#include <stdint.h>

#include "brio/brio_at.h"

namespace brio {

// The status gate; a status other than 0 is logged with the operation's name.
uint32_t gate(const char* operation);

// Takes the modem off the network, which may last 80 s. BLPKT_STATUS_*.
uint32_t deregister();

// "ATE0", which is given a second. BLPKT_STATUS_*.
uint32_t switch_echo_off();

// The first line of an answer; null with an error line of this callback.
char* answer_line_for(const char* callback, const ATResponse* response);

}  // namespace brio
