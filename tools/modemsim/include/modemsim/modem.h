// The simulated modem: a state model behind three pseudo terminals.
//
// Modem::start links <root>/dev/ttyACM1..3 to the ptys, so that a library with brio_set_root_dir(<root>)
// opens them. Every public function may be called from any thread. Everything runs on one thread of the
// simulator's own.
#ifndef MODEMSIM_MODEM_H
#define MODEMSIM_MODEM_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace modemsim {

using Milliseconds = std::chrono::milliseconds;

enum class Port { kTrace, kQuery, kUrc };

// One operator of a network scan, 3GPP TS 27.007 +COPS.
struct Operator {
  int stat = 1;  // 0 unknown, 1 available, 2 current, 3 forbidden
  std::string long_name;
  std::string short_name;
  std::string numeric;  // MCC and MNC digits
  int rat = 7;
};

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
  int card_status = 3;
  int lock_status = 0;
  std::string imsi = "310410123456789";
  std::string iccid = "89014103211118510720";
  std::map<int, std::string> files;  // EF id (decimal, as in AT+CRSM) -> hexadecimal contents
  // Registration: stat of 3GPP TS 27.007
  int cs_stat = 1;
  int ps_stat = 1;
  int lac = 0x1A2B;
  int cell_id = 0x01C2D3E4;
  int rat = 7;
  int band = 104;
  // Serving network
  std::string operator_numeric = "310410";
  int cops_mode = 0;
  std::vector<Operator> operators;
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
  bool bas_reports = false;
  // Configuration
  int carrier_id = 201;
  std::string apn = "broadband";
  int radio = 1;  // AT+CFUN
  int creg_mode = 0, cgreg_mode = 0;
  bool echo = true;
  bool body_sar = false;
  std::string clock = "26/03/07,09:05:00-28";  // AT+CCLK?
};

// How the answer to a command departs from what the state gives. Matches count down and then pass.
struct Fault {
  std::string command;  // prefix of the command, case as sent; "" matches every command
  int skip = 0;         // leave this many matching commands alone first
  int times = -1;       // then apply to this many, -1 for ever
  std::string reply;    // raw bytes instead of the answer when `replace`
  bool replace = false;
  bool silent = false;    // no answer at all
  Milliseconds delay{0};  // before the answer
  std::string before;     // raw bytes in front of the answer (junk)
  std::string after;      // raw bytes behind it
  bool unplug = false;    // the modem goes away instead of answering
};

class Modem {
 public:
  explicit Modem(State state = {});
  ~Modem();
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

  // Opens the ptys and links them below `root`. False with a message in error().
  bool start(const std::string& root);
  void stop();
  std::string error() const;

  // Reads or changes the state on the simulator's thread; returns when done. No report is sent by itself.
  void with_state(const std::function<void(State&)>& change);
  State state();

  // One line on the URC port, framed with CR LF on both sides.
  void urc(const std::string& line);
  // Raw bytes on a port.
  void raw(Port port, const std::string& bytes);

  void fault(const Fault& fault);
  void clear_faults();
  // Answers are written in pieces of this many bytes with a yield between them; 0 writes whole.
  void chunk(std::size_t bytes);

  // Commands received since start or clear_commands, without their CR.
  std::vector<std::string> commands();
  void clear_commands();
  // Waits until `command` was received `times` times; false after `patience`.
  bool wait_command(const std::string& command, std::size_t times = 1,
                    Milliseconds patience = Milliseconds(10000));
  // Waits until all that was handed to urc(), raw() and answers went out; false after `patience`.
  bool wait_written(Milliseconds patience = Milliseconds(10000));

  // The modem goes away (both ends see a hang-up) and comes back with new ptys under the same links.
  void unplug();
  bool plug();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace modemsim

#endif
