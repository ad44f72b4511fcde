// A scenario: what the modem knows at first, the files of the device around it, and what happens when.
//
// A scenario file is TOML (all of it is optional):
//
//   title = "Weak signal"
//   [state]                        every member of State by its name; times in seconds
//   bars = 4
//   [sim_files]                    by number or name: replaces the default files of the SIM
//   EF_LOCI = "C0FFEE011300142F010000"
//   [[operator]]                   what a scan finds; the members of Operator
//   stat = 2
//   numeric = "310410"
//   [[fault]]                      the members of Fault; delay in seconds; oversize = bytes of junk before it
//   command = "AT+GTSIMSTATUS?"
//   times = 2
//   reply = "\r\n+GTSIMSTATUS: 1,0\r\n\r\nOK\r\n"
//   [[answer]]                     the members of Answer; delay and each report's t in seconds
//   command = "AT+COPS?"
//   after = "AT+COPS=2"
//   lines = ["+COPS: 2", "OK"]
//   [files]                        placed below the root folder
//   "/mnt/us/apn" = "broadband\n"
//   [prox]                         a proximity sensor: diff, avg, offset, use
//   [net]                          counters of wwan0: rx, tx, and rx_rate, tx_rate in bytes per second
//   [trace]                        rate = bytes per second, sent while the trace is switched on and read
//   [[at]]                         an event at t seconds, see Event
//   t = 2.5
//   set = { bars = 1, rssi = 12 }
#ifndef MODEMSIM_SCENARIO_H
#define MODEMSIM_SCENARIO_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {

// The proximity sensor's entries; missing ones stay as they are. Written as the driver shows them:
// hexadecimal, `diff` as a 13-bit two's complement.
struct Prox {
  std::optional<int> diff, avg, offset, use;
};

struct NetCounters {
  std::uint64_t rx = 0, tx = 0;
  std::uint64_t rx_rate = 0, tx_rate = 0;  // bytes per second
};

// What happens at one time. An event may do several things; they happen in the order of the members.
struct Event {  // NOLINT(clang-analyzer-optin.performance.Padding): the order of the members means something
  Milliseconds time{0};
  int line = 0;      // in the scenario file
  std::string text;  // for people

  bool plug = false;
  std::optional<std::size_t> chunk;
  bool clear_faults = false;
  std::vector<Fault> faults;                 // [[at.fault]] or fault = {..}
  std::vector<Answer> answers;               // [[at.answer]] or answer = {..}
  std::map<std::string, std::string> files;  // written below the root folder
  std::vector<std::string> remove;           // files taken away
  Prox prox;
  std::optional<NetCounters> net;
  // set = {..}: any member of State. Reported as far as reports are switched on; `quietly = true` for none.
  std::vector<std::function<void(State&)>> set;
  bool quietly = false;
  // join = "310260": the network moves the modem to that operator (of the list, or one that is not in it).
  std::string join;
  // network_time = "26/03/07,10:05:00-28", or { clock = "..", by = "ciev", dst = 1 }: sent when AT+CTZR=1.
  std::string network_time;
  bool network_time_ciev = false;
  int network_time_dst = 0;
  // reject = { procedure = 5, cause = 7, mcc = 310, mnc = 410 }: sent when AT+GTOTAREJECT=1.
  struct Reject {
    int procedure = 0, cause = 0, mcc = 0, mnc = 0;
  };
  std::optional<Reject> reject;
  bool refresh = false;           // the SIM asks to be read again
  std::vector<std::string> urcs;  // urc = ".." or a list, sent whether or not anything is switched on
  // raw = { port = "query", bytes = ".." }; ports: trace, query, urc.
  std::optional<Port> raw_port;
  std::string raw_bytes;
  // storm = { urc = "..", count = 1000, every = 0.001 }; every 0: all at once.
  struct Storm {
    std::string urc;
    int count = 0;
    Milliseconds every{0};
  };
  std::optional<Storm> storm;
  // trace = { mib = 1.5, rate = 100000 } or { bytes = .. }.
  std::uint64_t trace_bytes = 0, trace_rate = 0;
  bool unplug = false;
};

struct Scenario {
  std::string file;  // where it came from
  std::string title;
  State state;
  std::vector<Fault> faults;
  std::vector<Answer> answers;
  std::map<std::string, std::string> files;
  std::optional<Prox> prox;  // none: the device has no sensor
  std::optional<NetCounters> net;
  std::uint64_t trace_rate = 0;  // while the trace is switched on and somebody reads it
  std::vector<Event> timeline;   // by time; events of the same time in the order of the file
};

// A scenario that cannot be used. what() is a sentence with the file, the line and the key.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Scenario load_scenario(const std::string& path);
// The same from a text; messages call it `name`.
Scenario parse_scenario(const std::string& text, const std::string& name);

// A change of the state out of settings as of [state], "bars=1" each, texts without quotes. Throws
// ScenarioError.
std::function<void(State&)> parse_settings(const std::vector<std::string>& settings);
// The whole state in such settings.
std::vector<std::string> settings_of(const State& state);

// NAME.toml among the scenarios that are installed with the running program, else a file of that name as it
// stands, else an installed NAME. A name with a "/" is a file's. "" when there is none.
std::string find_scenario(const std::string& name);

}  // namespace modemsim

#endif
