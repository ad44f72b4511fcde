// The library's functions by name: arguments from words, results as one line.
//
// Numbers and texts are taken from the words; a record or number that the function fills takes no word, but
// `null` there passes a null pointer. An output that the function left alone shows as "untouched".
#include <cstring>
#include <tuple>
#include <type_traits>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "session.h"
#include "support/exact_text.h"

namespace {

constexpr char kPreset = '\xA5';

// One parameter of a call: made from the words, lent to the function, shown afterwards.
template <typename T, typename = void>
struct Parameter;

template <typename T>
struct Parameter<T, std::enable_if_t<std::is_integral_v<T>>> {
  explicit Parameter(Arguments& words) : value(static_cast<T>(words.number())) {}
  T lend() { return value; }
  std::string show() { return ""; }
  T value;
};

template <typename T>
struct Parameter<const T*, std::enable_if_t<sizeof(std::conditional_t<std::is_void_v<T>, char, T>) == 1>> {
  explicit Parameter(Arguments& words) : null(words.take_null()), text(null ? "" : words.text()) {}
  const T* lend() { return null ? nullptr : reinterpret_cast<const T*>(text.c_str()); }
  std::string show() { return ""; }
  bool null;
  std::string text;
};

// A text that is changed in place.
template <>
struct Parameter<char*> {
  explicit Parameter(Arguments& words)
      : null(words.take_null()), before(null ? "" : words.text()), text(before) {}
  char* lend() { return null ? nullptr : text.get(); }
  std::string show() {
    const std::string after(text.get(), before.size());
    return after == before ? "" : " " + quoted(after);
  }
  bool null;
  std::string before;
  ExactText text;
};

// A record, number or row of up to 16 bytes to be filled.
template <typename T>
struct Parameter<T*, std::enable_if_t<!std::is_const_v<T> && !std::is_function_v<T>>> {
  explicit Parameter(Arguments& words) : null(words.take_null()) {
    std::memset(values, kPreset, sizeof values);
  }
  T* lend() { return null ? nullptr : values; }
  std::string show() {
    const std::string bytes(reinterpret_cast<char*>(values), sizeof values);
    const size_t used = bytes.find_last_not_of(kPreset) + 1;
    if (null) return "";
    if (used == 0) return " untouched";
    if constexpr (sizeof(T) == 1) {
      return " " + quoted(bytes.substr(0, used));
    } else if constexpr (std::is_integral_v<T>) {
      return " " + std::to_string(values[0]);
    } else {
      return " " + describe(values[0]);
    }
  }
  bool null;
  T values[sizeof(T) == 1 ? 16 : 1];
};

template <>
struct Parameter<brio_event_callback> {
  explicit Parameter(Arguments& words) {
    if (!words.take_null()) throw UsageError("a callback can only be null");
  }
  brio_event_callback lend() { return nullptr; }
  std::string show() { return ""; }
};

template <typename R>
std::string text_of(R result) {
  if constexpr (std::is_pointer_v<R>) {
    return result != nullptr ? quoted(result) : "null";
  } else {
    return std::to_string(result);
  }
}

template <typename R, typename... P>
Call wrap(R (*function)(P...)) {
  return [function](Arguments& words) {
    std::tuple<Parameter<P>...> parameters{Parameter<P>(words)...};
    words.finish();
    return std::apply(
        [function](auto&... each) {
          std::string line = "done";
          if constexpr (std::is_void_v<R>) {
            function(each.lend()...);
          } else {
            line = text_of(function(each.lend()...));
          }
          return (line + ... + each.show());
        },
        parameters);
  };
}

// A function that wants the URC-data mutex held.
template <typename F>
Call locked(F function) {
  return [call = wrap(function)](Arguments& words) {
    brio::UrcDataLock lock;
    return call(words);
  };
}

// A function that writes a text into a buffer: the words are its size (or `null SIZE`) and the rest. Behind
// the buffer stands a guard.
template <typename Size, typename... P>
Call fill(uint32_t (*function)(char*, Size, P...)) {
  return [function](Arguments& words) {
    const bool null = words.take_null();
    const auto size = static_cast<size_t>(words.number());
    std::string bytes(size + 64, kPreset);
    const std::string guard = bytes.substr(size);
    std::tuple<Parameter<P>...> parameters{Parameter<P>(words)...};
    words.finish();
    const std::string status = std::apply(
        [&](auto&... each) {
          return text_of(function(null ? nullptr : bytes.data(), static_cast<Size>(size), each.lend()...));
        },
        parameters);
    if (bytes.substr(size) != guard) return status + " OVERRUN";
    if (bytes.find_first_not_of(kPreset) == std::string::npos) return status + (null ? "" : " untouched");
    return status + (bytes.find('\0') < size ? " " + quoted(bytes.c_str()) : " UNTERMINATED");
  };
}

uint32_t collect(const ATResponse* response, void* answer, uint16_t status) {
  auto& line = *static_cast<std::string*>(answer);
  for (const ATLine* each = response->intermediates; each != nullptr; each = each->next) {
    line += " " + text_of(each->line);
  }
  line += " " + text_of(response->final_response);
  return status;
}

// COMMAND [type=N] [prefix=TEXT] [timeout=SECONDS] [status=N]: the request's result and the answer's lines.
// `status` is what the response callback gives.
std::string request(Arguments& words) {
  std::string type = "0", prefix, timeout = "20", status = "0", answer;
  Parameter<const char*> command(words);
  words.option("type", &type);
  const bool has_prefix = words.option("prefix", &prefix);
  words.option("timeout", &timeout);
  words.option("status", &status);
  words.finish();
  const uint32_t result = blpkt_atcmd_request_with_callback_timeout(
      command.lend(), static_cast<uint32_t>(to_number(type)), has_prefix ? prefix.c_str() : nullptr, collect,
      &answer, static_cast<uint16_t>(to_number(status)), static_cast<int32_t>(to_number(timeout)));
  return std::to_string(result) + answer;
}

}  // namespace

