// The text of the diagnostic page, built from values only: no lock, no log, no file, no modem.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/files.h"
#include "brio/brio_types.h"
#include "page/log_611_net.h"

namespace brio::page {

// Appends formatted text to a caller's buffer. The first write that does not fit leaves what fits of it,
// NUL-terminated, and uses up all room; later writes do nothing. So the buffer always holds the first
// characters of the whole page. A null buffer or a capacity of 0 takes nothing.
class Writer {
 public:
  Writer(char* buffer, uint32_t capacity) : buffer_(buffer), capacity_(capacity), room_(capacity) {}

  void add(const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Bytes left, the terminating NUL of what stands there included.
  uint32_t room() const { return room_; }
  uint32_t written() const { return capacity_ - room_; }

 private:
  char* buffer_;
  uint32_t capacity_;
  uint32_t room_;
};

enum class View { kMasked, kFull };

struct PageInput {
  const atcmd_snapshot* snapshot;  // its texts are NUL-terminated
  const char* iccid;
  const NetInfo* net;
  int32_t sar_mode;  // enum brio_sar_mode
  View view;
};

// Everything up to and with the heading of the PLMN section. False when memory for a masked address was
// short; the page ends there.
bool write_sections(Writer& page, const PageInput& input);

// What stands below that heading: `file` line by line, as far as there is room.
void write_static_info(Writer& page, InputFile* file);

}  // namespace brio::page
