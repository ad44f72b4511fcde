// The network interface wwan0: it answers as scripted, whatever interfaces the machine has.
#ifndef KIT_INTERFACE_H
#define KIT_INTERFACE_H

#include <string>

namespace interface {

// Answers to the next queries for its address and its destination: each an errno, or 0, and an address.
// Without answers there is no such interface.
void answer(const std::string& answers);

}  // namespace interface

#endif
