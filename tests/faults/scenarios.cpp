#include "faults/scenarios.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <tuple>

#include "base/words.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "nipc/nipc_standin.h"
#include "support/interface.h"

namespace {

const std::string kSensor = "/sys/devices/virtual/proximity/proximity0/";
const std::string kTrace = "/mnt/us/trace_log_2026_3_7_14_5_0.istp";
constexpr char kFilter[] = "/var/local/wan/debug/trace_filter.cfg";
constexpr std::time_t kNow = 1772892300;

modemsim::State new_modem() {
  modemsim::State state;
  state.carrier_id = 202;  // the proximity monitor runs
  state.imsi = "234151234567890";
  state.bas_detail = "";  // torn reads would make a line of it that the answer must not hold
  state.operators.resize(2);
  state.operators[0].numeric = "23415", state.operators[0].long_name = "One";
  state.operators[1].numeric = "26201", state.operators[1].long_name = "Two";
  return state;
}

std::string trace_bytes() {
  std::string bytes;
  for (int i = 0; i < 4000; i++) bytes += static_cast<char>(i * 7 + i / 256);
  return bytes;
}

// One letter through a pipe, beside the calls that fail.
bool put(int fd, char letter) {
  const iovec piece = {&letter, 1};
  return writev(fd, &piece, 1) == 1;
}
char take(int fd) {
  char letter = '-';
  const iovec piece = {&letter, 1};
  return readv(fd, &piece, 1) == 1 ? letter : '-';
}

// The modem's process: obeys one letter at a time.
[[noreturn]] void serve(const std::string& root, int orders, int done) {
  using modemsim::Port;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  modemsim::Modem modem(new_modem());
  char order = modem.start(root) ? '+' : '-';
  while (put(done, order) && order != '-') {
    order = take(orders);
    if (order == 'r') {
      // Nothing of the life before reaches the next one.
      for (const auto port : {Port::kTrace, Port::kQuery, Port::kUrc}) modem.wait_open(port, false);
      modem.with_state([](modemsim::State& state) { state = new_modem(); });
    }
    if (order == 'c') modem.wait_open(Port::kTrace, false);
    if (order == 't') modem.raw(Port::kTrace, trace_bytes());
    if (order != 'u') continue;
    for (const char* line : {"+CTZV: -28,\"26/03/07,09:05:00\"", "+STKPCI: 2", "+GTOTAREJECT: 1,5,7,310,410",
                             "+GTBARS: 1,0,7,30,20,2", "+SETTLED: "}) {
      modem.urc(line);
    }
  }
  _exit(0);
}

// ---- What the host does. Statuses: those that the public headers name.

template <typename... Out>
void value(Run& run, const char* name, uint32_t (*get)(Out*...), std::initializer_list<uint32_t> documented,
           std::initializer_list<const char*> unknown) {
  std::tuple<Out...> out{};
  const uint32_t status = std::apply([&](auto&... each) { return get(&each...); }, out);
  std::string text;
  std::apply([&](auto... each) { ((text += (text.empty() ? "" : " ") + std::to_string(each)), ...); }, out);
  run.ended(name, status, documented, text, unknown);
}
// VALUE(operation, (statuses), unknown values...)
#define VALUE(NAME, STATUSES, ...) value(run, #NAME, NAME, LIST STATUSES, {__VA_ARGS__})
#define LIST(...) \
  { __VA_ARGS__ }

void text(Run& run, const char* name, uint32_t (*get)(char*, uint32_t)) {
  char buffer[64] = "";
  const uint32_t status = get(buffer, sizeof buffer);
  run.ended(name, status, {0}, buffer, {""});
}

void basics(const Device&, Run& run) {
  text(run, "wabs_get_imsi", wabs_get_imsi);
  text(run, "wabs_get_radio_serial_number", wabs_get_radio_serial_number);
  text(run, "wabs_get_radio_cert_param1", wabs_get_radio_cert_param1);
  text(run, "wabs_get_firmware_version", wabs_get_firmware_version);
  VALUE(wabs_get_bars, (0, 2), "4294967295");
  VALUE(wabs_get_roaming_status, (0, 2), "8");
}

void queries(const Device& device, Run& run) {
  test_clock::advance(100);  // bars are polled
  VALUE(wabs_get_bars, (0, 2), "4294967295");
  VALUE(wabs_get_data_service_mode, (0, 2), "0");
  {
    brio::UrcDataLock lock;  // not known: asked for again
    snprintf(g_brio_lib_atcmd_data.mcc, sizeof g_brio_lib_atcmd_data.mcc, BRIO_PLMN_UNKNOWN);
  }
  VALUE(wabs_get_bars, (0, 2), "4294967295");
  for (const char* mcc : {"262", "234"}) {
    {
      brio::UrcDataLock lock;
      snprintf(g_brio_lib_atcmd_data.mcc, sizeof g_brio_lib_atcmd_data.mcc, "%s", mcc);
    }
    briolib_exec_event_callback(BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
    VALUE(wabs_get_mcc_mnc, (0, 2), "262 0", "234 0", "0 0");
    run.ended("mcc file", 0, {0}, device.root.read("/var/local/wan/mcc").value_or(""), {"", "262"});
  }
  VALUE(wabs_get_hplmn_mcc_mnc, (0, 2));
  time_t utc = 0;
  int32_t offset = 0;
  uint32_t status = wabs_get_module_time(&utc, &offset);
  run.ended("wabs_get_module_time", status, {0, 2, 13}, std::to_string(offset));
  VALUE(brio_get_wn3_sim_status, (0, 1, 3, 4, 5, 7));
  VALUE(brio_get_curr_lte_ant, (0, 1, 3, 7));
  VALUE(brio_get_wan_type, (0, 3), "0", "6");
  VALUE(brio_get_band_info, (0, 3), "0");
  VALUE(brio_get_carrier_id, (0, 3), "65535");
  bas_status antennas = {};
  status = brio_get_bas_status(&antennas);
  run.ended("brio_get_bas_status", status, {0, 3, 5});
  sim_plmn_data plmn = {};
  status = brio_get_sim_plmn_info(&plmn, 1);
  run.ended("brio_get_sim_plmn_info", status, {0, 3, 4}, std::string(plmn.home_mcc) + plmn.home_mnc);
  sim_identity sim = {};
  status = brio_get_sim_info(&sim);
  run.ended("brio_get_sim_info", status, {0, 3, 4, 7}, std::string(sim.imsi) + sim.iccid);
  briolib_reset_modem_info();
  modem_info modem = {};
  status = brio_get_modem_info(&modem);
  run.ended("brio_get_modem_info", status, {0, 3, 4}, std::string(modem.imei) + modem.fw_ver, {""});
  run.ended("brio_clear_sms", brio_clear_sms(), {0, 3, 5});
  run.ended("brio_set_lte_ant", brio_set_lte_ant(3), {0, 3, 4, 5});
  run.ended("briolib_update_lte_info", briolib_update_lte_info(), {0, 2, 4, 5, 6, 7});
  run.ended("brio_set_fake_security_mode", brio_set_fake_security_mode(1), {0, 4, 5});
  run.ended("brio_clear_mru", brio_clear_mru(), {0, 4, 5});
  run.ended("briolib_get_snapshot_mode", briolib_get_snapshot_mode(255), {0, 1});
  void* event = NipcStandinCreateEvent("com.quarto.power", "suspend");
  run.ended("wabs_report_event", wabs_report_event(event), {0});
  NipcStandinFreeEvent(event);
}

void scan(const Device&, Run& run) {
  char list[512] = "";
  const uint32_t status = wabs_do_manual_nw_scan(list, sizeof list);
  run.ended("wabs_do_manual_nw_scan", status, {0, 2, 14}, list);
  run.ended("wabs_get_current_network", wabs_get_current_network(), {0, 2});
  run.ended("wabs_set_auto_mode", wabs_set_auto_mode(), {0, 2});
  run.ended("wabs_send_abort_cmd", wabs_send_abort_cmd(), {0, 2});
}

// The file is there and holds something else, as far as the library knows nothing.
void outdate_static_info(const Device& device) {
  device.root.write("/var/local/wan/static_info", "other");
  briolib_set_sim_info_md5_status(0);
}

void page(const Device& device, Run& run) {
  outdate_static_info(device);
  // A visit that lost the modem did not end.
  run.ended("wabs_exit_611_logging", wabs_exit_611_logging(), {0});
  run.ended("wabs_get_log_string", wabs_get_log_string(nullptr, 0, 0), {0});
  for (const uint32_t number : {1, 2, 3, 4}) {
    char buffer[8192];
    test_clock::advance(1);
    run.ended("wabs_get_log_string", wabs_get_log_string(buffer, sizeof buffer, number % 2), {0});
    if (number < 3) continue;  // one of three pages asks the modem for what the later ones show
    std::istringstream lines(buffer);
    for (std::string line; std::getline(lines, line);) run.ended("page line", 0, {0}, line, {"*"});
  }
}

void trace(const Device& device, Run& run) {
  device.root.remove(kTrace);
  device.root.write(kFilter, "AT+XSYSTRACE=1\n#\nAT+TRACE=1\n");
  device.modem('c');
  const uint32_t status = brio_trace_tst_log(kFilter, "/mnt/us/trace_log");
  run.ended("brio_trace_tst_log", status, {0, 1, 2, 3, 4, 7});
  if (status == 0) {
    device.modem('t');
    struct stat info = {};
    run.wait([&] {
      return stat(device.root.path(kTrace).c_str(), &info) == 0 &&
             static_cast<size_t>(info.st_size) == trace_bytes().size();
    });
  }
  brio_trace_tst_stop();
  const bool whole = device.root.read(kTrace) == trace_bytes();
  run.ended("captured", whole ? 0 : 1, {0, 1});
}

void prox(const Device& device, Run& run) {
  test_clock::scale_selects(0.0004);  // the monitor polls every 2 ms
  const uint32_t status = prox_open();
  run.ended("prox_open", status, {0, 3, 5});
  for (const int mode : {BRIO_SAR_ON, BRIO_SAR_OFF, BRIO_SAR_ON}) {
    if (status != 0) break;
    device.root.write(kSensor + "prox_diff", mode == BRIO_SAR_ON ? "64" : "05");
    run.wait([mode] { return brio::relaxed_load(g_pre_sar_mode) == mode; });
  }
  prox_close();
  run.ended("sensor", 0, {0},
            device.root.read(kSensor + "prox_ctrl0").value_or("") + " " +
                std::to_string(brio::relaxed_load(g_pre_sar_mode)),
            {"*"});
}

// The host runs without standard input: the first descriptor that is opened is 0.
void prox_without_stdin(const Device& device, Run& run) {
  const int kept = dup(0);
  close_range(0, 0, 0);
  prox(device, run);
  dup2(kept, 0);
  close_range(static_cast<unsigned>(kept), static_cast<unsigned>(kept), 0);
}

void static_info(const Device& device, Run& run) {
  outdate_static_info(device);
  const uint32_t status = brio_get_sim_static_info(1);
  run.ended("brio_get_sim_static_info", status, {0, 3},
            device.root.read("/var/local/wan/static_info").value_or(""), {"other", ""});
}

void reports(const Device& device, Run& run) {
  device.root.remove("/var/run/fatal_reject");
  log_capture::clear();
  device.modem('u');
  run.wait([] { return log_capture::has("No URC Callback func avail SETTLED"); });
  VALUE(wabs_get_bars, (0, 2), "4294967295");
  run.ended("reject flag", device.root.read("/var/run/fatal_reject").has_value() ? 0 : 1, {0, 1});
}

void factory(const Device& device, Run& run) {
  device.root.write("/var/local/wan/info", "WAN_TYPE=6\n");
  run.ended("brio_carrier_selection", brio_carrier_selection(), {0, 4, 5, 6},
            device.root.read("/var/local/wan/info").has_value() ? "kept" : "removed", {"kept"});
  run.ended("brio_turn_off_rf", brio_turn_off_rf(), {0, 4, 5});
}

// ---- Devices

void no_files(const DeviceRoot&) {}

void sensor(const DeviceRoot& root) {
  for (const char* name : {"prox_ctrl0", "sensor_sel"}) root.write(kSensor + name, "");
  for (const char* name : {"prox_diff", "prox_avg", "prox_offset", "prox_use"})
    root.write(kSensor + name, "64");
}

void sensor_and_filter(const DeviceRoot& root) {
  sensor(root);
  root.write(kFilter, "AT+XSYSTRACE=1\n");
}

void all_files(const DeviceRoot& root) {
  sensor_and_filter(root);
  root.write("/var/local/wan/briolib_log_config", "0xFFFFFFFF\n");
  root.write("/var/run/mcsdwc.dat", "AT+COPS=1,2,\"23415\";20\n");
  root.write("/var/local/wan/info", "# \nWAN_TYPE=7\n");
  root.write("/mnt/us/apn", "internet.test\n");
  root.write("/var/local/wan/mcc", "262");
  root.write("/var/local/wan/static_info", "old");
  root.write("/proc/net/dev", "wwan0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n");
}

void page_files(const DeviceRoot& root) {
  root.write("/proc/net/dev", "wwan0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n");
}

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {
      {"open", true, sensor_and_filter, basics},
      {"files", true, all_files, queries},
      {"queries", false, no_files, queries},
      {"scan", false, no_files, scan},
      {"page", false, page_files, page},
      {"trace", false, no_files, trace},
      {"prox", false, sensor, prox},
      {"no_stdin", false, sensor, prox_without_stdin},
      {"static_info", false, no_files, static_info},
      {"reports", false, no_files, reports},
      {"factory", false, no_files, factory},
  };
  return all;
}

void Run::ended(const std::string& operation, uint32_t status, std::initializer_list<uint32_t> documented,
                const std::string& value, std::initializer_list<const char*> unknown) {
  const bool not_known = std::any_of(unknown.begin(), unknown.end(),
                                     [&](const std::string& each) { return each == "*" || each == value; });
  answers.push_back({operation, status, value, not_known});
  if (std::find(documented.begin(), documented.end(), status) == documented.end()) {
    wrong.push_back(operation + " ended with " + std::to_string(status));
  }
}

Device::Device() {
  setenv("TZ", "UTC0", 1);
  if (pipe2(orders_, O_CLOEXEC) != 0 || pipe2(done_, O_CLOEXEC) != 0) abort();
  modem_ = fork();
  if (modem_ == 0) serve(root.dir(), orders_[0], done_[1]);
  if (take(done_[0]) != '+') abort();
}

Device::~Device() {
  kill(modem_, SIGKILL);
  waitpid(modem_, nullptr, 0);
  for (const int* pipe : {orders_, done_}) close(pipe[0]), close(pipe[1]);
}

void Device::modem(char what) const {
  if (!put(orders_[1], what) || take(done_[0]) != what) abort();
}

void Device::reset() const {
  for (const char* folder : {"/var", "/mnt", "/proc", "/sys"}) root.remove(folder);
  for (const char* folder : {"/var/local/wan/debug", "/var/run", "/mnt/us", "/proc/net", kSensor.c_str()}) {
    root.make_directory(folder);
  }
  modem('r');
  test_clock::reset();
  test_clock::set_wall(kNow);
  std::string addresses;
  for (int i = 0; i < 100; i++) addresses += "0 10.1.2.3 ";
  interface::answer(addresses);
  log_capture::clear();
  NipcStandinReset();
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp", "com.quarto.shelf.viewer");
}
