// Every operation of the library and of the host interface on one thread, with any answer to each of its
// requests and any content of the files that it reads. The packet layer and the ports are replaced: a request
// takes its answer from the input, cut by the real line processor, and runs its response callback at once.
//
// Input: flags, then operations of a letter (and a byte or a text that it names) and, for each request that
// they send, the answer up to "|": lines with "\n" between them, "!" an error, "?" none in time, "^" a scan's
// abort. Without a final line in it an answer ends with "OK".
#include "brio/brio_at.h"
#include "clock/test_clock.h"
#include "host.h"
#include "nipc/nipc_standin.h"
#include "record.h"
#include "root.h"

namespace {

using fuzz::Input;
using fuzz::require;
using fuzz::Text;

constexpr int kOperationsMax = 24;

fuzz::Root& root() {
  static fuzz::Root root;
  return root;
}

Input* s_script;             // null: a healthy modem answers
void (*s_port_lost)(void*);  // what the read thread runs when it ends

struct Healthy {
  const char* command;
  const char* line;
};
constexpr Healthy kHealthy[] = {
    {"AT+GTSIMSTATUS?", "+GTSIMSTATUS: 3,0"},
    {"AT+CIMI", "+CIMI: 310410123456789"},
    {"AT+CCID", "+CCID: 89014103211118510720"},
    {"AT+CREG?", "+CREG: 2,1,\"1A2B\",\"01C2D3E4\",7"},
    {"AT+GTFDCAR?", "+GTFDCAR: 201"},
    {"AT+CGREG?", "+CGREG: 2,1,\"1A2B\",\"01C2D3E4\",7"},
    {"AT+GTBARS?", "+GTBARS: 0,7,4,60,30"},
    {"AT+COPS?", "+COPS: 0,2,\"310410\",7"},
    {"AT+GTMODINFO?", "+GTMODINFO: \"L816\",\"356938035643809\",\"SN1\",\"V1.0.1\",0"}};

std::string_view next_answer(const char* command) {
  if (s_script != nullptr) return s_script->field('|');
  for (const Healthy& row : kHealthy) {
    if (strcmp(command, row.command) == 0) return row.line;
  }
  return {};
}

// One request as packet layer and read thread serve it.
uint32_t serve(const char* command, uint32_t type, const char* prefix, recv_func callback, void* data,
               uint16_t value) {
  require(command != nullptr && strlen(command) < 512 && strchr(command, '\n') == nullptr &&
          type <= NO_COMMAND);
  const std::string_view answer = next_answer(command);
  if (answer == "!") return BLPKT_STATUS_ERROR;
  if (answer == "?") return BLPKT_STATUS_TIMEOUT;
  if (answer == "^" && strcmp(command, "AT+COPS=?") == 0) return BLPKT_STATUS_SCAN_ABORTED;
  std::unique_ptr<ATResponse, void (*)(ATResponse*)> response(at_response_new(), at_response_free);
  Input lines(answer.substr(0, BRIO_LINE_DATA_MAX));
  int32_t result = 1;
  while (result == 1) {
    const std::string_view line = lines.empty() ? "OK" : lines.field('\n');
    if (!line.empty()) result = process_line(Text(line).get(), response.get(), type, prefix);
  }
  if (result != 0) return BLPKT_STATUS_TIMEOUT;  // the read thread drops what violates the type
  if (response->status != 0) return BLPKT_STATUS_ERROR;
  return callback != nullptr ? callback(response.get(), data, value) : uint32_t{BLPKT_STATUS_SUCCESS};
}

template <typename T>
void check(const T&) {}
void check(const sim_identity& identity) {
  fuzz::require_text(identity.iccid, identity.imsi);
}
void check(const modem_info& info) {
  fuzz::require_text(info.fw_ver, info.imei, info.serial, info.hw_ver);
}
void check(const atcmd_snapshot& s) {
  fuzz::require_text(s.mcc, s.mnc, s.plmn_text, s.band_text, s.fw_ver, s.lib_ver, s.imei);
}

// An argument of an operation: a small number, or a record in a block of its own, for the sanitizer.
template <typename T>
struct Argument {
  explicit Argument(Input& in) : value(in.byte() % 8) {}
  T get() { return value; }
  T value;
};
template <typename T>
struct Argument<T*> {
  explicit Argument(Input&) : record(std::make_unique<T>()) {}
  ~Argument() { check(*record); }
  T* get() { return record.get(); }
  std::unique_ptr<T> record;
};

template <typename... Arguments>
uint32_t call(uint32_t (*operation)(Arguments...), Input& in) {
  return operation(Argument<Arguments>(in).get()...);
}
template <auto kOperation>
uint32_t run(Input& in) {
  return call(kOperation, in);
}

struct Operation {
  uint32_t (*run)(Input&);
  fuzz::Statuses statuses;  // as the header documents them, for arguments that are not null
  bool gated = false;       // answers nothing but the status gate's value, where that is not 0
};
constexpr bool kGated = true;

// "A" is the first. Requests that the host interface sends only now and then, or only with others, stand
// alone. Packet statuses (0, 1, 2, and 4 and 6 of an answer) are what some operations return untranslated.
constexpr Operation kOperations[] = {
    {[](Input& in) { return fuzz::call_host(in), 0u; }, {0}},
    {[](Input& in) { return at_parse(Text(in.field('|')).get(), nullptr, nullptr); }, {0, 4}},
    {[](Input& in) { return root().take_file(in), 0u; }, {0}},
    {[](Input& in) { return test_clock::advance(in.byte() * 4.0), 0u; }, {0}},
    {[](Input&) { return s_port_lost(nullptr), 0u; }, {0}},
    {[](Input&) { return brio_close(), brio_open("/dev/ttyACM2"); }, {0, 5}},
    {run<briolib_get_gtscinfo>, {0, 4, 5}},
    {run<briolib_get_gtscstat>, {0, 4, 5}},
    {run<briolib_update_lte_info>, {0, 4, 5}},
    {run<briolib_update_mcc_mnc>, {0, 5}, kGated},
    {run<briolib_check_carrier_confg>, {0, 4, 5, 6}},
    {run<briolib_check_apn_setting>, {0, 4, 5, 6}},
    {run<briolib_update_wan_type>, {0, 7}},
    {run<briolib_atcmd_query_reg_status>, {0, 1, 2, 4, 6}},
    {[](Input&) { return brio_get_sim_static_info(1); }, {0}, kGated},
    {[](Input&) { return brio_trace_tst_log("/var/local/wan/debug/trace_filter.cfg", nullptr); },
     {0, 1, 2, 4, 6, 7},
     kGated},
    {run<brio_get_network_time>, {0, 5}, kGated},
    {run<brio_get_bas_status>, {0, 5}, kGated},
    {run<brio_get_curr_lte_ant>, {0, 7}, kGated},
    {run<brio_get_wn3_sim_status>, {0, 4, 5}, kGated},
    {run<brio_get_sim_info>, {0, 4}, kGated},
    {[](Input& in) { return briolib_reset_modem_info(), call(brio_get_modem_info, in); }, {0, 4}, kGated},
    {run<brio_set_lte_ant>, {0, 4, 5, 6}, kGated},
    {run<brio_atcmd_enable_urc>, {0, 1, 3, 4, 5}},  // modes 0 and 1 ask the gate
    {[](Input& in) { return g_brio_lib_atcmd_data.bas_query_flag = in.byte() % 2, 0u; }, {0}},
    {run<brio_carrier_selection>, {0, 4, 5, 6}},
    {run<brio_get_bars>, {0, 7}, kGated},
    {run<brio_clear_sms>, {0, 5}, kGated},
    {run<brio_set_sar_pwr>, {0, 1, 2}, kGated},
    {run<brio_set_fake_security_mode>, {0, 4, 5}},
    {run<brio_clear_mru>, {0, 4, 5}},
    {run<brio_turn_off_rf>, {0, 4, 5}},
    {run<brio_get_sim_status>, {0, 4, 5}, kGated},
    {run<brio_get_sim_plmn_info>, {0, 1, 3, 4, 6}},  // 6 comes before the gate
    {run<brio_get_pdp_context_activation_allowed>, {0}, kGated},
    {run<brio_get_data_service_mode>, {0}, kGated},
    {run<brio_get_roaming_status>, {0}, kGated},
    {run<brio_get_band_info>, {0}, kGated},
    {run<brio_get_wan_type>, {0}, kGated},
    {run<brio_get_carrier_id>, {0}, kGated},
    {run<brio_copy_modem_info>, {0}},
    {run<brio_log_startup_status>, {0}, kGated},
    {run<briolib_get_atcmd_snapshot>, {0}, kGated},
};

}  // namespace

