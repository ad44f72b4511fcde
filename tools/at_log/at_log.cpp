#include "at_log.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "printable.h"
#include "text.h"

namespace at_log {
namespace {

constexpr const char* kPorts[] = {"query", "urc", "host", "modem"};
constexpr char kHungUp[] = "hung up";
constexpr std::int64_t kTornAfter = 1000;  // ms
constexpr std::size_t kMaxLine = 65536;    // a longer line is cut in pieces, each of them torn
constexpr std::size_t kShownDigits = 6;    // of an identity: the network or the issuer

std::string escaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0;;) {
    const std::size_t end = text.find('\\', at);
    result += printable(text.substr(at, end - at));
    if (end == std::string::npos) return result;
    result += "\\\\";
    at = end + 1;
  }
}

// The text after the columns; false for an escape that does not exist.
bool unescape(const std::string& text, Line& line) {
  for (std::size_t at = 0; at < text.size(); at++) {
    if (text[at] != '\\') {
      line.text += text[at];
      continue;
    }
    if (++at == text.size()) {
      line.torn = true;
      return true;
    }
    unsigned code = 0;
    int size = 0;
    if (text[at] == '\\') {
      line.text += '\\';
    } else if (text[at] == 'r' || text[at] == 'n') {
      line.text += text[at] == 'r' ? '\r' : '\n';
    } else if (text[at] == 'x' && std::sscanf(text.c_str() + at, "x%2x%n", &code, &size) == 1 && size == 3) {
      line.text += static_cast<char>(code);
      at += 2;
    } else {
      return false;
    }
  }
  return true;
}

// `shown_instead` for what follows the first digits of `size` digits at `at`.
void blank(std::string& text, std::size_t at, std::size_t size, char shown_instead) {
  std::size_t shown = 0;
  for (std::size_t i = at; i < at + size; i++) {
    if (text[i] == '-') continue;
    if (shown++ >= kShownDigits) text[i] = shown_instead;
  }
}

}  // namespace

std::string time_stamp(std::int64_t wall_ms) {
  char milliseconds[8];
  std::snprintf(milliseconds, sizeof milliseconds, ".%03dZ", static_cast<int>(wall_ms % 1000));
  return utc(wall_ms / 1000, "%Y-%m-%dT%H:%M:%S") + milliseconds;
}

std::string compact(const std::string& command) {
  std::string text = upper(command);
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

std::string format(const Line& line) {
  char columns[96];
  std::snprintf(columns, sizeof columns, "%s %9" PRId64 " %-5s %s ", time_stamp(line.wall_ms).c_str(),
                line.ms, kPorts[static_cast<int>(line.port)], line.to_modem ? "-->" : "<--");
  return (line.port == Port::kModem ? "# " : "") + (columns + escaped(line.text)) + (line.torn ? "\\" : "");
}

std::optional<Line> parse(const std::string& whole) {
  const bool remark = starts(whole, "#");
  if (whole.empty() || (remark && whole.find(std::string(" modem <-- ") + kHungUp) == std::string::npos)) {
    return std::nullopt;
  }
  const std::string text = whole.substr(remark ? 2 : 0);
  std::tm time{};
  int milliseconds = 0, size = 0;
  Line line;
  char port[8], direction[4];
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ %" SCNd64 " %7s %3s%n", &time.tm_year,
                  &time.tm_mon, &time.tm_mday, &time.tm_hour, &time.tm_min, &time.tm_sec, &milliseconds,
                  &line.ms, port, direction, &size) != 10) {
    throw std::invalid_argument("this is no line of an AT log");
  }
  time.tm_year -= 1900;
  time.tm_mon -= 1;
  line.wall_ms = static_cast<std::int64_t>(timegm(&time)) * 1000 + milliseconds;
  std::size_t which = 0;
  while (which < std::size(kPorts) && std::string(port) != kPorts[which]) which++;
  line.port = static_cast<Port>(which);
  if (which == std::size(kPorts) || remark != (line.port == Port::kModem)) {
    throw std::invalid_argument("the port must be query, urc or host");
  }
  line.to_modem = std::string(direction) == "-->";
  if (!line.to_modem && std::string(direction) != "<--") {
    throw std::invalid_argument("the direction must be --> or <--");
  }
  const std::string rest = text.substr(static_cast<std::size_t>(size));
  if (!unescape(rest.empty() ? rest : rest.substr(1), line)) {
    throw std::invalid_argument("a backslash must be followed by \\, r, n or xNN");
  }
  return line;
}

bool is_final(const std::string& text) {
  for (const char* whole : {"OK", "ERROR", "NO CARRIER", "NO ANSWER", "NO DIALTONE", "BUSY", "ABORTED"}) {
    if (text == whole) return true;
  }
  return starts(text, "+CME ERROR:") || starts(text, "+CMS ERROR:") || starts(text, "CONNECT");
}

std::string file_of(const std::string& path) {
  return std::filesystem::is_directory(path) ? (std::filesystem::path(path) / "at.log").string() : path;
}

std::vector<Line> load(const std::string& path, std::string* torn) {
  const std::string name = file_of(path);
  std::ifstream file(name);
  if (!file) throw std::runtime_error(name + " cannot be read");
  std::vector<Line> lines;
  std::string text;
  for (int number = 1; std::getline(file, text); number++) {
    if (file.eof()) {
      if (torn != nullptr) {
        *torn = name + ":" + std::to_string(number) + ": the line is cut off, and left out";
      }
      break;
    }
    if (!text.empty() && text.back() == '\r') text.pop_back();
    try {
      if (auto line = parse(text)) lines.push_back(*line);
    } catch (const std::invalid_argument& wrong) {
      throw std::runtime_error(name + ":" + std::to_string(number) + ": " + wrong.what());
    }
  }
  if (lines.empty()) throw std::runtime_error(name + " holds no line of an AT log");
  return lines;
}

