#include "services/static_info.h"

#include <stdarg.h>
#include <stdio.h>

#include "base/enum_table.h"

namespace brio {
namespace {

constexpr uint16_t kEntriesPerLine = 5;

constexpr enum_pair kAccessTechnologies[] = {
    {1, "G"}, {2, "W"}, {4, "L"}, {6, "LW"}, {5, "LG"}, {3, "WG"}, {7, "LWG"},
};

// Appends while there is room.
class Writer {
 public:
  Writer(char* text, size_t capacity) : text_(text), room_(capacity) { *text_ = '\0'; }

  __attribute__((format(printf, 2, 3))) void print(const char* format, ...) {
    if (room_ == 0) return;
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(text_, room_, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= room_) {
      room_ = 0;
      return;
    }
    text_ += length;
    room_ -= static_cast<size_t>(length);
  }

 private:
  char* text_;
  size_t room_;
};

const char* access_technology(uint8_t mask) {
  const char* name =
      enum_find(kAccessTechnologies, sizeof(kAccessTechnologies) / sizeof(kAccessTechnologies[0]), mask);
  return name != nullptr ? name : "Null";
}

void print_list(Writer* writer, const char* heading, const plmn_entry* entries, uint16_t count,
                uint16_t capacity) {
  if (count == 0) return;
  // The count tells what the SIM held, which may be more than was kept.
  if (count > capacity) count = capacity;
  writer->print("%s", heading);
  for (uint16_t i = 0; i < count; i++) {
    const plmn_entry& entry = entries[i];
    writer->print("%3.3s%3.3s%-3s", entry.mcc, entry.mnc, access_technology(entry.access_tech));
    if (i + 1 == count) {
      writer->print("\n");
    } else {
      writer->print("%s", (i + 1) % kEntriesPerLine == 0 ? "\n      " : " ");
    }
  }
}

}  // namespace

void static_info_text(const sim_plmn_data& plmn, const sim_info_data& info, char text[kStaticInfoSize]) {
  Writer writer(text, kStaticInfoSize);
  print_list(&writer, "UPLMN: ", plmn.uplmn, plmn.uplmn_count, BRIO_UPLMN_MAX);
  print_list(&writer, "OPLMN: ", plmn.oplmn, plmn.oplmn_count, BRIO_OPLMN_MAX);
  print_list(&writer, "FPLMN: ", plmn.fplmn, plmn.fplmn_count, BRIO_FPLMN_MAX);
  print_list(&writer, "HPLMN: ", plmn.hplmn, plmn.hplmn_count, BRIO_HPLMN_MAX);
  print_list(&writer, "EHPLMN: ", plmn.ehplmn, plmn.ehplmn_count, BRIO_EHPLMN_MAX);
  writer.print("PSLOCI: %.*s\n", static_cast<int>(sizeof(info.psloci) - 1), info.psloci);
  writer.print("LOCI: %.*s\n", static_cast<int>(sizeof(info.loci) - 1), info.loci);
  writer.print("EPSLOCI: %.*s\n", static_cast<int>(sizeof(info.epsloci) - 1), info.epsloci);
}

}  // namespace brio
