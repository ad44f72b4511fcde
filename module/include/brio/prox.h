/** @file
 * The proximity monitor: switches the modem's body-SAR back-off. */
#ifndef BRIO_PROX_H
#define BRIO_PROX_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/**
 * Enables the sensor and starts the monitor thread; a monitor that still runs ends first. Host thread.
 *
 * @return 0; 3 when the sensor cannot be enabled or there is no thread, and where starting is refused (a
 * thread of the library, a child of the process whose monitor runs); 5 without a socket pair
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
