#include "at_client.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "report.h"

namespace brioctl {
namespace {

constexpr std::size_t kLongestLine = 65536;

bool starts(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

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

// A report on the query port while a command waits: it has the name of one and not the command's.
bool is_report(const std::string& line, const std::string& command) {
  static constexpr const char* kNames[] = {"CREG",   "CGREG",       "CEREG",  "CTZV",  "CTZE",  "CIEV",
                                           "CMTI",   "CMT",         "CDS",    "CUSD",  "CRING", "CGEV",
                                           "GTBARS", "GTOTAREJECT", "BASURC", "STKPCI"};
  if (line == "RING") return true;
  std::string upper;
  for (const char c : command) upper += static_cast<char>(std::toupper(c & 0xFF));
  return std::any_of(std::begin(kNames), std::end(kNames), [&](const char* name) {
    return starts(line, ("+" + std::string(name) + ":").c_str()) && upper.find(name) == std::string::npos;
  });
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

void AtClient::send(const std::string& command) {
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

void AtClient::give_up() {
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
  if (!urc && state_ == State::kWaiting && !echo_.empty() && text == echo_) {
    echo_.clear();
  } else if (urc || state_ == State::kIdle || is_report(text, answer_.command)) {
    on_report(urc, text);
  } else if (is_end(text)) {
    answer_.result = text;
    give_up();
  } else if (text != "\x1a" && text != "> ") {
    answer_.lines.push_back(text);
    on_line(text);
  }
}

}  // namespace brioctl
