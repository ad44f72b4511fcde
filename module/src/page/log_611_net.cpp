#include "page/log_611_net.h"

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/files.h"
#include "base/paths.h"
#include "base/text.h"

namespace brio::page {
namespace {

constexpr int kCounters = 16;
constexpr int kRxBytes = 0;
constexpr int kTxBytes = 8;
constexpr size_t kLine = 256;

static_assert(kAddressTextSize >= INET_ADDRSTRLEN);
static_assert(kAddressTextSize >= sizeof(kNotConnected));

void prv_query_address(int fd, unsigned long request, const char* interface, char* text) {
  ifreq query = {};
  copy_text(query.ifr_name, interface);
  if (ioctl(fd, request, &query) == 0) {
    sockaddr_in address;
    memcpy(&address, &query.ifr_addr, sizeof(address));
    if (inet_ntop(AF_INET, &address.sin_addr, text, kAddressTextSize) != nullptr) return;
  }
  switch (errno) {
    case ENODEV:
      copy_text(text, kAddressTextSize, kNotConnected);
      break;
    case EADDRNOTAVAIL:
      copy_text(text, kAddressTextSize, kConnecting);
      break;
    default:
      snprintf(text, kAddressTextSize, "%d", errno);
      break;
  }
}

int64_t prv_rate(int32_t previous, int32_t now, int64_t diff_ms) {
  return 1000 * (static_cast<int64_t>(now) - previous) / diff_ms;
}

}  // namespace

void read_addresses(const char* interface, NetInfo* net) {
  Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) {
    snprintf(net->address, sizeof(net->address), "se=%d", errno);
    copy_text(net->destination, net->address);
    return;
  }
  prv_query_address(fd.get(), SIOCGIFADDR, interface, net->address);
  prv_query_address(fd.get(), SIOCGIFDSTADDR, interface, net->destination);
}

bool parse_net_dev_line(const char* line, const char* interface, TrafficSample* sample) {
  const char* name = skip_spaces(line);
  const size_t length = strlen(interface);
  if (strncmp(name, interface, length) != 0 || name[length] != ':') return false;
  const char* cursor = name + length + 1;
  uint32_t counters[kCounters];
  for (uint32_t& counter : counters) {
    cursor = skip_spaces(cursor);
    if (!is_digit(*cursor)) return false;
    char* end;
    counter = static_cast<uint32_t>(strtoull(cursor, &end, 10));
    cursor = end;
  }
  sample->rx_bytes = static_cast<int32_t>(counters[kRxBytes]);
  sample->tx_bytes = static_cast<int32_t>(counters[kTxBytes]);
  return true;
}

void read_counters(const char* interface, TrafficSample* sample) {
  sample->rx_bytes = kUnknownCounter;
  sample->tx_bytes = kUnknownCounter;
  InputFile file(open_device(kNetDevFile, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  if (!file) return;
  char line[kLine];
  while (file.line(line, sizeof(line)) > 0) {
    if (parse_net_dev_line(line, interface, sample)) return;
  }
}

void compute_rates(const TrafficSample& previous, const TrafficSample& now, uint64_t diff_ms, NetInfo* net) {
  net->rx_rate = -1;
  net->tx_rate = -1;
  if (diff_ms == 0) return;
  // If the clock could not be read, the difference is negative.
  const int64_t diff = static_cast<int64_t>(diff_ms);
  net->rx_rate = prv_rate(previous.rx_bytes, now.rx_bytes, diff);
  net->tx_rate = prv_rate(previous.tx_bytes, now.tx_bytes, diff);
}

}  // namespace brio::page
