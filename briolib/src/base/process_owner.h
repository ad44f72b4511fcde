// The process that something belongs to. A child of fork() has a copy of the library's words without its
// threads: what it stopped or joined there would be the parent's.
#ifndef BRIOLIB_BASE_PROCESS_OWNER_H
#define BRIOLIB_BASE_PROCESS_OWNER_H

#include <unistd.h>

#include "base/words.h"

namespace brio {

class ProcessOwner {
 public:
  void claim() { relaxed_store(process_, getpid()); }
  void release() { relaxed_store(process_, pid_t{0}); }
  // Whether another process claimed it.
  bool is_elsewhere() const {
    const pid_t process = relaxed_load(process_);
    return process != 0 && process != getpid();
  }

 private:
  pid_t process_ = 0;
};

}  // namespace brio

#endif
