// The host of bench/soak.cpp: it does what a device's host does, and holds every answer against what the
// modem knew at that moment.
#ifndef BENCH_SOAK_HOST_H
#define BENCH_SOAK_HOST_H

#include <cstdint>
#include <random>
#include <string>

#include "soak_device.h"

namespace soak {

using Random = std::mt19937;

// What may be wrong with the answer to one request.
enum class Trouble { kError, kCmeError, kSilence, kLate, kBlankLines, kPieces, kJoined, kJunk, kUnplug };
inline constexpr int kTroubles = 9;

class Host {
 public:
  explicit Host(Device& device) : device_(device) {}

  // `wanted`: the status that this opening must have.
  void open(uint32_t wanted = 0);
  void close();
  // A modem that is known to have gone: requests fail, and opening anew mends that.
  void recover();

  // One round of polling, and the rarer questions.
  void poll();
  void ask_time();
  void ask_identity();
  void visit_page(Random& random, bool disk_full);
  void scan(Random& random, Trouble trouble);
  void reader_in_front(bool on);
  // A hand at the sensor and away again.
  void grip();
  void trace(uint64_t bytes);

  // One of the questions with an answer that something is wrong with, then the same without.
  void ask_in_trouble(Random& random, Trouble trouble);

  // Changes what the modem knows, and takes over what the host shall see of it.
  void change(const std::function<void(State&)>& change);
  void bars_report(int bars);

 private:
  void see(const State& state);
  void check(const char* name, uint32_t status, uint32_t wanted_status, const std::string& got,
             const std::string& wanted);
  void check_files();

  // What the library can know, by the reports and answers so far.
  struct Seen {
    int cs = 0, ps = 0, rat = 255;
    bool network = false;  // MCC and MNC
    bool bars_valid = false;
    int bars = 255;
    double polled_at = 0;
    uint32_t mcc = 0, mnc = 0;  // of the host's last answer
  };

  Device& device_;
  Seen seen_;
  State at_open_;
  bool open_ = false;
  bool reader_ = false;
  bool page_left_ = false;
  uint64_t traced_ = 0;
};

// What is written to files fails, as on a full disk.
void fill_disk(bool full);

}  // namespace soak

#endif
