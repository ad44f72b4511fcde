// The modem library without the module above it: its events, and a guard that closes what it opened.
//
//   c++ -std=c++17 host.cpp $(pkg-config --cflags --libs brio_module) -o host
//   ./host                    on the device
//   ./host DIR [SECONDS]      with ports and files below DIR; `modemsim --root DIR` brings a modem there
#include <brio/brio.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

std::atomic<int> bars{-1};

// On the thread that raises the event: short, and no request.
uint32_t note_bars(uint32_t, uint32_t size, const void* data) {
  int32_t value = 0;
  if (size == sizeof value) {
    std::memcpy(&value, data, sizeof value);
    bars = value;
  }
  return 0;
}

class Modem {
 public:
  explicit Modem(const char* port) : status_(brio_open(port)) {}
  ~Modem() {
    if (status_ == BRIO_STATUS_OK) brio_close();
  }
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

  uint32_t status() const { return status_; }

 private:
  uint32_t status_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) brio_set_root_dir(argv[1]);
  brio_set_callback_for_event_id(BRIO_EVENT_BARS_CHANGED, note_bars);  // before the library reports

  const Modem modem("/dev/ttyACM2");
  if (modem.status() != BRIO_STATUS_OK) {
    std::fprintf(stderr, "host: brio_open failed: %u\n", modem.status());
    return 1;
  }
  uint32_t now = 0;
  if (brio_get_bars(&now, 0) == BRIO_STATUS_OK) bars = static_cast<int>(now);
  brio_atcmd_enable_urc(3);  // else only less than two bars are reported

  int shown = -1;
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(argc > 2 ? std::atoi(argv[2]) : 10);
  while (std::chrono::steady_clock::now() < end && brio_log_startup_status() == BRIO_STATUS_OK) {
    const int latest = bars;
    if (latest != shown) {
      std::printf("%d bars\n", latest);
      std::fflush(stdout);
      shown = latest;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return 0;
}
