// The domains that the modem registers for. A domain is a row in registration.cpp, its place here and the row
// of its report (life/report_table.cpp).
#pragma once

namespace brio {

enum Domain { kCs, kPs };

// Stores and logs the text after a registration line's name, cut up in place. May raise events.
void registration_line(Domain which, char* payload, bool is_query);

}  // namespace brio
