// The diagnostic page from any snapshot into a buffer of any size: never a byte past the capacity, always the
// first characters of the whole page. And the lines of /proc/net/dev and the masks.
//
// Input: view (1 byte), capacity (2), snapshot, network values, then the static information text, which also
// stands for a line of /proc/net/dev.
#include <sys/mman.h>
#include <unistd.h>

#include "brio/brio_module.h"
#include "fuzz.h"
#include "log_611_sections.h"

namespace fuzz {

using namespace brio::page;

struct Values {
  uint8_t view;
  uint16_t capacity;
  atcmd_snapshot snapshot;
  NetInfo net;
  char iccid[24];
  int32_t sar_mode;
};

template <size_t... N>
void terminate(char (&... texts)[N]) {
  ((texts[N - 1] = '\0'), ...);
}

uint32_t build(char* buffer, uint32_t capacity, const Values& v, Bytes info) {
  Writer page(buffer, capacity);
  const PageInput input = {&v.snapshot, v.iccid, &v.net, v.sar_mode,
                           v.view % 2 != 0 ? View::kFull : View::kMasked};
  require(write_sections(page, input));
  if (!info.empty()) {
    const int memory = memfd_create("static_info", 0);
    require(pwrite(memory, info.data(), info.size(), 0) == static_cast<ssize_t>(info.size()));
    brio::InputFile file(memory);
    write_static_info(page, &file);
  }
  return page.written();
}

void fuzz_texts(Bytes line) {
  TrafficSample sample = {1, 2, 3};
  const bool found = parse_net_dev_line(Text(line).get(), kWwanInterface, &sample);
  require(found || (sample.rx_bytes == 2 && sample.tx_bytes == 3));
  for (auto mask : {mask_band, mask_ip_address}) {
    Text text(line);
    mask(text.get());
    require(strlen(text.get()) <= text.length());
  }
}

void run(Input in) {
  Bytes info = in.rest();
  Values v = {};
  const size_t head = std::min(info.size(), sizeof(v));
  memcpy(&v, info.data(), head);
  info.remove_prefix(head);
  auto& s = v.snapshot;
  terminate(s.mcc, s.mnc, s.plmn_text, s.band_text, s.fw_ver, s.lib_ver, s.imei, v.net.address,
            v.net.destination, v.iccid);
  fuzz_texts(info);

  static char whole[65536];
  require(info.size() < sizeof(whole) / 2);
  const uint32_t length = build(whole, sizeof(whole), v, info);
  require(length == strlen(whole));

  v.capacity %= 8192;
  const Out part(v.capacity);
  const uint32_t written = build(part.get(), v.capacity, v, info);
  require(written == std::min<uint32_t>(length, v.capacity));
  require(v.capacity == 0 || part.get() == Bytes(whole, std::min<size_t>(length, v.capacity - 1u)));
}

}  // namespace fuzz
