// brioctl import: makes a scenario of the simulated modem and a session of briolab out of a recording.
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "at_log.h"
#include "commands.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;
using at_log::Exchange;
using at_log::Line;
using at_log::Port;

// A text of a session, with the escapes of C, or of a TOML file, which writes control characters its own way.
std::string quoted(const std::string& text, const char* control = "\\x%02x") {
  std::string result = "\"";
  for (const char c : text) {
    char code[8];
    if (c == '"' || c == '\\') {
      result += std::string("\\") + c;
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      snprintf(code, sizeof code, control, static_cast<unsigned char>(c));
      result += code;
    } else {
      result += c;
    }
  }
  return result + "\"";
}

std::string toml(const std::string& text) {
  return quoted(text, "\\u%04x");
}

std::string seconds(std::int64_t milliseconds) {
  char text[32];
  snprintf(text, sizeof text, "%.3f", static_cast<double>(milliseconds) / 1000);
  return text;
}

// -- The scenario

struct Answer {
  std::string command, lines, reports;
  std::int64_t delay = 0;
  int times = 1;
  bool last = true;  // of its command
};

Answer answer_of(const Exchange& exchange) {
  // What takes no time to speak of is not worth a number.
  constexpr std::int64_t kNoticed = 100;
  Answer answer;
  answer.command = exchange.command.text;
  const std::int64_t start = exchange.command.ms;
  for (const Line& line : exchange.answers) {
    // The echo is the modem's own business.
    if (line.text == answer.command) continue;
    if (answer.lines.empty() && line.ms - start >= kNoticed) answer.delay = line.ms - start;
    answer.lines += (answer.lines.empty() ? "" : ", ") + toml(line.text);
  }
  for (const Line& line : exchange.reports) {
    answer.reports += (answer.reports.empty() ? "" : ",\n           ") + std::string("{ t = ") +
                      seconds(line.ms - start) + ", line = " + toml(line.text) + " }";
  }
  return answer;
}

// Equal answers that follow each other to the same command are one; the last one to a command holds for ever.
std::vector<Answer> answers_of(const std::vector<Exchange>& exchanges) {
  std::vector<Answer> answers;
  std::map<std::string, std::size_t> latest;
  for (const Exchange& exchange : exchanges) {
    if (exchange.command.text.empty()) continue;
    Answer answer = answer_of(exchange);
    // The simulated modem's own answer switches its echo, which an answer of a scenario would not.
    const bool echo = answer.command.compare(0, 3, "ATE") == 0;
    if (echo && answer.lines == "\"OK\"" && answer.reports.empty()) continue;
    const auto found = latest.find(answer.command);
    if (found != latest.end()) {
      Answer& before = answers[found->second];
      if (before.lines == answer.lines && before.delay == answer.delay && before.reports.empty() &&
          answer.reports.empty()) {
        before.times++;
        continue;
      }
      before.last = false;
    }
    latest[answer.command] = answers.size();
    answers.push_back(std::move(answer));
  }
  return answers;
}

std::string scenario_of(const std::vector<Exchange>& exchanges, const std::string& title) {
  std::ostringstream text;
  text << "title = " << toml(title) << "\n";
  if (exchanges.front().command.text.empty()) {
    for (const Line& line : exchanges.front().reports) {
      text << "\n[[at]]\nt = 0\nurc = " << toml(line.text) << "\n";
    }
  }
  for (const Answer& answer : answers_of(exchanges)) {
    text << "\n[[answer]]\ncommand = " << toml(answer.command) << "\nlines = [" << answer.lines << "]\n";
    if (!answer.last) text << "times = " << answer.times << "\n";
    if (answer.delay > 0) text << "delay = " << seconds(answer.delay) << "\n";
    if (!answer.reports.empty()) text << "reports = [" << answer.reports << "]\n";
  }
  return text.str();
}

// -- The session

constexpr char kRequest[] = "blpkt_atcmd_request_with_callback_timeout";

struct Call {
  std::string text;         // "wabs_get_imsi 64"
  std::string result;       // "0 "31041..."", "" when it never returned
  std::vector<Line> lines;  // of the ports, meanwhile
};

std::string name_of(const std::string& text) {
  return text.substr(0, text.find(' '));
}

// The calls of the host in their order; lines between them belong to a call without text. A recording of
// somebody else's host has its commands instead.
std::vector<Call> calls_of(const std::vector<Line>& lines) {
  std::vector<Call> calls(1);
  std::size_t open = 0;  // calls that have not returned
  bool hosts = false;
  for (const Line& line : lines) hosts = hosts || line.port == Port::kHost;
  for (const Line& line : lines) {
    const bool command = !hosts && line.port == Port::kQuery && line.to_modem;
    if (line.port != Port::kHost && !command) {
      calls.back().lines.push_back(line);
    } else if (command) {
      calls.push_back({"request " + quoted(line.text), "?", {line}});
    } else if (line.to_modem) {
      calls.push_back({line.text, "", {}});
      open++;
    } else {
      for (auto call = calls.rbegin(); call != calls.rend(); ++call) {
        if (!call->result.empty() || name_of(call->text) != name_of(line.text)) continue;
        call->result = line.text.size() > name_of(line.text).size()
                           ? line.text.substr(name_of(line.text).size() + 1)
                           : "-";
        break;
      }
      if (open > 0 && --open == 0) calls.emplace_back();
    }
  }
  return calls;
}

