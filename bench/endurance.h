// What both halves of bench/endurance.cpp share: the device with its simulated modem, what the library can
// know of it, the host's operations, what happens to a modem, and what may be wrong with an answer.
#ifndef BENCH_ENDURANCE_H
#define BENCH_ENDURANCE_H

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "modemsim/device_root.h"
#include "modemsim/modem.h"

namespace endurance {

using modemsim::Fault, modemsim::Modem, modemsim::Port, modemsim::State;

// Seeded by each thread that uses it.
inline thread_local std::mt19937 t_random;
inline unsigned below(unsigned limit) {
  return static_cast<unsigned>(t_random()) % limit;
}
template <typename T>
auto& one_of(T& all) {
  return all[below(static_cast<unsigned>(std::size(all)))];
}

// Relaxed, so that nothing but the library and the modem's wires puts threads into an order.
template <typename T>
struct Relaxed {
  operator T() const { return value.load(std::memory_order_relaxed); }
  void operator=(T now) { value.store(now, std::memory_order_relaxed); }
  T operator+=(T more) { return value.fetch_add(more, std::memory_order_relaxed) + more; }
  std::atomic<T> value{};
};

struct Tally {
  Relaxed<long> asked, undisturbed, commands, reports, troubles, unplugged, opens, wrong;
};
inline Tally g_tally;

// Any thread. Ends the programme when there are too many.
void complain(const std::string& what);

struct Device {
  Device();
  // Whether the reports that are said must be handled; waits until they were.
  void listen(bool on);
  void settle();
  // Of trace files, which hold a piece of the modem's stream without a hole. Removes them.
  long captured();
  void check_traces();
  void hold_scans();  // they are never answered, and last until they are released

  modemsim::DeviceRoot root{"endurance"};
  Modem modem;
  Relaxed<long> asked, scans_asked;  // commands that are answered, and scans that are not

 private:
  void observe(const modemsim::Traffic& traffic);

  bool scan_ = false;  // the last command is held; modem's thread
  std::string line_;   // the report that is not whole yet; modem's thread
  Relaxed<bool> holds_scans_, listens_;
  Relaxed<long> said_;
};

// What the library can know, by the reports and answers so far.
struct Known {
  State modem;  // as it is
  int cs = 0, ps = 0, rat = 255, bars = 255;
  bool network = false, bars_valid = false;
  std::string plmn = "untouched untouched";  // as last served to the host

  void see();  // the registration reports of the modem's state
  void leave() { cs = ps = 0, rat = bars = 255, network = bars_valid = false; }
  bool attached() const { return ps == 1 || ps == 2; }
  bool serves() const { return attached() && network; }
};
// All that it can know where nobody knows what came first.
const std::vector<Known>& possible();

enum Who {
  kAnyone,
  kCrowd,
  kHost,
  kAlone
};  // kCrowd: many threads only; kHost: one thread; kAlone: that one only

struct Operation {
  std::string line;  // the library's function and its arguments, as briolab takes them
  Who who;
  std::string (*truth)(const Known& known);  // what it gives beside the status 0
  uint32_t refused = 0, unheard = 0;  // its statuses when the modem answers with an error, and not at all
  const char* command = nullptr;      // the beginning of the one command on which these depend
};
extern const std::vector<Operation> kOperations;
const Operation& operation(const char* line);

struct Answer {
  uint32_t status;
  std::string text, wanted;  // wanted: where it depends on what was asked alone
};
Answer call(const std::string& line);
Answer ask(const Operation& what);
// Complains unless the status is one of the `allowed` bits, and the answer of a success what can be `known`.
void judge(const Operation& what, const Answer& answer, uint32_t allowed, const std::vector<Known>& known,
           const char* circumstances = "");
inline uint32_t bits(std::initializer_list<uint32_t> statuses) {
  uint32_t all = 0;
  for (const uint32_t status : statuses) all |= 1u << status % 32;
  return all;
}

// What happens to the modem, which reports it when it has been told to.
void change_network(Modem& modem);
void change_something(Modem& modem);

enum Effect { kNone, kRefused, kUnheard, kSpoilt, kGone };
struct Trouble {
  const char* name;
  Effect effect;
  bool in_crowd;  // leaves nothing for the next request
  void (*make)(Fault& fault);
};
extern const std::vector<Trouble> kTroubles;

// A simulated day of one host; many threads at once, until so many requests were undisturbed.
void day(Device& device);
void crowd(Device& device, long requests, unsigned seed);

}  // namespace endurance

#endif
