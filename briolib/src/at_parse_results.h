// Result parsers behind the prefix map: what they store, log and raise. Text behind the name and its colon is
// never null from the map; arguments are those of at_parse.
#ifndef BRIOLIB_AT_PARSE_RESULTS_H
#define BRIOLIB_AT_PARSE_RESULTS_H

#include "brio/briolib.h"

namespace brio {

void prv_at_parse_gtsimstatus(char* rest, void* argument_a, void* argument_b);
void prv_briolib_get_iccid(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_crsm(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_ctzv(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_ciev(char* rest, void* argument_a, void* argument_b);

}  // namespace brio

#endif
