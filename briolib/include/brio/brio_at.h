/**
 * @file
 * The AT channel, one header a layer: at_text.h, at_queue.h and at_pool.h; at_lines.h; at_ports.h above them;
 * at_requests.h on top. It is exported for the modem library's own layers, for tests and for tools; hosts use
 * wabs.h and brio.h.
 */
#ifndef BRIO_BRIO_AT_H
#define BRIO_BRIO_AT_H

#include "brio/at_lines.h"
#include "brio/at_pool.h"
#include "brio/at_ports.h"
#include "brio/at_queue.h"
#include "brio/at_requests.h"
#include "brio/at_text.h"

#endif
