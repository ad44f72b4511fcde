// What both halves of bench/endurance.cpp share: the device with its simulated modem, what happens to it, and
// the host's operations with what they must answer.
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

// Relaxed, so that only the library and the modem's wires order threads.
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

// Any thread. Ends the program when there are too many.
void complain(const std::string& what);
inline void expect(bool right, const std::string& what) {
  if (!right) complain(what);
}

struct Device {
  Device();
  // Whether sent reports must be handled; waits until they were.
  void listen(bool on);
  void settle();
  // Trace files must hold a piece of the modem's stream without a gap. Removes them.
  long captured();
  void check_traces();
  void hold_scans();  // they are never answered, and last until they are released

  modemsim::DeviceRoot root{"endurance"};
  Modem modem;
  Relaxed<long> asked, scans_asked;  // commands that are answered, and scans that are not
  Relaxed<bool> echoes;              // plugged in anew, until ATE0

 private:
  void observe(const modemsim::Traffic& traffic);

  bool scan_ = false;  // the last command is held; modem's thread
  std::string line_;   // the report that is not complete yet; modem's thread
  Relaxed<bool> holds_scans_, listens_;
  Relaxed<long> said_;
};

// The modem's situations: some networks, with all else different as well; then a search, and a denial.
constexpr unsigned kNetworks = 6, kSituations = 8;
void situate(Modem& modem, unsigned situation);
// Networks change by way of a search.
unsigned next_situation(unsigned situation);
// Events that change no answer, and lines that are none.
void report_something(Modem& modem);

enum Who { kAnyone, kCrowd, kHost, kAlone };  // kCrowd: for its status only; kAlone: by one thread only
struct Operation {
  const char* line;  // the library's function and its arguments, as briolab takes them
  Who who;
};
extern const std::vector<Operation> kOperations;
inline constexpr char kFile[] = "request";  // asks for a file of the SIM, one of hundreds

struct Answer {
  uint32_t status;
  std::string text, wanted;  // wanted: where it depends on what was asked alone
};
Answer call(const std::string& line);
Answer call(const Operation& what);
// Every answer must be that of a freshly opened library on an undisturbed modem in the same situation.
void learn(Device& device);
// Complains unless a success is what it must be, in any situation or in this one, and a failure a documented
// one that something has `disturbed`. What the library knows is only judged where it `opened_whole`.
void judge(const Operation& what, const Answer& answer, bool disturbed, unsigned situation = kSituations,
           bool opened_whole = true);

enum Effect { kNone, kFails, kGone };
struct Trouble {
  Effect effect;
  bool in_crowd;  // leaves nothing for the next request
  void (*make)(Fault& fault);
};
extern const std::vector<Trouble> kTroubles;

// A simulated day of one host; many threads at once, until that many requests were undisturbed.
void day(Device& device);
void crowd(Device& device, long requests, unsigned seed);

}  // namespace endurance

#endif
