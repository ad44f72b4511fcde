#include "stress_world.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "brisk_clock.h"

namespace stress {
namespace {

struct Place {
  const char* mcc;
  const char* mnc;
  int stat, rat, lac, cell;
};
constexpr Place kPlaces[] = {{"234", "15", 1, 7, 0x0D05, 0x0012F00D},
                             {"262", "01", 5, 2, 0x00FF, 0x00C0FFEE},
                             {"310", "410", 5, 0, 0x1A2B, 0x01C2D3E4}};

// Raw values, and what the library makes of an answer that holds them.
struct Antennas {
  int a, b, antenna;
  bas_status record;
};
constexpr Antennas kAntennas[] = {
    {320, 288, 0, {20, 18, 0}}, {160, 480, 1, {30, 10, 1}}, {16, 32, 0, {1, 2, 0}}};

constexpr struct {
  const char* clock;
  int zone;
} kClocks[] = {{"26/03/07,09:05:00-28", -28}, {"26/03/07,17:05:00+04", 4}, {"26/07/07,18:05:00+08", 8}};

// SIM files of cells that each name their file and their place, so that every piece of every file differs.
constexpr int kFirstFile = 40000;
constexpr unsigned kFiles = 8;
constexpr unsigned kCells = 500;
constexpr unsigned kCellBytes = 3;

std::string cells(unsigned file, unsigned first, unsigned count) {
  std::string text;
  for (unsigned i = first; i < first + count; i++) {
    char cell[16];
    snprintf(cell, sizeof(cell), "%02X%04X", 0xA0 + file, i);
    text += cell;
  }
  return text;
}

modemsim::State first_state() {
  modemsim::State state;
  state.imsi = kImsi;
  state.iccid = kIccid;
  state.carrier_id = 202;  // with a proximity monitor
  state.apn = "internet";
  state.bas_detail =
      "";  // in pieces, that line fails the request: it has no end that tells it from an answer
  state.operator_numeric = state.plmn_text = "23415";
  for (unsigned file = 0; file < kFiles; file++) {
    state.files[kFirstFile + static_cast<int>(file)] = cells(file, 0, kCells);
  }
  return state;
}

constexpr char kScan[] = "AT+COPS=?";

constexpr long kCertainUnplug = 200;  // the step

modemsim::Fault unanswered_scan() {
  modemsim::Fault fault;
  fault.command = kScan;
  fault.silent = true;
  return fault;
}

constexpr uint32_t bits(std::initializer_list<uint32_t> statuses) {
  uint32_t mask = 0;
  for (uint32_t status : statuses) mask |= 1u << status;
  return mask;
}

// ---- What is asked

struct FileReading {
  int callbacks = 0;
  std::string text;
};

// Read thread.
uint32_t recv_func_file(const ATResponse* response, void* user_data, uint16_t) {
  auto* reading = static_cast<FileReading*>(user_data);
  reading->callbacks++;
  if (response->intermediates == nullptr || response->intermediates->line == nullptr)
    return BRIO_STATUS_INVALID;
  const char* quote = strchr(response->intermediates->line, '"');
  if (quote != nullptr) reading->text = quote;
  return 0;
}

uint32_t ask_file(Random& random, std::string& complaint) {
  const unsigned file = random() % kFiles;
  const unsigned count = 1 + random() % 30;
  const unsigned first = random() % (kCells - count);
  char command[64];
  snprintf(command, sizeof(command), "AT+CRSM=176,%u,%u,%u,%u", kFirstFile + file, first * kCellBytes / 256,
           first * kCellBytes % 256, count * kCellBytes);
  FileReading reading;
  const uint32_t status =
      blpkt_atcmd_request_with_callback(command, SINGLELINE, "+CRSM", recv_func_file, &reading, 0);
  const bool read = reading.text == "\"" + cells(file, first, count) + "\"";
  if (status == BLPKT_STATUS_SUCCESS && !read) complaint = command + (" got " + reading.text);
  if (reading.callbacks > 1) complaint = "more than one callback";
  return status;
}

uint32_t ask_nonsense(Random&, std::string&) {
  return blpkt_atcmd_request_with_callback("AT+NOSUCH", NUMERIC, nullptr, nullptr, nullptr, 0);
}

uint32_t ask_nothing(Random&, std::string&) {
  return blpkt_atcmd_request_with_callback(nullptr, NUMERIC, nullptr, nullptr, nullptr, 0);
}

uint32_t ask_sim_identity(Random&, std::string& complaint) {
  sim_identity block = {};
  const uint32_t status = brio_get_sim_info(&block);
  if (status == BRIO_STATUS_OK && (strcmp(block.imsi, kImsi) != 0 || strcmp(block.iccid, kIccid) != 0)) {
    complaint = std::string(block.imsi) + " " + block.iccid;
  }
  return status;
}

uint32_t ask_modem_info(Random&, std::string& complaint) {
  modem_info info = {};
  const uint32_t status = brio_get_modem_info(&info);
  if (status == BRIO_STATUS_OK && (strcmp(info.imei, kImei) != 0 || strcmp(info.fw_ver, kFirmware) != 0)) {
    complaint = std::string(info.imei) + " " + info.fw_ver;
  }
  return status;
}

uint32_t copy_modem_info(Random&, std::string& complaint) {
  modem_info info = {};
  const uint32_t status = brio_copy_modem_info(&info);
  const bool known = strcmp(info.imei, kImei) == 0 && strcmp(info.fw_ver, kFirmware) == 0;
  if (!known && !(strcmp(info.imei, " ") == 0 && strcmp(info.fw_ver, " ") == 0)) complaint = info.imei;
  return status;
}

uint32_t ask_home_network(Random&, std::string& complaint) {
  sim_plmn_data record;
  const uint32_t status = brio_get_sim_plmn_info(&record, 1);
  if (status == BRIO_STATUS_OK &&
      (strcmp(record.home_mcc, "234") != 0 || strcmp(record.home_mnc, "15") != 0)) {
    complaint = std::string(record.home_mcc) + "-" + record.home_mnc;
  }
  return status;
}

uint32_t ask_sim_status(Random&, std::string& complaint) {
  uint32_t value = 99;
  const uint32_t status = brio_get_wn3_sim_status(&value);
  if (status == BRIO_STATUS_OK && value != SIM_STATUS_OK) complaint = std::to_string(value);
  return status;
}

uint32_t ask_time(Random&, std::string& complaint) {
  network_time record = {};
  const uint32_t status = brio_get_network_time(&record);
  if (status == BRIO_STATUS_OK && !known_zone(record.time_zone)) complaint = std::to_string(record.time_zone);
  return status;
}

uint32_t ask_antennas(Random&, std::string& complaint) {
  bas_status record = {0xFFFF, 0xFFFF, 255};
  const uint32_t status = brio_get_bas_status(&record);
  const bool known = std::any_of(std::begin(kAntennas), std::end(kAntennas), [&](const Antennas& row) {
    return row.record.value_a == record.value_a && row.record.value_b == record.value_b &&
           row.record.antenna == record.antenna;
  });
  if (status == BRIO_STATUS_OK && !known) {
    complaint = std::to_string(record.value_a) + "," + std::to_string(record.value_b) + "," +
                std::to_string(record.antenna);
  }
  return status;
}

uint32_t ask_antenna(Random&, std::string& complaint) {
  uint32_t antenna = 99;
  const uint32_t status = brio_get_curr_lte_ant(&antenna);
  if (status == BRIO_STATUS_OK && antenna > 1) complaint = std::to_string(antenna);
  return status;
}

bool known_texts(const char* mcc, const char* mnc) {
  if (strcmp(mcc, BRIO_PLMN_UNKNOWN) == 0) return strcmp(mnc, BRIO_PLMN_UNKNOWN) == 0;
  return std::any_of(std::begin(kPlaces), std::end(kPlaces), [&](const Place& place) {
    return strcmp(place.mcc, mcc) == 0 && strcmp(place.mnc, mnc) == 0;
  });
}

uint32_t ask_network(Random&, std::string& complaint) {
  char texts[8] = {};
  const uint32_t status = brio_get_mcc_mnc(texts);
  if (status == BRIO_STATUS_OK && !known_texts(texts, texts + 4)) {
    complaint = std::string(texts) + "-" + (texts + 4);
  }
  return status;
}

uint32_t ask_record(Random&, std::string& complaint) {
  if (briolib_lock_urc_data_mutex() != BRIO_STATUS_OK) return BRIO_STATUS_FAILURE;
  const brio_atcmd_data data = g_brio_lib_atcmd_data;
  briolib_unlock_urc_data_mutex();
  if (data.mcc[0] != '\0' && !known_texts(data.mcc, data.mnc))
    complaint = std::string(data.mcc) + "-" + data.mnc;
  if (memchr(data.band_text, '\0', sizeof(data.band_text)) == nullptr) complaint = "band text without an end";
  return BRIO_STATUS_OK;
}

uint32_t ask_attached(Random&, std::string& complaint) {
  uint32_t attached = 9, allowed = 9;
  const uint32_t status = brio_get_pdp_context_activation_allowed(&attached, &allowed);
  if (status == BRIO_STATUS_OK && (attached > 1 || attached != allowed)) complaint = std::to_string(attached);
  return status;
}

uint32_t ask_carrier(Random&, std::string& complaint) {
  uint16_t carrier = 0;
  const uint32_t status = brio_get_carrier_id(&carrier);
  // Not known where the question of the opening was refused.
  if (status == BRIO_STATUS_OK && carrier != 202 && carrier != 0xFFFF) complaint = std::to_string(carrier);
  return status;
}

template <uint32_t (*kGet)(uint32_t*), uint32_t kMost>
uint32_t ask_number(Random&, std::string& complaint) {
  uint32_t value = kMost + 1;
  const uint32_t status = kGet(&value);
  if (status == BRIO_STATUS_OK && value > kMost) complaint = std::to_string(value);
  return status;
}

template <uint32_t (*kDo)()>
uint32_t call(Random&, std::string&) {
  return kDo();
}

uint32_t sar_power(Random& random, std::string&) {
  return brio_set_sar_pwr(random() % 2);
}

uint32_t automatic_antenna(Random&, std::string&) {
  return brio_set_lte_ant(3);
}

constexpr uint32_t kOk = bits({BRIO_STATUS_OK});
constexpr uint32_t kGate = bits({BRIO_STATUS_OK, BRIO_STATUS_NOT_OPEN, BRIO_STATUS_FATAL});
constexpr uint32_t kRequest = kGate | bits({BRIO_STATUS_FAILURE, BRIO_STATUS_TIMEOUT});
constexpr uint32_t kPacket = bits({BLPKT_STATUS_SUCCESS, BLPKT_STATUS_TIMEOUT, BLPKT_STATUS_ERROR});
// The callback's own status: a request that no gate holds back may meet a modem that still echoes.
constexpr uint32_t kNoLine = bits({BRIO_STATUS_INVALID});
constexpr uint32_t kBad = bits({BLPKT_STATUS_BAD_REQUEST});

const std::vector<Probe> kProbes = {
    {"SIM file", kPacket | kNoLine, kOk, ask_file},
    {"SIM file", kPacket | kNoLine, kOk, ask_file},
    {"SIM file", kPacket | kNoLine, kOk, ask_file},
    {"SIM file", kPacket | kNoLine, kOk, ask_file},
    {"unknown command", kPacket, bits({BLPKT_STATUS_ERROR}), ask_nonsense},
    {"no command", kBad, kBad, ask_nothing},
    {"brio_get_sim_info", kGate | bits({BRIO_STATUS_FAILURE}), kOk, ask_sim_identity},
    {"brio_get_modem_info", kGate | bits({BRIO_STATUS_FAILURE}), kOk, ask_modem_info},
    {"brio_copy_modem_info", kOk, kOk, copy_modem_info},
    {"brio_get_sim_plmn_info", kGate | bits({BRIO_STATUS_FAILURE}), kOk, ask_home_network},
    {"brio_get_wn3_sim_status", kRequest, kOk, ask_sim_status},
    {"brio_get_network_time", kGate | bits({BRIO_STATUS_TIMEOUT}), kOk, ask_time},
    {"brio_get_bas_status", kGate | bits({BRIO_STATUS_TIMEOUT}), kOk, ask_antennas},
    {"brio_get_curr_lte_ant", kGate | bits({BRIO_STATUS_UNAVAILABLE}), kOk, ask_antenna},
    {"brio_get_mcc_mnc", kGate, kOk, ask_network},
    {"shared record", kOk, kOk, ask_record},
    {"brio_get_pdp_context_activation_allowed", kGate, kOk, ask_attached},
    {"brio_get_carrier_id", kGate, kOk, ask_carrier},
    {"brio_get_data_service_mode", kGate, kOk, ask_number<brio_get_data_service_mode, 5>},
    {"brio_get_roaming_status", kGate, kOk, ask_number<brio_get_roaming_status, 2>},
    {"brio_get_band_info", kGate, kOk, ask_number<brio_get_band_info, 0>},
    {"brio_get_wan_type", kGate, kOk, ask_number<brio_get_wan_type, 6>},
    {"brio_get_current_network", kGate, kOk, call<brio_get_current_network>},
    // Not registered, the modem names no network: that counts as a failed request.
    {"briolib_update_mcc_mnc", kGate | bits({BRIO_STATUS_TIMEOUT}),
     bits({BRIO_STATUS_OK, BRIO_STATUS_TIMEOUT}), call<briolib_update_mcc_mnc>},
    {"briolib_update_lte_info", kRequest, kOk, call<briolib_update_lte_info>},
    {"briolib_get_gtscinfo", kRequest, kOk, call<briolib_get_gtscinfo>},
    {"briolib_get_gtscstat", kRequest, kOk, call<briolib_get_gtscstat>},
    {"brio_clear_sms", kGate | bits({BRIO_STATUS_TIMEOUT}), kOk, call<brio_clear_sms>},
    {"brio_clear_mru", kRequest, kOk, call<brio_clear_mru>},
    {"brio_set_sar_pwr", kGate | kPacket, kOk, sar_power},
    {"brio_set_lte_ant", kRequest, kOk, automatic_antenna},
    {"brio_atcmd_set_auto_mode", kRequest, kOk, call<brio_atcmd_set_auto_mode>},
};

std::string reject_or_junk(Random& random) {
  switch (random() % 4) {
    case 0:
      return "+GTOTAREJECT: 1,5,7,262,01";
    case 1:
      return "+CMTI: \"SM\",1";
    case 2:
      return "+UNHEARD: " + std::string(random() % 1500, 'x');
    default:
      return "+STKPCI: 0,\"D009810301010082028182\"";  // the event thread reads the ICCID then
  }
}

}  // namespace

Deeds World::s_deeds;

bool known_network(uint32_t mcc, uint32_t mnc) {
  return (mcc == 0 && mnc == 0) ||
         std::any_of(std::begin(kPlaces), std::end(kPlaces), [&](const Place& place) {
           return mcc == static_cast<uint32_t>(atoi(place.mcc)) &&
                  mnc == static_cast<uint32_t>(atoi(place.mnc));
         });
}

bool known_zone(int32_t quarters) {
  // 0 is held until the first report.
  return quarters == 0 || std::any_of(std::begin(kClocks), std::end(kClocks),
                                      [&](const auto& clock) { return clock.zone == quarters; });
}

const std::vector<Probe>& probes() {
  return kProbes;
}

World::World(modemsim::DeviceRoot& root, unsigned seed) : modem_(first_state()), random_(seed) {
  modem_.observe([this](const modemsim::Traffic& traffic) {
    if (!traffic.to_modem) {
      // Nobody waits for what never comes, but for a scan: that is released.
      const bool silent = traffic.port == modemsim::Port::kQuery && traffic.bytes.empty();
      if (silent && !scans_) bench::g_expire_wait.store(true, kRelaxed);
      return;
    }
    scans_ = traffic.bytes == kScan;
    (traffic.bytes == kScan ? scans_asked_ : asked_).fetch_add(1, kRelaxed);
  });
  modem_.fault(unanswered_scan());
  if (!modem_.start(root.dir())) {
    fprintf(stderr, "stress: the modem does not start: %s\n", modem_.error().c_str());
    abort();
  }
}

Peace World::opening() {
  // What the modem still works on when the library closes answers whoever opens the port next: answers carry
  // no name.
  modem_.wait_open(modemsim::Port::kQuery, false);
  modem_.wait_written();
  bench::g_expire_wait.store(false, kRelaxed);  // of a request that the close has ended
  disturb(lost_, false);
  return {fine(), epoch_.load(kRelaxed)};
}

// Peace begins here unless the modem went away meanwhile.
void World::opened() {
  disturb(open_, true);
}

void World::closing() {
  disturb(open_, false);
}

void World::pause(unsigned most_microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(random_() % most_microseconds));
}

