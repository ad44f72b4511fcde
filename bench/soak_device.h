// The device of bench/soak.cpp: its folder, the simulated modem, a clock that only moves when it is told to,
// and what the modem has said and the library has handled.
#ifndef BENCH_SOAK_DEVICE_H
#define BENCH_SOAK_DEVICE_H

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "modemsim/device_root.h"
#include "modemsim/modem.h"

namespace soak {

using modemsim::State;

struct Tally {
  long host_calls = 0, commands = 0, reports = 0, faults = 0;
  long wrong = 0;         // answers that are not what the modem knew
  long lost_answers = 0;  // failures that nobody caused
  long lost_reports = 0;  // said by the modem and never handled
  long held_bars = 0;     // bars of before a reopening in weak signal, which the library holds on purpose
};
extern Tally g_tally;

// Counts, and prints the first few. Host's thread; throws GaveUp when there are too many.
void complain(long& count, const std::string& what);
struct GaveUp {};

inline constexpr int kLociFile = 28542;
inline std::string number(long value) {
  return std::to_string(value);
}
// Quarters of an hour.
inline int zone_of(const State& state) {
  return atoi(state.clock.c_str() + state.clock.find_first_of("+-"));
}

class Device {
 public:
  Device();
  ~Device();

  modemsim::DeviceRoot& root() { return root_; }
  modemsim::Modem& modem() { return *modem_; }
  State truth() { return modem_->state(); }
  // The modem is switched off and on, with nobody at its ports.
  void power_cycle();

  // Seconds of the virtual clock.
  double now() const { return now_; }
  void advance(double seconds);

  // Whether somebody reads the reports: what the modem says meanwhile must be handled.
  void listen(bool on);
  // Changes what the modem knows; it reports what it has to, and the library has handled that afterwards.
  void change(const std::function<void(State&)>& change);
  void report(const std::string& line);
  void raw_report(const std::string& bytes);
  // Waits until every report was handled. A report that is not within ten seconds is lost.
  void settle();
  // Noise on the query port while nobody waits for an answer; afterwards the library has thrown away all that
  // stood there.
  void clear_query_port();

  // Commands so far that begin with `text`: "AT+GTBARS?", "AT+GTBARS=1", "AT+GTBARS=0".
  long polls() const { return polls_; }
  bool reports_asked() const { return reports_asked_; }  // by the library, after it was opened
  void opening(bool on) { opening_ = on; }

  // The request of the next command that begins with `command` times out as soon as it was sent.
  void expire(const std::string& command);

 private:
  void start_modem(const State& state);
  void observe(const modemsim::Traffic& traffic);

  modemsim::DeviceRoot root_{"soak"};
  std::unique_ptr<modemsim::Modem> modem_;
  double now_ = 0;
  // Written by the modem's thread.
  std::atomic<long> polls_{0};
  std::atomic<bool> reports_asked_{false};
  std::atomic<bool> opening_{false};
  std::atomic<bool> listening_{false};
  std::atomic<long> said_{0};  // lines on the URC port while somebody listens
  std::string line_;           // the one that is not whole yet; modem's thread
  std::atomic<bool> expiring_{false};
  std::string expiring_command_;  // set while nothing is outstanding
};

}  // namespace soak

#endif
