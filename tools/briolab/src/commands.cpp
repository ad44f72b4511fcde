// The commands of a session; commands.txt describes them.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <regex>
#include <sstream>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "did_you_mean.h"
#include "kit/clock.h"
#include "kit/exact_text.h"
#include "kit/process.h"
#include "modemsim/scenario.h"
#include "nipc/nipc_standin.h"
#include "session.h"

namespace lab {

std::string did_you_mean(const std::string& name) {
  std::vector<std::string> known = {"help", "functions", "quit"};
  for (const auto& each : commands()) known.push_back(each.first);
  for (const auto& each : calls()) known.push_back(each.first);
  return ::did_you_mean(name, known);
}

const Call& function(const std::string& name) {
  const auto found = calls().find(name);
  if (found == calls().end()) throw UsageError("no function: " + name + did_you_mean(name));
  return found->second;
}

namespace {

using modemsim::Fault;
using modemsim::State;

// ---- The modem

// A table of a scenario file in braces.
modemsim::Scenario scenario(const std::string& text) {
  try {
    return modemsim::parse_scenario(text, "argument");
  } catch (const modemsim::ScenarioError& error) {
    throw UsageError(error.what());
  }
}

std::function<void(State&)> change(Arguments& a) {
  return [parsed = scenario("at = [{t = 0, set = {" + a.rest() + "}}]")](State& state) {
    for (const auto& set : parsed.timeline[0].set) set(state);
  };
}

void report(Session& s, Arguments& a) {
  s.modem.update(change(a));
  s.settle();
}

void sim_file(Session& s, Arguments& a) {
  const int number = static_cast<int>(a.number());
  const auto contents = a.words();
  s.modem.with_state([&](State& state) {
    state.files.erase(number);
    if (!contents.empty()) state.files[number] = contents[0];
  });
}

void operators(Session& s, Arguments& a) {
  const auto added =
      a.more() ? scenario("operator = [{" + a.rest() + "}]").state.operators : State().operators;
  s.modem.with_state([&](State& state) {
    if (added.empty()) state.operators.clear();
    state.operators.insert(state.operators.end(), added.begin(), added.end());
  });
}

void fault_command(Session& s, Arguments& a, bool silent) {
  Fault fault;
  std::string times = "1", skip = "0";
  fault.command = a.text();
  while (a.option("times", &times) || a.option("skip", &skip)) continue;
  fault.times = static_cast<int>(to_number(times));
  fault.skip = static_cast<int>(to_number(skip));
  fault.silent = silent;
  fault.replace = !silent;
  bool ends = silent;
  for (const auto& line : a.words()) {
    fault.reply += "\r\n" + line + "\r\n";
    ends = ends ||
           std::regex_search(
               line, std::regex("^(OK|CONNECT|ERROR|\\+CM[SE] ERROR:|NO (CARRIER|ANSWER|DIALTONE)|ABORTED)"));
  }
  if (!ends) {
    s.seen.notes.push_back("the answer has no final line (OK, ERROR): a request that gets it times out");
    if (!fault.reply.empty()) s.unfinished(fault.reply);
  }
  s.modem.fault(fault);
}

void fault(Session& s, Arguments& a) {
  for (const auto& each : scenario("fault = [{" + a.rest() + "}]").faults) s.modem.fault(each);
}

void urc(Session& s, Arguments& a) {
  if (!s.modem.is_open(modemsim::Port::kUrc)) throw UsageError("nobody listens");
  s.modem.urc(a.rest());
  s.settle();
}

void raw(Session& s, Arguments& a) {
  const Session::Lines names = {"trace", "query", "urc"};
  const auto port = std::find(names.begin(), names.end(), a.text()) - names.begin();
  if (port == 3) throw UsageError("no such port");
  s.modem.raw(static_cast<modemsim::Port>(port), a.text());
}

void unplug(Session& s, Arguments& a) {
  const long left = process::threads() - (a.more() ? static_cast<long>(a.number()) : 0);
  s.modem.unplug();
  if (process::settled_threads(left) > left) throw UsageError("the threads did not end");
}

void plug(Session& s, Arguments&) {
  if (!s.modem.plug()) throw UsageError(s.modem.error());
}

void play(Session& s, Arguments& a) {
  const std::string name = a.text(), path = modemsim::find_scenario(name);
  const auto scenario = modemsim::load_scenario(path.empty() ? name : path);
  if (!s.modem.play(scenario, to_real(a.text()))) throw UsageError(s.modem.error());
}

void played(Session& s, Arguments&) {
  if (!s.modem.wait_played()) throw UsageError("it does not end");
  s.modem.state();  // all that it brought was done
  s.settle();
  for (const auto& event : s.played) s.emit(event);
  s.played.clear();
}

// ---- The library

void open(Session& s, Arguments& a) {
  const std::string which = a.more() ? a.text() : "";
  if (!which.empty() && which != "host") throw UsageError("open what: " + which);
  const bool host = !which.empty();
  const uint32_t status = host ? wabs_open() : brio_open("/dev/ttyACM2");
  if (status != 0) throw UsageError("it gave " + std::to_string(status));
  s.settle();
  s.forget();
}

void call(Session& s, Arguments& a) {
  const std::string name = a.text();
  const Call& chosen = function(name);
  try {
    const std::string result = chosen(a);
    if (!result.empty()) s.emit(result);
  } catch (const UsageError& error) {
    throw UsageError(std::string(error.what()) + " (" + name + (chosen.words.empty() ? "" : " ") +
                     chosen.words + ")");
  }
  s.settle();
}

void async(Session& s, Arguments& a) {
  const std::string name = a.text();
  const auto run = [call = function(name), a]() mutable { return call(a); };
  s.alone = false;
  s.running.emplace_back(name, std::async(std::launch::async, run));
  a.rest();
}

void join(Session& s, Arguments&) {
  for (auto& [name, result] : s.running) s.emit(name + " " + result.get());
  s.running.clear();
  s.alone = true;
  s.settle();
}

void line(Session& s, Arguments& a) {
  std::string command, selector;
  const bool has_command = a.option("a", &command);
  a.option("b", &selector);
  sim_card_status card = {7, 15};
  int is_query = 1;
  void* b = selector == "card" ? static_cast<void*>(&card) : selector == "query" ? &is_query : nullptr;
  if (!selector.empty() && b == nullptr) throw UsageError("b is card or query");
  const bool null = a.take_null();
  ExactText first(command), text(null ? "" : a.rest());
  const uint32_t status = at_parse(null ? nullptr : text.get(), has_command ? first.get() : nullptr, b);
  s.emit(std::to_string(status) + (selector == "card" ? " " + describe(card) : ""));
}

void set(Session& s, Arguments& a) {
  for (const auto& word : a.words()) {
    const size_t equals = std::min(word.find('='), word.size());
    if (word != "fresh") {
      set_shared_field(word.substr(0, equals), word.substr(std::min(equals + 1, word.size())));
      continue;
    }
    brio::UrcDataLock lock;
    briolib_init_atcmd_data(0);
  }
  s.shown = shared_fields();
}

void page(Session& s, Arguments& a) {
  constexpr uint32_t kPageMost = 1 << 20;
  const bool no_buffer = a.take_null();
  const auto mode = static_cast<uint32_t>(a.number());
  const bool no_size = a.take_null();
  auto size = no_size ? 0 : static_cast<uint32_t>(a.number());
  if (size > kPageMost) throw UsageError("the size is 0 to " + std::to_string(kPageMost));
  std::string buffer(size + 1, '\xA5');
  const uint32_t status =
      brio_module_get_log_string(no_buffer ? nullptr : buffer.data(), no_size ? nullptr : &size, mode);
  s.emit(std::to_string(status) + " size=" + std::to_string(static_cast<int32_t>(size)) +
         (buffer.back() == '\xA5' ? "" : " OVERRUN"));
  const auto parts = a.words();
  std::istringstream text(buffer[0] == '\xA5' ? "untouched" : buffer.c_str());
  for (std::string each; std::getline(text, each);) {
    if (holds_one(each, parts)) s.emit("| " + escaped(each));
  }
}

void sleeps(Session& s, Arguments&) {
  std::string text;
  const auto all = test_clock::sleeps();
  for (; s.sleeps_seen < all.size(); s.sleeps_seen++) text += " " + std::to_string(all[s.sleeps_seen]);
  s.emit("slept" + (text.empty() ? " never" : text));
}

void elapsed(Session& s, Arguments& a) {
  const double low = to_real(a.text()), high = to_real(a.text()), passed = now() - s.time_seen;
  s.emit(passed >= low && passed <= high ? "yes" : "no: " + std::to_string(passed));
  s.time_seen = now();
}

// ---- Clock, files, IPC

void turn_clock(Session& s, Arguments& a) {
  const std::map<std::string, void (*)(double)> switches = {
      {"advance", test_clock::advance},
      {"stopped", [](double) { test_clock::stop(); }},
      {"scale", test_clock::scale_waits},
      {"cap", test_clock::cap_waits},
      {"wall", [](double time) { test_clock::set_wall(static_cast<std::time_t>(time)); }},
      {"broken", [](double on) { test_clock::fail_monotonic(on != 0); }},
      {"manual", [](double on) { test_clock::manual_select(on != 0); }},
      {"except", [](double) { test_clock::except_select(); }}};
  std::string value;
  if (a.option("zone", &value)) {
    setenv("TZ", value.c_str(), 1);
    return tzset();
  }
  for (const auto& [key, change] : switches) {
    if (a.option(key, &value)) return change(to_real(value));
  }
  if (!a.more()) s.time_seen = now();
}

void tick(Session& s, Arguments& a) {
  for (long long left = a.more() ? a.number() : 1; left > 0; left--) {
    if (!test_clock::tick()) s.emit("gone");
  }
}

void file(Session& s, Arguments& a) {
  const std::string path = a.text();
  s.root.write(path, a.more() ? a.text() : "");
}

void show(Session& s, Arguments& a) {
  const std::string path = a.text();
  struct stat info;
  if (lstat(s.root.path(path).c_str(), &info) != 0) return s.emit("absent");
  if (!S_ISREG(info.st_mode)) {
    return s.emit(S_ISDIR(info.st_mode) ? "directory" : S_ISLNK(info.st_mode) ? "link" : "special");
  }
  char mode[8];
  snprintf(mode, sizeof mode, "%04o ", info.st_mode & 07777U);
  const std::string text = s.root.read(path).value_or("cannot be read");
  s.emit(mode + std::to_string(info.st_size) + " " + quoted(text.substr(0, 2000)) +
         (text.size() > 2000 ? "..." : ""));
}

void nipc(Session& s, Arguments& a) {
  std::string value;
  if (a.option("fail_open", &value)) return NipcStandinFailOpen(to_number(value) != 0);
  if (a.option("fail_reads", &value)) return NipcStandinFailReads(static_cast<uint32_t>(to_number(value)));
  if (a.option("close", &value)) return NipcStandinSetCloseStatus(static_cast<uint32_t>(to_number(value)));
  const auto words = a.words();
  if (words.size() == 1 && words[0] == "service") return s.emit(NipcStandinService());
  if (words.size() == 3) {
    NipcStandinSetProperty(words[0].c_str(), words[1].c_str(), words[2].c_str());
  } else if (words.size() == 2) {
    NipcStandinRemoveProperty(words[0].c_str(), words[1].c_str());
  } else {
    s.emit("handles=" + std::to_string(NipcStandinOpenHandles()) + " texts=" +
           std::to_string(NipcStandinUnfreedStrings()) + " reads=" + std::to_string(NipcStandinReadCount()));
  }
}

}  // namespace

std::map<std::string, Command>& commands() {
  static std::map<std::string, Command> table;
  if (!table.empty()) return table;
  const auto add = [](const char* names, auto... functions) {
    const auto all = split_names(names);
    auto name = all.begin();
    ((table[*name++] = functions), ...);
  };
#define ADD(...) add(#__VA_ARGS__, __VA_ARGS__)
  ADD(report, sim_file, operators, fault, urc, raw, unplug, plug, open, call, async, join, line, set, page,
      sleeps, tick, file, show, nipc);
  table["clock"] = turn_clock;
  table["sim"] = [](Session& s, Arguments& a) { s.modem.with_state(change(a)); };
  table["answer"] = [](Session& s, Arguments& a) { fault_command(s, a, false); };
  table["silent"] = [](Session& s, Arguments& a) { fault_command(s, a, true); };
  table["no_faults"] = [](Session& s, Arguments&) { s.modem.clear_faults(); };
  table["log"] = [](Session& s, Arguments& a) { s.show_log(a.words()); };
  table["follow"] = [](Session& s, Arguments& a) {
    s.follow = a.words();
    s.log.clear();
  };
  table["rm"] = [](Session& s, Arguments& a) { s.root.remove(a.text()); };
  table["elapsed"] = elapsed;
  table["play"] = play;
  table["played"] = played;
  return table;
}

}  // namespace lab
