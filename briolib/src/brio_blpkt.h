// What the packet layer offers inside the library, beside brio/brio_at.h.
#ifndef BRIOLIB_BRIO_BLPKT_H
#define BRIOLIB_BRIO_BLPKT_H

// The read thread is ending: a request that waits for its answer ends with BLPKT_STATUS_ERROR instead of
// waiting for its time-out, and so does every later one until blpkt_init. Read thread.
void blpkt_channel_lost();

#endif
