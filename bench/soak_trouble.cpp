// One request whose answer something is wrong with.
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "soak_host.h"

namespace soak {
namespace {

struct Question {
  const char* name;
  const char* command;  // the beginning of what is sent
  uint32_t on_error, on_silence;
  bool in_pieces;  // its answer may come in pieces
  uint32_t (*ask)(std::string& answer);
  std::string (*truth)(const State& state);
};

uint32_t recv_func_line(const ATResponse* response, void* user_data, uint16_t) {
  if (response->intermediates == nullptr) return BRIO_STATUS_INVALID;
  *static_cast<std::string*>(user_data) = response->intermediates->line;
  return 0;
}

const Question kQuestions[] = {
    {"time zone", "AT+CCLK?", BRIO_STATUS_TIMEOUT, BRIO_STATUS_TIMEOUT, true,
     [](std::string& answer) {
       network_time record = {};
       const uint32_t status = brio_get_network_time(&record);
       answer = number(record.time_zone);
       return status;
     },
     [](const State& state) { return number(zone_of(state)); }},
    {"SIM status", "AT+GTSIMSTATUS?", BRIO_STATUS_FAILURE, BRIO_STATUS_TIMEOUT, true,
     [](std::string& answer) {
       uint32_t value = 0;
       const uint32_t status = brio_get_wn3_sim_status(&value);
       answer = number(value);
       return status;
     },
     [](const State& state) {
       return number(state.card_status == 3                             ? SIM_STATUS_OK
                     : state.card_status == 2 || state.card_status == 5 ? NO_SIM
                                                                        : SIM_NOT_READ);
     }},
    {"identity", "AT+CIMI", BRIO_STATUS_FAILURE, BRIO_STATUS_FAILURE, true,
     [](std::string& answer) {
       sim_identity block = {};
       const uint32_t status = brio_get_sim_info(&block);
       answer = std::string(block.imsi) + " " + block.iccid;
       return status;
     },
     [](const State& state) { return state.imsi + " " + state.iccid; }},
    // In pieces, the line for people behind the values fails the request.
    {"antennas", "AT@EPHY:EPHY_BAS_STATUS(2)", BRIO_STATUS_TIMEOUT, BRIO_STATUS_TIMEOUT, false,
     [](std::string& answer) {
       bas_status record = {0xFFFF, 0xFFFF, 255};
       const uint32_t status = brio_get_bas_status(&record);
       answer = number(record.value_a) + "," + number(record.value_b) + "," + number(record.antenna);
       return status;
     },
     [](const State& state) {
       const bool swapped = state.antenna == 1;
       return number((swapped ? state.bas_b : state.bas_a) / 16) + "," +
              number((swapped ? state.bas_a : state.bas_b) / 16) + "," + number(state.antenna);
     }},
    {"SIM file", "AT+CRSM=176,28542", BLPKT_STATUS_ERROR, BLPKT_STATUS_TIMEOUT, true,
     [](std::string& answer) {
       return blpkt_atcmd_request_with_callback("AT+CRSM=176,28542,0,0,0", SINGLELINE, "+CRSM",
                                                recv_func_line, &answer, 0);
     },
     [](const State& state) { return "+CRSM: 144,0,\"" + state.files.at(kLociFile) + "\""; }},
    {"modem", "AT+GTMODINFO?", BRIO_STATUS_FAILURE, BRIO_STATUS_FAILURE, true,
     [](std::string& answer) {
       briolib_reset_modem_info();
       modem_info info = {};
       const uint32_t status = brio_get_modem_info(&info);
       answer = std::string(info.fw_ver) + " " + info.imei + " " + info.serial;
       return status;
     },
     [](const State& state) { return state.firmware + " " + state.imei + " " + state.serial; }},
};

}  // namespace

void Host::ask_in_trouble(Random& random, Trouble trouble) {
  const Question& question = kQuestions[random() % (sizeof(kQuestions) / sizeof(kQuestions[0]))];
  const std::string name = std::string(question.name) + " in trouble " + number(static_cast<int>(trouble));
  modemsim::Fault fault;
  fault.command = question.command;
  fault.times = 1;
  switch (trouble) {
    case Trouble::kError:
    case Trouble::kCmeError:
      fault.replace = true;
      fault.reply = trouble == Trouble::kError ? "\r\nERROR\r\n" : "\r\n+CME ERROR: 14\r\n";
      break;
    case Trouble::kSilence:
      fault.silent = true;
      break;
    case Trouble::kLate:
      fault.delay = modemsim::Milliseconds(20);
      device_.expire(question.command);
      break;
    case Trouble::kBlankLines:
      fault.before = "\r\n\r\n\r\n";
      break;
    case Trouble::kPieces:
      if (question.in_pieces) device_.modem().chunk(1 + random() % 7);
      break;
    case Trouble::kJoined:
      fault.joined = true;
      break;
    case Trouble::kJunk:
      fault.before = random() % 2 == 0 ? "\r\n~~~ \x01\x02 junk\r\n" : "\r\n$$\r\n\r\nbooting\r\n";
      break;
    case Trouble::kUnplug:
      fault.unplug = true;
      break;
  }
  device_.modem().fault(fault);
  std::string answer;
  const uint32_t status = question.ask(answer);
  const std::string truth = question.truth(device_.truth());
  const bool refused =
      trouble == Trouble::kError || trouble == Trouble::kCmeError || trouble == Trouble::kUnplug;
  const bool unheard = trouble == Trouble::kSilence || trouble == Trouble::kLate;
  // On a busy machine the late answer may still come in time. Junk may spoil its answer, but never gives
  // another.
  const bool in_time = trouble == Trouble::kLate && status == BRIO_STATUS_OK;
  const bool spoilt =
      trouble == Trouble::kJunk &&
      (status == question.on_error || status == question.on_silence || status == BRIO_STATUS_INVALID);
  const uint32_t wanted = refused   ? question.on_error
                          : in_time ? uint32_t{BRIO_STATUS_OK}
                          : unheard ? question.on_silence
                          : spoilt  ? status
                                    : uint32_t{BRIO_STATUS_OK};
  check(name.c_str(), status, wanted, answer, truth);
  device_.modem().chunk(0);
  device_.modem().clear_faults();
  if (trouble == Trouble::kUnplug) {
    recover();
  } else {
    device_.clear_query_port();
  }
  answer.clear();
  const uint32_t again = question.ask(answer);
  check((name + ", again").c_str(), again, 0, answer, question.truth(device_.truth()));
}

}  // namespace soak
