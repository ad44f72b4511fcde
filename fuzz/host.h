// Every call of the host interface, with arguments from an input, and what it may answer.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <algorithm>
#include <initializer_list>
#include <type_traits>

#include "brio/wabs.h"
#include "fuzz.h"
#include "nipc/nipc_standin.h"

namespace fuzz {

// The statuses that an operation's header documents.
class Statuses {
 public:
  constexpr Statuses(std::initializer_list<unsigned> list) {
    for (unsigned status : list) bits_ |= 1u << status;
  }
  bool has(uint32_t status) const { return status < 32 && (bits_ >> status & 1) != 0; }

 private:
  uint32_t bits_ = 0;
};

template <typename T>
bool is_null(T argument) {
  if constexpr (std::is_pointer_v<T>) return argument == nullptr;
  return false;
}

// A call that answers "not open" always and only while the module is closed, and "null pointer" always and
// only for one, each where its header says so.
template <typename Function>
struct HostCall {
  Function* call;
  Statuses statuses;

  template <typename... Arguments>
  uint32_t operator()(Arguments... arguments) const {
    const bool closed = wabs_is_blib_open() == 0;
    const bool null = (is_null(arguments) || ...);
    const uint32_t status = call(arguments...);
    require(statuses.has(status));
    const bool refused = closed && statuses.has(WABS_STATUS_NOT_OPEN);
    require(refused == (status == WABS_STATUS_NOT_OPEN));
    require((status == WABS_STATUS_NULL_POINTER) ==
            (null && !refused && statuses.has(WABS_STATUS_NULL_POINTER)));
    return status;
  }
};

// A block that the library may write to its end, or null.
class OutBlock {
 public:
  OutBlock(size_t size, bool null) : size_(size), bytes_(null ? nullptr : new char[size]) {
    if (!null) memset(bytes_.get(), kFill, size);
  }
  char* get() { return bytes_.get(); }
  bool untouched() const {
    return !bytes_ || std::all_of(bytes_.get(), bytes_.get() + size_, [](char c) { return c == kFill; });
  }
  bool terminated() const { return !bytes_ || size_ == 0 || memchr(bytes_.get(), '\0', size_) != nullptr; }