std::vector<Exchange> exchanges(const std::vector<Line>& lines) {
  std::vector<Exchange> all;
  for (const Line& line : lines) {
    if (line.port == Port::kHost || line.port == Port::kModem) continue;
    const bool command = line.port == Port::kQuery && line.to_modem;
    if (command || all.empty()) {
      all.emplace_back().command = line;
      if (!command) all.back().command.text.clear();
    }
    if (line.to_modem) continue;
    (line.port == Port::kUrc ? all.back().reports : all.back().answers).push_back(line);
  }
  return all;
}

void Mask::hide(Line& line) {
  std::string& text = line.text;
  const std::string solid = compact(text);
  const auto holds = [&solid](const char* word) { return solid.find(word) != std::string::npos; };
  // EF_ICCID and EF_IMSI. The answer may come late, after another command.
  const bool command = line.port == Port::kQuery && line.to_modem;
  if (command && (holds("=176,12258") || holds("=176,28423"))) file_ = true;
  const bool file = starts(text, "+CRSM:");
  if (file && !file_) return;
  if (file) file_ = false;
  bool named = file;
  for (const char* name : {"CCID", "CIMI", "IMSI", "CGSN", "IMEI"}) named = named || holds(name);
  for (std::size_t at = 0; at < text.size();) {
    // An ICCID may hold letters, and any identity dashes, where the line says that it is one.
    const auto belongs = [&](char c) {
      return std::isdigit(c & 0xFF) != 0 || (named && (std::isxdigit(c & 0xFF) != 0 || c == '-'));
    };
    std::size_t end = at;
    while (end < text.size() && belongs(text[end])) end++;
    // A bare ICCID ends in a filler.
    const auto filler = [&](std::size_t i) { return i < text.size() && (text[i] == 'F' || text[i] == 'f'); };
    if (!named && filler(end)) end++;
    const auto part_of_word = [&](std::size_t i) {
      return i < text.size() && std::isalpha(text[i] & 0xFF) != 0;
    };
    const bool word = !named && ((at > 0 && part_of_word(at - 1)) || part_of_word(end));
    const std::size_t size = end - at;
    const std::size_t least = named || line.torn || torn_ ? kShownDigits + 1 : 14;
    // The filler of an odd number of digits stays: it tells how many there are. Where a SIM's file swaps its
    // digits it is the last but one.
    const std::size_t kept = end - (file && size > 1 && filler(end - 2) ? 2 : 1);
    const bool fills = size > 0 && filler(kept);
    if (!word && size <= 24 && size >= least) {
      blank(text, at, size, shown_);
      if (fills) text[kept] = 'F';
    }
    at = end + 1;
  }
  if (line.port != Port::kHost) torn_ = line.torn;
}

Journal::Journal(bool identities) : identities_(identities), start_(now()) {}

std::int64_t Journal::now() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void Journal::listen(Listener listener) {
  listeners_.push_back(std::move(listener));
}

void Journal::listen_remarks(Remark listener) {
  remark_listeners_.push_back(std::move(listener));
}

void Journal::remark(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const Remark& listener : remark_listeners_) listener(text);
}

void Journal::tell(Port port, bool to_modem, std::string text, bool torn) {
  using namespace std::chrono;
  Line line;
  line.wall_ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  line.ms = now() - start_;
  line.port = port;
  line.to_modem = to_modem;
  line.text = std::move(text);
  line.torn = torn;
  if (!identities_) mask_.hide(line);
  for (const Listener& listener : listeners_) listener(line);
}

void Journal::bytes(Port port, bool to_modem, const char* data, std::size_t size) {
  const std::lock_guard<std::mutex> guard(mutex_);
  Channel& channel = channels_[static_cast<std::size_t>(port) * 2 + (to_modem ? 1 : 0)];
  channel.since = now();
  // A prompt has no line end: what the other side says ends it.
  Channel& other = channels_[static_cast<std::size_t>(port) * 2 + (to_modem ? 0 : 1)];
  if (other.partial == "> " || other.partial == ">") {
    std::string text;
    text.swap(other.partial);
    tell(port, !to_modem, std::move(text), true);
  }
  for (std::size_t i = 0; i < size; i++) {
    const bool end = data[i] == '\r' || data[i] == '\n';
    if (!end) channel.partial += data[i];
    if (end ? !channel.partial.empty() : channel.partial.size() >= kMaxLine) {
      std::string text;
      text.swap(channel.partial);
      tell(port, to_modem, std::move(text), !end);
    }
  }
}

void Journal::hung_up() {
  finish();
  const std::lock_guard<std::mutex> guard(mutex_);
  tell(Port::kModem, false, kHungUp, false);
}

void Journal::call(bool begins, const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  tell(Port::kHost, begins, text, false);
}

int Journal::tick() {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::int64_t next = -1;
  for (std::size_t i = 0; i < channels_.size(); i++) {
    Channel& channel = channels_[i];
    if (channel.partial.empty()) continue;
    const std::int64_t left = channel.since + kTornAfter - now();
    if (left > 0) {
      next = next < 0 || left < next ? left : next;
      continue;
    }
    std::string text;
    text.swap(channel.partial);
    tell(static_cast<Port>(i / 2), i % 2 == 1, std::move(text), true);
  }
  return static_cast<int>(next);
}

void Journal::finish() {
  const std::lock_guard<std::mutex> guard(mutex_);
  for (std::size_t i = 0; i < channels_.size(); i++) {
    std::string text;
    text.swap(channels_[i].partial);
    if (!text.empty()) tell(static_cast<Port>(i / 2), i % 2 == 1, std::move(text), true);
  }
}

}  // namespace at_log
