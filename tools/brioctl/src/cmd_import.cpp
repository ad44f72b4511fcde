// brioctl import: makes a scenario of the simulated modem and a session of briolab out of a recording.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "at_log.h"
#include "commands.h"
#include "modemsim/modem.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;
using at_log::Exchange;
using at_log::Line;
using at_log::Port;

// Bytes that are no UTF-8 are escaped, and then all that are no ASCII.
bool is_utf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = (text[at] & 0x80) == 0 ? 1 : printable_length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string quoted(const std::string& text, const char* code, bool ascii) {
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char escape[8];
    if (c == '"' || c == '\\') {
      result += std::string("\\") + c;
    } else if (byte < 0x20 || byte == 0x7F || (ascii && byte > 0x7F)) {
      snprintf(escape, sizeof escape, code, byte);
      result += escape;
    } else {
      result += c;
    }
  }
  return result + "\"";
}

// A text of a session, with the escapes of C.
std::string quoted(const std::string& text) {
  return quoted(text, "\\x%02x", !is_utf8(text));
}

std::string seconds(std::int64_t milliseconds) {
  char text[32];
  snprintf(text, sizeof text, "%.3f", static_cast<double>(milliseconds) / 1000);
  return text;
}

// What the modem or its host said last, when the recording ended before the answer did; the end otherwise.
std::vector<Line>::const_iterator cut_off(const std::vector<Line>& lines) {
  auto found = lines.cend();
  for (auto line = lines.cbegin(); line != lines.cend(); ++line) {
    if (line->port == Port::kQuery && line->to_modem) {
      found = line;
    } else if (line->port != Port::kUrc && !line->to_modem &&
               (line->port == Port::kHost || at_log::is_final(line->text))) {
      found = lines.cend();
    }
  }
  return found;
}

// -- The scenario

// A text of a TOML file, which holds no other bytes than UTF-8: those are characters of latin1 then.
struct Toml {
  bool latin1;
  std::string operator()(const std::string& text) const { return quoted(text, "\\u%04x", latin1); }
};

struct Answer {
  std::string command, lines, reports;
  std::int64_t delay = 0;
  int times = 1;
  bool last = true;  // of its command
};

std::string timed(const Line& report, std::int64_t start, const Toml& toml) {
  return "{ t = " + seconds(std::max<std::int64_t>(report.ms - start, 0)) + ", line = " + toml(report.text) +
         " }";
}

std::string listed(const std::string& first, const std::string& second) {
  return first + (first.empty() || second.empty() ? "" : ",\n           ") + second;
}

Answer answer_of(const Exchange& exchange, const Toml& toml) {
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
    answer.reports = listed(answer.reports, timed(line, start, toml));
  }
  return answer;
}

