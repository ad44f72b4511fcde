#include "at_client.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "report.h"
#include "text.h"

namespace brioctl {
namespace {

constexpr std::size_t kLongestLine = 65536;
constexpr char kNameSigns[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

bool is_good_end(const std::string& line) {
  return line == "OK" || line == "CONNECT" || starts(line, "CONNECT ");
}

// ITU-T V.250 and 3GPP TS 27.007.
bool is_end(const std::string& line) {
  static constexpr const char* kWhole[] = {"ERROR",     "NO CARRIER", "NO DIALTONE", "NO DIAL TONE",
                                           "NO ANSWER", "BUSY",       "ABORTED"};
  return is_good_end(line) || starts(line, "+CME ERROR:") || starts(line, "+CMS ERROR:") ||
         std::find(std::begin(kWhole), std::end(kWhole), line) != std::end(kWhole);
}

// "CSQ" of "+CSQ: 30,99", "" of other lines.
std::string name_of(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (line[0] != '+' || colon == std::string::npos || std::isalpha(line[1] & 0xFF) == 0) return "";
  const std::string name = line.substr(1, colon - 1);
  return name.find_first_not_of(kNameSigns) == std::string::npos ? name : "";
}

// A report on the query port while a command waits: it has the name of one and not the command's.
bool is_report(const std::string& line, const std::string& command) {
  static constexpr const char* kNames[] = {"CREG",   "CGREG",       "CEREG",  "CTZV",  "CTZE",  "CIEV",
                                           "CMTI",   "CMT",         "CDS",    "CUSD",  "CRING", "CGEV",
                                           "GTBARS", "GTOTAREJECT", "BASURC", "STKPCI"};
  if (line == "RING") return true;
  const std::string name = name_of(line);
  return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames) &&
         upper(command).find(name) == std::string::npos;
}

bool is_read(const std::string& command) {
  return command.size() > 2 && command.back() == '?' && command[command.size() - 2] != '=';
}

// Whether a line "+NAME: ..." cannot be an answer to the command: another name than "AT+NAME..." asks for,
// where neither holds the other (AT+CCID: "+ICCID: ..."), or the list of AT+NAME=? ("(..." or ",...") for
// AT+NAME?.
bool is_foreign(const std::string& line, const std::string& command) {
  const std::string name = name_of(line), asked = upper(command);
  if (name.empty() || !starts(asked, "AT+")) return false;
  const std::size_t value = line.find_first_not_of(' ', name.size() + 2);
  const bool list = value != std::string::npos && (line[value] == '(' || line[value] == ',');
  if (list && is_read(command)) return true;
  for (std::size_t at = asked.find('+'); at != std::string::npos; at = asked.find('+', at + 1)) {
    const std::size_t end = asked.find_first_not_of(kNameSigns, at + 1);
    const std::string each = asked.substr(at + 1, end == std::string::npos ? end : end - at - 1);
    if (name.find(each) != std::string::npos || each.find(name) != std::string::npos) return false;
  }
  return true;
}

int open_port(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) throw Failure(path + ": " + std::strerror(errno) + ".");
  return fd;
}

}  // namespace

bool AtAnswer::ok() const {
  return is_good_end(result);
}

AtClient::AtClient(const std::string& query_port, const std::string& urc_port)
    : query_(open_port(query_port)), urc_(open_port(urc_port)) {}

AtClient::~AtClient() {
  close(query_);
  if (urc_ >= 0) close(urc_);
}

void AtClient::write_all(const std::string& bytes) {
  constexpr int kPatience = 5000;  // ms, for a modem that takes nothing
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t size = write(query_, bytes.data() + at, bytes.size() - at);
    if (size > 0) {
      at += static_cast<std::size_t>(size);
      continue;
    }
    pollfd port = {query_, POLLOUT, 0};
    if ((errno != EAGAIN && errno != EINTR) || poll(&port, 1, kPatience) == 0) {
      throw Failure("The command could not be sent: the modem takes nothing.");
    }
  }
  sent_ = Clock::now();
  state_ = State::kWaiting;
}

