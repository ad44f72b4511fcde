// What each function that hosts call may answer, whatever the modem said and whatever failed below
// (abi/operations.def).
#ifndef FUZZ_FUNCTIONS_H
#define FUZZ_FUNCTIONS_H

#include <regex.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "brio/briolib.h"
#include "brio/wabs.h"
#include "lab/functions.h"
#include "require.h"

namespace fuzz {

using lab::Arguments;

enum Check { kNone, kPlain, kNull, kHost, kHostNull, kGated };

struct Function {
  const char* name;
  Check check;
  const char* answer = "";
  long long least = 0;
};

#define ANY "( untouched| \".*\")"
inline constexpr Function kFunctions[] = {
#define OPERATION(result, name, arguments, session, ...) {#name, __VA_ARGS__},
#include "operations.def"
};

inline bool matches(const char* pattern, const std::string& line) {
  static std::mutex s_mutex;  // asynchronous calls end on their own threads
  const std::lock_guard<std::mutex> guard(s_mutex);
  static auto& s_compiled = *new std::map<const char*, regex_t>;
  auto [found, fresh] = s_compiled.try_emplace(pattern);
  const std::string whole = std::string("^(") + pattern + ")$";
  require(!fresh || regcomp(&found->second, whole.c_str(), REG_EXTENDED | REG_NOSUB) == 0, pattern);
  return regexec(&found->second, line.c_str(), 0, nullptr, 0) == 0;
}

// Calls a function with these words and requires a documented answer.
inline std::string checked(const Function& function, const lab::Call& call, Arguments& words) {
  const auto all = Arguments(words).words();
  for (const auto& word : all)
    if (word.find("..") != std::string::npos) throw lab::UsageError("a path that leaves the root");
  const bool null = std::count(all.begin(), all.end(), "null") != 0;
  const bool closed = wabs_is_blib_open() == 0;
  const std::string gate = std::to_string(briolib_check_library_status());
  const std::string line = call(words), status = line.substr(0, line.find(' '));
  const std::string told = std::string(function.name) + ": " + line;
  const Check check = function.check;
  if (closed && (check == kHost || check == kHostNull)) {
    require(matches("1( untouched)*|1 \"[norvik]*\"", line), told.c_str());
  } else if (null && (check == kNull || check == kHostNull)) {
    require(matches("11( untouched)*", line), told.c_str());
  } else if (check == kGated && gate != "0") {
    require(status == gate || (status == "6" && matches(function.answer, line)), told.c_str());
  } else if (check != kGated || status != std::to_string(briolib_check_library_status())) {
    require(matches(function.answer, line), told.c_str());
  }
  if (function.least != 0 && status == "0") require(lab::to_number(all[0]) >= function.least, told.c_str());
  return line;
}

// From here on a call of one of them is checked. Their names.
inline std::set<std::string> check_functions() {
  std::set<std::string> known;
  for (const auto& function : kFunctions) {
    const std::string name = function.name;
    const auto found = lab::calls().find(name);
    if (found == lab::calls().end()) continue;
    const bool host = name.rfind("wabs_", 0) == 0 || name.rfind("brio_", 0) == 0;
    require(!host || function.check != kNone, function.name);
    if (function.check == kNone) continue;
    const auto run = [&function, call = found->second](Arguments& words) {
      return checked(function, call, words);
    };
    found->second = {run, found->second.words};
    known.insert(name);
  }
  return known;
}

#undef ANY

}  // namespace fuzz

#endif
