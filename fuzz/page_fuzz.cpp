// The diagnostic page from any snapshot into a buffer of any size: never a byte past the capacity, always the
// first characters of the whole page. And the lines of /proc/net/dev and the masks.
//
// Input: view (1 byte), capacity (2), snapshot, network values, then the static information text, which also
// stands for a line of /proc/net/dev.
#include <algorithm>

#include "brio/brio_module.h"
#include "fuzz.h"
#include "log_611_sections.h"

namespace {

using brio::page::View;
using brio::page::Writer;
using fuzz::require;
using fuzz::Text;

struct Values {
  uint8_t view;
  uint16_t capacity;
  atcmd_snapshot snapshot;
  brio::page::NetInfo net;
  char iccid[24];
  int32_t sar_mode;
};

template <size_t... N>
void terminate(char (&... texts)[N]) {
  ((texts[N - 1] = '\0'), ...);
}

uint32_t build(char* buffer, uint32_t capacity, const Values& v, std::string_view info) {
  Writer page(buffer, capacity);
  const brio::page::PageInput input = {&v.snapshot, v.iccid, &v.net, v.sar_mode,
                                       v.view % 2 != 0 ? View::kFull : View::kMasked};
  require(brio::page::write_sections(page, input));
  if (!info.empty()) {
    FILE* file = fmemopen(const_cast<char*>(info.data()), info.size(), "r");
    require(file != nullptr);
    brio::page::write_static_info(page, file);
    fclose(file);
  }
  return page.written();
}

void fuzz_texts(std::string_view line) {
  brio::page::TrafficSample sample = {1, 2, 3};
  const bool found = brio::page::parse_net_dev_line(Text(line).get(), brio::page::kWwanInterface, &sample);
  require(found || (sample.rx_bytes == 2 && sample.tx_bytes == 3));
  for (auto mask : {mask_band, mask_ip_address}) {
    Text text(line);
    mask(text.get());
    require(strlen(text.get()) <= text.length());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Values v = {};
  const size_t head = std::min(size, sizeof(v));
  memcpy(&v, data, head);
  auto& s = v.snapshot;
  terminate(s.mcc, s.mnc, s.plmn_text, s.band_text, s.fw_ver, s.lib_ver, s.imei, v.net.address,
            v.net.destination, v.iccid);
  const std::string_view info(reinterpret_cast<const char*>(data) + head, size - head);
  fuzz_texts(info);

  static char whole[65536];
  require(info.size() < sizeof(whole) / 2);
  const uint32_t length = build(whole, sizeof(whole), v, info);
  require(length == strlen(whole));

  v.capacity %= 8192;
  std::unique_ptr<char[]> part(new char[v.capacity]);  // its own block: the sanitizer sees a byte too far
  const uint32_t written = build(part.get(), v.capacity, v, info);
  require(written == std::min<uint32_t>(length, v.capacity));
  if (v.capacity == 0) return 0;
  const size_t kept = std::min<size_t>(length, v.capacity - 1u);
  require(memcmp(part.get(), whole, kept) == 0 && part[kept] == '\0');
  return 0;
}
