// What command handlers share, and the handlers of the network.
#ifndef MODEMSIM_HANDLERS_H
#define MODEMSIM_HANDLERS_H

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string>

#include "commands.h"
#include "state.h"

namespace modemsim {

// Numbers of +CME ERROR, 3GPP TS 27.007.
enum CmeError {
  kNotAllowed = 3,
  kSimMissing = 10,
  kSimFailure = 13,
  kSimBusy = 14,
  kNoService = 30,
  kNetworkForbidden = 32
};

inline std::string cme(int number) {
  return format("\r\n+CME ERROR: %d\r\n", number);
}
inline std::string line(const std::string& text) {
  return "\r\n" + text + "\r\n";
}
inline std::string answer(const std::string& text) {
  return line(text) + kOk;
}

inline bool to_number(const std::string& text, int& value) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0') return false;
  value = static_cast<int>(number);
  return true;
}

// Takes the one argument when it is one of `allowed`.
inline bool take(const Arguments& arguments, std::initializer_list<int> allowed, int& value) {
  int number = 0;
  if (arguments.size() != 1 || !to_number(arguments[0], number)) return false;
  if (std::find(allowed.begin(), allowed.end(), number) == allowed.end()) return false;
  value = number;
  return true;
}

// network.cpp
std::string radio_query(Session& s, const Arguments& arguments);
std::string radio_set(Session& s, const Arguments& arguments);
std::string operator_query(Session& s, const Arguments& arguments);
std::string operator_scan(Session& s, const Arguments& arguments);
std::string operator_select(Session& s, const Arguments& arguments);
std::string clock_query(Session& s, const Arguments& arguments);
std::string cell_query(Session& s, const Arguments& arguments);
std::string lte_query(Session& s, const Arguments& arguments);
std::string states_query(Session& s, const Arguments& arguments);

}  // namespace modemsim

#endif
