// Every operation of the library and of the host interface on one thread, with any answer to each of its
// requests and any content of the files that it reads. The packet layer and the ports are replaced: a request
// takes its answer from the input, cut by the real line processor, and runs its response callback at once.
//
// Input: flags, then operations of a letter (and a byte or a text that it names) and, for each request that
// they send, the answer up to "|": lines with "\n" between them, "!" an error, "?" none in time, "^" a scan's
// abort. Without a final line in it an answer ends with "OK".
#include "host.h"
#include "kit/clock.h"
#include "nipc/nipc_standin.h"
#include "record.h"
#include "root.h"

namespace fuzz {

constexpr int kOperationsMax = 24;
constexpr char kTraceFilter[] = "/var/local/wan/debug/trace_filter.cfg";

Root* s_root;
Input* s_script;             // null: a healthy modem answers
void (*s_port_lost)(void*);  // what the read thread runs when it ends

constexpr const char* kHealthy[] = {
    "+GTSIMSTATUS: 3,0",
    "+CIMI: 310410123456789",
    "+CCID: 89014103211118510720",
    "+CREG: 2,1,\"1A2B\",\"01C2D3E4\",7",
    "+GTFDCAR: 201",
    "+CGREG: 2,1,\"1A2B\",\"01C2D3E4\",7",
    "+GTBARS: 0,7,4,60,30",
    "+COPS: 0,2,\"310410\",7",
    "+GTMODINFO: \"L816\",\"356938035643809\",\"SN1\",\"V1.0.1\",0",
};

// Healthy answers are to "AT+NAME?" and "AT+NAME".
Bytes next_answer(Bytes command) {
  if (s_script != nullptr) return s_script->field('|');
  for (const Bytes line : kHealthy) {
    const std::string name = "AT" + std::string(line.substr(0, line.find(':')));
    if (command == name || command == name + "?") return line;
  }
  return {};
}

// One request as packet layer and read thread serve it.
extern "C" uint32_t __wrap_blpkt_atcmd_request_with_callback(const char* command, uint32_t type,
                                                             const char* prefix, recv_func callback,
                                                             void* data, uint16_t value) {
  require(command != nullptr && strlen(command) < 512 && strchr(command, '\n') == nullptr &&
          type <= NO_COMMAND);
  const Bytes answer = next_answer(command);
  if (answer == "!") return BLPKT_STATUS_ERROR;
  if (answer == "?") return BLPKT_STATUS_TIMEOUT;
  if (answer == "^" && strcmp(command, "AT+COPS=?") == 0) return BLPKT_STATUS_SCAN_ABORTED;
  const Answer response(at_response_new(), at_response_free);
  Input lines(answer.substr(0, BRIO_LINE_DATA_MAX));
  int32_t result = 1;
  while (result == 1) {
    const Bytes line = lines.empty() ? "OK" : lines.field('\n');
    if (!line.empty()) result = process_line(Text(line).get(), response.get(), type, prefix);
  }
  if (result != 0) return BLPKT_STATUS_TIMEOUT;  // the read thread drops what violates the type
  if (response->status != 0) return BLPKT_STATUS_ERROR;
  return callback != nullptr ? callback(response.get(), data, value) : uint32_t{BLPKT_STATUS_SUCCESS};
}

// The texts of records are ended.
struct Check {
  template <typename T>
  static void texts(const T&) {}
  static void texts(const sim_identity& r) { require_text(r.iccid, r.imsi); }
  static void texts(const modem_info& r) { require_text(r.fw_ver, r.imei, r.serial, r.hw_ver); }
  static void texts(const atcmd_snapshot& r) {
    require_text(r.mcc, r.mnc, r.plmn_text, r.band_text, r.fw_ver, r.lib_ver, r.imei);
  }
};

// An argument of an operation: a small number, or a record in a block of its own, for the sanitizer.
template <typename T>
struct Argument {
  T value;
  explicit Argument(Input& in) : value(in.byte() % 8) {}
  T get() { return value; }
};
template <typename T>
struct Argument<T*> : std::unique_ptr<T> {
  explicit Argument(Input&) : std::unique_ptr<T>(new T()) {}
  ~Argument() { Check::texts(**this); }
};

template <typename... Arguments>
uint32_t call(uint32_t (*operation)(Arguments...), Input& in) {
  return operation(Argument<Arguments>(in).get()...);
}
template <auto kOperation>
uint32_t plain(Input& in) {
  return call(kOperation, in);
}

struct Operation {
  uint32_t (*run)(Input&);
  OneOf statuses;      // as the header documents them, for arguments that are not null
  bool gated = false;  // answers nothing but the status gate's value, where that is not 0
};
constexpr bool kGated = true;

// "A" is the first. Requests that the host interface sends only now and then, or only with others, stand
// alone. Packet statuses (0, 1, 2, and 4 and 6 of an answer) are what some operations return untranslated.
constexpr Operation kOperations[] = {
    {[](Input& in) { return call_host(in), 0u; }, {0}},
    {[](Input& in) { return at_parse(Text(in.field('|')).get(), nullptr, nullptr); }, {0, 4}},
    {[](Input& in) { return s_root->take_file(in), 0u; }, {0}},
    {[](Input& in) { return test_clock::advance(in.byte() * 4.0), 0u; }, {0}},
    {[](Input&) { return s_port_lost(nullptr), 0u; }, {0}},
    {[](Input&) { return brio_close(), brio_open("/dev/ttyACM2"); }, {0, 5}},
    {plain<briolib_get_gtscinfo>, {0, 4, 5}},
    {plain<briolib_get_gtscstat>, {0, 4, 5}},
    {plain<briolib_update_lte_info>, {0, 4, 5}},
    {plain<briolib_update_mcc_mnc>, {0, 5}, kGated},
    {plain<briolib_check_carrier_confg>, {0, 4, 5, 6}},
    {plain<briolib_check_apn_setting>, {0, 4, 5, 6}},
    {plain<briolib_update_wan_type>, {0, 7}},
    {plain<briolib_atcmd_query_reg_status>, {0, 1, 2, 4, 6}},
    {[](Input&) { return brio_get_sim_static_info(1); }, {0}, kGated},
    {[](Input&) { return brio_trace_tst_log(kTraceFilter, nullptr); }, {0, 1, 2, 4, 6, 7}, kGated},
    {plain<brio_get_network_time>, {0, 5}, kGated},
    {plain<brio_get_bas_status>, {0, 5}, kGated},
    {plain<brio_get_curr_lte_ant>, {0, 7}, kGated},
    {plain<brio_get_wn3_sim_status>, {0, 4, 5}, kGated},
    {plain<brio_get_sim_info>, {0, 4}, kGated},
    {[](Input& in) { return briolib_reset_modem_info(), plain<brio_get_modem_info>(in); }, {0, 4}, kGated},
    {plain<brio_set_lte_ant>, {0, 4, 5, 6}, kGated},
    {plain<brio_atcmd_enable_urc>, {0, 1, 3, 4, 5}},  // modes 0 and 1 ask the gate
    {[](Input& in) { return g_brio_lib_atcmd_data.bas_query_flag = in.byte() % 2, 0u; }, {0}},
    {plain<brio_carrier_selection>, {0, 4, 5, 6}},
    {plain<brio_get_bars>, {0, 7}, kGated},
    {plain<brio_clear_sms>, {0, 5}, kGated},
    {plain<brio_set_sar_pwr>, {0, 1, 2}, kGated},
    {plain<brio_set_fake_security_mode>, {0, 4, 5}},
    {plain<brio_clear_mru>, {0, 4, 5}},
    {plain<brio_turn_off_rf>, {0, 4, 5}},
    {plain<brio_get_sim_status>, {0, 4, 5}, kGated},
    {plain<brio_get_sim_plmn_info>, {0, 1, 3, 4, 6}},  // 6 comes before the gate
    {plain<brio_get_pdp_context_activation_allowed>, {0}, kGated},
    {plain<brio_get_data_service_mode>, {0}, kGated},
    {plain<brio_get_roaming_status>, {0}, kGated},
    {plain<brio_get_band_info>, {0}, kGated},
    {plain<brio_get_wan_type>, {0}, kGated},
    {plain<brio_get_carrier_id>, {0}, kGated},
    {plain<brio_copy_modem_info>, {0}},
    {plain<brio_log_startup_status>, {0}, kGated},
    {plain<briolib_get_atcmd_snapshot>, {0}, kGated},
};

void run(Input in) {
  static Root root;
  s_root = &root;
  const uint8_t flags = in.byte();
  test_clock::reset();
  test_clock::stop();

  // Whatever the input before this one left behind, the module opens on a healthy modem and answers.
  briolib_set_sim_info_md5_status((flags & 0x20) == 0);  // else the static information file is digested
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp",
                         (flags & 0x10) != 0 ? "com.quarto.shelf.viewer" : "");
  uint32_t bars = 0;
  require(wabs_open() == 0 && wabs_get_bars(&bars) == 0 && bars == 4);

