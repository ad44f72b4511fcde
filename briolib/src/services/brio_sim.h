// The SIM's identity for the library's own use.
#pragma once

#include "parse/sim.h"

namespace brio {

// Asks the modem for the IMSI and copies it, on any thread. False, `imsi` then means nothing, when there is
// none.
bool read_sim_imsi(char (&imsi)[parse::kImsiSize]);

// The same for what tells its network.
bool read_imsi_prefix(char (&prefix)[parse::kImsiPrefixSize]);

}  // namespace brio
