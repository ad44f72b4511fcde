// Every call of the host interface, with arguments from an input, and what it may answer.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include "fuzz.h"
#include "nipc/nipc_standin.h"

namespace fuzz {

// A call that answers "not open" always and only while the module is closed, and "null pointer" always and
// only for one, each where its header says so.
template <typename... Arguments>
struct HostCall {
  uint32_t (*call)(Arguments...);
  OneOf statuses;

  uint32_t operator()(Arguments... arguments) const {
    const bool refused = wabs_is_blib_open() == 0 && statuses.has(WABS_STATUS_NOT_OPEN);
    const bool null = (is_null(arguments) || ...) && statuses.has(WABS_STATUS_NULL_POINTER);
    const uint32_t status = call(arguments...);
    require(statuses.has(status));
    require((status == WABS_STATUS_NOT_OPEN) == refused);
    require((status == WABS_STATUS_NULL_POINTER) == (null && !refused));
    return status;
  }

  static bool is_null(const void* pointer) { return pointer == nullptr; }
  static bool is_null(int64_t) { return false; }
};

// What a query that succeeded may have filled in.
struct Filled : Out {
  using Out::Out;
  template <uint32_t kLeast, uint32_t kMost, uint32_t kOr = kLeast>
  bool number() const {
    return (value() >= kLeast && value() <= kMost) || value() == kOr;
  }
  bool text() const { return terminated(); }
  bool list() const { return untouched() || terminated(); }
  // No date comes with the zone; 900 a quarter hour, modulo 2^32.
  bool time() const { return value<time_t>() == -1 && value(sizeof(time_t)) % 4 == 0; }
  bool codes() const { return code(0) && code(4); }
  bool code(size_t place) const { return value(place) <= 999 || value(place) == kFill * 0x01010101u; }
};

// What fills its outputs when it succeeds, and else leaves them alone.
struct Query {
  HostCall<char*, uint32_t> call;
  uint32_t least;  // bytes that it wants
  bool (Filled::*good)() const;
  uint32_t quarters = 0;  // for a text: bytes it gets, per 4 of the input's choice
  bool fills_always = false;

  void run(uint32_t choice, bool null) const {
    const uint32_t size = quarters != 0 ? choice * quarters / 4 : least;
    const Filled out(size, null);
    const bool filled = call(out.get(), size) == 0 || fills_always;
    require(filled ? size >= least && (!null || fills_always) && (out.*good)() : out.untouched());
  }