  s_script = &in;
  format_log_lines((flags & 0x0E) == 0x0E);
  for (int i = 0; i < kOperationsMax && !in.empty(); i++) {
    const Operation& operation = kOperations[(in.byte() - 'A') % std::size(kOperations)];
    const uint32_t gate = briolib_check_library_status();
    const uint32_t status = operation.run(in);
    require(operation.gated && gate != 0 ? status == gate : operation.statuses.has(status));
    check_record();
  }
  s_script = nullptr;
  wabs_close();
  brio_close();
  check_sim_blocks();
  root.check_files();
  root.remove_files();
}

extern "C" {

uint32_t __wrap_blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                          const char* prefix, recv_func callback, void* data,
                                                          uint16_t value, int32_t) {
  return __wrap_blpkt_atcmd_request_with_callback(command, type, prefix, callback, data, value);
}
uint32_t __wrap_blpkt_init() {
  return 0;
}
uint32_t __wrap_pktio_init(const char*, pktio_packet_cb, void*) {
  return 0;
}
void __wrap_pktio_set_shutdown_callback(void (*callback)(void*), void*) {
  s_port_lost = callback;
}
int __wrap_system(const char* command) {
  require(strncmp(command, "rm -f -- '", 10) == 0);
  return 0;
}
}

}  // namespace fuzz
