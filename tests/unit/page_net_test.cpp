// The diagnostic page's network part: addresses of the interface, its byte counters, rates.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include "brio/brio.h"
#include "log_611_net.h"
#include "support/sim_fixture.h"

using brio::page::compute_rates;
using brio::page::NetInfo;
using brio::page::parse_net_dev_line;
using brio::page::read_addresses;
using brio::page::read_counters;
using brio::page::TrafficSample;

namespace {

// What asking for an interface's addresses gives; errno 0: these addresses.
struct FakeInterface {
  bool on = false;
  int address_errno = 0;
  int destination_errno = 0;
  const char* address = "10.1.2.3";
  const char* destination = "10.64.64.64";
  std::string asked;
};

FakeInterface s_fake;

}  // namespace

// Replaces the C library's, so that tests need no interface of their own.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!s_fake.on || (request != SIOCGIFADDR && request != SIOCGIFDSTADDR)) {
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
  }
  const bool own = request == SIOCGIFADDR;
  ifreq* query = static_cast<ifreq*>(argument);
  s_fake.asked += std::string(query->ifr_name) + (own ? ":address " : ":destination ");
  errno = own ? s_fake.address_errno : s_fake.destination_errno;
  if (errno != 0) return -1;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, own ? s_fake.address : s_fake.destination, &address.sin_addr);
  memcpy(&query->ifr_addr, &address, sizeof(address));
  return 0;
}

