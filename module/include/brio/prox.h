/** @file
 * The proximity monitor: switches the modem's body-SAR back-off. */
#ifndef BRIO_PROX_H
#define BRIO_PROX_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/** What prox_open returns. */
enum prox_status {
  PROX_OK = 0,        /**< the monitor runs */
  PROX_FAILED = 3,    /**< the sensor cannot be enabled, there is no thread, or starting is refused here */
  PROX_NO_SOCKETS = 5 /**< no socket pair */
};

/**
 * Enables the sensor and starts the monitor thread; a monitor that still runs ends first. Host thread.
 *
 * @return PROX_OK (0); PROX_FAILED (3), also on a thread of the library and in a child of the process whose
 * monitor runs; PROX_NO_SOCKETS (5)
 */
BRIO_API uint32_t prox_open(void);
/**
 * Disables the sensor, then ends and joins the monitor thread; no SAR command runs afterwards. When the
 * sensor cannot be disabled it returns at once: the thread then ends by itself, at the latest after the poll
 * that it is in, and the next prox_open or prox_close joins it. Refused as prox_open is. Host thread.
 */
BRIO_API void prox_close(void);

BRIO_EXTERN_C_END

#endif
