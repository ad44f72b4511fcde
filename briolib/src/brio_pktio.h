// What the packet layer needs of the serial ports beyond the exported interface.
#ifndef BRIOLIB_BRIO_PKTIO_H
#define BRIOLIB_BRIO_PKTIO_H

// No command is outstanding any more: what arrives on the query port from now on is discarded. When this
// returns, the read thread uses neither the type nor the prefix of the last command.
void pktio_reset_command();

// Whether the answer that the read thread is handing to the packet callback belongs to a command that is
// over: its request has timed out, and the next one may wait already. False on any other thread.
bool pktio_answer_is_late();

#endif
