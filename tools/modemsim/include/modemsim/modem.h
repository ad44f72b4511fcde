// The simulated modem: a state model with three pseudo terminals.
//
// Modem::start links <root>/dev/ttyACM1..3 to the ptys, so that a library with brio_set_root_dir(<root>)
// opens them. Every public function may be called from any thread. Everything runs on one thread of the
// simulator's own, which sleeps while nothing happens.
//
// Trace bytes go out on the trace port (ttyACM1), answers on the query port (ttyACM2), unsolicited reports on
// the URC port (ttyACM3). What is written while nobody has the port open is lost, as on a real device: open
// the port (or the library) first, then report. A port's unread rest is thrown away when its last user closes
// it. A reader that stops reading never stops the simulator: up to 16 MiB per port wait for it, the rest is
// dropped.
//
// Commands are answered one after the other, in the order in which they came; a slow one (a delay, a scan)
// keeps the later ones waiting. Command names are compared without regard to case. Unknown commands answer
// ERROR.
#ifndef MODEMSIM_MODEM_H
#define MODEMSIM_MODEM_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace modemsim {

using Milliseconds = std::chrono::milliseconds;

enum class Port { kTrace, kQuery, kUrc };

// One operator of a network scan, 3GPP TS 27.007 +COPS. The cell values take effect when the modem registers
// there; -1 and "" keep what the state holds.
struct Operator {
  int stat = 1;  // 0 unknown, 1 available, 2 current, 3 forbidden
  std::string long_name = {};
  std::string short_name = {};
  std::string numeric = {};  // MCC and MNC digits
  int rat = 7;
  int lac = -1, cell_id = -1, tac = -1, arfcn = -1, band = -1;
  std::string band_text = {};
};

// The files of the SIM that the default State holds (network 310410); the ICCID file is made from
// State::iccid.
std::map<int, std::string> default_sim_files();

// What the modem knows. Defaults are a working device on a home LTE network.
struct State {
  // Identity
  std::string model = "L816";
  std::string firmware = "L816_18000.1000.00.24.01.01";
  std::string imei = "356938035643809";
  std::string serial = "SN1234567890";
  std::string hardware = "V1.0.1";
  int fault_count = 0;
  // SIM
  int card_status = 3;  // 3 ready; 0, 1, 4 busy; 2, 5 no card
  int lock_status = 0;
  std::string imsi = "310410123456789";
  std::string iccid = "89014103211118510720";
  // EF id (decimal, as in AT+CRSM) -> hexadecimal contents. 12258 overrides the file made from `iccid`. A
  // file that is missing answers 106,130 (not found).
  std::map<int, std::string> files = default_sim_files();
  // Registration: stat of 3GPP TS 27.007. 1 home, 5 roaming, 0 and 2 not registered, 3 denied
  int cs_stat = 1;
  int ps_stat = 1;
  int cs_reject_cause = 0,
      ps_reject_cause = 0;  // shown in +CREG/+CGREG while stat is 3 and the cause is not 0
  int lac = 0x1A2B;
  int cell_id = 0x01C2D3E4;
  int rat = 7;
  int band = 104;  // shown in +CREG and +CGREG in mode 99
  // Serving network
  std::string operator_numeric = "310410";
  int cops_mode = 0;
  int cops_format = 0;  // AT+COPS=3,n: 0 long name, 1 short name, 2 digits. A name that is not known: digits
  std::vector<Operator> operators;    // of a scan. While empty, every PLMN can be selected by hand
  Milliseconds scan_time{0};          // how long AT+COPS=? takes
  Milliseconds registration_time{0};  // how long AT+COPS=0 and AT+COPS=1 take when they change the network
  int tac = 0x2F01;
  int rac = 1;
  int arfcn = 5780;
  std::string plmn_text = "310410";
  std::string band_text = "LTE_BAND_4";
  int nmo = 0;
  int emm_state = 3, emm_substate = 1, rrc_state = 1;
  int pdp_state = 1, mm_state = 13, mm_substate = 1, gmm_state = 3, gmm_substate = 7;
  // Signal, in the modem's units
  int bars = 4;
  int rssi = 60;
  int ecno = 30;
  bool bars_reports = false;  // AT+GTBARS=1
  // Antennas: raw values of +BAS
  int bas_a = 320, bas_b = 288, antenna = 0;
  int antenna_lock = 2;                         // EPHY_BAS_SET: 0, 1 one antenna, 2 automatic
  std::string bas_detail = "EPHY: BAS status";  // a line between +BAS and OK; "" for none
  bool bas_reports = false;
  // Configuration
  int carrier_id = 201;
  std::string pdp_type = "IP";
  std::string apn = "broadband";
  int radio = 1;                      // AT+CFUN
  int creg_mode = 0, cgreg_mode = 0;  // 0 off, 1 stat only, 2 with the cell, 99 with cell and band
  bool time_reports = false;          // AT+CTZR=1
  bool reject_reports = false;        // AT+GTOTAREJECT=1
  bool echo = true;                   // until ATE0
  bool body_sar = false;
  bool fake_security = false;
  bool trace_on = false;                       // AT+XSYSTRACE=, AT+TRACE=
  std::string clock = "26/03/07,09:05:00-28";  // AT+CCLK?
};

