// The SIM's identity for the library's own use.
#ifndef BRIOLIB_BRIO_SIM_H
#define BRIOLIB_BRIO_SIM_H

#include "parse/sim_identity.h"

namespace brio {

// Asks the modem for the IMSI and copies it, on any thread. False, `imsi` then means nothing, when there is
// none.
bool read_sim_imsi(char (&imsi)[parse::kImsiSize]);

}  // namespace brio

#endif
