/* The diagnostic page and its text helpers, below the host interface of wabs.h. */
#ifndef BRIO_BRIO_MODULE_H
#define BRIO_BRIO_MODULE_H

#include <stdint.h>

#include "brio/brio_export.h"

BRIO_EXTERN_C_BEGIN

/*
 * Writes the diagnostic page into `buffer` of `*size` bytes and stores the number of bytes written; mode 1 is
 * the full view. The call after brio_module_exit_logging writes nothing and leaves `*size` alone. When no
 * snapshot can be taken the negated capacity is stored. 0. Host thread.
 */
BRIO_API uint32_t brio_module_get_log_string(char* buffer, uint32_t* size, uint32_t mode);
/* Ends a visit of the page. 0. Host thread. */
BRIO_API uint32_t brio_module_exit_logging(void);
/* Masks the band name in place: "LTE_BAND_4" becomes "XXX_XXXX_4". */
BRIO_API void mask_band(char* text);
/* Masks the last two numbers of an IPv4 address in place: "10.1.2.3" becomes "10.1.X.X". */
BRIO_API void mask_ip_address(char* text);

BRIO_EXTERN_C_END

#endif