// Equal answers that follow each other to the same command are one; the last one to a command holds for ever.
// Reports that came before the first command come with it: the host listens then.
std::vector<Answer> answers_of(const std::vector<Exchange>& exchanges, const Toml& toml) {
  std::vector<Answer> answers;
  std::string early;
  std::map<std::string, std::size_t> latest;
  for (const Exchange& exchange : exchanges) {
    Answer answer = answer_of(exchange, toml);
    if (answer.command.empty()) early = answer.reports;
    if (answer.command.empty()) continue;
    // The simulated modem's own answer switches its echo, which an answer of a scenario would not.
    const bool echo = answer.command.compare(0, 3, "ATE") == 0;
    if (echo && answer.lines == "\"OK\"" && answer.reports.empty()) continue;
    answer.reports = listed(early, answer.reports);
    early.clear();
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

std::string scenario_of(const std::vector<Line>& lines, const std::string& title) {
  Toml toml{false};
  for (const Line& line : lines) toml.latin1 = toml.latin1 || !is_utf8(line.text);
  std::ostringstream text;
  text << "title = " << toml(title) << "\n";
  if (toml.latin1) text << "encoding = \"latin1\"\n";
  const auto cut = cut_off(lines);
  std::vector<Line> whole(lines.cbegin(), cut);
  if (cut != lines.cend()) {
    text << "\n# left out: " << toml(cut->text) << ", whose answer was not over when the recording ended\n";
    for (auto line = cut; line != lines.cend(); ++line) {
      if (line->port == Port::kUrc) whole.push_back(*line);
    }
  }
  for (const Answer& answer : answers_of(at_log::exchanges(whole), toml)) {
    // The last answer to a command holds for ever, its reports come once.
    for (const bool reports : {true, false}) {
      if (!reports && (answer.reports.empty() || !answer.last)) continue;
      text << "\n[[answer]]\ncommand = " << toml(answer.command) << "\nlines = [" << answer.lines << "]\n";
      const bool for_ever = answer.last && (!reports || answer.reports.empty());
      if (!for_ever) text << "times = " << answer.times << "\n";
      if (answer.delay > 0) text << "delay = " << seconds(answer.delay) << "\n";
      if (reports && !answer.reports.empty()) text << "reports = [" << answer.reports << "]\n";
    }
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

// The OK that the simulated modem of a session gives anyhow needs no line.
class OwnAnswers {
 public:
  OwnAnswers() {
    modem_.observe([this](const modemsim::Traffic& traffic) {
      if (traffic.port == modemsim::Port::kQuery) last_ = traffic.bytes;
    });
  }
  bool ok(const std::string& command) {
    modem_.tell(command);
    return last_ == "\r\nOK\r\n";
  }

 private:
  std::string last_;
  modemsim::Modem modem_;
};

std::string answers_line(const Exchange& exchange, OwnAnswers& own) {
  std::string words;
  for (const Line& line : exchange.answers) {
    if (line.text != exchange.command.text) words += " " + quoted(line.text);
  }
  if (words == " \"OK\"" && own.ok(exchange.command.text)) return "";
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
  OwnAnswers own;
  bool opened = false;
  std::string early;  // reports from before the open, to which nobody listens yet
  const bool cut = cut_off(lines) != lines.cend();
  const std::vector<Call> calls = calls_of(lines);
  for (const Call& call : calls) {
    const std::string name = name_of(call.text);
    const bool ended = call.result.empty() || (cut && call.result == "?" && &call == &calls.back());
    std::string sent;
    if (!call.text.empty() && (ended || !can_be_played(name))) {
      text << "# left out: " << printable(call.text)
           << (ended ? ", which was not over when the recording ended" : "") << "\n";
    } else {
      for (const Exchange& exchange : at_log::exchanges(call.lines)) {
        if (exchange.command.text.empty()) continue;
        text << answers_line(exchange, own);
        sent += (sent.empty() ? "" : ", ") + exchange.command.text;
      }
    }
    if (!call.text.empty() && !ended && can_be_played(name)) {
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
    early += reports_of(call.lines);
    if (!opened) continue;
    text << early;
    early.clear();
  }
  if (!early.empty()) text << "open\n" << early;
  return text.str();
}

void check_place(const std::string& path, const std::string& recording, bool force) {
  std::error_code none;
  if (fs::equivalent(path, recording, none)) {
    throw Failure(path + " is the recording itself; --to names other files.");
  }
  if (!force && fs::exists(path)) throw Failure(path + " exists; --force replaces it, --to names others.");
}

void write_file(const std::string& path, const std::string& text) {
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
    if (fs::is_directory(path)) {
      const std::string name = fs::canonical(path).filename().string();
      prefix = (path / (name.empty() ? "recording" : name)).string();
    } else {
      prefix = path.replace_extension("").string();
    }
  }
  if (at_log::exchanges(lines).empty()) throw Failure(recording + " holds no line of the modem's ports.");
  for (const char* end : {".toml", ".txt"}) check_place(prefix + end, at_log::file_of(recording), force);
  const std::string title = "Recorded " + at_log::format(lines.front()).substr(0, 19) + " UTC.";
  write_file(prefix + ".toml", scenario_of(lines, title));
  write_file(prefix + ".txt", session_of(lines, title));
  return 0;
}

}  // namespace brioctl