bool AtClient::take_waiting() {
  constexpr int kQuiet = 50;  // ms, for what the relay has still to pass
  pollfd port = {query_, POLLIN, 0};
  while (poll(&port, 1, kQuiet) > 0) {
    if (!take(false)) return false;
  }
  return true;
}

void AtClient::send(const std::string& command) {
  others_ = late_end_ = false;
  if (command == "^") owed_.clear();  // the modem does not answer what it aborts
  answer_ = {};
  answer_.command = command;
  echo_ = command;
  begun_ = Clock::now();
  write_all(command + "\r");
}

void AtClient::send_text(const std::string& bytes) {
  echo_ = bytes.substr(0, bytes.find('\r'));
  write_all(bytes);
}

void AtClient::give_up(bool silent) {
  // After another answer and a whole time-out nothing more is to come: the two were one, or this one is lost.
  if (silent && late_end_) {
    owed_.clear();
  } else {
    owed_.push_back(answer_.command);
  }
  done();
}

void AtClient::done() {
  state_ = State::kIdle;
  answer_.seconds = std::chrono::duration<double>(Clock::now() - begun_).count();
}

double AtClient::waited() const {
  return std::chrono::duration<double>(Clock::now() - sent_).count();
}

bool AtClient::take(bool urc) {
  char bytes[4096];
  const ssize_t size = read(urc ? urc_ : query_, bytes, sizeof bytes);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (size <= 0) return false;
  std::string& partial = partial_[urc ? 1 : 0];
  for (ssize_t i = 0; i < size; i++) {
    const bool end = bytes[i] == '\r' || bytes[i] == '\n';
    if (!end) partial += bytes[i];
    if (end ? partial.empty() : partial.size() < kLongestLine) continue;
    std::string text;
    text.swap(partial);
    line(urc, text);
  }
  // A prompt has no line end.
  if (!urc && state_ == State::kWaiting && (partial == "> " || partial == ">")) {
    partial.clear();
    state_ = State::kPrompted;
  }
  return true;
}

void AtClient::line(bool urc, const std::string& text) {
  if (urc) {
    on_report(true, text);
  } else if (state_ == State::kWaiting && !echo_.empty() && text == echo_) {
    echo_.clear();
  } else {
    query_line(text);
  }
}

// Whether a line that is no end belongs to a command before the one that waits, or to none.
bool AtClient::is_late_line(const std::string& text) {
  const bool foreign = answer_.lines.empty() && is_foreign(text, answer_.command);
  if (!owed_.empty()) {
    if (foreign || name_of(text).empty() || !is_foreign(text, owed_.front())) return true;
    owed_.clear();  // its own name: those before it are not answered any more
  }
  if (!is_report(text, answer_.command)) {
    others_ = others_ || foreign;
    return foreign;
  }
  others_ = others_ || is_read(answer_.command);  // which has lines of its own
  return true;
}

void AtClient::query_line(const std::string& text) {
  if (is_end(text)) {
    end(text);
  } else if (state_ == State::kIdle || is_late_line(text)) {
    on_report(false, text);
  } else if (text != "\x1a" && text != "> ") {
    answer_.lines.push_back(text);
    on_line(text);
  }
}

void AtClient::end(const std::string& text) {
  const bool waiting = state_ != State::kIdle;
  if (waiting && owed_.empty() && !(others_ && answer_.lines.empty())) {
    answer_.result = text;
    done();
    return;
  }
  on_report(false, text);
  others_ = false;
  std::string whose = "an earlier command";
  if (!owed_.empty()) {
    whose = owed_.front();
    owed_.pop_front();
  }
  if (waiting) {
    late_end_ = true;
    sent_ = Clock::now();
    on_late("That seems to be the late answer to " + whose + "; still waiting for that to " +
            answer_.command + ".");
  }
}

}  // namespace brioctl
