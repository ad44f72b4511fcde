// Syslog replaced: each line goes to a function of the programme.
#ifndef BENCH_LOG_LINES_H
#define BENCH_LOG_LINES_H

namespace bench {

// Defined by the programme. Called on the thread that logs; takes no lock that orders threads when the
// programme looks for data races.
void log_line(const char* line);

}  // namespace bench

#endif
