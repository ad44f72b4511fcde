// Network time results: +CTZV and indicator 9 of +CIEV. Rows of the report table (reports/report_table.h).
#pragma once

namespace brio {

void report_ctzv(char* rest, void* argument_a, void* argument_b);
void report_ciev(char* rest, void* argument_a, void* argument_b);

}  // namespace brio
