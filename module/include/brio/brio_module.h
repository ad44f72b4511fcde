/** @file
 * The diagnostic page and its text helpers, below the host interface of wabs.h. */
#ifndef BRIO_BRIO_MODULE_H
#define BRIO_BRIO_MODULE_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/**
 * Writes the diagnostic page into `buffer` of `*size` bytes, NUL-terminated, and stores the number of bytes
 * written, without the NUL. Mode 1 is the full view; any other is the masked one, without ICCID, IMEI and
 * full addresses. A page that does not fit leaves its first `*size` - 1 characters and `*size` as it was. The
 * call after brio_module_exit_logging writes nothing and leaves `*size` alone. When no snapshot can be taken,
 * a line says so and the room left after it is stored negated (two's complement). Asks the modem for
 * serving-cell data on every third call, and for the SIM's static information on the first page of a visit.
 * Null `buffer` stores 0 in `*size`; null `size` counts as 0. Host thread. @return 0
 */
BRIO_API uint32_t brio_module_get_log_string(char* buffer, uint32_t* size, uint32_t mode);
/**
 * Ends a visit of the page. On LTE it switches off the antenna reports that the page switched on; elsewhere
 * they stay on. When no snapshot can be taken here, as after the modem was lost, the reports stay as they are
 * and the next visit does not read the SIM's static information again. Host thread. @return 0
 */
BRIO_API uint32_t brio_module_exit_logging(void);
/** Masks a band name in place, up to its last "_": "LTE_BAND_4" becomes "XXX_XXXX_4". Null does nothing. */
BRIO_API void mask_band(char* text);
/**
 * Masks the last two numbers of an IPv4 address in place: "10.1.2.3" becomes "10.1.X.X". The first character
 * is never changed. Null does nothing.
 */
BRIO_API void mask_ip_address(char* text);

BRIO_EXTERN_C_END

#endif
