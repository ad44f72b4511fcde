// The world around the library of bench/stress.cpp: the simulated modem with what is known about it, what
// happens to it, and what may be asked.
#ifndef BENCH_STRESS_WORLD_H
#define BENCH_STRESS_WORLD_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"

namespace stress {

using Random = std::mt19937;

inline constexpr char kImsi[] = "234151234567890";
inline constexpr char kIccid[] = "89441000301234567890";
inline constexpr char kImei[] = "356938035643809";
inline constexpr char kFirmware[] = "L816_18000.1000.00.24.01.01";

bool known_network(uint32_t mcc, uint32_t mnc);  // 0-0 counts: not known yet
bool known_zone(int32_t quarters);

// One thing that any thread may ask of the library at any time.
struct Probe {
  const char* name;
  uint32_t documented;  // the statuses that may come at all, one bit each
  uint32_t in_peace;    // those that may come while nothing is wrong
  // Asks; fills `complaint` when the answer is not the modem's to this question.
  uint32_t (*run)(Random& random, std::string& complaint);
};
const std::vector<Probe>& probes();

// Whether the library was open and nothing wrong at a moment.
struct Peace {
  bool undisturbed;
  unsigned epoch;
  // The same at a later one, and nothing happened between.
  bool holds(const Peace& later) const { return undisturbed && later.undisturbed && epoch == later.epoch; }
};

struct Deeds {
  long reports = 0, unplugged = 0, refusals = 0, silences = 0;
};

// Every word that threads share here is a relaxed atomic: nothing but the library and the modem's wires shall
// order them.
class World {
 public:
  World(modemsim::DeviceRoot& root, unsigned seed);

  // World's thread: one thing happens.
  void step();
  static const Deeds& deeds() { return s_deeds; }

  // Any thread.
  Peace peace() const { return {open_.load(kRelaxed) && fine(), epoch_.load(kRelaxed)}; }
  long scans_asked() const { return scans_asked_.load(kRelaxed); }

  // Host's thread. What the host sees from opening() until wabs_open returned counts as peace when nothing
  // else disturbed it.
  Peace opening();
  void opened();
  void closing();

 private:
  static constexpr auto kRelaxed = std::memory_order_relaxed;

  bool fine() const { return plugged_.load(kRelaxed) && !lost_.load(kRelaxed) && !faulty_.load(kRelaxed); }
  void disturb(std::atomic<bool>& word, bool value) {
    word.store(value, kRelaxed);
    epoch_.fetch_add(1, kRelaxed);
  }
  void pause(unsigned most_microseconds);
  void report();
  void refuse();
  void unplug();

  modemsim::Modem modem_;
  Random random_;
  long steps_ = 0;
  std::atomic<unsigned> epoch_{0};
  std::atomic<bool> open_{false};    // by the host
  std::atomic<bool> plugged_{true};  // the modem
  std::atomic<bool> lost_{false};    // the modem went away since the last opening
  std::atomic<bool> faulty_{false};  // a fault waits for its command
  std::atomic<long> scans_asked_{0};
  std::atomic<long> asked_{0};  // commands other than scans
  bool scans_ = false;          // the last command was a scan; modem's thread
  static Deeds s_deeds;
};

}  // namespace stress

#endif