 private:
  static constexpr char kFill = '\x5A';
  size_t size_;
  std::unique_ptr<char[]> bytes_;
};

inline constexpr HostCall<uint32_t()> kAbortScan = {wabs_abort_manual_nw_scan, {0, 1, 2, 15}};

// Calls without arguments. From kQuiet on they send nothing.
inline void call_plain(size_t choice, Input& in) {
  static constexpr HostCall<uint32_t()> kCalls[] = {
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
  const uint32_t after = wabs_is_blib_open();
  require(after == (index > kClose ? before : index == kOpen && status == 0));
  require(index != kOpen || (status == WABS_STATUS_ALREADY_OPEN) == (before == 1));
  require(index < kQuiet || in.size() == left);
}

// An event that the host hands on is logged, and that is all.
inline void report_event(bool null, Input& in) {
  static constexpr HostCall<uint32_t(const void*)> kReport = {wabs_report_event, {0}};
  Text source(in.field('|'));
  Text name(in.field('|'));
  const std::unique_ptr<void, void (*)(void*)> event(
      null ? nullptr : NipcStandinCreateEvent(source.get(), name.get()), NipcStandinFreeEvent);
  t_log_line[0] = '\0';
  kReport(static_cast<const void*>(event.get()));
  char expected[sizeof(t_log_line)] = "";
  if (g_format_log_lines && !null && (gBrioModuleLogMask & WABS_LOG_VALUE) != 0) {
    snprintf(expected, sizeof(expected), "D brio:event %s %s occurred (", source.get(), name.get());
  }
  require(strncmp(t_log_line, expected, strlen(expected)) == 0);
  require((t_log_line[0] == '\0') == (expected[0] == '\0'));
}

inline void scan(uint32_t size, bool null) {
  static constexpr HostCall<uint32_t(char*, uint32_t)> kScan = {wabs_do_manual_nw_scan, {0, 1, 2, 14, 15}};
  OutBlock list(size, null);
  const uint32_t status = kScan(list.get(), size);
  require(status == 0 ? !null && (list.untouched() || list.terminated()) : list.untouched());
}

// One call, chosen by the input. Null pointers and sizes that are too small come up too.
inline void call_host(Input& in) {
  struct Number {
    HostCall<uint32_t(uint32_t*)> ask;
    bool (*in_range)(uint32_t);
  };
  static constexpr Number kNumbers[] = {
      {{wabs_get_bars, {0, 1, 2, 11}},
       [](uint32_t bars) { return (bars >= 1 && bars <= 255) || bars == WABS_BARS_NOT_ATTACHED; }},
      {{wabs_get_data_service_mode, {0, 1, 2, 11}}, [](uint32_t mode) { return mode <= 4; }},
      {{wabs_get_roaming_status, {0, 1, 2, 11}}, [](uint32_t status) { return status <= 1 || status == 8; }},
      {{wabs_get_module_flags, {0, 11}}, [](uint32_t flags) { return flags == 1; }},
  };
  struct TextQuery {
    HostCall<uint32_t(char*, uint32_t)> ask;
    uint32_t least;
  };
  static constexpr TextQuery kTexts[] = {
      {{wabs_get_imsi, {0, 1, 7, 11}}, 16},
      {{wabs_get_radio_serial_number, {0, 1, 7, 11}}, 16},
      {{wabs_get_radio_cert_param1, {0, 1, 7, 11}}, 24},
      {{wabs_get_radio_cert_param2, {0, 1, 7, 11}}, 16},
      {{wabs_get_realm, {0, 1, 7, 11}}, 16},
  };
  static constexpr HostCall<uint32_t(char*, uint32_t)> kFirmware = {wabs_get_firmware_version, {0, 1, 11}};
  static constexpr HostCall<uint32_t(char*)> kPhone = {wabs_get_radio_phone_number, {0, 1, 11}};
  static constexpr HostCall<uint32_t(int32_t*)> kRssi = {wabs_get_rssi, {0, 1, 11}};
  static constexpr HostCall<uint32_t(char*, int32_t, uint32_t)> kPage = {wabs_get_log_string, {0}};
  static constexpr HostCall<uint32_t(time_t*, int32_t*)> kTime = {wabs_get_module_time, {0, 2, 11, 13}};
  static constexpr HostCall<uint32_t(uint32_t*, uint32_t*)> kNetworks[] = {
      {wabs_get_hplmn_mcc_mnc, {0, 2, 11}}, {wabs_get_mcc_mnc, {0, 2, 11}}};

  const uint8_t choice = in.byte();
  if (choice < 0x20) return call_plain(choice, in);
  const uint8_t argument = in.byte();
  const bool null = argument == 0xFF;
  constexpr uint32_t kUnset = 0xA5A5A5A5;
  uint32_t first = kUnset;
  uint32_t second = kUnset;
  switch (choice % 8) {
    case 0:
      return report_event(null, in);
    case 1: {
      const Number& number = kNumbers[argument % std::size(kNumbers)];
      require(number.ask(null ? nullptr : &first) == 0 ? number.in_range(first) : first == kUnset);
      break;
    }
    case 2: {
      const TextQuery& query = kTexts[argument % std::size(kTexts)];
      const uint32_t size = argument / 4;
      OutBlock text(size, null);
      const bool good = query.ask(text.get(), size) == 0;
      require(good ? size >= query.least && text.terminated() : text.untouched());
      break;
    }
    case 3: {
      OutBlock text(argument, null);
      kFirmware(text.get(), argument);
      require(text.terminated());
      OutBlock number(1, null);
      require(kPhone(number.get()) == 0 ? number.terminated() : number.untouched());
      int32_t rssi = -1;
      require(kRssi(null ? nullptr : &rssi) == 0 ? rssi == 0 : rssi == -1);
      break;
    }
    case 4:
      return scan(argument * 8, null);
    case 5: {
      const int32_t size = argument * 32 - 32;
      OutBlock page(static_cast<size_t>(std::max(size, 0)), null);
      kPage(page.get(), size, choice / 8);
      require(page.terminated());
      break;
    }
    case 6: {
      time_t utc = 0;
      int32_t offset = 0;
      const bool good = kTime(null ? nullptr : &utc, &offset) == 0;
      // No date comes with the zone; 900 a quarter hour, modulo 2^32.
      require(good ? utc == -1 && offset % 4 == 0 : utc == 0 && offset == 0);
      wabs_set_log_mask(argument % 2 != 0 ? 0xFFFFFFFF : 0);
      break;
    }
    default: {
      const bool good = kNetworks[argument % 2](null ? nullptr : &first, &second) == 0;
      const auto in_range = [](uint32_t code) { return code <= 999 || code == kUnset; };
      require(good ? in_range(first) && in_range(second) : first == kUnset && second == kUnset);
      break;
    }
  }
}

}  // namespace fuzz

#endif