void World::step() {
  // Once in every round for certain.
  const unsigned what = ++steps_ == kCertainUnplug ? 999 : random_() % 1000;
  if (what < 970) {
    report();
  } else if (what < 985) {
    modem_.chunk(random_() % 4 != 0 ? 0 : 1 + random_() % 9);
  } else if (what < 994) {
    modem_.stream_trace(random_() % 300000);
  } else if (what < 998) {
    refuse();
  } else {
    unplug();
  }
  pause(3000);
}

void World::report() {
  s_deeds.reports++;
  const Place& place = kPlaces[random_() % (sizeof(kPlaces) / sizeof(kPlaces[0]))];
  const Antennas& antennas = kAntennas[random_() % (sizeof(kAntennas) / sizeof(kAntennas[0]))];
  const auto& clock = kClocks[random_() % (sizeof(kClocks) / sizeof(kClocks[0]))];
  const int bars = static_cast<int>(random_() % 6);
  switch (random_() % 6) {
    case 0:
      modem_.update([&](modemsim::State& state) { state.cs_stat = state.ps_stat = 2; });
      break;
    case 1:
      modem_.update([&](modemsim::State& state) {
        state.operator_numeric = state.plmn_text = std::string(place.mcc) + place.mnc;
        state.cs_stat = state.ps_stat = place.stat;
        state.rat = place.rat;
        state.lac = place.lac;
        state.cell_id = place.cell;
      });
      break;
    case 2:
      modem_.update([&](modemsim::State& state) {
        state.bas_a = antennas.a;
        state.bas_b = antennas.b;
        state.antenna = antennas.antenna;
      });
      break;
    case 3:
      modem_.with_state([&](modemsim::State& state) { state.clock = clock.clock; });
      modem_.urc("+CTZV: " + std::to_string(clock.zone) + ",\"26/03/07,09:05:00\"");
      break;
    case 4:
      modem_.update([&](modemsim::State& state) { state.bars = bars; });
      break;
    default:
      modem_.urc(reject_or_junk(random_));
  }
}

// The next few commands are refused, or the next is never answered.
void World::refuse() {
  const bool silent = random_() % 16 == 0;
  modemsim::Fault fault;
  fault.times = silent ? 1 : static_cast<int>(1 + random_() % 3);
  fault.silent = silent;
  fault.replace = !silent;
  fault.reply = random_() % 2 == 0 ? "\r\nERROR\r\n" : "\r\n+CME ERROR: 3\r\n";
  (silent ? s_deeds.silences : s_deeds.refusals)++;
  disturb(faulty_, true);
  modem_.fault(fault);
  const long asked = asked_.load(kRelaxed);
  // Not taken back while commands come: the fault of the scans would be gone for a moment too.
  for (int i = 0; i < 2000 && asked_.load(kRelaxed) < asked + fault.times; i++) pause(2000);
  if (asked_.load(kRelaxed) < asked + fault.times) {
    modem_.clear_faults();
    modem_.fault(unanswered_scan());
  }
  disturb(faulty_, false);
}

void World::unplug() {
  s_deeds.unplugged++;
  plugged_.store(false, kRelaxed);
  disturb(lost_, true);
  modem_.unplug();
  pause(50000);
  if (!modem_.plug()) abort();
  disturb(plugged_, true);
}

}  // namespace stress