namespace {

TEST(PageAddresses, TextOfAnAddressOrOfTheReasonForNone) {
  struct Case {
    int address_errno;
    int destination_errno;
    const char* address;
    const char* destination;
  };
  const Case cases[] = {
      {0, 0, "10.1.2.3", "10.64.64.64"},
      {ENODEV, ENODEV, "not connected", "not connected"},
      {EADDRNOTAVAIL, EADDRNOTAVAIL, "connecting", "connecting"},
      {0, EADDRNOTAVAIL, "10.1.2.3", "connecting"},
      {EACCES, ENOTTY, "13", "25"},
  };
  for (const Case& c : cases) {
    s_fake = {};
    s_fake.on = true;
    s_fake.address_errno = c.address_errno;
    s_fake.destination_errno = c.destination_errno;
    NetInfo net;
    read_addresses("wwan0", &net);
    EXPECT_STREQ(c.address, net.address);
    EXPECT_STREQ(c.destination, net.destination);
    EXPECT_EQ("wwan0:address wwan0:destination ", s_fake.asked);
  }
  s_fake.on = true;
  s_fake.address_errno = 0;
  s_fake.address = "255.255.255.255";
  NetInfo net;
  read_addresses("wwan0", &net);
  EXPECT_STREQ("255.255.255.255", net.address);
}

TEST(PageAddresses, KernelKnowsNoSuchInterface) {
  s_fake = {};
  NetInfo net;
  const size_t descriptors = open_descriptors();
  read_addresses("nosuch0", &net);
  EXPECT_STREQ("not connected", net.address);
  EXPECT_STREQ("not connected", net.destination);
  EXPECT_EQ(descriptors, open_descriptors());
}

TEST(PageAddresses, SocketThatCannotBeMade) {
  rlimit old;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
  const rlimit none = {0, old.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
  NetInfo net;
  read_addresses("wwan0", &net);
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_EQ("se=" + std::to_string(EMFILE), net.address);
  EXPECT_STREQ(net.address, net.destination);
}

TEST(PageCounters, OneLineOfNetDev) {
  struct Case {
    const char* line;
    bool found;
    int32_t rx;
    int32_t tx;
  };
  const Case cases[] = {
      {" wwan0:  150000     200    0    0    0     0          0         0    26000     180    0    0    0   "
       "  0       0          0\n",
       true, 150000, 26000},
      {"wwan0:1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", true, 1, 9},
      {"\t wwan0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n", true, 1, 9},
      {"wwan0: 2147483648 0 0 0 0 0 0 0 4294967295 0 0 0 0 0 0 0\n", true, INT32_MIN, -1},
      {"wwan0: 4294967301 0 0 0 0 0 0 0 42949672960 0 0 0 0 0 0 0\n", true, 5, 0},
      {"wwan0 : 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", false, 0, 0},
      {"wwan01: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", false, 0, 0},
      {"wwan0.1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", false, 0, 0},
      {"xwwan0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", false, 0, 0},
      {"wwan0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", false, 0, 0},
      {"wwan0: 1 2 3 4 5 6 7 8 x 10 11 12 13 14 15 16\n", false, 0, 0},
      {"wwan0: -1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", false, 0, 0},
      {"wwan0:", false, 0, 0},
      {"wwan0", false, 0, 0},
      {"wwan", false, 0, 0},
      {"   ", false, 0, 0},
      {"", false, 0, 0},
  };
  for (const Case& c : cases) {
    TrafficSample sample = {0, 77, 78};
    EXPECT_EQ(c.found, parse_net_dev_line(c.line, "wwan0", &sample)) << c.line;
    EXPECT_EQ(c.found ? c.rx : 77, sample.rx_bytes) << c.line;
    EXPECT_EQ(c.found ? c.tx : 78, sample.tx_bytes) << c.line;
  }
}

TEST(PageCounters, WholeFile) {
  const std::string head =
      "Inter-|   Receive                                                |  Transmit\n"
      " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo "
      "colls carrier compressed\n"
      "    lo:     999       9    0    0    0     0          0         0      999       9    0    0    0     "
      "0       0          0\n";
  const std::string wwan =
      " wwan0:    1500      10    0    0    0     0          0         0     2600      "
      "12    0    0    0     0       0          0\n";
  struct Case {
    std::string content;
    int32_t rx;
    int32_t tx;
  };
  const Case cases[] = {
      {head + wwan, 1500, 2600},
      {head + wwan + "wwan0: 7 7 7 7 7 7 7 7 7 7 7 7 7 7 7 7\n", 1500, 2600},
      {head, -1, -1},
      {"", -1, -1},
      {std::string(1 << 20, 'x'), -1, -1},
      {std::string("\0wwan0:", 7) + wwan, -1, -1},
  };
  DeviceRoot root;
  brio_set_root_dir(root.dir().c_str());
  TrafficSample sample = {0, 5, 5};
  read_counters("wwan0", &sample);
  EXPECT_EQ(-1, sample.rx_bytes);
  EXPECT_EQ(-1, sample.tx_bytes);
  for (const Case& c : cases) {
    root.write("/proc/net/dev", c.content);
    read_counters("wwan0", &sample);
    EXPECT_EQ(c.rx, sample.rx_bytes) << c.content.substr(0, 80);
    EXPECT_EQ(c.tx, sample.tx_bytes) << c.content.substr(0, 80);
  }
  root.remove("/proc/net/dev");
  root.make_directory("/proc/net/dev");
  read_counters("wwan0", &sample);
  EXPECT_EQ(-1, sample.rx_bytes);
}

TEST(PageRates, BytesASecond) {
  struct Case {
    int32_t previous;
    int32_t now;
    uint64_t diff_ms;
    int64_t rate;
  };
  const Case cases[] = {
      {0, 1500, 1000, 1500},
      {1000, 4000, 2000, 1500},
      {0, 1, 3, 333},
      {10, 4, 4000, -1},  // the interface came back with new counters
      {10, 3, 1000, -7},
      {0, 5000, 0, -1},
      {-1, 1000, 1000, 1001},
      {INT32_MIN, INT32_MAX, 1, 4294967295000},
      {INT32_MAX, INT32_MIN, 1, -4294967295000},
      {0, 8000, UINT64_MAX - 7999, -1000},  // 8 s back: the clock could not be read
  };
  for (const Case& c : cases) {
    NetInfo net = {};
    compute_rates({1, c.previous, c.now}, {1, c.now, c.previous}, c.diff_ms, &net);
    EXPECT_EQ(c.rate, net.rx_rate) << c.previous << ' ' << c.now << ' ' << c.diff_ms;
    EXPECT_EQ(c.diff_ms != 0 ? -c.rate : -1, net.tx_rate) << c.previous << ' ' << c.now;
  }
}

}  // namespace
