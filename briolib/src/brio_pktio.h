// What the packet layer needs of the serial ports beyond the exported interface.
#ifndef BRIOLIB_BRIO_PKTIO_H
#define BRIOLIB_BRIO_PKTIO_H

// No command is outstanding any more: what arrives on the query port from now on is discarded. When this
// returns, the read thread uses neither the type nor the prefix of the last command.
void pktio_reset_command();

#endif