extern "C" {

uint32_t __wrap_blpkt_atcmd_request_with_callback(const char* command, uint32_t type, const char* prefix,
                                                  recv_func callback, void* data, uint16_t value) {
  return serve(command, type, prefix, callback, data, value);
}
uint32_t __wrap_blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                          const char* prefix, recv_func callback, void* data,
                                                          uint16_t value, int32_t seconds) {
  require(seconds >= 0);
  return serve(command, type, prefix, callback, data, value);
}
uint32_t __wrap_blpkt_init() {
  return 0;
}
void __wrap_blpkt_shutdown() {}
uint32_t __wrap_pktio_init(const char*, pktio_packet_cb, void*) {
  return 0;
}
void __wrap_pktio_shutdown() {}
void __wrap_pktio_set_shutdown_callback(void (*callback)(void*), void*) {
  s_port_lost = callback;
}
int __wrap_system(const char* command) {
  require(strncmp(command, "rm -f -- '", 10) == 0);
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  root();
  Input in(data, size);
  const uint8_t flags = in.byte();
  test_clock::reset();
  test_clock::stop();

  // Whatever the input before this one left behind, the module opens on a healthy modem and answers.
  s_script = nullptr;
  briolib_set_sim_info_md5_status((flags & 0x20) == 0);  // else the static information file is digested
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp",
                         (flags & 0x10) != 0 ? "com.quarto.shelf.viewer" : "");
  require(wabs_open() == 0);
  uint32_t bars = 0;
  require(wabs_get_bars(&bars) == 0 && bars == 4);

  s_script = &in;
  fuzz::g_format_log_lines = (flags & 0x0E) == 0x0E;
  g_brio_lib_log_mask = gBrioModuleLogMask = fuzz::g_format_log_lines ? 0xFFFFFFFF : 0;
  for (int i = 0; i < kOperationsMax && !in.empty(); i++) {
    const Operation& operation = kOperations[(in.byte() - 'A') % std::size(kOperations)];
    const uint32_t gate = briolib_check_library_status();
    const uint32_t status = operation.run(in);
    require(operation.gated && gate != 0 ? status == gate : operation.statuses.has(status));
    fuzz::check_record();
  }
  s_script = nullptr;
  wabs_close();
  brio_close();
  fuzz::check_sim_blocks();
  root().remove_files();
  return 0;
}
}