  // The kinds of outputs, as one: where they stand, and their size where the call wants it.
  template <auto kCall>
  static uint32_t ask(char* out, uint32_t size) {
    return ask(kCall, out, size);
  }
  template <typename T>
  static uint32_t ask(uint32_t (*call)(T*), char* out, uint32_t) {
    return call(reinterpret_cast<T*>(out));
  }
  template <typename T, typename U>
  static uint32_t ask(uint32_t (*call)(T*, U*), char* out, uint32_t) {
    return call(reinterpret_cast<T*>(out), reinterpret_cast<U*>(out == nullptr ? out : out + sizeof(T)));
  }
  static uint32_t ask(uint32_t (*call)(char*, uint32_t), char* out, uint32_t size) { return call(out, size); }
};

inline constexpr Query kScan = {
    {Query::ask<wabs_do_manual_nw_scan>, {0, 1, 2, 14, 15}}, 0, &Filled::list, 32};
inline constexpr HostCall<> kAbortScan = {wabs_abort_manual_nw_scan, {0, 1, 2, 15}};

inline constexpr Query kQueries[] = {
    kScan,
    {{Query::ask<wabs_get_bars>, {0, 1, 2, 11}}, 4, &Filled::number<1, 255, WABS_BARS_NOT_ATTACHED>},
    {{Query::ask<wabs_get_data_service_mode>, {0, 1, 2, 11}}, 4, &Filled::number<0, 4>},
    {{Query::ask<wabs_get_roaming_status>, {0, 1, 2, 11}}, 4, &Filled::number<0, 1, 8>},
    {{Query::ask<wabs_get_module_flags>, {0, 11}}, 4, &Filled::number<1, 1>},
    {{Query::ask<wabs_get_imsi>, {0, 1, 7, 11}}, 16, &Filled::text, 1},
    {{Query::ask<wabs_get_radio_serial_number>, {0, 1, 7, 11}}, 16, &Filled::text, 1},
    {{Query::ask<wabs_get_radio_cert_param1>, {0, 1, 7, 11}}, 24, &Filled::text, 1},
    {{Query::ask<wabs_get_radio_cert_param2>, {0, 1, 7, 11}}, 16, &Filled::text, 1},
    {{Query::ask<wabs_get_realm>, {0, 1, 7, 11}}, 16, &Filled::text, 1},
    {{Query::ask<wabs_get_firmware_version>, {0, 1, 11}}, 0, &Filled::text, 1, true},
    {{Query::ask<wabs_get_radio_phone_number>, {0, 1, 11}}, 1, &Filled::text},
    {{Query::ask<wabs_get_rssi>, {0, 1, 11}}, 4, &Filled::number<0, 0>},
    {{Query::ask<wabs_get_module_time>, {0, 2, 11, 13}}, sizeof(time_t) + 4, &Filled::time},
    {{Query::ask<wabs_get_hplmn_mcc_mnc>, {0, 2, 11}}, 8, &Filled::codes},
    {{Query::ask<wabs_get_mcc_mnc>, {0, 2, 11}}, 8, &Filled::codes},
};

// Calls without arguments. From kQuiet on they send nothing.
inline void call_plain(size_t choice, const Input& in) {
  static constexpr HostCall<> kCalls[] = {
      {wabs_open, {0, 2, 4}},
      {wabs_close, {0}},
      {wabs_exit_611_logging, {0}},
      kAbortScan,
      {wabs_set_auto_mode, {0, 1, 2}},
      {wabs_send_abort_cmd, {0, 1, 2}},
      {wabs_get_current_network, {0, 1, 2}},
      {wabs_update_prl, {0, 1}},
      {wabs_enable_logging, {0}},
      {wabs_log_message, {0}},
      {wabs_try_to_use_home_network, {0}},
      {wabs_originate_call_test, {0}},
      {wabs_stop_call_test, {0}},
  };
  constexpr size_t kOpen = 0, kClose = 1, kQuiet = 6;
  const size_t index = choice % std::size(kCalls);
  const size_t left = in.size();
  const uint32_t before = wabs_is_blib_open();
  const uint32_t status = kCalls[index]();
  require(wabs_is_blib_open() == (index > kClose ? before : index == kOpen && status == 0));
  require(index != kOpen || (status == WABS_STATUS_ALREADY_OPEN) == (before == 1));
  require(index < kQuiet || in.size() == left);
}

// An event that the host hands on is logged, and that is all.
inline void report_event(bool null, Input& in) {
  static constexpr HostCall<const void*> kReport = {wabs_report_event, {0}};
  Text source(in.field('|'));
  Text name(in.field('|'));
  const std::unique_ptr<void, void (*)(void*)> event(
      null ? nullptr : NipcStandinCreateEvent(source.get(), name.get()), NipcStandinFreeEvent);
  t_log_line[0] = '\0';
  kReport(event.get());
  char expected[sizeof(t_log_line)] = "";
  if (g_format_log_lines && !null && (gBrioModuleLogMask & WABS_LOG_VALUE) != 0) {
    snprintf(expected, sizeof(expected), "D brio:event %s %s occurred (", source.get(), name.get());
  }
  require(strncmp(t_log_line, expected, std::max<size_t>(strlen(expected), 1)) == 0);
}

// Into a buffer whose size may be negative.
inline void ask_page(int32_t size, bool null, uint32_t mode) {
  static constexpr HostCall<char*, int32_t, uint32_t> kPage = {wabs_get_log_string, {0}};
  const Out page(static_cast<size_t>(std::max(size, 0)), null);
  kPage(page.get(), size, mode);
  require(page.terminated());
}

// One call, chosen by the input. Null pointers and sizes that are too small come up too.
inline void call_host(Input& in) {
  const uint8_t choice = in.byte();
  if (choice < 0x20) return call_plain(choice, in);
  const uint8_t argument = in.byte();
  const bool null = argument >= 0xF8;
  const uint8_t group = choice % 8;
  if (group == 0) return report_event(null, in);
  if (group == 5) return ask_page(argument * 32 - 32, null, choice / 8);
  if (group == 6) wabs_set_log_mask(argument % 2 != 0 ? 0xFFFFFFFF : 0);
  // First and number of the group's queries.
  static constexpr uint8_t kGroups[][2] = {{}, {1, 4}, {5, 5}, {10, 3}, {0, 1}, {}, {13, 1}, {14, 2}};
  kQueries[kGroups[group][0] + argument % kGroups[group][1]].run(argument, null);
}

}  // namespace fuzz

#endif
