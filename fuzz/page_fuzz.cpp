// The diagnostic page from any snapshot into a buffer of any size: never a byte past the capacity, always the
// first characters of the whole page.
//
// Input: view (1 byte), capacity (2), snapshot, network values, static information text.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "log_611_sections.h"

namespace {

using brio::page::View;
using brio::page::Writer;

struct Values {
  uint8_t view;
  uint16_t capacity;
  atcmd_snapshot snapshot;
  brio::page::NetInfo net;
  char iccid[24];
  int32_t sar_mode;
};

template <size_t N>
void terminate(char (&text)[N]) {
  text[N - 1] = '\0';
}

uint32_t build(std::vector<char>& buffer, const Values& v, const char* info, size_t info_size) {
  Writer page(buffer.data(), static_cast<uint32_t>(buffer.size()));
  const brio::page::PageInput input = {&v.snapshot, v.iccid, &v.net, v.sar_mode,
                                       v.view % 2 != 0 ? View::kFull : View::kMasked};
  if (!brio::page::write_sections(page, input)) abort();
  if (info_size > 0) {
    FILE* file = fmemopen(const_cast<char*>(info), info_size, "r");
    if (file == nullptr) abort();
    brio::page::write_static_info(page, file);
    fclose(file);
  }
  return page.written();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Values v = {};
  const size_t head = std::min(size, sizeof(v));
  memcpy(&v, data, head);
  terminate(v.snapshot.mcc);
  terminate(v.snapshot.mnc);
  terminate(v.snapshot.plmn_text);
  terminate(v.snapshot.band_text);
  terminate(v.snapshot.fw_ver);
  terminate(v.snapshot.lib_ver);
  terminate(v.snapshot.imei);
  terminate(v.net.address);
  terminate(v.net.destination);
  terminate(v.iccid);

  const char* info = reinterpret_cast<const char*>(data) + head;
  std::vector<char> whole(8192 + size);
  const uint32_t length = build(whole, v, info, size - head);
  if (length != strlen(whole.data()) || length + 1 > whole.size()) abort();

  std::vector<char> part(v.capacity);  // its own block: the sanitizer sees a byte too far
  const uint32_t written = build(part, v, info, size - head);
  if (written != std::min<uint32_t>(length, v.capacity)) abort();
  if (v.capacity == 0) return 0;
  if (strlen(part.data()) != std::min<size_t>(length, v.capacity - 1u)) abort();
  if (memcmp(part.data(), whole.data(), strlen(part.data())) != 0) abort();
  return 0;
}