// How the answer to a command differs from what the state says. Matches count down and then pass. Of several
// faults that fit a command the one that was added first applies; `skip` counts every command that fits. A
// command whose answer is replaced, withheld or cut by unplugging has no effect on the state.
struct Fault {
  std::string command;  // prefix of the command, case as sent; "" matches every command
  int skip = 0;         // leave this many matching commands alone first
  int times = -1;       // then apply to this many, -1 for ever
  std::string reply;    // raw bytes instead of the answer when `replace`
  bool replace = false;
  bool silent = false;    // no answer at all
  Milliseconds delay{0};  // before the answer
  std::string before;     // raw bytes before the answer (junk)
  std::string after;      // raw bytes after it
  bool joined = false;    // no blank lines: each line ends in CR LF only
  bool unplug = false;    // the modem goes away instead of answering
};

// What went over a port, for an observer. Line ends are part of `bytes` in what the modem writes. An answer
// that a fault withholds (silent) is a write of no bytes.
struct Traffic {
  Port port = Port::kQuery;
  bool to_modem = false;
  std::string bytes;
};

struct Scenario;  // modemsim/scenario.h

class Modem {
 public:
  explicit Modem(State state = {});
  ~Modem();
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

  // Opens the ptys and links them below `root`, where it creates the folders that a device has. False with a
  // message in error().
  bool start(const std::string& root);
  // Hangs up, removes the links. What was not written yet is lost. Also done by the destructor.
  void stop();
  std::string error() const;

  // Reads or changes the state on the simulator's thread; returns when done. No report is sent by itself.
  // `change` must not call the modem.
  void with_state(const std::function<void(State&)>& change);
  State state();
  // The same, and sends the reports that a modem sends by itself when these values change: +CREG, +CGREG,
  // +GTBARS and +BASURC, each as far as it was switched on.
  void update(const std::function<void(State&)>& change);

  // One line on the URC port, framed with CR LF on both sides.
  void urc(const std::string& line);
  // Raw bytes on a port.
  void raw(Port port, const std::string& bytes);
  // A command as if the query port had brought it. Before start() it is answered at once, to the observer.
  void tell(const std::string& command);

  void fault(const Fault& fault);
  void clear_faults();
  // Answers and reports are written in pieces of this many bytes; 0 writes whole. The next piece follows when
  // the reader has taken the one before, at the latest after 20 ms.
  void chunk(std::size_t bytes);

  // Commands received since start or clear_commands, without their CR.
  std::vector<std::string> commands();
  void clear_commands();
  // Waits until `command` was received `times` times; false after `patience`.
  bool wait_command(const std::string& command, std::size_t times = 1,
                    Milliseconds patience = Milliseconds(10000));
  // Waits until all that was handed to urc(), raw() and answers went out; false after `patience`.
  bool wait_written(Milliseconds patience = Milliseconds(10000));

  // The modem goes away (both ends see a hang-up, the links vanish) and comes back with new ptys under the
  // same links, just booted: echo on, reports off, commands in work forgotten. plug() is false with a message
  // in error().
  void unplug();
  bool plug();

  bool is_open(Port port) const;  // by anybody
  // Waits until somebody has the port open, or nobody; false after `patience`.
  bool wait_open(Port port, bool open = true, Milliseconds patience = Milliseconds(10000));

  // Sends `bytes` trace bytes, generated while they are read (nothing is held in memory), at most
  // `bytes_per_second` of them (0: as fast as they are taken). The byte at position n of the stream, counted
  // since start, is trace_byte(n).
  void stream_trace(std::uint64_t bytes, std::uint64_t bytes_per_second = 0);
  static unsigned char trace_byte(std::uint64_t position);

  // Plays a scenario from its beginning: sets the state, places files and sensor below the root, starts the
  // timeline, `speed` times as fast as written. Call it after start and before the library is opened. False
  // with a message in error(). stop() ends it; a second scenario replaces the first.
  bool play(const Scenario& scenario, double speed = 1);
  // Waits until the last event of the timeline was played; false after `patience`.
  bool wait_played(Milliseconds patience = Milliseconds(10000));

  // Called on the simulator's thread for each command and each write; must not call the modem. Set before
  // start.
  void observe(std::function<void(const Traffic&)> observer);
  // The same for each event of a timeline that is played.
  void observe_events(std::function<void(const std::string& text)> observer);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace modemsim

#endif
