// What the packet layer offers inside the library, beside brio/brio_at.h.
#pragma once

#include <stdint.h>

namespace brio {

// What the event thread does with each report. A constant of a layer above (life/report_table.cpp).
using ReportParser = uint32_t (*)(char* line, void* argument_a, void* argument_b);
extern const ReportParser kReportParser;

}  // namespace brio

// Reports are numbered from 1 as they are queued: the number of the one that the event thread has in its
// hands, 0 on any other thread, and that of the latest.
uint32_t blpkt_report_in_hand();
uint32_t blpkt_last_report();

// The read thread is ending: a request that waits for its answer ends with BLPKT_STATUS_ERROR instead of
// waiting for its time-out, and so does every later one until blpkt_init. Read thread.
void blpkt_channel_lost();

// What this thread sends between these two belongs to a scan. The end tells whether the scan was aborted; a
// request of it that was not sent yet has then returned BLPKT_STATUS_SCAN_ABORTED at once.
void blpkt_begin_scan();
bool blpkt_end_scan();

// Aborts the scan that runs, whatever it waits for: BLPKT_STATUS_SCAN_ABORTED, or BLPKT_STATUS_ERROR when
// there is none. Not on the library's own threads.
uint32_t blpkt_abort_scan();