// Answers that a simulated modem gives anyhow need no line.
std::string answers_line(const Exchange& exchange) {
  std::string words;
  std::string final;
  for (const Line& line : exchange.answers) {
    if (line.text == exchange.command.text) continue;
    words += " " + quoted(line.text);
    final = line.text;
  }
  if (words == " \"OK\"") return "";
  if (words.empty()) return "silent " + quoted(exchange.command.text) + " times=1\n";
  return "answer " + quoted(exchange.command.text) + " times=1" + words + "\n";
}

// Many equal reports in a row are a storm, of which the session shows the first.
std::string reports_of(const std::vector<Line>& lines) {
  constexpr std::size_t kShown = 4;
  std::string text, before;
  std::size_t times = 0;
  const auto left_out = [&] {
    return times > kShown ? "# " + std::to_string(times - kShown) + " more of these\n" : std::string();
  };
  for (const Line& line : lines) {
    if (line.port != Port::kUrc || line.to_modem) continue;
    if (line.text != before) {
      text += left_out();
      times = 0;
      before = line.text;
    }
    if (++times <= kShown) text += "urc " + quoted(line.text) + "\n";
  }
  return text + left_out();
}

std::string session_call(const Call& call) {
  const std::string name = name_of(call.text);
  if (name == kRequest) {
    const std::size_t end = call.text.rfind("\" ");
    return "request " + call.text.substr(name.size() + 1, end - name.size());
  }
  return call.text;
}

bool can_be_played(const std::string& name) {
  // They fill records or pages, or need files of the device.
  for (const char* left :
       {"brio_get_bas_status", "brio_trace_tst_log", "brio_trace_tst_stop", "wabs_get_log_string"}) {
    if (name == left) return false;
  }
  return true;
}

std::string session_of(const std::vector<Line>& lines, const std::string& title) {
  std::ostringstream text;
  text << "# " << title << "\n";
  bool opened = false;
  for (const Call& call : calls_of(lines)) {
    const std::string name = name_of(call.text);
    if (!call.text.empty() && !can_be_played(name)) {
      text << "# left out: " << call.text << "\n";
      continue;
    }
    std::string sent;
    for (const Exchange& exchange : at_log::exchanges(call.lines)) {
      if (exchange.command.text.empty()) continue;
      text << answers_line(exchange);
      sent += (sent.empty() ? "" : ", ") + exchange.command.text;
    }
    if (!call.text.empty()) {
      const bool opens = name == "wabs_open" || name == "brio_open";
      if (!opens && !opened) text << "open\n";
      opened = true;
      const std::string status = name_of(call.result);
      const bool failed = !status.empty() && status != "0" && status != "?" && status != "-";
      if (failed) {
        text << "# It returned " << call.result
             << " when it was recorded. The line says what it should have returned: complete it.\n";
      }
      // What was not seen, or is too long, is not expected.
      const bool known = status == "0" && name != kRequest && call.result.find("...") == std::string::npos;
      text << session_call(call);
      if (failed) text << " => 0";
      if (known) text << " => " << call.result << (sent.empty() || opens ? "" : " ; sent " + sent);
      text << "\n";
    }
    text << reports_of(call.lines);
  }
  return text.str();
}

void write_file(const std::string& path, const std::string& text, bool force) {
  if (!force && fs::exists(path)) throw Failure(path + " exists; --force replaces it, --to names others.");
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) throw Failure(path + " cannot be written.");
  output::result()["files"].push_back(path);
  if (!output::json()) printf("%s\n", printable(path).c_str());
}

}  // namespace

int run_import(const std::string& recording, std::string prefix, bool force) {
  std::vector<Line> lines;
  try {
    lines = at_log::load(recording);
  } catch (const std::runtime_error& problem) {
    throw Failure(problem.what());
  }
  if (prefix.empty()) {
    fs::path path(recording);
    if (!path.has_filename()) path = path.parent_path();
    prefix = fs::is_directory(path) ? (path / path.filename()).string() : path.replace_extension("").string();
  }
  const std::vector<Exchange> exchanges = at_log::exchanges(lines);
  if (exchanges.empty()) throw Failure(recording + " holds no line of the modem's ports.");
  const std::string title = "Recorded " + at_log::format(lines.front()).substr(0, 19) + " UTC.";
  write_file(prefix + ".toml", scenario_of(exchanges, title), force);
  write_file(prefix + ".txt", session_of(lines, title), force);
  return 0;
}

}  // namespace brioctl