const std::map<std::string, Call>& calls() {
  static std::map<std::string, Call> table;
  if (!table.empty()) return table;
  // Registers functions under their own names, each behind what `make` makes of it.
  const auto add = [](auto make, const char* names, auto... functions) {
    const auto all = split_names(names);
    auto name = all.begin();
    ((table[*name++] = make(functions)), ...);
  };
#define ADD(make, ...) add([](auto function) { return make(function); }, #__VA_ARGS__, __VA_ARGS__)
  ADD(wrap, brio_open, brio_close, brio_log_startup_status, brio_check_for_fatal_failure,
      brio_atcmd_enable_urc, brio_atcmd_scan_abort, brio_abort_manual_nw_scan, brio_atcmd_set_auto_mode,
      brio_get_current_network, brio_get_network_time, brio_get_data_service_mode, brio_get_roaming_status,
      brio_get_band_info, brio_get_wan_type, brio_get_carrier_id, brio_get_mcc_mnc,
      brio_get_pdp_context_activation_allowed, brio_clear_sms, brio_get_bas_status, brio_get_curr_lte_ant,
      brio_set_lte_ant, brio_get_bars, brio_set_bars_table, brio_set_bars_update_period, brio_get_sim_status,
      brio_get_wn3_sim_status, brio_get_sim_info, brio_get_sim_plmn_info, brio_get_sim_static_info,
      brio_get_modem_info, brio_copy_modem_info, brio_set_sar_pwr, brio_set_fake_security_mode,
      brio_clear_mru, brio_turn_off_rf, brio_carrier_selection, brio_trace_tst_log, brio_trace_tst_stop,
      brio_module_exit_logging);
  ADD(wrap, briolib_check_library_status, briolib_translate_status, briolib_exec_event_callback,
      brio_set_callback_for_event_id, briolib_plmn_get_mcc_mnc, briolib_mccmnc_to_plmn,
      briolib_atcmd_enable_urc, briolib_atcmd_query_reg_status, briolib_parse_stkpci, briolib_get_rej_causes,
      briolib_update_mcc_mnc, briolib_update_lte_info, briolib_get_gtscinfo, briolib_get_gtscstat,
      briolib_invalid_cached_bars, briolib_get_sim_iccid, briolib_get_sim_imsi,
      briolib_get_sim_info_md5_status, briolib_set_sim_info_md5_status, briolib_check_carrier_confg,
      briolib_check_apn_setting, briolib_update_wan_type, briolib_get_snapshot_mode, briolib_reset_modem_info,
      briolib_set_sar_pwr, briolib_log_dump_static_info, briolib_log_set_log_mask,
      briolib_log_debug_print_packet, briolib_get_atcmd_snapshot);
  ADD(wrap, at_parse_init, blpkt_init, blpkt_shutdown, blpkt_abort_manual_nw_scan, is_string_digit,
      is_hex_string_valid, str_starts_with, find_next_EOL, mask_band, mask_ip_address, remove_blank_space,
      remove_double_quotes, skip_trailing_white_space, briolib_obfuscate_alphabet, briolib_obfuscate_numeral,
      prox_open, prox_close);
  ADD(wrap, wabs_open, wabs_close, wabs_is_blib_open, wabs_get_module_flags, wabs_set_log_mask,
      wabs_enable_logging, wabs_log_message, wabs_try_to_use_home_network, wabs_originate_call_test,
      wabs_stop_call_test, wabs_update_prl, wabs_get_bars, wabs_get_data_service_mode,
      wabs_get_roaming_status, wabs_get_rssi, wabs_get_radio_phone_number, wabs_get_module_time,
      wabs_exit_611_logging, wabs_abort_manual_nw_scan, wabs_set_auto_mode, wabs_send_abort_cmd,
      wabs_get_current_network, wabs_get_mcc_mnc, wabs_get_hplmn_mcc_mnc);
  ADD(locked, briolib_init_atcmd_data, briolib_parse_reg_status, briolib_parse_gtotareject,
      briolib_parse_bas_status, briolib_parse_gtbars);
  ADD(fill, brio_atcmd_scan_network, wabs_get_imsi, wabs_get_radio_serial_number, wabs_get_radio_cert_param1,
      wabs_get_radio_cert_param2, wabs_get_realm, wabs_get_firmware_version, wabs_get_log_string,
      wabs_do_manual_nw_scan);
  ADD(Call, request);
  return table;
}
