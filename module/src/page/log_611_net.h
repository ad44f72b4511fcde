// What the diagnostic page tells about the modem's network interface.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace brio::page {

inline constexpr char kWwanInterface[] = "wwan0";
inline constexpr char kNotConnected[] = "not connected";  // no such interface
inline constexpr char kConnecting[] = "connecting";       // no address yet

inline constexpr size_t kAddressTextSize = 24;
inline constexpr int32_t kUnknownCounter = -1;

// Byte counters at one moment. Counters keep their low 32 bits.
struct TrafficSample {
  uint64_t time_ms;  // monotonic clock, 0 no sample
  int32_t rx_bytes;
  int32_t tx_bytes;
};

struct NetInfo {
  char address[kAddressTextSize];      // dotted address, or a text that says why there is none
  char destination[kAddressTextSize];  // the other end's
  int32_t rx_bytes;
  int32_t tx_bytes;
  int64_t rx_rate;  // bytes a second, -1 unknown
  int64_t tx_rate;
};

// Fills both address texts: from the interface, or "not connected", "connecting", an error number, or "se="
// and an error number when there is no socket to ask through.
void read_addresses(const char* interface, NetInfo* net);

// Takes one line of /proc/net/dev apart:
//   "  wwan0: 1500 10 0 0 0 0 0 0 2600 12 0 0 0 0 0 0": RX bytes 1st, TX bytes 9th of sixteen counters
// False when it is another interface's line or holds fewer counters; nothing is stored then.
bool parse_net_dev_line(const char* line, const char* interface, TrafficSample* sample);

// Both counters of /proc/net/dev, or kUnknownCounter in each.
void read_counters(const char* interface, TrafficSample* sample);

// Bytes a second between two samples that lie `diff_ms` apart; -1 in each when `diff_ms` is 0.
void compute_rates(const TrafficSample& previous, const TrafficSample& now, uint64_t diff_ms, NetInfo* net);

}  // namespace brio::page
