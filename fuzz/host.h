// Every call of the host interface, with arguments from an input, and what it may answer.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <algorithm>
#include <initializer_list>

#include "brio/wabs.h"
#include "fuzz.h"

namespace fuzz {

// A call and the statuses that wabs.h documents for it.
template <typename Function>
struct HostCall {
  Function* call;
  uint32_t statuses;  // bit n for status n

  constexpr HostCall(Function* function, std::initializer_list<unsigned> list) : call(function), statuses(0) {
    for (unsigned status : list) statuses |= 1u << status;
  }
  template <typename... Arguments>
  uint32_t operator()(Arguments... arguments) const {
    const uint32_t status = call(arguments...);
    require(status < 32 && (statuses >> status & 1) != 0);
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

// One call, chosen by the input. Null pointers and sizes that are too small come up too.
inline void call_host(Input& in) {
  static constexpr HostCall<uint32_t()> kPlain[] = {
      {wabs_open, {0, 2, 4}},
      {wabs_close, {0}},
      {wabs_is_blib_open, {0, 1}},
      {wabs_enable_logging, {0}},
      {wabs_update_prl, {0, 1}},
      {wabs_exit_611_logging, {0}},
      {wabs_abort_manual_nw_scan, {0, 1, 2, 15}},
      {wabs_set_auto_mode, {0, 1, 2}},
      {wabs_send_abort_cmd, {0, 1, 2}},
      {wabs_get_current_network, {0, 1, 2}},
  };
  static constexpr HostCall<uint32_t(uint32_t*)> kNumbers[] = {
      {wabs_get_bars, {0, 1, 2, 11}},
      {wabs_get_data_service_mode, {0, 1, 2, 11}},
      {wabs_get_roaming_status, {0, 1, 2, 11}},
      {wabs_get_module_flags, {0, 11}},
  };
  static constexpr bool (*kRanges[])(uint32_t) = {
      [](uint32_t bars) { return (bars >= 1 && bars <= 255) || bars == WABS_BARS_NOT_ATTACHED; },
      [](uint32_t mode) { return mode <= 4; },
      [](uint32_t status) { return status <= 1 || status == 8; },
      [](uint32_t flags) { return flags == 1; },
  };
  static constexpr HostCall<uint32_t(char*, uint32_t)> kTexts[] = {
      {wabs_get_imsi, {0, 1, 7, 11}},
      {wabs_get_radio_serial_number, {0, 1, 7, 11}},
      {wabs_get_radio_cert_param1, {0, 1, 7, 11}},
      {wabs_get_radio_cert_param2, {0, 1, 7, 11}},
      {wabs_get_realm, {0, 1, 7, 11}},
  };
  static constexpr uint32_t kLeast[] = {16, 16, 24, 16, 16};
  static constexpr HostCall<uint32_t(char*, uint32_t)> kFirmware = {wabs_get_firmware_version, {0, 1, 11}};
  static constexpr HostCall<uint32_t(char*, uint32_t)> kScan = {wabs_do_manual_nw_scan, {0, 1, 2, 14, 15}};
  static constexpr HostCall<uint32_t(char*)> kPhone = {wabs_get_radio_phone_number, {0, 1, 11}};
  static constexpr HostCall<uint32_t(int32_t*)> kRssi = {wabs_get_rssi, {0, 1, 11}};
  static constexpr HostCall<uint32_t(char*, int32_t, uint32_t)> kPage = {wabs_get_log_string, {0}};
  static constexpr HostCall<uint32_t(time_t*, int32_t*)> kTime = {wabs_get_module_time, {0, 2, 11, 13}};
  static constexpr HostCall<uint32_t(uint32_t*, uint32_t*)> kServing = {wabs_get_mcc_mnc, {0, 2, 11}};
  static constexpr HostCall<uint32_t(uint32_t*, uint32_t*)> kHome = {wabs_get_hplmn_mcc_mnc, {0, 2, 11}};

  const uint8_t choice = in.byte();
  const uint8_t argument = choice < 0x20 ? 0 : in.byte();
  const bool null = argument == 0xFF;
  constexpr uint32_t kUnset = 0xA5A5A5A5;
  uint32_t first = kUnset;
  uint32_t second = kUnset;
  switch (choice < 0x20 ? 0 : choice % 8) {
    case 0: {
      kPlain[choice % std::size(kPlain)]();
      break;
    }
    case 1: {
      const size_t index = argument % std::size(kNumbers);
      const uint32_t status = kNumbers[index](null ? nullptr : &first);
      require(status == 0 ? kRanges[index](first) : first == kUnset || index == 0);
      require(!null || status != 0);
      break;
    }
    case 2: {
      const size_t index = argument % std::size(kTexts);
      const uint32_t size = argument / 4;
      OutBlock text(size, null);
      const uint32_t status = kTexts[index](text.get(), size);
      require(status == 0 ? size >= kLeast[index] && text.terminated() : text.untouched());
      break;
    }
    case 3: {
      OutBlock text(argument, null);
      const uint32_t status = kFirmware(text.get(), argument);
      require(text.terminated() && (status == 11) == (null && wabs_is_blib_open() != 0));
      OutBlock number(1, null);
      require(kPhone(number.get()) == 0 ? number.terminated() && !null : number.untouched());
      int32_t rssi = -1;
      require(kRssi(null ? nullptr : &rssi) == 0 ? rssi == 0 : rssi == -1);
      break;
    }
    case 4: {
      const uint32_t size = argument * 8;
      OutBlock list(size, null);
      const uint32_t status = kScan(list.get(), size);
      require(status == 0 ? !null && (list.untouched() || list.terminated()) : list.untouched());
      break;
    }
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
      require(kTime(null ? nullptr : &utc, &offset) != 0 ||
              offset % 4 == 0);  // 900 a quarter hour, modulo 2^32
      wabs_set_log_mask(argument % 2 != 0 ? 0xFFFFFFFF : 0);
      break;
    }
    default: {
      const uint32_t status = (argument % 2 != 0 ? kServing : kHome)(null ? nullptr : &first, &second);
      require(status == 0 || (first == kUnset && second == kUnset));
      break;
    }
  }
}

}  // namespace fuzz

#endif
