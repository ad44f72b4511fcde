// A function of the library that tells a listener when it is called and what it returned, in the words of a
// briolab session: "wabs_get_imsi 64", then "wabs_get_imsi 0 "310410..."".
#ifndef BRIOCTL_CALLED_H
#define BRIOCTL_CALLED_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>

namespace brioctl {

// Called on the caller's thread; `begins` before the call, else with the result. Set before the first call.
inline std::function<void(bool begins, const std::string& text)> call_listener;

namespace words {

inline std::string quoted(const char* text) {
  std::string result = " \"";
  for (; *text != '\0'; text++) {
    if (*text == '"' || *text == '\\') result += '\\';
    result += *text;
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

template <typename T>
constexpr bool kOutput =
    std::is_pointer_v<T> &&
    (std::is_class_v<std::remove_pointer_t<T>> ||
     std::is_integral_v<std::remove_pointer_t<T>>)&&!std::is_const_v<std::remove_pointer_t<T>>;

// What a call fills, and its word afterwards. A number or text holds a mark meanwhile: one that was left
// alone would look like one that was set to what the caller had there.
template <typename T, bool = kOutput<T>>
class Output {
 public:
  explicit Output(T place) : place_(place) {
    if constexpr (kMarked) {
      if (place_ == nullptr) return;
      before_ = *place_;
      *place_ = kMark;
    }
  }
  std::string end() {
    if (place_ == nullptr) return "";
    // A record or a page is not worth a word.
    if constexpr (!kMarked) {
      return " ..";
    } else {
      if (*place_ == kMark) {
        *place_ = before_;
        return " untouched";
      }
      if constexpr (std::is_same_v<T, char*>) {
        const std::string text = place_;
        return text.find('\n') != std::string::npos ? " .." : " \"" + text + "\"";
      } else {
        return " " + std::to_string(*place_);
      }
    }
  }

 private:
  using Value = std::remove_pointer_t<T>;
  static constexpr bool kMarked = std::is_integral_v<Value>;
  static constexpr Value mark() {
    if constexpr (kMarked) return static_cast<Value>(0xA5A5A5A5A5A5A5A5);
    return {};
  }
  static constexpr Value kMark = mark();

  T place_;
  Value before_{};
};

template <typename T>
class Output<T, false> {
 public:
  explicit Output(const T&) {}
  std::string end() { return ""; }
};

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
      std::tuple<words::Output<A>...> outputs{words::Output<A>(arguments)...};
      const R result = function(arguments...);
      const std::string filled =
          std::apply([](auto&... each) { return (std::string() + ... + each.end()); }, outputs);
      call_listener(false, name + (" " + std::to_string(result)) + (result == 0 ? filled : ""));
      return result;
    }
  }
};

}  // namespace brioctl

#endif
