// SIM results: card status, ICCID, elementary files. Rows of the report table (reports/report_table.h).
#pragma once

namespace brio {

void report_gtsimstatus(char* rest, void* argument_a, void* argument_b);
void report_ccid(char* rest, void* argument_a, void* argument_b);
void report_crsm(char* rest, void* argument_a, void* argument_b);

}  // namespace brio
