// A function of the library that tells a listener when it is called and what it returned, in the words of a
// briolab session: "wabs_get_imsi 64", then "wabs_get_imsi 0 "310410..."".
#ifndef BRIOCTL_CALLED_H
#define BRIOCTL_CALLED_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <type_traits>

namespace brioctl {

// Called on the caller's thread; `begins` before the call, else with the result. Set before the first call.
inline std::function<void(bool begins, const std::string& text)> call_listener;

namespace words {

inline std::string quoted(const char* text) {
  const std::string plain = text;
  // A page of text is not worth a word.
  if (plain.find('\n') != std::string::npos) return " ...";
  std::string result = " \"";
  for (const char c : plain) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

// Of an argument before the call: numbers and texts. What a call fills has no word.
template <typename T>
std::string argument(const T& value) {
  if constexpr (std::is_integral_v<T>) {
    return " " + std::to_string(value);
  } else if constexpr (std::is_same_v<T, const char*>) {
    return value == nullptr ? " null" : quoted(value);
  } else {
    return "";
  }
}

// Of an argument after the call: what a successful call filled.
template <typename T>
std::string filled(const T& value) {
  if constexpr (std::is_same_v<T, char*>) {
    return quoted(value);
  } else if constexpr (std::is_same_v<T, uint32_t*> || std::is_same_v<T, int32_t*> ||
                       std::is_same_v<T, uint16_t*> || std::is_same_v<T, time_t*>) {
    return " " + std::to_string(*value);
  } else {
    return "";
  }
}

}  // namespace words

template <typename F>
struct Called;

template <typename R, typename... A>
struct Called<R (*)(A...)> {
  R (*function)(A...) = nullptr;
  const char* name = "";

  R operator()(A... arguments) const {
    if (!call_listener) return function(arguments...);
    call_listener(true, name + (std::string() + ... + words::argument(arguments)));
    if constexpr (std::is_void_v<R>) {
      function(arguments...);
      call_listener(false, name);
    } else {
      const R result = function(arguments...);
      std::string text = name + (" " + std::to_string(result));
      if (result == 0) text = (text + ... + words::filled(arguments));
      call_listener(false, text);
      return result;
    }
  }
};

}  // namespace brioctl

#endif
