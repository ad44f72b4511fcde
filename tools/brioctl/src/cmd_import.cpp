// brioctl import: makes a scenario of the simulated modem and a session of briolab out of a recording.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
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
#include "text.h"

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

std::string escaped(const std::string& text, const char* code, bool ascii, const char* special) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char escape[8];
    if (c != '\0' && std::strchr(special, c) != nullptr) {
      result += std::string("\\") + c;
    } else if (c == '\t' || c == '\r') {
      result += c == '\t' ? "\\t" : "\\r";
    } else if (byte < 0x20 || byte == 0x7F || (ascii && byte > 0x7F)) {
      snprintf(escape, sizeof escape, code, byte);
      result += escape;
    } else {
      result += c;
    }
  }
  return result;
}

// A text of a session, with the escapes of C.
std::string quoted(const std::string& text) {
  return "\"" + escaped(text, "\\x%02x", !is_utf8(text), "\"\\") + "\"";
}

// What a call returned, as a session shows it: in ASCII, and without escapes for quotes.
std::string shown(const std::string& result) {
  return escaped(result, "\\x%02x", true, "\\");
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
               (line->port != Port::kQuery || at_log::is_final(line->text))) {
      found = lines.cend();
    }
  }
  return found;
}

// -- The scenario

// A text of a TOML file, which holds no other bytes than UTF-8: those are characters of latin1 then.
struct Toml {
  bool latin1;
  std::string operator()(const std::string& text) const {
    return "\"" + escaped(text, "\\u%04x", latin1, "\"\\") + "\"";
  }
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

// The modem's going and coming back, which it has done before it says something again. A command that it did
// not answer any more is taken out of the lines.
std::string unplugged(std::vector<Line>& lines, const Toml& toml) {
  std::ostringstream text;
  std::vector<Line> kept;
  auto outstanding = kept.size();  // commands and answers from here on belong to it
  bool answered = true, gone = false;
  for (const Line& line : lines) {
    const bool goes = line.port == Port::kModem, back = gone && line.port != Port::kHost;
    if (goes && !answered) {
      const std::string& command = kept[outstanding].text;
      const auto same = [&](const Line& each) {
        return each.port == Port::kQuery && each.to_modem && each.text.rfind(command, 0) == 0;
      };
      text << "\n[[fault]]\ncommand = " << toml(command)
           << "\nskip = " << std::count_if(kept.begin(), kept.end(), same) - 1
           << "\ntimes = 1\nunplug = true\n";
      const auto from = kept.begin() + static_cast<std::ptrdiff_t>(outstanding);
      kept.erase(std::remove_if(from, kept.end(), [](const Line& each) { return each.port == Port::kQuery; }),
                 kept.end());
    } else if (goes || back) {
      text << "\n[[at]]\nt = " << seconds(line.ms) << "\n" << (goes ? "unplug" : "plug") << " = true\n";
    }
    gone = goes || (gone && !back);
    if (line.port == Port::kQuery && line.to_modem) outstanding = kept.size();
    if (line.port == Port::kQuery) answered = !line.to_modem && (answered || at_log::is_final(line.text));
    answered = answered || goes;
    kept.push_back(line);
  }
  lines.swap(kept);
  return text.str();
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
  text << unplugged(whole, toml);
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

// An OK that the simulated modem of a session answers anyway needs no line.
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

// `pulled`: the modem went before it had answered.
std::string answers_line(const Exchange& exchange, OwnAnswers& own, bool pulled) {
  std::string words;
  for (const Line& line : exchange.answers) {
    if (line.text != exchange.command.text) words += " " + quoted(line.text);
  }
  if (pulled) return "fault command = " + quoted(exchange.command.text) + ", times = 1, unplug = true\n";
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

// Why a session cannot repeat a call, "" when it can.
std::string obstacle(const std::string& name) {
  return starts(name, "brio_trace_tst_")
             ? "a session has neither the filter file nor the trace; the answers to its commands follow"
             : "";
}

bool pulled(const Call& call) {
  return std::any_of(call.lines.begin(), call.lines.end(),
                     [](const Line& line) { return line.port == Port::kModem; });
}

// The modem's side of a call: its answers. `sent` becomes the commands.
std::string answers_to(const Call& call, OwnAnswers& own, std::string& sent, bool* unanswered) {
  std::string text;
  const std::vector<Exchange> exchanges = at_log::exchanges(call.lines);
  for (const Exchange& exchange : exchanges) {
    if (exchange.command.text.empty()) continue;
    const bool ended = std::any_of(exchange.answers.begin(), exchange.answers.end(),
                                   [](const Line& line) { return at_log::is_final(line.text); });
    *unanswered = pulled(call) && !ended && &exchange == &exchanges.back();
    text += answers_line(exchange, own, *unanswered);
    sent += (sent.empty() ? "" : ", ") + exchange.command.text;
  }
  return text;
}

// The call and what it must show.
std::string played(const Call& call, const std::string& sent, bool gone) {
  const std::string name = name_of(call.text), status = name_of(call.result);
  const bool seen = status != "?" && status != "-";
  const bool opens = name == "wabs_open" || name == "brio_open";
  if (!seen) return session_call(call) + "\n";
  // Without a modem a call may fail.
  if (status != "0" && gone) return session_call(call) + " => " + status + " ..\n";
  if (status != "0") {
    return "# It returned " + call.result +
           " when it was recorded. The line says what it should have returned: complete it.\n" +
           session_call(call) + " => 0\n";
  }
  if (name == kRequest) return session_call(call) + "\n";
  return session_call(call) + " => " + shown(call.result) +
         (sent.empty() || opens ? "" : " ; sent " + shown(sent)) + "\n";
}

std::string session_of(const std::vector<Line>& lines, const std::string& title) {
  std::ostringstream text;
  text << "# " << title << "\n";
  OwnAnswers own;
  bool opened = false, listens = false, gone = false;
  std::string early;  // reports to which nobody listens yet
  const bool cut = cut_off(lines) != lines.cend();
  const std::vector<Call> calls = calls_of(lines);
  for (const Call& call : calls) {
    const std::string name = name_of(call.text);
    const bool ended = call.result.empty() || (cut && call.result == "?" && &call == &calls.back());
    const std::string left_out = call.text.empty() ? ""
                                 : ended           ? "it was not over when the recording ended"
                                                   : obstacle(name);
    const bool plays = !call.text.empty() && left_out.empty();
    std::string sent;
    bool unanswered = false;
    const std::string answers = ended && !call.text.empty() ? "" : answers_to(call, own, sent, &unanswered);
    if (!left_out.empty()) text << "# left out: " << printable(call.text) << " (" << left_out << ")\n";
    if (gone && !sent.empty()) text << "plug\n";
    gone = gone && sent.empty();
    text << answers;
    if (plays && !opened && name != "wabs_open" && name != "brio_open") {
      text << "open\n";
      listens = true;
    }
    if (plays) {
      text << played(call, sent, gone || pulled(call));
      opened = true;
      listens = (listens || name_of(call.result) == "0") && name != "wabs_close" && name != "brio_close";
    }
    const std::string reports = reports_of(call.lines);
    if (listens) {
      text << early << reports;
      early.clear();
    } else {
      early += reports;
    }
    if (!pulled(call)) continue;
    if (!unanswered) text << "unplug\n";
    gone = true;
    listens = false;
  }
  if (!early.empty()) text << (opened ? "# left out: reports that came after the end\n" : "open\n" + early);
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
  errno = 0;
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) throw Failure(path + " cannot be written: " + std::strerror(errno) + ".");
  output::result()["files"].push_back(path);
  if (!output::json()) printf("%s\n", printable(path).c_str());
}

}  // namespace

int run_import(const std::string& recording, std::string prefix, bool force) {
  std::vector<Line> lines;
  try {
    std::string torn;
    lines = at_log::load(recording, &torn);
    if (!torn.empty()) fprintf(stderr, "brioctl: %s.\n", printable(torn).c_str());
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
