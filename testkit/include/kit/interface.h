// The network interface wwan0: it answers as told, whatever interfaces the machine has.
#ifndef LAB_INTERFACE_H
#define LAB_INTERFACE_H

#include <string>

namespace interface {

// What the next questions for its address and its destination give: each an errno, or 0, and an address.
// Without answers there is no such interface.
void answer(const std::string& answers);

}  // namespace interface

#endif
